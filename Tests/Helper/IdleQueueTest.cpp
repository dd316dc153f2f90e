#include "Plugins/Shared/Helper/IdleQueue.h"
#include "Plugins/Shared/Helper/Semaphore.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(IdleQueue, RunsOneClosureForEachUpdateInOrder) {
    IdleQueue queue;
    std::vector<int> ran;
    queue.updateQueue();
    queue.async([&] {
        EXPECT_FALSE(queue.hasTask());
        ran.push_back(1);
        queue.async([&] { ran.push_back(2); });
        queue.async([&] { ran.push_back(3); });
        queue.updateQueue();
    });
    queue.updateQueue();
    EXPECT_THAT(ran, testing::ElementsAre(1, 2));
}

TEST(IdleQueue, FailedAndDroppedClosuresLeaveItUsable) {
    IdleQueue queue;
    queue.async(std::function<void()>());
    queue.async([] { throw 7; });
    EXPECT_THROW(queue.updateQueue(), std::bad_function_call);
    EXPECT_THROW(queue.updateQueue(), int);
    const auto held = std::make_shared<int>();
    queue.async([held] { FAIL(); });
    queue.clearAsyncQueue();
    EXPECT_TRUE(held.use_count() == 1 && !queue.hasTask());
}

TEST(IdleQueue, ManyProducersAndTwoConsumersLoseAndRepeatNothing) {
    constexpr int kCount = 1800, kProducers = 6;
    IdleQueue queue;
    std::vector<std::atomic<int>> runs(kCount);
    std::atomic<int> total = 0;
    std::vector<std::jthread> threads;
    for (int first = 0; first < kProducers; ++first) {
        threads.emplace_back([&, first] {
            for (int i = first; i < kCount; i += kProducers) {
                queue.async([&runs, &total, i] { ++runs[i], ++total; });
            }
        });
    }
    const auto consume = [&] {
        while (total < kCount) {
            queue.updateQueue();
        }
    };
    threads.emplace_back(consume);
    consume();
    threads.clear();
    EXPECT_THAT(std::vector<int>(runs.begin(), runs.end()), testing::Each(1));
}

TEST(Semaphore, SignalsAreCountedAndWakingAllAddsNone) {
    Semaphore semaphore(2);
    std::atomic<int> passed = 0;
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
        threads.emplace_back([&] { semaphore.wait(), ++passed; });
    }
    expectToReach(2, std::this_thread::yield);
    semaphore.signal(0);
    semaphore.signal(3);
    expectToReach(5, std::this_thread::yield);
    expectToReach(7, [&] { semaphore.signalAll(); });
    threads.emplace_back([&] { semaphore.wait(), ++passed; });
    expectToReach(7, [] {});
    semaphore.signal();
    expectToReach(8, std::this_thread::yield);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
