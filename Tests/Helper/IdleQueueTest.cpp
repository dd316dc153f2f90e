#include "Plugins/Shared/Helper/IdleQueue.h"
#include "Plugins/Shared/Helper/Semaphore.h"

#include <atomic>

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
    constexpr int kEach = 20000;
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
}

TEST(Semaphore, CountsSignalsButNotThoseToAll) {
    Semaphore semaphore(2);
    std::atomic<int> started = 0, passed = 0;
    std::vector<std::jthread> threads;
    const auto expectToPass = [&](int count, int all) {
        while (std::ssize(threads) < all)
            threads.emplace_back([&] {
                ++started;
                semaphore.wait();
                ++passed;
            });
        while (started < all || passed < count)
            std::this_thread::yield();
        // Long enough for the others to block, and for one too many to pass.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(passed, count);
    };
    expectToPass(2, 7);
    semaphore.signal(3);
    expectToPass(5, 7);
    semaphore.signalAll();
    expectToPass(7, 8);
    semaphore.signal();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
