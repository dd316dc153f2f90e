#include "Plugins/BilateralBlur/Sources/Cpu/BilateralBlurKernel.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <gmock/gmock.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Oracle::expectClose;
using Pictures::noise;
using Pictures::Picture;

// In levels of 255. The weights are true to 1e-4 of themselves; that moves the mean of two groups of pixels
// no further than 1e-4 * a quarter of their distance, and groups much more than 100 levels apart don't mix.
constexpr double kMaxError = 0.002, kMeanError = 0.0003;

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
    Picture picture = noise(width, height, 11, false, 20);
    for (std::size_t i = 0; i < picture.bytes.size(); i += 4)
        if (static_cast<int>(i) / 4 % width < width * 2 / 3)
            picture.bytes[i] = alpha;
    return picture;
}

/// Each case runs on one instruction set.
class Kernel : public testing::TestWithParam<std::int64_t> {
protected:
    Kernel() { runOn(GetParam()); }
    ~Kernel() override { runOn(0); }

    static void runOn(std::int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }

    void expectOracle(const Picture& picture, int blurSize) {
        SCOPED_TRACE(testing::Message() << picture.width << " by " << picture.height << " at " << blurSize);
        const auto expected = Oracle::pass(picture.normalised(), picture.width, picture.height, blurSize);
        expectClose(blur(picture.bytes, picture.width, blurSize, mPool), expected, kMaxError, kMeanError);
        expectClose(blur(picture.normalised<float>(), picture.width, blurSize, mPool), expected, kMaxError,
                    kMeanError);
    }

    RowBandPool mPool{2};
};

TEST_P(Kernel, EveryBlurSizeIsTheOraclesPicture) {
    const Picture pictures[] = {
        noise(23, 17, 1),          noise(17, 11, 2, true),          noise(19, 23, 3, false, 30),
        noise(35, 9, 4, true, 30), Pictures::blocks(37, 15, false), Pictures::photograph(18, 21, 5),
        speckles(41, 14, false),   speckles(41, 14, true)};
    for (const Picture& picture : pictures)
        for (int blurSize = 1; blurSize < 60; blurSize += 2) {
            expectOracle(picture, blurSize);
            EXPECT_EQ(blur(picture.bytes, picture.width, blurSize + 1, mPool),
                      blur(picture.bytes, picture.width, blurSize, mPool));
        }
}

TEST_P(Kernel, SizesBelowTheReachAndAcrossBlocks) {
    const std::pair<int, int> sizes[] = {{1, 1},  {1, 40}, {40, 1}, {2, 3},   {7, 5},    {15, 2},
                                         {16, 3}, {17, 1}, {31, 4}, {257, 3}, {300, 35}, {5, 66}};
    for (const auto& [width, height] : sizes)
        for (const std::uint8_t alpha : {255, 77, 0})
            for (const int blurSize : width* height < 1000 ? std::vector{5, 60} : std::vector{11})
                expectOracle(halfConstant(width, height, alpha), blurSize);
}

TEST_P(Kernel, SpareBytesStayAndRowsMayRunUpwards) {
    const Picture packed = noise(21, 8, 8, false, 25);
    const auto blurred = blur(packed.bytes, 21, 9, mPool);
    // 7 and 13 bytes behind each row.
    std::vector<std::uint8_t> source(8 * 91, 0xA5), target(8 * 97, 0xA5), expected = target;
    for (int y = 0; y < 8; ++y) {
        std::copy_n(packed.pixel(0, y), 84, &source[91 * y]);
        std::copy_n(&blurred[84 * y], 84, &expected[97 * y]);
    }
    bilateralBlur(PixelView<const std::uint8_t>{&source[7 * 91], -91},
                  PixelView<std::uint8_t>{&target[7 * 97], -97}, 21, 8, 9, 1.0f, mPool);
    EXPECT_EQ(target, expected);
}

TEST_P(Kernel, ScalesByTheMultiplierAndTakesFloatsBeyondTheRange) {
    const Picture picture = noise(25, 9, 9, false, 40);
    auto held = Oracle::pass(picture.normalised(), 25, 9, 7, 1.75);
    for (double& value : held)
        value = std::min(value, 1.0); // some are above
    expectClose(blur(picture.bytes, 25, 7, mPool, 1.75f), held, kMaxError, kMeanError);

    std::vector<float> values = noise(20, 12, 10).normalised<float>();
    for (float& value : values)
        value = 40.0f * value - 20.0f;
    values[100] = 1e6f;
    const auto expected = Oracle::pass({values.begin(), values.end()}, 20, 12, 15, 1.75);
    const auto result = blur(values, 20, 15, mPool, 1.75f);
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(result[i], expected[i], 1e-5 * std::abs(expected[i]) + 1e-4) << i;
}

TEST_P(Kernel, AgreesWithThePlainestSetToTheLastBitsAndLeavesNoTraceOfThreads) {
    const Picture picture = noise(530, 3, 12, false, 30);
    const auto values = picture.normalised<float>();
    const auto bytes = blur(picture.bytes, 530, 21, mPool);
    const auto floats = blur(values, 530, 21, mPool);
    for (const unsigned threads : {1u, 3u, 7u}) {
        RowBandPool pool(threads);
        EXPECT_EQ(blur(picture.bytes, 530, 21, pool), bytes) << threads;
        EXPECT_EQ(blur(values, 530, 21, pool), floats) << threads;
    }
    runOn(hwy::SupportedAndGeneratedTargets().back());
    EXPECT_THAT(blur(values, 530, 21, mPool), testing::Pointwise(testing::FloatNear(1e-6f), floats));
    const auto plain = blur(picture.bytes, 530, 21, mPool);
    int difference = 0;
    for (std::size_t i = 0; i < plain.size(); ++i)
        difference += std::abs(bytes[i] - plain[i]);
    EXPECT_LE(difference, 1);
}

TEST_P(Kernel, SizesOutOfRangeWorkAsTheNearest) {
    const Picture picture = noise(40, 33, 14, false, 20);
    EXPECT_EQ(blur(picture.bytes, 40, 1000, mPool), blur(picture.bytes, 40, 60, mPool));
    EXPECT_EQ(blur(picture.bytes, 40, -5, mPool), blur(picture.bytes, 40, 0, mPool));
    for (const int width : {0, 5})
        EXPECT_TRUE(blur(std::vector<std::uint8_t>(), width, 9, mPool).empty());
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, Kernel, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& info) { return hwy::TargetName(info.param); });

} // namespace
} // namespace Tessaloom::BilateralBlur
