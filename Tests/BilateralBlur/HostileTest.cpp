#include "Tests/BilateralBlur/HostileWalk.h"

#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

class HostileTest : public testing::TestWithParam<Way> {};

// More by hand: --gtest_shuffle --gtest_repeat=10, or scripts/fuzz.
TEST_P(HostileTest, FindsNoWayToBreakTheEffect) {
    std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    HostileWalk walk(GetParam(),
                     [&](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); });
    const int steps = GetParam() == Way::Gpu ? 3000 : 7000;
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        walk.step();
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileTest, testing::Values(Way::Gpu, Way::SoftwareGL), nameOf);

} // namespace
} // namespace Tessaloom::BilateralBlur
