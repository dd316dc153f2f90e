#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"
#include "Tests/Cpu/InstructionSets.h"
#include "Tests/Support/Oracle.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace Tessaloom::BilateralBlur {
namespace {

/// Random images with gaps between their rows, filtered on each set of instructions.
class Smooth : public InstructionSetTest {
protected:
    int below(int bound) { return static_cast<int>(mRandom() % static_cast<unsigned>(bound)); }
    double uniform() { return std::uniform_real_distribution<double>()(mRandom); }

    /// A value of full scale for each channel of each pixel: noise or shades, of some width or level.
    std::vector<double> content(int width, int height) {
        const double amplitude = std::pow(10, -2.5 * uniform()), level = uniform() * (1 - amplitude);
        const int alphaKind = below(5);
        const double alpha = uniform();
        const bool shades = below(3) == 0;
        std::vector<double> values;
        for (int i = 0; i < width * height; ++i) {
            const bool left = i % width < width / 2;
            values.push_back(alphaKind == 0 || (alphaKind == 1 && left) ? 1
                             : alphaKind == 2                           ? alpha
                             : alphaKind == 3 && left                   ? 0
                                                                        : uniform());
            for (int channel = 0; channel < 3; ++channel)
                values.push_back(level + amplitude * (shades
                                                          ? 0.5 + 0.5 * std::sin(0.2 * i / width + channel) *
                                                                      std::cos(0.15 * (i % width))
                                                          : uniform()));
        }
        return values;
    }

    /// Filters the values and compares: each within `most` of full scale, on average within `mean`.
    template<class Value>
    void expectOracle(std::vector<double> values, int width, int height, Depth depth, double fullScale,
                      double most, double mean) {
        const int radius = below(8) ? below(10) : below(kLargestRadius + 1);
        // The second has integer factors.
        const double threshold = below(3) ? std::pow(10, -3 * uniform()) : 0.1;
        std::vector<Value> source;
        for (double& value : values) {
            source.push_back(
                static_cast<Value>(std::is_same_v<Value, float> ? value : std::rint(fullScale * value)));
            value = source.back() / fullScale;
        }
        const auto result =
            filtered(source, std::size_t{4} * width, below(3), below(2),
                     [&](const Value* pixels, Value* target, std::ptrdiff_t stride, ThreadPool& pool) {
                         const auto* bytes = reinterpret_cast<const std::uint8_t*>(pixels);
                         bilateralSmooth({bytes, stride, width, height, depth, fullScale}, target, stride,
                                         radius, threshold, pool);
                     });

        // The same either way up.
        const auto expected = Oracle::smooth(values, width, height, radius, threshold, 1e-25);
        double sum = 0;
        for (std::size_t i = 0; i < result.size(); ++i) {
            SCOPED_TRACE(testing::Message() << i << " of " << width << " by " << height << " at " << radius
                                            << ", " << threshold << ", depth " << static_cast<int>(depth));
            if (radius == 0 || i % 4 == 0 || !std::isfinite(values[i])) {
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

    std::mt19937 mRandom{7};
};

TEST_P(Smooth, IsTheOraclesImageAtEveryDepth) {
    for (int i = 0; i < 150 && !HasFatalFailure(); ++i) {
        const int width = 1 + (below(12) ? below(40) : 257 + below(10)), height = 1 + below(i % 10 ? 12 : 40);
        const auto values = content(width, height);
        expectOracle<std::uint8_t>(values, width, height, Depth::Bits8, 255, 0.51 / 255, 0.5 / 255);
        expectOracle<std::uint16_t>(values, width, height, Depth::Bits16, 32768, 2e-4, 2e-5);
        expectOracle<float>(values, width, height, Depth::Float, 1, 2e-4, 2e-5);
    }
}

// Values far outside of 0..1, and some that aren't finite or are denormal.
TEST_P(Smooth, KeepsWhatFloatsHaveBeyondFullScale) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float special[] = {kInfinity, -kInfinity, std::nanf(""), 1e30f, -1e30f,
                             3e38f,     1e-40f,     -1e-42f,       0.0f,  -0.0f};
    for (int i = 0; i < 60 && !HasFatalFailure(); ++i) {
        const int width = 1 + below(30), height = 1 + below(12);
        auto values = content(width, height);
        const double factor = std::pow(10, 6 * uniform() - 3);
        for (std::size_t at = 0; at < values.size(); ++at) {
            values[at] *= at % 4 ? factor : 1;
            if (i % 2 && below(20) == 0)
                values[at] = at % 4 ? special[below(10)] : special[below(3)];
        }
        expectOracle<float>(values, width, height, Depth::Float, 1, 2e-4, 2e-5 + 4e-7 * factor);
    }
}

INSTANTIATE_INSTRUCTION_SETS(Smooth);

} // namespace
} // namespace Tessaloom::BilateralBlur
