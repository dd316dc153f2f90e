#include "Plugins/BilateralBlur/Sources/Cpu/RowBandPool.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <latch>
#include <sched.h>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(RowBandPool, CallersTakeTurnsAndEachJobRunsOnce) {
    for (const unsigned threads : {1u, 2u, 5u}) {
        RowBandPool pool(threads);
        std::atomic<unsigned> inside = 0;
        std::vector<std::jthread> callers(4);
        for (std::jthread& caller : callers)
            caller = std::jthread([&] {
                for (std::size_t frame = 0; frame < 50; ++frame) {
                    std::vector<int> calls(frame % 5 * frame);
                    pool.run(calls.size(), [&](std::size_t index, unsigned worker) {
                        EXPECT_TRUE(++inside <= threads && worker < threads);
                        std::this_thread::yield();
                        ++calls[index];
                        --inside;
                    });
                    EXPECT_THAT(calls, testing::Each(1));
                }
            });
    }
}

TEST(RowBandPool, WorkersAreDistinctThreadsThatStayWithTheirScratch) {
    RowBandPool pool(3);
    std::pair<std::thread::id, void*> workers[2][3];
    for (std::size_t frame = 0; frame < 2; ++frame) {
        // No job ends before all three have begun, so each thread gets one.
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            workers[frame][worker] = {std::this_thread::get_id(), pool.scratch(worker, 1000 - frame)};
            begun.arrive_and_wait();
        });
    }
    std::set<std::thread::id> threads;
    std::set<void*> scratch;
    for (int worker = 0; worker < 3; ++worker) {
        EXPECT_EQ(workers[0][worker], workers[1][worker]);
        threads.insert(workers[0][worker].first);
        scratch.insert(workers[0][worker].second);
    }
    EXPECT_TRUE(threads.size() == 3 && scratch.size() == 3);
    EXPECT_EQ(workers[0][0].first, std::this_thread::get_id());
}

TEST(RowBandPool, ThreadsBlockAllSignalsAndTheCallersMaskStays) {
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    RowBandPool pool(2);
    sigset_t masks[2];
    std::latch begun(2);
    pool.run(2, [&](std::size_t, unsigned worker) {
        pthread_sigmask(SIG_BLOCK, nullptr, &masks[worker]);
        begun.arrive_and_wait();
    });
    for (int signal = 1; signal < 32; ++signal) {
        EXPECT_EQ(sigismember(&masks[0], signal), sigismember(&before, signal)) << signal;
        const bool blockable = signal != SIGKILL && signal != SIGSTOP;
        EXPECT_EQ(sigismember(&masks[1], signal), blockable) << signal;
    }
}

TEST(RowBandPool, FollowsTheAffinityOfTheThreadThatMakesIt) {
    std::thread([] {
        cpu_set_t all, one;
        ASSERT_EQ(sched_getaffinity(0, sizeof(all), &all), 0);
        EXPECT_LE(RowBandPool().threads(), static_cast<unsigned>(CPU_COUNT(&all)));
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
        EXPECT_EQ(RowBandPool().threads(), 1u);
    }).join();
}

TEST(RowBandPool, AJobsExceptionReachesTheCallerAndLeavesThePoolUsable) {
    RowBandPool pool(2);
    std::atomic<int> calls = 0;
    for (const std::size_t bad : {0u, 1u, 7u})
        EXPECT_THROW(pool.run(8, [&](std::size_t index, unsigned) { index == bad ? throw 7 : ++calls; }),
                     int);
    calls = 0;
    pool.run(8, [&](std::size_t, unsigned) { ++calls; });
    EXPECT_EQ(calls, 8);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
