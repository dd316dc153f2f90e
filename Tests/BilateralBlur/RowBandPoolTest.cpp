#include "Plugins/BilateralBlur/Sources/RowBandPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <latch>
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
        const auto call = [&] {
            for (std::size_t frame = 0; frame < 50; ++frame) {
                const std::size_t jobs = frame % 5 * frame;
                std::vector<int> calls(jobs);
                pool.run(jobs, [&](std::size_t index, unsigned worker) {
                    EXPECT_TRUE(++inside <= threads && worker < threads);
                    std::this_thread::yield();
                    ++calls[index];
                    --inside;
                });
                EXPECT_EQ(calls, std::vector(jobs, 1));
            }
        };
        std::vector<std::jthread> callers;
        for (int i = 0; i < 4; ++i)
            callers.emplace_back(call);
    }
}

TEST(RowBandPool, WorkersAreDistinctThreadsThatStayWithTheirScratch) {
    RowBandPool pool(3);
    std::vector<std::pair<std::thread::id, void*>> first(3), second(3);
    for (auto* workers : {&first, &second}) {
        // No job ends before all three have begun, so each thread gets one.
        std::latch begun(3);
        pool.run(3, [&](std::size_t, unsigned worker) {
            void* const scratch = pool.scratch(worker, workers == &first ? 1000 : 999);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(scratch) % 64, 0u);
            (*workers)[worker] = {std::this_thread::get_id(), scratch};
            begun.arrive_and_wait();
        });
    }
    EXPECT_EQ(first, second);
    EXPECT_EQ(first[0].first, std::this_thread::get_id());
    EXPECT_EQ(std::set({first[0].second, first[1].second, first[2].second}).size(), 3u);
    EXPECT_EQ(std::set({first[0].first, first[1].first, first[2].first}).size(), 3u);
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
