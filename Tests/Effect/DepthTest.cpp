#include "Tests/Effect/EffectTest.h"

#include <bit>
#include <limits>
#include <numeric>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;

struct DepthTest : EffectTest {
    /// A world with `value()` for each channel.
    template<class Value>
    static World make(int width, int height, std::int32_t format, const std::function<Value()>& value) {
        World world(width, height, format);
        for (int y = 0; y < height; ++y)
            std::generate_n(world.row<Value>(y), 4 * width, value);
        return world;
    }

    template<class Value>
    static std::vector<double> valuesOf(const World& world, double fullScale) {
        std::vector<double> values;
        for (int y = 0; y < world.height; ++y)
            for (int i = 0; i < 4 * world.width; ++i)
                values.push_back(world.row<Value>(y)[i] / fullScale);
        return values;
    }

    template<class Value>
    void expectTheFormulasImage(const World& input, int radius, int threshold, double fullScale) {
        World source(0, 0), output(0, 0);
        source = World(input.width, input.height, input.format());
        for (int y = 0; y < input.height; ++y)
            std::memcpy(source.row(y), input.row(y), 4 * sizeof(Value) * input.width);
        ASSERT_EQ(mEffect->render(source, output, std::array{radius, threshold}).text(), "");
        ASSERT_EQ(output.format(), input.format());
        const auto values = valuesOf<Value>(input, fullScale), results = valuesOf<Value>(output, fullScale);
        const auto expected =
            Oracle::smooth(values, input.width, input.height, radius, threshold / 1000.0, 1e-25);
        double sum = 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (!std::isfinite(expected[i]))
                continue; // which weights are too small for
            const double error = std::abs(results[i] - expected[i]);
            sum += error;
            ASSERT_LT(error, 2e-4 * std::max(1.0, std::abs(expected[i])))
                << i << ", radius " << radius << ", threshold " << threshold;
        }
        EXPECT_LT(sum / static_cast<double>(values.size()), 2e-5 + 0.25 / fullScale * (fullScale > 1));
    }

    std::mt19937 mRandom{1};
    int below(int bound) { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }
};

INSTANTIATE_TEST_SUITE_P(Smooth, DepthTest, kSmoothWays, nameOf);

TEST_P(DepthTest, SmoothsAtTheDepthOfTheFrame) {
    for (int i = 0; i < 12; ++i) {
        const int width = 1 + below(40), height = 1 + below(30), radius = below(20),
                  threshold = 1 + below(1000);
        const int middle = 4000 + below(24000), most = 1 + below(4000);
        expectTheFormulasImage<std::uint16_t>(
            make<std::uint16_t>(width, height, PF_PixelFormat_ARGB64,
                                [&] { return static_cast<std::uint16_t>(middle - most + below(2 * most)); }),
            radius, threshold, 32768);
        const float scale = i % 3 ? 0.3f : 3.0f;
        expectTheFormulasImage<float>(make<float>(width, height, PF_PixelFormat_ARGB128,
                                                  [&] { return scale * (below(2001) - 500) / 1000.0f; }),
                                      radius, threshold, 1);
    }
}

// Also what isn't a number, and numbers near 0.
TEST_P(DepthTest, GivesEveryValueBackAtRadius0) {
    const auto anyBits = [&] { return std::bit_cast<float>(static_cast<std::uint32_t>(mRandom())); };
    World input = make<float>(33, 17, PF_PixelFormat_ARGB128, anyBits), output(0, 0);
    ASSERT_EQ(mEffect->render(input, output, std::array{0, 100}).text(), "");
    for (int y = 0; y < input.height; ++y)
        EXPECT_EQ(std::memcmp(output.row(y), input.row(y), sizeof(PF_PixelFloat) * 33), 0) << y;
}

// A neighbour that isn't finite weighs nothing, and such a pixel stays.
TEST_P(DepthTest, LeavesOutWhatIsNotFinite) {
    World input = make<float>(24, 16, PF_PixelFormat_ARGB128, [&] { return 0.5f + below(100) / 1000.0f; });
    World output(0, 0);
    const float kValues[] = {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN()};
    for (int i = 0; i < 40; ++i)
        input.row<float>(below(16))[below(4 * 24)] = kValues[below(3)];
    expectTheFormulasImage<float>(input, 4, 200, 1);
    ASSERT_EQ(mEffect->render(input, output, std::array{4, 200}).text(), "");
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 24; ++x) {
            const float* const own = input.row<float>(y) + 4 * x;
            const bool isFinite = std::all_of(own, own + 4, [](float value) { return std::isfinite(value); });
            const float* const result = output.row<float>(y) + 4 * x;
            if (isFinite)
                EXPECT_TRUE(std::isfinite(result[1])) << x << ", " << y;
            else
                EXPECT_EQ(std::memcmp(own, result, sizeof(PF_PixelFloat)), 0) << x << ", " << y;
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
