#pragma once

#include <gtest/gtest.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// What the processor is best at. It may have the weights with bfloat16, which the library of vectors doesn't know.
constexpr std::int64_t kBestSet = 0;

/// Each case runs on one of the library's instruction sets, and on the best one.
class InstructionSetTest : public testing::TestWithParam<std::int64_t> {
protected:
    InstructionSetTest() { choose(GetParam()); }
    ~InstructionSetTest() override { choose(kBestSet); }

private:
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
