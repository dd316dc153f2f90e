#include "Plugins/BilateralBlur/Sources/Cpu/RowBandPool.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <latch>
#include <mutex>
#include <sched.h>
#include <set>
#include <thread>
#include <tuple>
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
                        EXPECT_LE(++inside, threads);
                        EXPECT_LT(worker, threads);
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
    std::mutex mutex;
    std::set<std::tuple<unsigned, std::thread::id, void*>> workers;
    for (const std::size_t bytes : {1000, 999}) {
        // No job ends before all three have begun, so each thread gets one.
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            auto* const scratch = static_cast<unsigned*>(pool.scratch(worker, bytes));
            *scratch = worker;
            begun.arrive_and_wait();
            EXPECT_EQ(*scratch, worker);
            const std::lock_guard lock(mutex);
            workers.emplace(worker, std::this_thread::get_id(), scratch);
        });
    }
    EXPECT_EQ(workers.size(), 3u);
    EXPECT_EQ(std::get<1>(*workers.begin()), std::this_thread::get_id());
}

TEST(RowBandPool, ThreadsBlockAllSignalsAndTheCallerNone) {
    RowBandPool pool(2);
    std::latch begun(2);
    pool.run(2, [&](std::size_t, unsigned worker) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        for (int signal = 1; signal < 32; ++signal)
            EXPECT_EQ(sigismember(&mask, signal), worker && signal != SIGKILL && signal != SIGSTOP) << signal;
        begun.arrive_and_wait();
    });
}

TEST(RowBandPool, FollowsTheAffinityOfTheThreadThatMakesIt) {
    std::thread([] {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        sched_setaffinity(0, sizeof(one), &one);
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
