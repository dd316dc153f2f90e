#pragma once

// The kinds of weights, the limits of each, and what each needs to know of a frame's filter. Only the filter
// includes it.

#include "Plugins/Shared/Cpu/Blocks.h"
#include "Plugins/Shared/Cpu/Pixels.h"
#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Tessaloom::BilateralBlur {

/// One 2^23rd: exponents are kept as integers in this unit, which is that of a float's bits.
constexpr double kOctave = 8388608.0;
constexpr double kLog2E = 1.4426950408889634;

/// Octaves that the weights of differences of `steps` sigmas fall by.
constexpr double octavesOf(double steps) {
    return kLog2E / 2 * steps * steps;
}

/// Octaves that the sums of all taps of values up to 128 take above the largest weight.
constexpr int sumOctaves(int reach) {
    int octaves = 7;
    for (int taps = (2 * reach + 1) * (2 * reach + 1); taps > 0; taps /= 2)
        ++octaves;
    return octaves;
}

/// What the jobs of a frame share.
struct FrameJobs {
    const Image& image;
    Channels channels;
    const Formula& formula;
    ThreadPool& pool;
    int reach;
    std::size_t stride = planeStride(reach);
};

// ---- Weights from exact 16-bit integers, accurate to 1e-4 of themselves, for pixels of 8 bits.

struct IntegerLimits {
    int factor;       // the product of an 8-bit difference from 128 with a factor fits 16 bits
    int unit;         // half of it fits 16 bits
    double unitError; // relative; moves a weight of 2^-5 by 1e-4
    int exponent;     // floats end at 2^127
};
constexpr IntegerLimits kIntegerLimits{255, 65534, 2.5e-5, 127};

/// Half of the largest |q|^2 of differences from 128, to be taken from it so that it fits 16 bits.
constexpr int kSquareMiddle = 3 * 128 * 128 / 2;

/// The range term is -unit() / 2 * |q - p|^2 in 2^-23 octaves, with an even integer for the unit.
struct IntegerFactors {
    int centre, neighbour;
    /// Raises the exponents so that the least weight is a normal float, of 2^-126 at least: below, its bits would be
    /// another number's.
    int bias;

    constexpr int unit() const { return centre * neighbour; }

    /// Nothing where the sigmas are beyond the limits.
    static constexpr std::optional<IntegerFactors> find(const BilateralFilter& filter) {
        const double exact = 2 * kOctave * octavesOf(1 / (255 * filter.rangeSigma));
        if (exact > kIntegerLimits.unit)
            return std::nullopt;
        const int unit = static_cast<int>(exact / 2 + 0.5) * 2;
        const double error = (unit - exact) / exact;
        if (error > kIntegerLimits.unitError || error < -kIntegerLimits.unitError)
            return std::nullopt;
        // Weights are scaled by 2^(unit / 2 * |p|^2), in octaves from -deepest, at the farthest column, to highest.
        const double deepest = unit * (kSquareMiddle + 3.0 * 127 * 128) / kOctave +
                               octavesOf(filter.reach / filter.spatialSigma);
        const double highest = unit * static_cast<double>(kSquareMiddle) / kOctave;
        // Not an int yet: a small sigma makes it any number. One more octave comes from the exponential.
        const double bias = deepest + 1 - 127;
        if (highest + bias + 1 + sumOctaves(filter.reach) >= kIntegerLimits.exponent)
            return std::nullopt;
        for (int factor = 1; factor <= kIntegerLimits.factor; ++factor)
            if (unit % factor == 0 && unit / factor <= kIntegerLimits.factor)
                return IntegerFactors{unit / factor, factor, static_cast<int>(bias)};
        return std::nullopt;
    }
};
static_assert(IntegerFactors::find({29, 10, 0.1}) && IntegerFactors::find({60, 30, 0.1}),
              "the sigma that effects use most has integer factors");

/// For one frame.
struct IntegerNumbers {
    IntegerNumbers(const BilateralFilter& filter, const IntegerFactors& factors);

    IntegerFactors factors;
    std::array<std::int32_t, kMaxTaps> starts[2]; // exponents by column, for two channels and for three
    std::array<float, kReachLimit + 1> rowWeight; // by distance
};

// ---- Weights as bfloat16 numbers, accurate to 0.9 % each, for pixels of 8 bits.

#ifdef BILATERAL_BLUR_BF16
struct Bf16Limits {
    int leastReach; // below it the gain is less than 1.4 times
    int exponent;   // floats end at 2^127
};
constexpr Bf16Limits kBf16Limits{4, 127};

/// Whether this processor has what the weights need, and the filter is within their limits. They know no alpha.
bool usesBf16(const BilateralFilter& filter, Channels channels);

/// For one frame. Weights are 1 and less.
struct Bf16Numbers {
    explicit Bf16Numbers(const BilateralFilter& filter);

    std::uint32_t scale; // in 1/65536: scaled levels have squared distances in 2^-23 octaves
    std::array<std::array<std::int32_t, kMaxTaps>, kReachLimit + 1> starts; // by distance in y, and column
};

void filterBlockBf16(const FrameJobs& frame, const Bf16Numbers& numbers, const Block& block, unsigned worker);
#endif

// ---- Weights as floats, accurate to 1e-4 of themselves, for any sigma and depth.

struct FloatLimits {
    float value;     // larger scaled values count as this, so that differences stay finite
    float notFinite; // far from all of them: its squared distance is infinite
    double octaves;  // smaller weights count as 0; products with any difference are normal floats
};
constexpr FloatLimits kFloatLimits{1e38f, 2e38f, 100};

/// For one frame. Weights are 1 and less.
struct FloatNumbers {
    /// @param unit of exponents, in octaves.
    FloatNumbers(const BilateralFilter& filter, double fullScale, double unit);

    float scale; // of the image's values: scaled ones have squared distances in the unit
    std::array<std::array<float, kMaxTaps>, kReachLimit + 1> starts; // by distance in y, and column
};

} // namespace Tessaloom::BilateralBlur
