#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <atomic>
#include <csignal>
#include <optional>
#include <span>
#include <unistd.h>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(ThreadPool, CallersTakeTurnsEachJobRunsOnceAndEachWorkerHasItsScratch) {
    for (const unsigned threads : {1u, 2u, 5u}) {
        ThreadPool pool(threads);
        std::atomic<unsigned> inside = 0;
        const auto call = [&] {
            for (std::size_t frame = 0; frame < 50; ++frame) {
                std::vector<int> calls(frame % 5 * frame);
                pool.run(calls.size(), [&](std::size_t index, unsigned worker) {
                    EXPECT_LE(++inside, threads);
                    const std::span scratch(static_cast<std::size_t*>(pool.scratch(worker, 8 * frame)),
                                            frame);
                    std::ranges::fill(scratch, index);
                    std::this_thread::yield();
                    EXPECT_THAT(scratch, testing::Each(index));
                    ++calls[index];
                    --inside;
                });
                EXPECT_THAT(calls, testing::Each(1));
            }
        };
        const std::jthread callers[] = {std::jthread(call), std::jthread(call), std::jthread(call)};
    }
}

TEST(ThreadPool, AJobsExceptionReachesTheCallerAndLeavesThePoolUsable) {
    for (const unsigned threads : {1u, 2u}) {
        ThreadPool pool(threads);
        std::atomic<int> calls = 0;
        for (const std::size_t bad : {0u, 1u, 7u})
            EXPECT_THROW(pool.run(8, [bad](std::size_t at, unsigned) { at == bad ? throw 7 : 0; }), int);
        pool.run(8, [&](std::size_t, unsigned) { ++calls; });
        EXPECT_EQ(calls, 8);
    }
}

TEST(ThreadPool, ItsThreadsBlockAllSignals) {
    ThreadPool pool(2);
    std::atomic<int> ready = 0;
    sigset_t blocked[2];
    pool.run(2, [&](std::size_t, unsigned worker) {
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked[worker]);
        // Each worker takes one job.
        for (++ready; ready < 2;)
            std::this_thread::yield();
    });
    // The C library keeps some signals for itself, and an emulator the last.
    for (const int signal : {SIGINT, SIGTERM, SIGSEGV, SIGCHLD, SIGRTMIN})
        EXPECT_EQ(sigismember(&blocked[1], signal), 1) << signal;
    EXPECT_EQ(sigismember(&blocked[0], SIGTERM), 0);
}

// The child has none of the threads, and a copy of whatever lock was held.
TEST(ThreadPool, WorksAndEndsInAForkedChildWhateverTheOthersHeld) {
    std::optional<ThreadPool> pool(4);
    const std::jthread busy([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            pool->run(20, [](std::size_t, unsigned) {});
    });
    const auto child = [&] {
        alarm(20);
        int calls = 0;
        pool->run(8, [&](std::size_t, unsigned worker) { calls += worker == 0; });
        EXPECT_EQ(calls, 8);
        EXPECT_EQ(pool->threads(), 1u);
        pool.reset();
        _exit(HasFailure());
    };
    for (int i = 0; i < 50; ++i)
        ASSERT_EXIT(child(), testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
