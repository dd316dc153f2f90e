#pragma once

#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <gtest/gtest.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// What the processor is best at. It may have the weights with bfloat16, which the library of vectors doesn't know.
constexpr std::int64_t kBestSet = 0;

/// Each case runs on one of the library's instruction sets, and on the best one.
class InstructionSetTest : public testing::TestWithParam<std::int64_t> {
protected:
    InstructionSetTest() { choose(GetParam()); }
    ~InstructionSetTest() override { choose(kBestSet); }

    /// What `filter(source, target, stride, pool)` makes of an image whose rows have `row` values each, without gaps.
    /// It gets them with `gap` values after each row, which must stay, and `upwards` in memory if need be; the number
    /// of threads must not matter.
    template<class Value, class Filter>
    std::vector<Value> filtered(const std::vector<Value>& values, std::size_t row, std::size_t gap,
                                bool upwards, Filter filter) {
        const std::size_t rows = values.size() / row, distance = row + gap;
        constexpr Value kUntouched{77};
        std::vector<Value> source(distance * rows, kUntouched), target = source, alone = source;
        for (std::size_t i = 0; i < values.size(); ++i)
            source[i / row * distance + i % row] = values[i];
        const std::size_t first = upwards ? distance * (rows - 1) : 0;
        const auto stride = static_cast<std::ptrdiff_t>(distance * sizeof(Value)) * (upwards ? -1 : 1);
        filter(&source[first], &target[first], stride, mPool);
        filter(&source[first], &alone[first], stride, mOneThread);
        EXPECT_EQ(std::memcmp(alone.data(), target.data(), target.size() * sizeof(Value)), 0);
        std::vector<Value> result;
        for (std::size_t i = 0; i < target.size(); ++i)
            if (i % distance < row)
                result.push_back(target[i]);
            else
                EXPECT_EQ(target[i], kUntouched) << i;
        return result;
    }

private:
    ThreadPool mPool{3}, mOneThread{1};

    static void choose(std::int64_t set) {
        hwy::SetSupportedTargetsForTest(set);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

} // namespace Tessaloom::BilateralBlur

#define INSTANTIATE_INSTRUCTION_SETS(Suite)                                                                  \
    INSTANTIATE_TEST_SUITE_P(InstructionSets, Suite, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), \
                             [](const auto& info) { return hwy::TargetName(info.param); });                  \
    INSTANTIATE_TEST_SUITE_P(Best, Suite, testing::Values(kBestSet))
