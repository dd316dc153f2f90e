#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Tests/Cpu/InstructionSets.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

using Pictures::noise;
using Pictures::Picture;

/// How far means may be off, in levels of 255.
struct Bounds {
    double most, mean;
};

// The weights are accurate to 1e-4 of themselves; that moves the mean of two groups of pixels no further than
// 1e-4 * a quarter of their distance, and groups much more than 100 levels apart don't mix.
constexpr Bounds kPortable{0.002, 0.0003};

// Weights of 8 bits, accurate to 0.9 % each. The errors of many taps cancel out: the largest seen in 70 million
// means of noise and of lone pixels, the worst contents, was 0.082.
constexpr Bounds kBf16{0.1, 0.01};
constexpr int kLeastBf16Size = 9;

/// Runs the kernel on pixels without padding.
std::vector<std::uint8_t> blur(const std::vector<std::uint8_t>& pixels, int width, int blurSize,
                               ThreadPool& pool) {
    std::vector<std::uint8_t> result(pixels.size(), 0xA5);
    const std::ptrdiff_t stride = std::ptrdiff_t{4} * width;
    const int height = width ? static_cast<int>(pixels.size()) / (4 * width) : 5;
    bilateralBlur(pixels.data(), stride, result.data(), stride, width, height, blurSize, pool);
    return result;
}

/// Straight bytes from premultiplied ones.
double divided(double colour, double alpha) {
    return alpha > 0 ? std::rint(255 * colour / alpha) : 0;
}

/// Compares with the oracle's premultiplied means: each value must be what some means within the bound round
/// to, and the values that are rounded but once must be within the other on average.
void expectClose(const std::vector<std::uint8_t>& result, const std::vector<double>& expected,
                 const Bounds& bounds) {
    double sum = 0, count = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::size_t channel = i % 4;
        const double exact = 255 * (channel ? expected[i - 1] : expected[i + 3]);
        const double alpha = 255 * expected[i - channel + 3];
        double low = std::round(exact - bounds.most), high = std::round(exact + bounds.most);
        if (channel) {
            low = divided(low, std::round(alpha + bounds.most));
            high = divided(high, std::round(alpha - bounds.most));
        }
        EXPECT_GE(result.at(i), low) << i;
        EXPECT_LE(result[i], high) << i;
        if (channel == 0 || alpha > 255 - bounds.most) {
            sum += std::abs(result[i] - exact) - std::abs(exact - std::round(exact));
            ++count;
        }
    }
    EXPECT_LE(sum / count, bounds.mean);
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

class Kernel : public InstructionSetTest {
protected:
    void expectOracle(const Picture& picture, int blurSize) {
        SCOPED_TRACE(testing::Message() << picture.width << " by " << picture.height << " at " << blurSize);
        expectClose(blur(picture.bytes, picture.width, blurSize, mPool),
                    Oracle::pass(picture.normalised(), picture.width, picture.height, blurSize),
                    GetParam() == kBestSet && blurSize >= kLeastBf16Size ? kBf16 : kPortable);
    }

    ThreadPool mPool{2};
};

TEST_P(Kernel, EveryBlurSizeIsTheOraclesPicture) {
    const Picture pictures[] = {
        noise(23, 17, 1), noise(17, 11, 2, true), noise(19, 23, 3, false, 30), noise(35, 9, 4, true, 30),
        Pictures::blocks(37, 15, false), Pictures::photograph(18, 21, 5), speckles(41, 14, false),
        speckles(41, 14, true),
        // The least weights of all.
        Pictures::make(32, 30, false, [](int x, int y, int) { return x + y ? 0 : 255; })};
    for (const Picture& picture : pictures)
        for (int blurSize = 1; blurSize < 60; blurSize += 2) {
            expectOracle(picture, blurSize);
            EXPECT_EQ(blur(picture.bytes, picture.width, blurSize + 1, mPool),
                      blur(picture.bytes, picture.width, blurSize, mPool));
        }
    // Each alpha with each colour, where no mean hides an error.
    expectOracle(Pictures::make(256, 256, false, [](int x, int y, int channel) { return channel ? x : y; }),
                 2);
}

TEST_P(Kernel, SizesBelowTheReachAndAcrossBlocks) {
    const std::pair<int, int> sizes[] = {{1, 1},  {1, 40}, {40, 1}, {2, 3},   {7, 5},    {15, 2},
                                         {16, 3}, {17, 1}, {31, 4}, {257, 3}, {300, 35}, {5, 66}};
    for (const auto& [width, height] : sizes)
        for (const std::uint8_t alpha : {255, 77, 1, 0})
            for (const int blurSize : width* height < 1000 ? std::vector{5, 60} : std::vector{11})
                expectOracle(halfConstant(width, height, alpha), blurSize);
}

TEST_P(Kernel, PaddingStaysAndRowsMayRunUpwards) {
    const Picture packed = noise(21, 8, 8, false, 25);
    for (const int blurSize : {0, 9}) {
        const auto blurred = blur(packed.bytes, 21, blurSize, mPool);
        // 7 and 13 bytes after each row.
        std::vector<std::uint8_t> source(8 * 91, 0xA5), target(8 * 97, 0xA5), expected = target;
        for (int y = 0; y < 8; ++y) {
            std::copy_n(packed.pixel(0, y), 84, &source[91 * y]);
            std::copy_n(&blurred[84 * y], 84, &expected[97 * y]);
        }
        bilateralBlur(&source[7 * 91], -91, &target[7 * 97], -97, 21, 8, blurSize, mPool);
        EXPECT_EQ(target, expected);
    }
}

TEST_P(Kernel, SizesOutOfRangeWorkAsTheNearest) {
    const Picture picture = noise(40, 33, 14, false, 20);
    EXPECT_EQ(blur(picture.bytes, 40, 1000, mPool), blur(picture.bytes, 40, 60, mPool));
    EXPECT_EQ(blur(picture.bytes, 40, -5, mPool), blur(picture.bytes, 40, 0, mPool));
    for (const int width : {0, 5})
        EXPECT_TRUE(blur(std::vector<std::uint8_t>(), width, 9, mPool).empty());
}

INSTANTIATE_INSTRUCTION_SETS(Kernel);

} // namespace
} // namespace Tessaloom::BilateralBlur
