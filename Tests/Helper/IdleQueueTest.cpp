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
    queue.updateQueue();
    EXPECT_THAT(ran, testing::ElementsAre(1, 2, 3));
}

TEST(IdleQueue, FailedAndDroppedClosuresLeaveItUsable) {
    // Uses the queue as it is destroyed, which must not happen under the lock.
    struct LastCall {
        IdleQueue& queue;
        ~LastCall() { queue.hasTask(); }
    };
    auto held = std::make_shared<int>();
    {
        IdleQueue queue;
        queue.async(std::function<void()>());
        queue.async([last = std::make_shared<LastCall>(queue)] { throw 7; });
        EXPECT_THROW(queue.updateQueue(), std::bad_function_call);
        EXPECT_THROW(queue.updateQueue(), int);
        queue.async([held] { FAIL(); });
        queue.clearAsyncQueue();
        EXPECT_TRUE(held.use_count() == 1 && !queue.hasTask());
        queue.async([held] { FAIL(); });
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(IdleQueue, ManyProducersAndTwoConsumersLoseAndRepeatNothing) {
    constexpr int kProducers = 6, kEach = 300;
    IdleQueue queue;
    std::vector<std::atomic<int>> runs(kProducers * kEach);
    std::atomic<int> total = 0;
    std::vector<std::jthread> threads;
    for (int producer = 0; producer < kProducers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int i = 0; i < kEach; ++i) {
                queue.async([&runs, &total, index = producer * kEach + i] { ++runs[index], ++total; });
            }
        });
    }
    for (int consumer = 0; consumer < 2; ++consumer) {
        threads.emplace_back([&] {
            while (total < kProducers * kEach) {
                queue.updateQueue();
            }
        });
    }
    threads.clear();
    EXPECT_THAT(std::vector<int>(runs.begin(), runs.end()), testing::Each(1));
    EXPECT_FALSE(queue.hasTask());
}

TEST(Semaphore, SignalsAreCountedAndWakingAllAddsNone) {
    Semaphore semaphore(2);
    std::atomic<int> passed = 0;
    std::vector<std::jthread> threads;
    const auto arrive = [&](int count) {
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&] { semaphore.wait(), ++passed; });
        }
    };
    const auto expectToReach = [&](int count, auto meanwhile) {
        while (passed < count) {
            meanwhile();
        }
        // Long enough for a thread too many to pass.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(passed, count);
    };
    arrive(7);
    expectToReach(2, std::this_thread::yield);
    semaphore.signal(0);
    semaphore.signal(3);
    expectToReach(5, std::this_thread::yield);
    expectToReach(7, [&] { semaphore.signalAll(); });
    arrive(1);
    expectToReach(7, [] {});
    semaphore.signal();
    threads.clear();
    EXPECT_EQ(passed, 8);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
