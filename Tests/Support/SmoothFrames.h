#pragma once

#include "Tests/Support/Images.h"
#include "Tests/Support/Oracle.h"

#include <gtest/gtest.h>

#include <cstring>

namespace Tessaloom::BilateralBlur {

/// Frames for "Bilateral Smooth" by chance, whose results are compared with the formula's.
class SmoothFrames {
protected:
    /// Pixels of 4 values, A, R, G, B, in units of full scale.
    struct Frame {
        int width, height;
        std::vector<double> values{};
    };

    int below(int bound) { return Images::below(mRandom, bound); }
    double uniform() { return std::uniform_real_distribution<double>()(mRandom); }

    /// A random image, its colours on some scale from some level.
    Frame makeFrame() {
        const double scale = std::pow(10, -2.5 * uniform()), level = uniform() * (1 - scale);
        const Images::Image image = Images::random(mRandom);
        Frame frame{image.width, image.height, image.normalised()};
        for (std::size_t i = 0; i < frame.values.size(); ++i)
            if (i % 4 > 0)
                frame.values[i] = level + scale * frame.values[i];
        return frame;
    }

    /// Values far outside of 0..1, up to `factor`, and in every other call some that aren't finite or are denormal.
    void reachBeyondFullScale(Frame& frame, double factor) {
        constexpr float kSpecial[] = {HUGE_VALF, -HUGE_VALF, NAN,     1e30f, -1e30f,
                                      3e38f,     1e-40f,     -1e-42f, 0.0f,  -0.0f};
        const bool hasSpecial = below(2);
        for (std::size_t at = 0; at < frame.values.size(); ++at) {
            frame.values[at] *= at % 4 ? factor : 1;
            if (hasSpecial && below(20) == 0)
                frame.values[at] = kSpecial[below(at % 4 ? 10 : 3)];
        }
    }

    /// Compares what `filter(values, radius, threshold)`, the threshold in thousandths, makes of the frame's values at a
    /// depth: each must be within `most` of full scale, on average within `mean`.
    template<class Value, class Filter>
    void expectOracle(Frame frame, double fullScale, double most, double mean, Filter filter) {
        const int radius = below(8) ? below(10) : below(61);
        // The second has integer factors.
        const int threshold =
            below(3) ? static_cast<int>(std::lround(1000 * std::pow(10, -3 * uniform()))) : 100;
        std::vector<Value> source;
        for (double& value : frame.values) {
            source.push_back(
                static_cast<Value>(std::is_same_v<Value, float> ? value : std::rint(fullScale * value)));
            value = source.back() / fullScale;
        }
        const std::vector<Value> result = filter(source, radius, threshold);
        const auto expected =
            Oracle::smooth(frame.values, frame.width, frame.height, radius, threshold / 1000.0, 1e-25);
        ASSERT_EQ(result.size(), source.size());
        double sum = 0;
        for (std::size_t i = 0; i < result.size(); ++i) {
            SCOPED_TRACE(testing::Message() << i << " of " << frame.width << " by " << frame.height << " at "
                                            << radius << ", " << threshold << ", full scale " << fullScale);
            if (radius == 0 || i % 4 == 0 || !std::isfinite(frame.values[i])) {
                ASSERT_EQ(std::memcmp(&result[i], &source[i], sizeof(Value)), 0);
            } else if (!std::isnan(expected[i])) {
                const double error = std::abs(result[i] / fullScale - expected[i]);
                ASSERT_LE(error, most + 4e-7 * std::abs(expected[i]))
                    << result[i] / fullScale << ", " << expected[i];
                sum += error;
            }
        }
        ASSERT_LE(sum, mean * static_cast<double>(result.size()));
    }

private:
    std::mt19937 mRandom{7};
};

} // namespace Tessaloom::BilateralBlur
