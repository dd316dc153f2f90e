#include "Tests/Effect/EffectTest.h"
#include "Tests/Support/SmoothFrames.h"

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

struct DepthTest : EffectTest, SmoothFrames {
    template<class Value>
    void expectFiltered(const Frame& frame, std::int32_t format, double fullScale, double mean = 2e-5) {
        expectOracle<Value>(frame, fullScale, 2e-4, mean, [&](const auto& values, int radius, int threshold) {
            World input = worldOf(values, frame.width, frame.height, format), output(0, 0);
            EXPECT_EQ(mEffect->render(input, output, std::array{radius, threshold}).text(), "");
            EXPECT_EQ(output.format(), format);
            return valuesOf<Value>(output);
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Smooth, DepthTest, kSmoothWays, nameOf);

TEST_P(DepthTest, SmoothsAtTheDepthOfTheFrame) {
    for (int i = 0; i < 12; ++i) {
        Frame frame = makeFrame();
        expectFiltered<std::uint16_t>(frame, PF_PixelFormat_ARGB64, 32768);
        const double factor = 3 * uniform();
        reachBeyondFullScale(frame, factor);
        expectFiltered<float>(frame, PF_PixelFormat_ARGB128, 1, 2e-5 + 4e-7 * factor);
    }
}

TEST_P(DepthTest, RefusesADepthThatItDoesNotTake) {
    mHost.faults.bitDepth = 12;
    World input = mSample.world(), output(0, 0);
    EXPECT_EQ(mEffect->render(input, output, std::array{5}).message,
              "Bilateral Smooth doesn't take frames of 12 bits a channel.");
    mHost.faults = {};
}

} // namespace
} // namespace Tessaloom::BilateralBlur
