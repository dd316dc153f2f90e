#include "Plugins/BilateralBlur/Sources/BilateralBlurKernel.h"
#include "Tests/BilateralBlur/Oracle.h"
#include "Tests/BilateralBlur/Pictures.h"

#include <gmock/gmock.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Pictures::Picture;

// In levels of 255. The weights are true to 1e-4 of themselves; that moves the mean of two groups of pixels
// no further than 1e-4 * a quarter of their distance, and groups much more than 100 levels apart don't mix.
constexpr double kMaxError = 0.002;
constexpr double kMeanError = 0.0003;

/// Makes the kernel run on one instruction set for the length of a scope.
class OnTarget {
public:
    explicit OnTarget(std::int64_t target) { choose(target); }
    ~OnTarget() { choose(0); }

private:
    static void choose(std::int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

/// Runs the kernel on pixels without spare bytes.
template<class Channel>
std::vector<Channel> blur(const std::vector<Channel>& pixels, int width, int blurSize, RowBandPool& pool,
                          float multiplier = 1.0f) {
    std::vector<Channel> result(pixels.size());
    const std::ptrdiff_t stride = width * std::ptrdiff_t{4 * sizeof(Channel)};
    const int height = width ? static_cast<int>(pixels.size()) / (4 * width) : 5;
    bilateralBlur(PixelView<const Channel>{pixels.data(), stride}, PixelView<Channel>{result.data(), stride},
                  width, height, blurSize, multiplier, pool);
    return result;
}

/// Checks floats within the kernel's own error, and bytes within that and the rounding that the exact values
/// need.
template<class Channel>
void expectClose(const std::vector<Channel>& result, const std::vector<double>& expected) {
    constexpr bool kBytes = std::is_same_v<Channel, std::uint8_t>;
    double most = 0.0, sum = 0.0, rounding = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double exact = 255.0 * expected[i];
        const double error = std::abs((kBytes ? 1.0 : 255.0) * result.at(i) - exact);
        most = std::max(most, error);
        sum += error;
        rounding += kBytes ? std::abs(exact - std::round(exact)) : 0.0;
    }
    EXPECT_LE(most, (kBytes ? 0.5 : 0.0) + kMaxError);
    EXPECT_LE((sum - rounding) / expected.size(), kMeanError);
}

/// Checks bytes and floats against the oracle.
void expectOracle(const Picture& picture, int blurSize, RowBandPool& pool) {
    const std::vector<double> expected =
        Oracle::pass(picture.normalised(), picture.width, picture.height, blurSize);
    expectClose(blur(picture.bytes, picture.width, blurSize, pool), expected);
    expectClose(blur(picture.normalised<float>(), picture.width, blurSize, pool), expected);
}

/// Lone pixels at rising distances from a flat ground: where one pixel and the sum of all others weigh the
/// same, an error of the weights shows most.
Picture speckles(int width, int height, bool opaque) {
    return Pictures::make(width, height, opaque, [](int x, int y, int channel) {
        const bool lone = x % 7 == 3 && y % 5 == 2;
        return 40 + 20 * channel + (lone && channel != 2 ? 30 + 5 * (x / 7 + y / 5) : 0);
    });
}

/// Alpha is `alpha` on the left and noise on the right.
Picture halfConstant(int width, int height, std::uint8_t alpha) {
    Picture picture = Pictures::softNoise(width, height, 11);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * 2 / 3; ++x)
            picture.pixel(x, y)[0] = alpha;
    return picture;
}

class Kernel : public testing::TestWithParam<std::int64_t> {
protected:
    OnTarget mTarget{GetParam()};
    RowBandPool mPool{2};
};

TEST_P(Kernel, EveryBlurSizeIsTheOraclesPicture) {
    using namespace Pictures;
    const Picture pictures[] = {
        noise(23, 17, 1),      noise(17, 11, 2, true),        softNoise(19, 23, 3, 30),
        hardEdges(21, 15),     softNoise(35, 9, 4, 30, true), alphaRamp(37, 10),
        photograph(18, 21, 5), speckles(41, 14, false),       speckles(41, 14, true)};
    for (const Picture& picture : pictures)
        for (int reach = 0; reach <= 29; ++reach) {
            SCOPED_TRACE(testing::Message() << picture.width << " wide, reach " << reach);
            expectOracle(picture, 2 * reach + 1, mPool);
            EXPECT_EQ(blur(picture.bytes, picture.width, 2 * reach + 2, mPool),
                      blur(picture.bytes, picture.width, 2 * reach + 1, mPool));
        }
}

TEST_P(Kernel, SizesBelowTheReachAndAcrossBlocks) {
    const std::pair<int, int> sizes[] = {{1, 1},  {1, 40}, {40, 1}, {2, 3},   {7, 5},    {15, 2},
                                         {16, 3}, {17, 1}, {31, 4}, {257, 3}, {300, 35}, {5, 66}};
    for (const auto& [width, height] : sizes)
        for (const Picture& picture :
             {Pictures::softNoise(width, height, 7, 25), halfConstant(width, height, 255),
              halfConstant(width, height, 77), halfConstant(width, height, 0)})
            for (const int blurSize : width* height < 1000 ? std::vector{5, 60} : std::vector{11}) {
                SCOPED_TRACE(testing::Message() << width << " by " << height);
                expectOracle(picture, blurSize, mPool);
            }
}

TEST_P(Kernel, SpareBytesStayAndRowsMayRunUpwards) {
    const Picture packed = Pictures::softNoise(21, 8, 8, 25);
    const auto blurred = blur(packed.bytes, 21, 9, mPool);
    Picture source(21, 8, 7), target(21, 8, 13), expected = target;
    for (int y = 0; y < 8; ++y) {
        std::copy_n(packed.pixel(0, y), 84, source.pixel(0, y));
        std::copy_n(&blurred[84 * y], 84, expected.pixel(0, y));
    }
    bilateralBlur(PixelView<const std::uint8_t>{source.pixel(0, 7), -source.rowbytes},
                  PixelView<std::uint8_t>{target.pixel(0, 7), -target.rowbytes}, 21, 8, 9, 1.0f, mPool);
    EXPECT_EQ(target.bytes, expected.bytes);
}

TEST_P(Kernel, ScalesByTheMultiplierAfterTheFilter) {
    const Picture picture = Pictures::softNoise(25, 9, 9, 40);
    std::vector<float> halved = picture.normalised<float>();
    for (float& value : halved)
        value *= 0.5f;
    expectClose(blur(halved, 25, 7, mPool, 65535.0f / 32768.0f),
                Oracle::pass({halved.begin(), halved.end()}, 25, 9, 7, 65535.0 / 32768.0));
    auto held = Oracle::pass(picture.normalised(), 25, 9, 7, 1.75);
    for (double& value : held)
        value = std::min(value, 1.0); // some are above
    expectClose(blur(picture.bytes, 25, 7, mPool, 1.75f), held);
}

TEST_P(Kernel, FloatsBeyondTheRangeStayFinite) {
    std::vector<float> values = Pictures::noise(20, 12, 10).normalised<float>();
    for (float& value : values)
        value = 40.0f * value - 20.0f;
    values[100] = 1e6f;
    const auto expected = Oracle::pass({values.begin(), values.end()}, 20, 12, 15);
    const auto result = blur(values, 20, 15, mPool);
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(result[i], expected[i], 1e-5 * std::abs(expected[i]) + 1e-4) << i;
}

TEST_P(Kernel, AgreesWithThePlainestSetToTheLastBitsAndLeavesNoTraceOfThreads) {
    const Picture picture = Pictures::softNoise(530, 3, 12, 30);
    const auto values = picture.normalised<float>();
    const auto bytes = blur(picture.bytes, 530, 21, mPool);
    const auto floats = blur(values, 530, 21, mPool);
    for (const unsigned threads : {1u, 3u, 7u}) {
        RowBandPool pool(threads);
        EXPECT_EQ(blur(picture.bytes, 530, 21, pool), bytes) << threads;
        EXPECT_EQ(blur(values, 530, 21, pool), floats) << threads;
    }
    const OnTarget plainest(hwy::SupportedAndGeneratedTargets().back());
    EXPECT_THAT(blur(values, 530, 21, mPool), testing::Pointwise(testing::FloatNear(1e-6f), floats));
    const auto plain = blur(picture.bytes, 530, 21, mPool);
    int difference = 0;
    for (std::size_t i = 0; i < plain.size(); ++i)
        difference += std::abs(bytes[i] - plain[i]);
    EXPECT_LE(difference, 1);
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, Kernel, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& info) { return hwy::TargetName(info.param); });

TEST(KernelArguments, SizesOutOfRangeWorkAsTheNearest) {
    RowBandPool pool(1);
    const Picture picture = Pictures::softNoise(40, 33, 14);
    EXPECT_EQ(blur(picture.bytes, 40, 1000, pool), blur(picture.bytes, 40, 60, pool));
    EXPECT_EQ(blur(picture.bytes, 40, -5, pool), blur(picture.bytes, 40, 0, pool));
    EXPECT_TRUE(blur(std::vector<std::uint8_t>(), 0, 9, pool).empty());
    EXPECT_TRUE(blur(std::vector<std::uint8_t>(), 5, 9, pool).empty());
}

} // namespace
} // namespace Tessaloom::BilateralBlur
