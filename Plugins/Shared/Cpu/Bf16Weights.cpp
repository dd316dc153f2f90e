// Weights for processors with AVX512-VBMI and AVX512-BF16, from a reach of 4 up. They are 1.6 to 2.2 times as fast
// as the integer ones where the first channel is constant, 1.4 to 1.9 times where it varies, and less precise.
//
// Two taps that follow each other share a 32-bit lane. The logarithm of each weight is a sum of squares, exact
// to a small part of an octave. The upper half of it is nearly the weight as a bfloat16 number: its fraction
// of 7 bits only has to become a mantissa, which a table of 128 bytes in two registers does. One instruction
// then multiplies both weights by the values of both taps and adds the products to a float.
//
// The rounding to 1/128 octave and the mantissa put a weight up to 0.9 % off. The pixel's own weight is exact,
// and the errors of the others differ from tap to tap and cancel out. (With the weight along y left to the sum of
// a row, as the integer weights have it, they did so only from column to column, and the rows repeated beyond an
// edge were 0.095 of a level off.) Of 36 million means of noise in three channels the worst was 0.078 of a level
// off, 0.007 on average; of as many around lone pixels the worst was 0.082. Lines and images of few levels stay
// below that, a photograph below 0.02. Below a reach of 4 the gain is less than 1.4 times.
//
// Three rows at a time were 5 % slower than two.

#include "Plugins/Shared/Cpu/Weights.h"

#include <hwy/base.h>
#include <hwy/targets.h>
#include <immintrin.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <new>
#include <optional>

namespace Tessaloom::BilateralBlur {
namespace {

/// Octaves of the least weight.
double deepestOf(const BilateralFilter& filter) {
    return octavesOf(std::sqrt(3.0) / filter.rangeSigma) +
           octavesOf(std::sqrt(2.0) * filter.reach / filter.spatialSigma);
}

/// Raised by the bias the least weight is a normal float: below, its bits would be another number's.
double biasOf(const BilateralFilter& filter) {
    return deepestOf(filter) + 2 - 127;
}

} // namespace

bool usesBf16(const BilateralFilter& filter, Channels channels) {
    // Who restricts the library to one of its sets wants the integer weights. The larger of these has VBMI.
    constexpr std::int64_t kSets = HWY_AVX3_DL | HWY_AVX3;
    return channels == Channels::AlphaRedGreen && filter.reach >= kBf16Limits.leastReach &&
           biasOf(filter) + sumOctaves(filter.reach) < kBf16Limits.exponent &&
           __builtin_cpu_supports("avx512bf16") && (hwy::SupportedTargets() & kSets) == kSets;
}

Bf16Numbers::Bf16Numbers(const BilateralFilter& filter)
    : scale(static_cast<std::uint32_t>(
          std::lround(65536 * std::sqrt(kOctave * octavesOf(1 / (255 * filter.rangeSigma)))))) {
    const int bias = static_cast<int>(biasOf(filter));
    // 0x8000 rounds the upper half to the nearest; a complement is one less than the negative.
    for (int y = 0; y <= filter.reach; ++y)
        for (int x = -filter.reach; x <= filter.reach; ++x) {
            const double octaves =
                bias + 127 - octavesOf(y / filter.spatialSigma) - octavesOf(x / filter.spatialSigma);
            starts[y][x + filter.reach] =
                static_cast<std::int32_t>(std::lround(-kOctave * octaves) - 0x8000 - 1);
        }
}

// By region and not by file: code of the standard library must run on every processor.
HWY_PUSH_ATTRIBUTES("avx512f,avx512bw,avx512vbmi,avx512vnni,avx512bf16")
namespace {
namespace Bf16 {

/// The 7 bits of a mantissa by the complement of the 7 bits of a logarithm's fraction.
constexpr std::array<std::uint8_t, 128> kMantissas = [] {
    std::array<std::uint8_t, 128> mantissas{};
    double power = 1;
    for (int i = 127; i >= 0; --i) {
        mantissas[i] = static_cast<std::uint8_t>(128 * (power - 1) + 0.5);
        power *= 1.0054299011128027; // 2^(1/128)
    }
    return mantissas;
}();

/// Keeps the vector in its register: compilers would load it again for each use, and unaligned loads are
/// expensive.
HWY_INLINE __m512i load(const std::uint32_t* from) {
    __m512i vector = _mm512_loadu_si512(from);
    asm("" : "+v"(vector));
    return vector;
}

/// sum + a.low * b.low + a.high * b.high for the two bfloat16 numbers of each 32 bits.
HWY_INLINE __m512 addProducts(__m512 sum, __m512i a, __m512i b) {
    return _mm512_dpbf16_ps(sum, reinterpret_cast<__m512bh>(a), reinterpret_cast<__m512bh>(b));
}

/// The planes of one block.
struct Bf16Planes {
    template<int kChannels>
    class Weights;
    using Varying = Weights<3>;
    using Uniform = Weights<2>;

    alignas(
        64) std::uint32_t colours[2][kPlaneSize]; // pairs of 16 bits: a squared distance is in 2^-23 octaves
    alignas(64) std::uint32_t values[3][kPlaneSize]; // less 128, as bfloat16: the pixel's and the next one's

    /// @return alpha, if it has one value all over them.
    std::optional<float> fill(const FrameJobs& frame, const Bf16Numbers& numbers, const Block& block) {
        // Rounding the products to integers moves a weight by 0.2 % where the pixels still mix.
        const auto scaled = [scale = numbers.scale](std::uint32_t level) {
            return (level * scale + 32768) >> 16;
        };
        const auto floatBits = [](std::uint32_t level) {
            return std::bit_cast<std::uint32_t>(static_cast<float>(static_cast<int>(level) - 128));
        };
        alignas(64) std::uint32_t line[kLineWidth + 1] = {};
        std::uint32_t different = 0, first = 0;
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            loadLine(frame.image, block, frame.reach, row, reinterpret_cast<std::uint8_t(*)[4]>(line));
            if (row == 0)
                first = line[0];
            const std::size_t start = frame.stride * row;
            // Simple enough for the compiler to make vectors of.
            for (int column = 0; column < columns; ++column) {
                const std::uint32_t pixel = line[column];
                different |= (pixel ^ first) & 0xFF;
                colours[0][start + column] = scaled(pixel & 0xFF) | scaled(pixel >> 8 & 0xFF) << 16;
                colours[1][start + column] = scaled(pixel >> 16 & 0xFF);
            }
            for (int channel = 0; channel < 3; ++channel)
                for (int column = 0; column < columns; ++column)
                    values[channel][start + column] = floatBits(line[column] >> 8 * channel & 0xFF) >> 16 |
                                                      floatBits(line[column + 1] >> 8 * channel & 0xFF);
        }
        if (different != 0)
            return std::nullopt;
        return static_cast<float>(first & 0xFF);
    }

    /// Rewrites the colours for red and green alone.
    void makeUniform(const FrameJobs& frame, const Bf16Numbers&, const Block& block) {
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            const std::size_t start = frame.stride * row;
            for (std::size_t at = start; at < start + columns; ++at)
                colours[0][at] = colours[0][at] >> 16 | colours[1][at] << 16;
        }
    }
};

template<int kChannels>
class Bf16Planes::Weights {
public:
    static constexpr int kLanes = 16;
    static constexpr bool kPairsRows = true;
    struct Scope {};
    struct Tile;

    Weights(const FrameJobs& frame, const Bf16Numbers& numbers, const Bf16Planes& planes)
        : mPlanes(planes), mStride(frame.stride), mReach(frame.reach), mNumbers(numbers) {}

    /// Adds one row of neighbours to each of the tiles, one above the other.
    template<class... Tiles>
    HWY_INLINE void addRow(int row, int column, Tiles&... tiles) const {
        const std::size_t at = mStride * row + column;
        const int last = 2 * mReach;
        for (int tap = 0; tap < last; tap += 2) {
            const Taps<2> taps(mPlanes, at + tap);
            (tiles.add(taps, &mNumbers.starts[std::abs(row - tiles.row)][tap]), ...);
        }
        const Taps<1> taps(mPlanes, at + last);
        (tiles.add(taps, &mNumbers.starts[std::abs(row - tiles.row)][last]), ...);
    }

private:
    /// One tap or two that follow each other, for kLanes pixels.
    template<int kCount>
    struct Taps {
        __m512i colours[kCount][kChannels - 1];
        __m512i values[kChannels];

        HWY_INLINE Taps(const Bf16Planes& planes, std::size_t at) {
            for (int i = 0; i < kChannels - 1; ++i)
                for (int tap = 0; tap < kCount; ++tap)
                    colours[tap][i] = load(planes.colours[i] + at + tap);
            for (int i = 0; i < kChannels; ++i)
                values[i] = load(planes.values[i + 3 - kChannels] + at);
        }
    };

    const Bf16Planes& mPlanes;
    std::size_t mStride;
    int mReach;
    const Bf16Numbers& mNumbers;
};

template<int kChannels>
struct Bf16Planes::Weights<kChannels>::Tile {
    int row; // within the planes
    __m512i centre[kChannels - 1];
    __m512 sum[kChannels + 1]; // the weights, then the weighted channels

    HWY_INLINE Tile(const Weights& weights, int row, int column) : row(row) {
        for (int i = 0; i < kChannels - 1; ++i)
            centre[i] = load(weights.mPlanes.colours[i] + weights.mStride * row + column);
        for (__m512& value : sum)
            value = _mm512_setzero_ps();
    }

    /// The complement of a weight's logarithm. Squares only add up, and so does this.
    HWY_INLINE __m512i complement(const __m512i (&colour)[kChannels - 1], std::int32_t start) const {
        __m512i sum = _mm512_set1_epi32(start);
        for (int i = 0; i < kChannels - 1; ++i) {
            const __m512i difference = _mm512_sub_epi16(colour[i], centre[i]);
            sum = _mm512_dpwssd_epi32(sum, difference, difference);
        }
        return sum;
    }

    template<int kCount>
    HWY_INLINE void add(const Taps<kCount>& taps, const std::int32_t* starts) {
        const __m512i upperToLower = _mm512_set4_epi32(0x0F0E0F0E, 0x0B0A0B0A, 0x07060706, 0x03020302);
        constexpr __mmask64 kLower = 0x3333333333333333;
        __m512i bits = complement(taps.colours[0], starts[0]);
        if constexpr (kCount == 2)
            bits =
                _mm512_mask_shuffle_epi8(complement(taps.colours[1], starts[1]), kLower, bits, upperToLower);
        else
            bits = _mm512_maskz_shuffle_epi8(kLower, bits, upperToLower);
        const __m512i mantissas = _mm512_permutex2var_epi8(_mm512_loadu_si512(&kMantissas[0]), bits,
                                                           _mm512_loadu_si512(&kMantissas[64]));
        // The mantissa where the constant has ones, the complement of the complement elsewhere.
        __m512i weights = _mm512_ternarylogic_epi32(_mm512_set1_epi32(0x007F007F), mantissas, bits, 0xC5);
        if constexpr (kCount == 1)
            weights = _mm512_and_si512(weights, _mm512_set1_epi32(0xFFFF));
        sum[0] = addProducts(sum[0], weights, _mm512_set1_epi32(0x3F803F80)); // times 1
        for (int i = 0; i < kChannels; ++i)
            sum[1 + i] = addProducts(sum[1 + i], weights, taps.values[i]);
    }

    /// Stores the means of the channels.
    HWY_INLINE void store(Means& means, int column) const {
        for (int i = 0; i < kChannels; ++i)
            _mm512_storeu_ps(&means[i + 3 - kChannels][column],
                             _mm512_add_ps(_mm512_div_ps(sum[1 + i], sum[0]), _mm512_set1_ps(128)));
    }
};

#include "Plugins/Shared/Cpu/Tiles-inl.h"

} // namespace Bf16
} // namespace

void filterBlockBf16(const FrameJobs& frame, const Bf16Numbers& numbers, const Block& block,
                     unsigned worker) {
    Bf16::filterBlock<Bf16::Bf16Planes>(frame, numbers, block, worker);
}

HWY_POP_ATTRIBUTES

} // namespace Tessaloom::BilateralBlur
