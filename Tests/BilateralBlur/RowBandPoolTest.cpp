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
        const auto call = [&] {
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
        };
        const std::jthread callers[] = {std::jthread(call), std::jthread(call), std::jthread(call)};
    }
}

TEST(RowBandPool, WorkersAreThreadsThatTakeNoSignalsAndStayWithTheirScratch) {
    RowBandPool pool(3);
    std::mutex mutex;
    std::set<std::tuple<unsigned, std::thread::id, void*>> workers;
    for (const std::size_t bytes : {1000, 999}) {
        // No job ends before all three have begun, so each thread gets one.
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            auto* const blocked = new (pool.scratch(worker, bytes)) sigset_t;
            pthread_sigmask(SIG_BLOCK, nullptr, blocked);
            begun.arrive_and_wait();
            for (int signal = 1; signal < 32; ++signal)
                EXPECT_EQ(sigismember(blocked, signal), worker && signal != SIGKILL && signal != SIGSTOP);
            const std::lock_guard lock(mutex);
            workers.emplace(worker, std::this_thread::get_id(), blocked);
        });
    }
    EXPECT_EQ(workers.size(), 3u);
    EXPECT_EQ(std::get<1>(*workers.begin()), std::this_thread::get_id());
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
    for (const std::size_t bad : {0u, 1u, 7u})
        EXPECT_THROW(pool.run(8, [bad](std::size_t index, unsigned) { index == bad ? throw 7 : 0; }), int);
    std::atomic<int> calls = 0;
    pool.run(8, [&](std::size_t, unsigned) { ++calls; });
    EXPECT_EQ(calls, 8);
    RowBandPool alone(1);
    EXPECT_THROW(alone.run(8, [&](std::size_t, unsigned) { throw ++calls; }), int);
    EXPECT_EQ(calls, 9) << "the other jobs are left out";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
