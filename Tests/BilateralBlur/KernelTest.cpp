#include "Plugins/BilateralBlur/Sources/BilateralBlurKernel.h"
#include "Tests/BilateralBlur/Oracle.h"
#include "Tests/BilateralBlur/Pictures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#define HWY_WANT_AVX3_DL
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
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
    explicit OnTarget(std::int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
    ~OnTarget() {
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

std::vector<std::uint8_t> blurBytes(const Picture& picture, int blurSize, RowBandPool& pool,
                                    float multiplier = 1.0f) {
    std::vector<std::uint8_t> result(std::size_t{4} * picture.width * picture.height);
    bilateralBlur(PixelView<const std::uint8_t>{picture.bytes.data(), picture.rowbytes},
                  PixelView<std::uint8_t>{result.data(), 4 * picture.width}, picture.width, picture.height,
                  blurSize, multiplier, pool);
    return result;
}

std::vector<float> blurFloats(const std::vector<float>& values, int width, int height, int blurSize,
                              RowBandPool& pool, float multiplier = 1.0f) {
    std::vector<float> result(values.size());
    const std::ptrdiff_t stride = width * std::ptrdiff_t{16};
    bilateralBlur(PixelView<const float>{values.data(), stride}, PixelView<float>{result.data(), stride},
                  width, height, blurSize, multiplier, pool);
    return result;
}

/// Checks floats within the kernel's own error, and bytes within that and the rounding that the exact values
/// need.
template<class Channel>
void expectClose(const std::vector<Channel>& result, const std::vector<double>& expected,
                 const std::string& what) {
    constexpr bool kBytes = std::is_same_v<Channel, std::uint8_t>;
    ASSERT_EQ(result.size(), expected.size()) << what;
    double most = 0.0, sum = 0.0, rounding = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double exact = 255.0 * expected[i];
        const double error = std::abs((kBytes ? 1.0 : 255.0) * result[i] - exact);
        most = std::max(most, error);
        sum += error;
        rounding += kBytes ? std::abs(exact - std::round(exact)) : 0.0;
    }
    EXPECT_LE(most, (kBytes ? 0.5 : 0.0) + kMaxError) << what;
    EXPECT_LE((sum - rounding) / expected.size(), kMeanError) << what;
}

/// Lone pixels at rising distances from a flat ground: where one pixel and the sum of all others weigh the
/// same, an error of the weights shows most.
Picture speckles(int width, int height, bool opaque) {
    return Pictures::make(width, height, 0, [&](int x, int y, int channel) {
        if (channel == 0 && opaque)
            return 255;
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

std::vector<std::pair<std::string, Picture>> smallPictures() {
    using namespace Pictures;
    return {
        {"noise", noise(23, 17, 1, false, 12)},     {"opaque noise", noise(17, 11, 2, true)},
        {"soft noise", softNoise(19, 23, 3, 30)},   {"opaque soft noise", softNoise(35, 9, 4, 30, true, 5)},
        {"hard edges", hardEdges(21, 15)},          {"alpha ramp", alphaRamp(37, 10, 4)},
        {"photograph", photograph(18, 21, 5)},      {"speckles", speckles(41, 14, false)},
        {"opaque speckles", speckles(41, 14, true)}};
}

class Kernel : public testing::TestWithParam<std::int64_t> {
protected:
    OnTarget mTarget{GetParam()};
    RowBandPool mPool{2};
};

TEST_P(Kernel, EveryBlurSizeIsTheOraclesPicture) {
    for (const auto& [name, picture] : smallPictures()) {
        for (int reach = 0; reach <= 29; ++reach) {
            const auto expected =
                Oracle::pass(picture.normalised(), picture.width, picture.height, 2 * reach + 1);
            const std::vector<float> floats =
                blurFloats(picture.normalised<float>(), picture.width, picture.height, 2 * reach + 1, mPool);
            const std::vector<std::uint8_t> bytes = blurBytes(picture, 2 * reach + 1, mPool);
            const std::string what = name + ", reach " + std::to_string(reach);
            expectClose(floats, expected, what + ", floats");
            expectClose(bytes, expected, what + ", bytes");
            EXPECT_EQ(blurBytes(picture, 2 * reach + 2, mPool), bytes) << what << ", even size";
        }
    }
}

TEST_P(Kernel, SizesBelowTheReachAndAcrossBlocks) {
    const std::pair<int, int> sizes[] = {{1, 1},  {1, 40}, {40, 1}, {2, 3},   {7, 5},    {15, 2},
                                         {16, 3}, {17, 1}, {31, 4}, {257, 3}, {300, 35}, {5, 66}};
    for (const auto& [width, height] : sizes) {
        for (const Picture& picture :
             {Pictures::softNoise(width, height, 7, 25), halfConstant(width, height, 255),
              halfConstant(width, height, 77), halfConstant(width, height, 0)}) {
            for (const int blurSize : width* height < 1000 ? std::vector{5, 60} : std::vector{11}) {
                const auto expected = Oracle::pass(picture.normalised(), width, height, blurSize);
                const std::string what = std::to_string(width) + " by " + std::to_string(height);
                expectClose(blurBytes(picture, blurSize, mPool), expected, what);
                expectClose(blurFloats(picture.normalised<float>(), width, height, blurSize, mPool), expected,
                            what);
            }
        }
    }
}

TEST_P(Kernel, SpareBytesStayAndRowsMayRunUpwards) {
    const Picture source = Pictures::softNoise(21, 8, 8, 25, false, 7);
    const auto expected = blurBytes(source, 9, mPool);
    Picture target(21, 8, 13);
    bilateralBlur(PixelView<const std::uint8_t>{source.pixel(0, 7), -source.rowbytes},
                  PixelView<std::uint8_t>{target.pixel(0, 7), -target.rowbytes}, 21, 8, 9, 1.0f, mPool);
    for (int y = 0; y < 8; ++y) {
        const std::vector<std::uint8_t> row(target.pixel(0, y), target.pixel(21, y));
        EXPECT_THAT(row, testing::ElementsAreArray(expected.data() + 84 * y, 84));
        const std::vector<std::uint8_t> spare(target.pixel(21, y), target.pixel(21, y) + 13);
        EXPECT_THAT(spare, testing::Each(Picture::kSpareByte));
    }
}

TEST_P(Kernel, ScalesByTheMultiplierAfterTheFilter) {
    const Picture picture = Pictures::softNoise(25, 9, 9, 40);
    std::vector<float> halved = picture.normalised<float>();
    for (float& value : halved)
        value *= 0.5f;
    const auto expected =
        Oracle::pass(std::vector<double>(halved.begin(), halved.end()), 25, 9, 7, 65535.0 / 32768.0);
    expectClose(blurFloats(halved, 25, 9, 7, mPool, 65535.0f / 32768.0f), expected, "floats");

    auto held = Oracle::pass(picture.normalised(), 25, 9, 7, 1.75);
    EXPECT_GT(*std::max_element(held.begin(), held.end()), 1.0);
    for (double& value : held)
        value = std::min(value, 1.0);
    expectClose(blurBytes(picture, 7, mPool, 1.75f), held, "bytes, held to full scale");
}

TEST_P(Kernel, FloatsBeyondTheRangeStayFinite) {
    std::vector<float> values = Pictures::noise(20, 12, 10).normalised<float>();
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = 40.0f * values[i] - 20.0f;
    values[100] = 1e6f;
    const auto expected = Oracle::pass(std::vector<double>(values.begin(), values.end()), 20, 12, 15);
    const auto result = blurFloats(values, 20, 12, 15, mPool);
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(result[i], expected[i], 1e-5 * std::abs(expected[i]) + 1e-4) << i;
}

TEST_P(Kernel, AgreesWithThePlainestSetToTheLastBits) {
    const Picture picture = Pictures::softNoise(33, 20, 12, 30);
    const auto values = picture.normalised<float>();
    const auto floats = blurFloats(values, 33, 20, 21, mPool);
    const auto bytes = blurBytes(picture, 21, mPool);
    const OnTarget plainest(hwy::SupportedAndGeneratedTargets().back());
    const auto plainFloats = blurFloats(values, 33, 20, 21, mPool);
    const auto plainBytes = blurBytes(picture, 21, mPool);
    int different = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_NEAR(floats[i], plainFloats[i], 1e-6f) << i;
        EXPECT_NEAR(bytes[i], plainBytes[i], 1) << i;
        different += bytes[i] != plainBytes[i];
    }
    EXPECT_LE(different, 1);
}

TEST_P(Kernel, ThreadCountLeavesNoTrace) {
    const Picture picture = Pictures::softNoise(530, 101, 13, 30);
    const auto values = picture.normalised<float>();
    RowBandPool one(1);
    const auto bytes = blurBytes(picture, 7, one);
    const auto floats = blurFloats(values, 530, 101, 7, one);
    for (const unsigned threads : {2u, 3u, 7u}) {
        RowBandPool pool(threads);
        EXPECT_EQ(blurBytes(picture, 7, pool), bytes) << threads;
        EXPECT_EQ(blurFloats(values, 530, 101, 7, pool), floats) << threads;
    }
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, Kernel, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& info) { return hwy::TargetName(info.param); });

TEST(KernelArguments, SizesOutOfRangeWorkAsTheNearest) {
    RowBandPool pool(1);
    const Picture picture = Pictures::softNoise(40, 33, 14);
    EXPECT_EQ(blurBytes(picture, 1000, pool), blurBytes(picture, 60, pool));
    EXPECT_EQ(blurBytes(picture, -5, pool), blurBytes(picture, 0, pool));
    EXPECT_TRUE(blurBytes(Picture(0, 5), 9, pool).empty());
    EXPECT_TRUE(blurBytes(Picture(5, 0), 9, pool).empty());
}

} // namespace
} // namespace Tessaloom::BilateralBlur
