// How this is made, and why.
//
// A frame is cut into blocks, each filtered from planes of its own with the edges repeated, so the inner loop
// knows no border and no block knows another. Two rows of pixels share each neighbour that is loaded.
//
// The weight of a tap is one power of two. Its exponent is an exact integer, -c * |q - p|^2 without the part
// that all taps of a pixel share: two 16-bit multiply-accumulates give it in the unit of a float's bits, so
// that it is nearly the weight's bits already, and a cubic corrects the rest. The weight along y is taken out
// of the sum over a row, which keeps the rows' sums short and so precise. Where alpha doesn't vary, one
// multiply-accumulate is enough.
//
// With 512-bit vectors the two units for multiply-adds bound the loop: 8 of its 11 instructions a tap need
// them (6 of 9.5 with constant alpha). Tried on a processor with such vectors and given up: weighing each
// pair of pixels once for both, as the second pixel's sums must then go through memory at each tap (4.4
// to 5.9 cycles a vector of taps, against 5.1 to 5.3); planes on which every load is aligned, the loop in two
// or three overlapped stages, the loop unrolled, and one or three rows at a time (within 3 %, four rows
// slower).
//
// With 16 registers the two loads a cycle bound the loop where alpha varies: constants and centres must be
// loaded at each tap. So each value is loaded once for both rows, and as few constants as can be are used.
// One row at a time needs fewer loads, but then waits for its own sums (2 % faster, 10 % slower with constant
// alpha); aligned loads would gain 5 % there and nothing with constant alpha.

#include "Plugins/Shared/Cpu/Kernel.h"

#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/Cpu/Blocks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>

// A row's state is kept in arrays and structures, which vectors of unknown size can't be part of.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)
#define HWY_WANT_AVX3_DL
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Plugins/Shared/Cpu/Kernel.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#ifndef BILATERAL_BLUR_KERNEL_SHARED
#define BILATERAL_BLUR_KERNEL_SHARED

namespace Tessaloom::BilateralBlur {
namespace {

/// The range term is -kUnit / 2 * |q - p|^2 in 2^-23 octaves, with an integer for the unit. The product of
/// two 8-bit differences from 128 with one factor each still fits 16 by 16 bits.
constexpr int kCentreFactor = 141;
constexpr int kNeighbourFactor = 132;
constexpr int kUnit = kCentreFactor * kNeighbourFactor;
constexpr double kExactUnit = kLog2E * kOctave / (255 * kRangeSigma * 255 * kRangeSigma);
static_assert(kUnit - kExactUnit < 2.5e-5 * kExactUnit && kExactUnit - kUnit < 2.5e-5 * kExactUnit);

/// Half of the largest |q|^2, to be taken from it so that it fits 16 bits.
constexpr int kSquareMiddle = 3 * 128 * 128 / 2;

/// Weights are scaled by 2^(kUnit / 2 * |p|^2), in octaves from -kDeepest, at the farthest column, to kHighest.
/// Raised by kBias and by the one that exp2Bits adds, the least of them is a normal float, of 2^-126 at least:
/// below, its bits would be another number's. The sums of all taps take up to 20 octaves more.
constexpr double kDeepest = kUnit * (kSquareMiddle + 3.0 * 127 * 128) / kOctave +
                            kLog2E * kLargestReach * kLargestReach / (2 * kSpatialSigma * kSpatialSigma);
constexpr double kHighest = kUnit * static_cast<double>(kSquareMiddle) / kOctave;
constexpr int kBias = static_cast<int>(kDeepest) + 1 - 127;
static_assert(kHighest + kBias + 1 + 20 < 127, "a smaller sigma needs another scale of the weights");
static_assert(kMaxTaps * kMaxTaps * 128 < 1 << 20);

/// The planes of one block and its margins: row r, column c hold the pixel (x - reach + c, y - reach + r) of
/// the picture, clamped to it.
struct Scratch {
    static constexpr std::size_t kPlane = std::size_t{kPlaneStride} * kPlaneRows;
    alignas(64) std::int32_t pairs[kPlane]; // of 16-bit values, for the squared distance
    alignas(64) std::int32_t pairs2[kPlane];
    alignas(64) float channels[3][kPlane];
};

} // namespace
} // namespace Tessaloom::BilateralBlur
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using TagF = hn::CappedTag<float, kMaxLanes>;
using TagI = hn::RebindToSigned<TagF>;
using TagU = hn::RebindToUnsigned<TagF>;
using VF = hn::Vec<TagF>;
using VI = hn::Vec<TagI>;
constexpr TagF df;
constexpr TagI di;
constexpr TagU du;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(df));

/// sum + a.low * b.low + a.high * b.high for the two 16-bit halves of each 32 bits.
HWY_INLINE VI addPairProducts(VI sum, VI a, VI b) {
#if HWY_TARGET == HWY_AVX3_DL
    // An intrinsic would need the target attribute for VNNI, which the library's list for this set lacks.
    asm("vpdpwssd %2, %1, %0" : "+v"(sum.raw) : "v"(a.raw), "v"(b.raw));
    return sum;
#elif HWY_TARGET == HWY_AVX3
    return hn::Add(sum, VI{_mm512_madd_epi16(a.raw, b.raw)});
#elif HWY_TARGET == HWY_AVX2
    return hn::Add(sum, VI{_mm256_madd_epi16(a.raw, b.raw)});
#elif HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
    return hn::Add(sum, VI{_mm_madd_epi16(a.raw, b.raw)});
#else
    const VI high = hn::Mul(hn::ShiftRight<16>(a), hn::ShiftRight<16>(b));
    const VI low =
        hn::Mul(hn::ShiftRight<16>(hn::ShiftLeft<16>(a)), hn::ShiftRight<16>(hn::ShiftLeft<16>(b)));
    return hn::Add(sum, hn::Add(high, low));
#endif
}

/// The nearest integers of values that fit. The library's own function guards against others, at four
/// operations.
HWY_INLINE VI nearestInt(VF value) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    return VI{_mm512_cvtps_epi32(value.raw)};
#elif HWY_TARGET == HWY_AVX2
    return VI{_mm256_cvtps_epi32(value.raw)};
#elif HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
    return VI{_mm_cvtps_epi32(value.raw)};
#else
    return hn::NearestInt(value);
#endif
}

/// Keeps a loaded vector in its register: compilers would load it again for each use, and unaligned
/// loads are expensive.
template<class V>
HWY_INLINE void keepInRegister([[maybe_unused]] V& vector) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX2
    asm("" : "+v"(vector.raw));
#endif
}

HWY_INLINE VI pairOf(VI low, VI high) {
    return hn::Or(hn::And(low, hn::Set(di, 0xFFFF)), hn::ShiftLeft<16>(high));
}

/// 2^(x / 2^23 + 1): the integer is a logarithm in the unit of a float's bits, so its bits are the result but
/// for the bend of 2^f against 1 + f between two powers of two, which the cubic adds.
HWY_INLINE VF exp2Bits(VI x) {
    const VI fraction = hn::Set(di, 0x007FFFFF);
    // A minimax fit to 2^f - f + 1 over m = 1 + f, relative to 2^f: 7.5e-5 at most.
    constexpr double k0 = 2.452134310786263, k1 = -0.5222272022865219, k2 = -0.008006412600162589,
                     k3 = 0.07802452266443138;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    const VF m = hn::BitCast(df, hn::OrAnd(hn::Set(di, 0x3F800000), x, fraction));
    constexpr double c0 = k0, c1 = k1, c2 = k2, c3 = k3;
#else
    // The same over 2^23 * f: a conversion needs no constant, which would be one too many for 16 registers.
    const VF m = hn::ConvertTo(df, hn::And(x, fraction));
    constexpr double c0 = k0 + k1 + k2 + k3, c1 = (k1 + 2 * k2 + 3 * k3) / kOctave,
                     c2 = (k2 + 3 * k3) / (kOctave * kOctave), c3 = k3 / (kOctave * kOctave * kOctave);
#endif
    VF bend = hn::MulAdd(hn::Set(df, static_cast<float>(c3)), m, hn::Set(df, static_cast<float>(c2)));
    bend = hn::MulAdd(bend, m, hn::Set(df, static_cast<float>(c1)));
    bend = hn::MulAdd(bend, m, hn::Set(df, static_cast<float>(c0)));
    return hn::BitCast(df, hn::Add(hn::BitCast(di, bend), x));
}

/// All three channels at work. Values are differences from 128. The exponent leaves out the
/// term of |p|^2, which is common to all taps of a pixel and so cancels out.
class ThreeChannels {
public:
    static constexpr int kChannels = 3;
    struct Neighbour {
        VI init, ar, gq;
        HWY_INLINE void keep() {
            keepInRegister(ar);
            keepInRegister(gq);
        }
    };
    struct Centre {
        VI ar, g1;
    };

    ThreeChannels(const Scratch& scratch, const Frame& frame) : mScratch(scratch) {
        for (int i = -frame.reach; i <= frame.reach; ++i)
            mInit[i + frame.reach] =
                static_cast<std::int32_t>(std::lround(kOctave * (frame.octaves[std::abs(i)] + kBias))) -
                kUnit / 2 * kSquareMiddle;
    }

    HWY_INLINE Neighbour neighbour(std::size_t at, int tap) const {
        return {hn::Set(di, mInit[tap]), hn::LoadU(di, mScratch.pairs + at),
                hn::LoadU(di, mScratch.pairs2 + at)};
    }

    HWY_INLINE Centre centre(std::size_t at) const {
        const auto scaled = [&](int channel) {
            const VI value = hn::ConvertTo(di, hn::LoadU(df, mScratch.channels[channel] + at));
            return hn::Mul(value, hn::Set(di, kCentreFactor));
        };
        return {pairOf(scaled(0), scaled(1)), pairOf(scaled(2), hn::Set(di, -kUnit / 2))};
    }

    HWY_INLINE VF value(std::size_t at, int channel) const {
        return hn::LoadU(df, mScratch.channels[channel] + at);
    }

    HWY_INLINE VI exponent(const Neighbour& q, const Centre& p) const {
        return addPairProducts(addPairProducts(q.init, p.ar, q.ar), p.g1, q.gq);
    }

private:
    const Scratch& mScratch;
    std::int32_t mInit[kMaxTaps];
};

/// Pixels whose alpha is the same all over the block and its margins: red and green alone make the
/// weight.
class TwoChannels {
public:
    static constexpr int kChannels = 2;
    struct Neighbour {
        VI init, rg;
        HWY_INLINE void keep() {
            keepInRegister(init);
            keepInRegister(rg);
        }
    };
    struct Centre {
        VI rg;
    };

    TwoChannels(const Scratch& scratch, const Frame& frame) : mScratch(scratch) {
        for (int i = -frame.reach; i <= frame.reach; ++i)
            mInit[i + frame.reach] =
                static_cast<std::int32_t>(std::lround(kOctave * (frame.octaves[std::abs(i)] + kBias)));
    }

    HWY_INLINE Neighbour neighbour(std::size_t at, int tap) const {
        return {hn::Add(hn::Set(di, mInit[tap]), hn::LoadU(di, mScratch.pairs2 + at)),
                hn::LoadU(di, mScratch.pairs + at)};
    }

    HWY_INLINE Centre centre(std::size_t at) const {
        const auto scaled = [&](int channel) {
            const VI value = hn::ConvertTo(di, hn::LoadU(df, mScratch.channels[channel] + at));
            return hn::Mul(value, hn::Set(di, kCentreFactor));
        };
        return {pairOf(scaled(1), scaled(2))};
    }

    HWY_INLINE VF value(std::size_t at, int channel) const {
        return hn::LoadU(df, mScratch.channels[1 + channel] + at);
    }

    HWY_INLINE VI exponent(const Neighbour& q, const Centre& p) const {
        return addPairProducts(q.init, p.rg, q.rg);
    }

private:
    const Scratch& mScratch;
    std::int32_t mInit[kMaxTaps];
};

/// The running sums of kLanes neighbouring pixels of one row: the weights, then the weighted channels.
template<class Taps>
struct Tile {
    static constexpr int kSums = Taps::kChannels + 1;

    typename Taps::Centre centre;
    int row; // within the scratch planes
    VF sum[kSums];
    VF total[kSums];
    VF weight; // of the current tap

    HWY_INLINE Tile(const Taps& taps, int row, int column)
        : centre(taps.centre(std::size_t{kPlaneStride} * row + column)), row(row) {
        for (VF& value : total)
            value = hn::Zero(df);
    }
    HWY_INLINE void beginRow() {
        for (VF& value : sum)
            value = hn::Zero(df);
    }
    HWY_INLINE void weigh(const Taps& taps, const typename Taps::Neighbour& q) {
        weight = exp2Bits(taps.exponent(q, centre));
        keepInRegister(weight);
        sum[0] = hn::Add(sum[0], weight);
    }
    HWY_INLINE void add(int channel, VF value) {
        sum[1 + channel] = hn::MulAdd(weight, value, sum[1 + channel]);
    }
    HWY_INLINE void endRow(float rowWeight) {
        for (int i = 0; i < kSums; ++i)
            total[i] = hn::MulAdd(hn::Set(df, rowWeight), sum[i], total[i]);
    }
};

/// Adds one row of neighbours to each of the tiles, one above the other.
template<class Taps, class Weights, class... Tiles>
HWY_INLINE void addRow(const Taps& taps, const Weights& rowWeight, int reach, int row, int column,
                       Tiles&... tiles) {
    const std::size_t at = std::size_t{kPlaneStride} * row + column;
    (tiles.beginRow(), ...);
    for (int tap = 0; tap <= 2 * reach; ++tap) {
        typename Taps::Neighbour q = taps.neighbour(at + tap, tap);
        q.keep();
        (tiles.weigh(taps, q), ...);
        // Channel by channel, so that 16 registers are enough to load each value once for all tiles.
        for (int channel = 0; channel < Taps::kChannels; ++channel) {
            VF value = taps.value(at + tap, channel);
            keepInRegister(value);
            (tiles.add(channel, value), ...);
        }
    }
    (tiles.endRow(rowWeight[std::abs(row - tiles.row)]), ...);
}

/// Fills the planes for all three channels at work.
/// @return whether alpha has one value all over them.
bool fillPlanes(const Frame& frame, const Block& block, Scratch& scratch) {
    alignas(64) std::uint8_t line[kPlaneStride][4];
    const VI byte = hn::Set(di, 0xFF);
    const VI middle = hn::Set(di, 128);
    VI different = hn::Zero(di);
    VI alpha = hn::Zero(di);
    const int columns = block.planeColumns(frame.reach);
    for (int row = 0; row < block.planeRows(frame.reach); ++row) {
        loadLine(frame, block, row, line);
        if (row == 0)
            alpha = hn::Set(di, line[0][0] - 128);
        const std::size_t start = std::size_t{kPlaneStride} * row;
        for (int column = 0; column < columns; column += kLanes) {
            const std::size_t at = start + column;
            const VI pixels = hn::Load(di, reinterpret_cast<const std::int32_t*>(line[column]));
            const VI a = hn::Sub(hn::And(pixels, byte), middle);
            const VI r = hn::Sub(hn::And(hn::ShiftRight<8>(pixels), byte), middle);
            const VI g = hn::Sub(hn::And(hn::ShiftRight<16>(pixels), byte), middle);
            different = hn::Or(different, hn::Xor(a, alpha));
            hn::Store(hn::ConvertTo(df, a), df, scratch.channels[0] + at);
            hn::Store(hn::ConvertTo(df, r), df, scratch.channels[1] + at);
            hn::Store(hn::ConvertTo(df, g), df, scratch.channels[2] + at);
            const VI square = hn::Add(hn::Add(hn::Mul(a, a), hn::Mul(r, r)), hn::Mul(g, g));
            const VI factor = hn::Set(di, kNeighbourFactor);
            hn::Store(pairOf(hn::Mul(a, factor), hn::Mul(r, factor)), di, scratch.pairs + at);
            hn::Store(pairOf(hn::Mul(g, factor), hn::Sub(square, hn::Set(di, kSquareMiddle))), di,
                      scratch.pairs2 + at);
        }
    }
    return hn::AllTrue(di, hn::Eq(different, hn::Zero(di)));
}

/// Rewrites the pairs for red and green alone.
void dropAlpha(const Frame& frame, const Block& block, Scratch& scratch) {
    const int columns = block.planeColumns(frame.reach);
    for (int row = 0; row < block.planeRows(frame.reach); ++row) {
        for (int column = 0; column < columns; column += kLanes) {
            const std::size_t at = std::size_t{kPlaneStride} * row + column;
            const VI r = hn::ConvertTo(di, hn::Load(df, scratch.channels[1] + at));
            const VI g = hn::ConvertTo(di, hn::Load(df, scratch.channels[2] + at));
            const VI square = hn::Add(hn::Mul(r, r), hn::Mul(g, g));
            const VI factor = hn::Set(di, kNeighbourFactor);
            hn::Store(pairOf(hn::Mul(r, factor), hn::Mul(g, factor)), di, scratch.pairs + at);
            hn::Store(hn::Mul(square, hn::Set(di, -kUnit / 2)), di, scratch.pairs2 + at);
        }
    }
}

/// A channel's mean from a tile's sums, in the plane's unit.
template<class Taps>
HWY_INLINE VF mean(const Tile<Taps>& tile, int channel) {
    return hn::Div(tile.total[1 + channel], tile.total[0]);
}

/// The nearest whole numbers of 0..255.
HWY_INLINE VI nearestByte(VF value) {
    return nearestInt(hn::Min(hn::Max(value, hn::Zero(df)), hn::Set(df, 255.0f)));
}

HWY_INLINE VI packBytes(VI first, VI second, VI third, VI fourth) {
    return hn::Or(hn::Or(first, hn::ShiftLeft<8>(second)),
                  hn::Or(hn::ShiftLeft<16>(third), hn::ShiftLeft<24>(fourth)));
}

/// What premultiplied pixels rounded to bytes are once they are divided by alpha again: A, R, G, B. All
/// values are 0..255.
HWY_INLINE VI straightPixels(VF a, VF r, VF g, VF b) {
    const VF scale = hn::Mul(a, hn::Set(df, 1.0f / 255.0f));
    const VI alpha = nearestByte(a);
    // Where alpha rounds to 0 so do the premultiplied colours.
    const VF divisor = hn::Max(hn::ConvertTo(df, alpha), hn::Set(df, 1.0f));
    const auto straight = [&](VF colour) {
        const VF premultiplied = hn::ConvertTo(df, nearestByte(hn::Mul(colour, scale)));
        // Not by a reciprocal, whose rounding would decide halves.
        return nearestByte(hn::Div(hn::Mul(premultiplied, hn::Set(df, 255.0f)), divisor));
    };
    return packBytes(alpha, straight(r), straight(g), straight(b));
}

/// The channel of pixels that lies `kShift` bits up.
template<int kShift>
HWY_INLINE VF channelOf(VI pixels) {
    const VI shifted = hn::BitCast(di, hn::ShiftRight<kShift>(hn::BitCast(du, pixels)));
    return hn::ConvertTo(df, hn::And(shifted, hn::Set(di, 0xFF)));
}

/// Stores up to kLanes pixels: takes the filtered alpha, red and green in 0..255 and blue from the source.
void storePixels(const Frame& frame, int x, int y, int count, VF a, VF r, VF g) {
    alignas(64) std::int32_t pixels[kLanes] = {};
    std::memcpy(pixels, frame.row(y) + 4 * x, 4 * count);
    const VF b = channelOf<24>(hn::Load(di, pixels));
    hn::Store(straightPixels(a, r, g, b), di, pixels);
    std::memcpy(frame.targetRow(y) + 4 * x, pixels, 4 * count);
}

/// Rows `top` to `bottom` - 1 where a pixel has no neighbours. Opaque ones come out as they are.
void copyRows(const Frame& frame, int top, int bottom) {
    for (int y = top; y < bottom; ++y) {
        const auto copy = [source = frame.row(y), target = frame.targetRow(y)](int x, std::size_t bytes) {
            alignas(64) std::int32_t line[kLanes] = {};
            std::memcpy(line, source + 4 * x, bytes);
            const VI pixels = hn::Load(di, line), byte = hn::Set(di, 0xFF);
            if (!hn::AllTrue(di, hn::Eq(hn::And(pixels, byte), byte)))
                hn::Store(straightPixels(channelOf<0>(pixels), channelOf<8>(pixels), channelOf<16>(pixels),
                                         channelOf<24>(pixels)),
                          di, line);
            std::memcpy(target + 4 * x, line, bytes);
        };
        int x = 0;
        for (; x + kLanes <= frame.width; x += kLanes)
            copy(x, sizeof(std::int32_t[kLanes]));
        copy(x, 4 * static_cast<std::size_t>(frame.width - x));
    }
}

/// What `storeMeans` does.
void storeMeanRow(const Frame& frame, const Block& block, int row, const Means& means) {
    for (int column = 0; column < block.width; column += kLanes) {
        const auto mean = [&](int channel) { return hn::LoadU(df, &means[channel][column]); };
        storePixels(frame, block.x + column, block.y + row, std::min(kLanes, block.width - column), mean(0),
                    mean(1), mean(2));
    }
}

template<class Taps>
HWY_INLINE void storeTile(const Frame& frame, const Block& block, const Scratch& scratch, int column,
                          const Tile<Taps>& tile) {
    const int x = block.x + column;
    const int y = block.y + tile.row - frame.reach;
    const int count = std::min(kLanes, block.x + block.width - x);
    const VF middle = hn::Set(df, 128.0f);
    const VF first = hn::Add(mean(tile, 0), middle), second = hn::Add(mean(tile, 1), middle);
    if constexpr (Taps::kChannels == 3)
        storePixels(frame, x, y, count, first, second, hn::Add(mean(tile, 2), middle));
    else
        storePixels(frame, x, y, count, hn::Set(df, scratch.channels[0][0] + 128.0f), first, second);
}

/// Filters a block from its planes. Two rows of tiles share each neighbour that both reach.
template<class Taps>
void filterBlock(const Frame& frame, const Block& block, const Scratch& scratch) {
    const Taps taps(scratch, frame);
    const int reach = frame.reach;
    for (int y = 0; y + 1 < block.height; y += 2) {
        for (int column = 0; column < block.width; column += kLanes) {
            Tile<Taps> upper(taps, y + reach, column + reach);
            Tile<Taps> lower(taps, y + 1 + reach, column + reach);
            addRow(taps, frame.rowWeight, reach, y, column, upper);
            for (int row = y + 1; row <= y + 2 * reach; ++row)
                addRow(taps, frame.rowWeight, reach, row, column, upper, lower);
            addRow(taps, frame.rowWeight, reach, y + 1 + 2 * reach, column, lower);
            storeTile(frame, block, scratch, column, upper);
            storeTile(frame, block, scratch, column, lower);
        }
    }
    if (block.height % 2 == 0)
        return;
    for (int column = 0; column < block.width; column += kLanes) {
        Tile<Taps> tile(taps, block.height - 1 + reach, column + reach);
        for (int row = block.height - 1; row < block.height + 2 * reach; ++row)
            addRow(taps, frame.rowWeight, reach, row, column, tile);
        storeTile(frame, block, scratch, column, tile);
    }
}

void blurBlock(const Frame& frame, const Block& block, Scratch& scratch) {
    if (!fillPlanes(frame, block, scratch))
        return filterBlock<ThreeChannels>(frame, block, scratch);
    if (scratch.channels[0][0] == -128.0f)
        return clearBlock(frame, block);
    dropAlpha(frame, block, scratch);
    filterBlock<TwoChannels>(frame, block, scratch);
}

} // namespace HWY_NAMESPACE
} // namespace
} // namespace Tessaloom::BilateralBlur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessaloom::BilateralBlur {
namespace {

HWY_EXPORT(blurBlock);
HWY_EXPORT(copyRows);
HWY_EXPORT(storeMeanRow);

/// Cuts `length` into as few parts as `most` allows, of the same size but for the last, in multiples of
/// `grain`.
int partSize(int length, int most, int grain) {
    const int parts = (length + most - 1) / most;
    const int size = (length + parts - 1) / parts;
    return (size + grain - 1) / grain * grain;
}

} // namespace

void storeMeans(const Frame& frame, const Block& block, int row, const Means& means) {
    HWY_DYNAMIC_DISPATCH(storeMeanRow)(frame, block, row, means);
}

void bilateralBlur(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::uint8_t* target,
                   std::ptrdiff_t targetStride, int width, int height, int blurSize, ThreadPool& pool) {
    if (width <= 0 || height <= 0)
        return;
    Frame frame{source, sourceStride, target, targetStride, width, height, 0, {}, {}};
    frame.reach = reachOf(std::clamp(blurSize, 1, kLargestBlurScale));
    const int rows = (height + kBlockHeight - 1) / kBlockHeight;
    if (frame.reach == 0)
        return pool.run(rows, [&](std::size_t index, unsigned) {
            const int top = static_cast<int>(index) * kBlockHeight;
            HWY_DYNAMIC_DISPATCH(copyRows)(frame, top, std::min(height, top + kBlockHeight));
        });
    for (int i = 0; i <= frame.reach; ++i) {
        frame.octaves[i] = -kLog2E * i * i / (2 * kSpatialSigma * kSpatialSigma);
        frame.rowWeight[i] = static_cast<float>(std::exp2(frame.octaves[i]));
    }
    const int blockWidth = partSize(width, kBlockWidth, kMaxLanes);
    const int columns = (width + blockWidth - 1) / blockWidth;
    const std::size_t jobs = static_cast<std::size_t>(columns) * rows;
    const auto blockOf = [&](std::size_t index) {
        const int x = static_cast<int>(index % columns) * blockWidth;
        const int y = static_cast<int>(index / columns) * kBlockHeight;
        return Block{x, y, std::min(blockWidth, width - x), std::min(kBlockHeight, height - y)};
    };
#ifdef BILATERAL_BLUR_BF16
    if (usesBf16(frame.reach))
        return pool.run(jobs, [&](std::size_t index, unsigned worker) {
            blurBlockBf16(frame, blockOf(index), pool.scratch(worker, kBf16ScratchSize));
        });
#endif
    pool.run(jobs, [&](std::size_t index, unsigned worker) {
        Scratch& scratch = *new (pool.scratch(worker, sizeof(Scratch))) Scratch;
        HWY_DYNAMIC_DISPATCH(blurBlock)(frame, blockOf(index), scratch);
    });
}

} // namespace Tessaloom::BilateralBlur
#endif
