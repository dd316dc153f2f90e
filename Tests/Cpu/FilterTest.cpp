#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"
#include "Tests/Support/SmoothFrames.h"

#include <hwy/targets.h>

namespace Tessaloom::BilateralBlur {
namespace {

using Images::Image;

/// What the processor is best at. It may have the weights with bfloat16, which the library of vectors doesn't know.
constexpr std::int64_t kBestSet = 0;

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

/// Each case runs on one of the library's instruction sets, and on the best one.
struct Filter : testing::TestWithParam<std::int64_t>, SmoothFrames {
    Filter() { choose(GetParam()); }
    ~Filter() override { choose(kBestSet); }

    void expectBlurred(const Image& image, int blurSize) {
        SCOPED_TRACE(testing::Message() << image.width << " by " << image.height << " at " << blurSize);
        const auto result = filtered(
            image.bytes, image.width,
            [&](const auto* source, auto* target, std::ptrdiff_t stride, ThreadPool& pool) {
                bilateralBlur(source, stride, target, stride, image.width, image.height, blurSize, pool);
            });
        const double error = GetParam() == kBestSet && blurSize >= kLeastBf16Size ? kBf16 : kPortable;
        const auto expected = Oracle::pass(image.normalised(), image.width, image.height, blurSize);
        EXPECT_EQ(Images::difference(Images::premultiplied(result), expected, 0.5 + error), "");
    }

    template<class Value>
    void expectSmoothed(const Frame& frame, Depth depth, double fullScale, double most, double mean) {
        const int width = frame.width, height = frame.height;
        expectOracle<Value>(frame, fullScale, most, mean, [&](const auto& values, int radius, int threshold) {
            return filtered(values, width,
                            [&](const Value* pixels, Value* target, std::ptrdiff_t stride, ThreadPool& pool) {
                                const auto* bytes = reinterpret_cast<const std::uint8_t*>(pixels);
                                bilateralSmooth({bytes, stride, width, height, depth, fullScale}, target,
                                                stride, radius, threshold / 1000.0, pool);
                            });
        });
    }

private:
    /// What `filter(source, target, stride, pool)` makes of pixels without gaps. By chance it gets them with some values
    /// after each row, which must stay, and upwards in memory; the number of threads must not matter.
    template<class Value, class Function>
    std::vector<Value> filtered(const std::vector<Value>& values, int width, Function filter) {
        const std::size_t row = std::size_t{4} * width, rows = values.size() / row, distance = row + below(8);
        constexpr Value kUntouched{77};
        std::vector<Value> source(distance * rows, kUntouched), target = source, alone = source;
        for (std::size_t i = 0; i < values.size(); ++i)
            source[i / row * distance + i % row] = values[i];
        const bool upwards = below(2);
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

    static void choose(std::int64_t set) {
        hwy::SetSupportedTargetsForTest(set);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }

    ThreadPool mPool{3}, mOneThread{1};
};

TEST_P(Filter, BlursToTheOraclesImageOfAnySizeAtAnyScale) {
    std::mt19937 random(5);
    for (int i = 0; i < 100; ++i) {
        const Image image = Images::random(random);
        expectBlurred(image, Images::below(random, 72) - 5);
    }
    ThreadPool pool(1);
    for (const int width : {0, 5})
        bilateralBlur(nullptr, 0, nullptr, 0, width, 5 - width, 9, pool);
}

// Contents in which errors of the weights show most.
TEST_P(Filter, BlursToTheOraclesImageOfHardContents) {
    const Image images[] = {speckles(41, 14, false), speckles(41, 14, true),
                            // The least weights of all.
                            Images::make(32, 30, false, [](int x, int y, int) { return x + y ? 0 : 255; })};
    for (const Image& image : images)
        for (const int blurSize : {3, 8, 9, 30, 59})
            expectBlurred(image, blurSize);
    // Each alpha with each colour, where no mean hides an error.
    expectBlurred(Images::make(256, 256, false, [](int x, int y, int channel) { return channel ? x : y; }),
                  2);
}

TEST_P(Filter, SmoothsToTheOraclesImageAtEveryDepth) {
    for (int i = 0; i < 32 && !HasFatalFailure(); ++i) {
        Frame frame = makeFrame();
        expectSmoothed<std::uint8_t>(frame, Depth::Bits8, 255, 0.51 / 255, 0.5 / 255);
        expectSmoothed<std::uint16_t>(frame, Depth::Bits16, 32768, 2e-4, 2e-5);
        expectSmoothed<float>(frame, Depth::Float, 1, 2e-4, 2e-5);
        const double factor = std::pow(10, 6 * uniform() - 3);
        reachBeyondFullScale(frame, factor);
        expectSmoothed<float>(frame, Depth::Float, 1, 2e-4, 2e-5 + 4e-7 * factor);
    }
}

INSTANTIATE_TEST_SUITE_P(InstructionSets, Filter, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& info) { return hwy::TargetName(info.param); });
INSTANTIATE_TEST_SUITE_P(Best, Filter, testing::Values(kBestSet));

} // namespace
} // namespace Tessaloom::BilateralBlur
