#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <span>
#include <thread>
#include <vector>

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

} // namespace
} // namespace Tessaloom::BilateralBlur
