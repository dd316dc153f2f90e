#include "Plugins/BilateralBlur/Sources/RowBandPool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <latch>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(RowBandPool, RunsEachJobOnceFrameAfterFrame) {
    for (const unsigned threads : {1u, 2u, 5u}) {
        RowBandPool pool(threads);
        EXPECT_EQ(pool.threads(), threads);
        for (const std::size_t jobs : {0u, 1u, 2u, 64u, 3u}) {
            std::vector<std::atomic<int>> calls(jobs);
            pool.run(jobs, [&](std::size_t index, unsigned worker) {
                EXPECT_LT(worker, threads);
                ++calls[index];
            });
            for (const auto& count : calls)
                EXPECT_EQ(count, 1);
        }
    }
}

TEST(RowBandPool, WorkersAreDistinctThreadsThatStay) {
    RowBandPool pool(3);
    std::vector<std::thread::id> first(3), second(3);
    for (auto* ids : {&first, &second}) {
        // No job ends before all three have begun, so each thread gets one.
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            (*ids)[worker] = std::this_thread::get_id();
            begun.arrive_and_wait();
        });
    }
    EXPECT_EQ(first, second);
    EXPECT_EQ(first[0], std::this_thread::get_id());
    EXPECT_EQ(std::set(first.begin(), first.end()).size(), 3u);
}

TEST(RowBandPool, AJobsExceptionReachesTheCallerAndLeavesThePoolUsable) {
    RowBandPool pool(2);
    for (const std::size_t bad : {0u, 1u, 7u})
        EXPECT_THROW(pool.run(8,
                              [&](std::size_t index, unsigned) {
                                  if (index == bad)
                                      throw std::runtime_error("job");
                              }),
                     std::runtime_error);
    std::atomic<int> calls = 0;
    pool.run(8, [&](std::size_t, unsigned) { ++calls; });
    EXPECT_EQ(calls, 8);
}

TEST(RowBandPool, ScratchIsAWorkersOwnAndStays) {
    RowBandPool pool(3);
    std::vector<void*> first(3), second(3);
    for (auto* memory : {&first, &second}) {
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            (*memory)[worker] = pool.scratch(worker, memory == &first ? 1000 : 999);
            std::memset((*memory)[worker], static_cast<int>(worker), 999);
            begun.arrive_and_wait();
        });
    }
    EXPECT_EQ(first, second);
    EXPECT_EQ(std::set(first.begin(), first.end()).size(), 3u);
    for (void* memory : first)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 64, 0u);
}

TEST(RowBandPool, CallersTakeTurns) {
    RowBandPool pool(2);
    std::atomic<int> inside = 0, calls = 0;
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&] {
            for (int frame = 0; frame < 20; ++frame)
                pool.run(10, [&](std::size_t, unsigned) {
                    EXPECT_LE(++inside, 2);
                    ++calls;
                    --inside;
                });
        });
    for (auto& caller : callers)
        caller.join();
    EXPECT_EQ(calls, 4 * 20 * 10);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
