#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Tests/Cpu/InstructionSets.h"
#include "Tests/Support/Images.h"
#include "Tests/Support/Oracle.h"

#include <array>

namespace Tessaloom::BilateralBlur {
namespace {

using Images::Image;
using Images::noise;

/// How far means may be off, in levels of 255. The weights are accurate to 1e-4 of themselves; that moves the mean of
/// two groups of pixels no further than 1e-4 * a quarter of their distance, and groups much more than 100 levels apart
/// don't mix.
constexpr double kPortable = 0.002;

/// Weights of 8 bits, accurate to 0.9 % each. The errors of many taps cancel out: the largest seen in 70 million
/// means of noise and of lone pixels, the worst contents, was 0.082.
constexpr double kBf16 = 0.1;
constexpr int kLeastBf16Size = 9;

/// Lone pixels at rising distances from a flat ground: where one pixel and the sum of all others weigh the
/// same, an error of the weights shows most.
Image speckles(int width, int height, bool opaque) {
    return Images::make(width, height, opaque, [](int x, int y, int channel) {
        const bool lone = x % 7 == 3 && y % 5 == 2;
        return 40 + 20 * channel + (lone && channel != 2 ? 30 + 5 * (x / 7 + y / 5) : 0);
    });
}

/// Alpha is `alpha` on the left and noise on the right.
Image halfConstant(int width, int height, int alpha) {
    Image image = noise(width, height, 11, false, 20);
    for (std::size_t i = 0; i < image.bytes.size(); i += 4)
        if (static_cast<int>(i) / 4 % width < width * 2 / 3)
            image.bytes[i] = static_cast<std::uint8_t>(alpha);
    return image;
}

class Kernel : public InstructionSetTest {
protected:
    /// Filters the image, with `gap` bytes after each row of either image, and compares.
    void expectOracle(const Image& image, int blurSize, std::size_t gap = 0, bool upwards = false) {
        SCOPED_TRACE(testing::Message() << image.width << " by " << image.height << " at " << blurSize);
        const auto result = filtered(
            image.bytes, std::size_t{4} * image.width, gap, upwards,
            [&](const auto* source, auto* target, std::ptrdiff_t stride, ThreadPool& pool) {
                bilateralBlur(source, stride, target, stride, image.width, image.height, blurSize, pool);
            });
        const double error = GetParam() == kBestSet && blurSize >= kLeastBf16Size ? kBf16 : kPortable;
        // The same either way up.
        const auto expected = Oracle::pass(image.normalised(), image.width, image.height, blurSize);
        EXPECT_EQ(Images::difference(Images::premultiplied(result), expected, 0.5 + error), "");
    }
};

TEST_P(Kernel, IsTheOraclesImageOfAnySizeAtAnyScale) {
    std::mt19937 random(5);
    const auto below = [&](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
    for (int i = 0; i < 150; ++i) {
        const bool wide = i % 15 == 0;
        const int width = 1 + (wide ? 256 + below(30) : below(40)), height = 1 + below(wide          ? 3
                                                                                       : i % 15 == 1 ? 70
                                                                                                     : 24);
        const Image image = below(2) ? noise(width, height, random(), below(2), below(2) ? 128 : 20)
                                     : halfConstant(width, height, std::array{255, 77, 1, 0}[below(4)]);
        expectOracle(image, wide || height > 24 ? below(14) : below(72) - 5, below(8), below(2));
    }
    ThreadPool pool(1);
    for (const int width : {0, 5})
        bilateralBlur(nullptr, 0, nullptr, 0, width, 5 - width, 9, pool);
}

// Contents in which errors of the weights show most.
TEST_P(Kernel, IsTheOraclesImageOfHardContents) {
    const Image images[] = {Images::blocks(37, 15, false), Images::photograph(18, 21, 5),
                            speckles(41, 14, false), speckles(41, 14, true),
                            // The least weights of all.
                            Images::make(32, 30, false, [](int x, int y, int) { return x + y ? 0 : 255; })};
    for (const Image& image : images)
        for (const int blurSize : {3, 8, 9, 30, 59})
            expectOracle(image, blurSize);
    // Each alpha with each colour, where no mean hides an error.
    expectOracle(Images::make(256, 256, false, [](int x, int y, int channel) { return channel ? x : y; }), 2);
}

INSTANTIATE_INSTRUCTION_SETS(Kernel);

} // namespace
} // namespace Tessaloom::BilateralBlur
