#include "Plugins/Shared/Helper/IdleQueue.h"
#include "Plugins/Shared/Helper/Semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(IdleQueue, RunsOneClosureForEachUpdate) {
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

TEST(IdleQueue, RunsEachClosureOnceOnManyThreads) {
    constexpr int kEach = 5000;
    IdleQueue queue;
    std::atomic<int> ran = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id < 8; ++id)
        threads.emplace_back([&, id] {
            for (int i = 0; id < 6 && i < kEach; ++i)
                queue.async([&] { ++ran; });
            while (id >= 6 && ran < 6 * kEach)
                queue.updateQueue();
        });
    threads.clear();
    EXPECT_EQ(ran, 6 * kEach);
    EXPECT_FALSE(queue.hasTask());
}

TEST(Semaphore, CountsSignalsButNotThoseToAll) {
    Semaphore semaphore(2);
    std::atomic<int> passed = 0;
    std::vector<std::jthread> threads;
    const auto expectToReach = [&](int count, int more, auto meanwhile) {
        while (more--)
            threads.emplace_back([&] {
                semaphore.wait();
                ++passed;
            });
        while (passed < count)
            meanwhile();
        // Long enough for a thread too many to pass.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(passed, count);
    };
    expectToReach(2, 7, std::this_thread::yield);
    semaphore.signal(3);
    expectToReach(5, 0, std::this_thread::yield);
    expectToReach(7, 0, [&] { semaphore.signalAll(); });
    expectToReach(7, 1, std::this_thread::yield);
    semaphore.signal();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
