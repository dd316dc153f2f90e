#include "Plugins/Shared/Cpu/Filter.h"

#include "Plugins/Shared/Cpu/Weights.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <optional>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Plugins/Shared/Cpu/Filter.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#ifndef BILATERAL_BLUR_FILTER_SHARED
#define BILATERAL_BLUR_FILTER_SHARED
namespace Tessaloom::BilateralBlur {
namespace {

/// A minimax fit to 2^f - f + 1 over m = 1 + f, relative to 2^f: 7.5e-5 at most.
constexpr double kBend[] = {2.452134310786263, -0.5222272022865219, -0.008006412600162589,
                            0.07802452266443138};

} // namespace
} // namespace Tessaloom::BilateralBlur
#endif

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace {
namespace HWY_NAMESPACE {
#include "Plugins/Shared/Cpu/Vectors-inl.h"

#include "Plugins/Shared/Cpu/Pixels-inl.h"

/// 2^(x / 2^23 + 1): the integer is a logarithm in the unit of a float's bits, so its bits are the result but
/// for the bend of 2^f against 1 + f between two powers of two, which the cubic adds.
HWY_INLINE VF exp2Bits(VI x) {
    const VI fraction = hn::Set(di, 0x007FFFFF);
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    const VF m = hn::BitCast(df, hn::OrAnd(hn::Set(di, 0x3F800000), x, fraction));
    constexpr double c0 = kBend[0], c1 = kBend[1], c2 = kBend[2], c3 = kBend[3];
#else
    // The same over 2^23 * f: a conversion needs no constant, which would be one too many for 16 registers.
    const VF m = hn::ConvertTo(df, hn::And(x, fraction));
    constexpr double c0 = kBend[0] + kBend[1] + kBend[2] + kBend[3],
                     c1 = (kBend[1] + 2 * kBend[2] + 3 * kBend[3]) / kOctave,
                     c2 = (kBend[2] + 3 * kBend[3]) / (kOctave * kOctave),
                     c3 = kBend[3] / (kOctave * kOctave * kOctave);
#endif
    VF bend = hn::MulAdd(hn::Set(df, static_cast<float>(c3)), m, hn::Set(df, static_cast<float>(c2)));
    bend = hn::MulAdd(bend, m, hn::Set(df, static_cast<float>(c1)));
    bend = hn::MulAdd(bend, m, hn::Set(df, static_cast<float>(c0)));
    return hn::BitCast(df, hn::Add(hn::BitCast(di, bend), x));
}

#include "Plugins/Shared/Cpu/FloatWeights-inl.h"
#include "Plugins/Shared/Cpu/IntegerWeights-inl.h"
#include "Plugins/Shared/Cpu/Tiles-inl.h"

void filterBlockInteger(const FrameJobs& frame, const IntegerNumbers& numbers, const Block& block,
                        unsigned worker) {
    if (frame.channels == Channels::RedGreenBlue)
        return filterBlock<IntegerPlanes<Channels::RedGreenBlue>>(frame, numbers, block, worker);
    filterBlock<IntegerPlanes<Channels::AlphaRedGreen>>(frame, numbers, block, worker);
}

void filterBlockFloat(const FrameJobs& frame, const FloatNumbers& numbers, const Block& block,
                      unsigned worker) {
    if (frame.channels == Channels::RedGreenBlue)
        return filterBlock<FloatPlanes<Channels::RedGreenBlue>>(frame, numbers, block, worker);
    filterBlock<FloatPlanes<Channels::AlphaRedGreen>>(frame, numbers, block, worker);
}

double floatUnit() {
    return kFloatUnit;
}

} // namespace HWY_NAMESPACE
} // namespace
} // namespace Tessaloom::BilateralBlur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessaloom::BilateralBlur {
namespace {

HWY_EXPORT(filterBlockInteger);
HWY_EXPORT(filterBlockFloat);
HWY_EXPORT(floatUnit);

} // namespace

IntegerNumbers::IntegerNumbers(const BilateralFilter& filter, const IntegerFactors& factors)
    : factors(factors) {
    for (int i = 0; i <= filter.reach; ++i) {
        const double octaves = -octavesOf(i / filter.spatialSigma);
        rowWeight[i] = static_cast<float>(std::exp2(octaves));
        const auto start = static_cast<std::int32_t>(std::lround(kOctave * (octaves + factors.bias)));
        for (const int tap : {filter.reach - i, filter.reach + i}) {
            starts[0][tap] = start;
            starts[1][tap] = start - factors.unit() / 2 * kSquareMiddle;
        }
    }
}

FloatNumbers::FloatNumbers(const BilateralFilter& filter, double fullScale, double unit)
    : scale(static_cast<float>(std::sqrt(octavesOf(1 / (fullScale * filter.rangeSigma)) / unit))) {
    for (int y = 0; y <= filter.reach; ++y)
        for (int x = -filter.reach; x <= filter.reach; ++x)
            starts[y][filter.reach + x] =
                static_cast<float>(-octavesOf(std::hypot(x, y) / filter.spatialSigma) / unit);
}

void filterChannels(const Image& image, Channels channels, const BilateralFilter& filter,
                    const Formula& formula, ThreadPool& pool) {
    const FrameJobs frame{image, channels, formula, pool, filter.reach};
    const BlockGrid grid(image.width, image.height);
    const auto run = [&](auto filterBlock, const auto& numbers) {
        pool.run(grid.count(), [&](std::size_t index, unsigned worker) {
            filterBlock(frame, numbers, grid[index], worker);
        });
    };
    if (image.depth == Depth::Bits8) {
#ifdef BILATERAL_BLUR_BF16
        if (usesBf16(filter, channels))
            return run(filterBlockBf16, Bf16Numbers(filter));
#endif
        if (const auto factors = IntegerFactors::find(filter))
            return run(HWY_DYNAMIC_DISPATCH(filterBlockInteger), IntegerNumbers(filter, *factors));
    }
    run(HWY_DYNAMIC_DISPATCH(filterBlockFloat),
        FloatNumbers(filter, image.fullScale, HWY_DYNAMIC_DISPATCH(floatUnit)()));
}

} // namespace Tessaloom::BilateralBlur
#endif
