#include "Plugins/Shared/Helper/IdleQueue.h"
#include "Plugins/Shared/Helper/Semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(IdleQueue, RunsOneClosureForEachUpdateInOrderAndOutlivesFailedOnes) {
    IdleQueue queue;
    int ran = 0;
    queue.async([&] {
        EXPECT_FALSE(queue.hasTask());
        queue.async([&] { ran = 1; });
        queue.async([] { throw 7; });
        queue.async([] { FAIL(); });
        queue.updateQueue();
    });
    queue.updateQueue();
    EXPECT_EQ(ran, 1);
    EXPECT_THROW(queue.updateQueue(), int);
    queue.clearAsyncQueue();
    EXPECT_FALSE(queue.hasTask());
}

TEST(IdleQueue, ManyProducersAndTwoConsumersLoseAndRepeatNothing) {
    constexpr int kProducers = 6, kCount = 300, kTotal = kProducers * kCount;
    IdleQueue queue;
    std::atomic<int> ran = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id < kProducers + 2; ++id) {
        threads.emplace_back([&, id] {
            for (int i = 0; id < kProducers && i < kCount; ++i) {
                queue.async([&] { ++ran; });
            }
            while (id >= kProducers && ran < kTotal) {
                queue.updateQueue();
            }
        });
    }
    threads.clear();
    EXPECT_TRUE(ran == kTotal && !queue.hasTask());
}

TEST(Semaphore, SignalsAreCountedAndWakingAllAddsNone) {
    Semaphore semaphore(2);
    std::atomic<int> passed = 0;
    const auto pass = [&] { semaphore.wait(), ++passed; };
    std::vector<std::jthread> threads;
    const auto expectToReach = [&](int count, auto meanwhile) {
        while (passed < count) {
            meanwhile();
        }
        // Long enough for a thread too many to pass.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(passed, count);
    };
    for (int i = 0; i < 7; ++i) {
        threads.emplace_back(pass);
    }
    expectToReach(2, std::this_thread::yield);
    semaphore.signal(3);
    expectToReach(5, std::this_thread::yield);
    expectToReach(7, [&] { semaphore.signalAll(); });
    threads.emplace_back(pass);
    expectToReach(7, std::this_thread::yield);
    semaphore.signal();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
