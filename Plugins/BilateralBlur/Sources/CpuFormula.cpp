#include "Plugins/BilateralBlur/Sources/CpuFormula.h"

#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/Cpu/Filter.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Plugins/BilateralBlur/Sources/CpuFormula.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace {
namespace HWY_NAMESPACE {
#include "Plugins/Shared/Cpu/Vectors-inl.h"

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

/// Calls `convert` for each vector of `count` pixels, with its column and its pixels, and stores what they become.
template<class Convert>
HWY_INLINE void convertPixels(const std::uint8_t* source, std::uint8_t* target, int count, Convert convert) {
    const auto load = [](const void* from)
                          HWY_ATTR { return hn::LoadU(di, static_cast<const std::int32_t*>(from)); };
    int column = 0;
    for (; column + kLanes <= count; column += kLanes)
        hn::StoreU(convert(column, load(source + 4 * column)), di,
                   static_cast<std::int32_t*>(static_cast<void*>(target + 4 * column)));
    if (column < count) {
        alignas(64) std::int32_t line[kLanes] = {};
        const std::size_t bytes = std::size_t{4} * (count - column);
        std::memcpy(line, source + 4 * column, bytes);
        hn::Store(convert(column, load(line)), di, line);
        std::memcpy(target + 4 * column, line, bytes);
    }
}

/// Stores `count` pixels with the means of alpha, red and green, and blue of the source.
void storeMeans(const std::uint8_t* source, std::uint8_t* target, int count, const Means& means) {
    convertPixels(source, target, count, [&](int column, VI pixels) HWY_ATTR {
        const auto mean = [&](int channel) HWY_ATTR { return hn::LoadU(df, &means[channel][column]); };
        return straightPixels(mean(0), mean(1), mean(2), channelOf<24>(pixels));
    });
}

/// Stores `count` pixels that have no neighbours. Opaque ones come out as they are.
void storeSource(const std::uint8_t* source, std::uint8_t* target, int count) {
    convertPixels(source, target, count, [](int, VI pixels) HWY_ATTR {
        const VI byte = hn::Set(di, 0xFF);
        if (hn::AllTrue(di, hn::Eq(hn::And(pixels, byte), byte)))
            return pixels;
        return straightPixels(channelOf<0>(pixels), channelOf<8>(pixels), channelOf<16>(pixels),
                              channelOf<24>(pixels));
    });
}

} // namespace HWY_NAMESPACE
} // namespace
} // namespace Tessaloom::BilateralBlur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessaloom::BilateralBlur {
namespace {

HWY_EXPORT(storeMeans);
HWY_EXPORT(storeSource);

class PremultipliedBytes : public Formula {
public:
    PremultipliedBytes(const Image& source, std::uint8_t* target, std::ptrdiff_t stride)
        : mSource(source), mTarget(target), mStride(stride) {}

    void store(const Block& block, int row, const Means& means) const override {
        HWY_DYNAMIC_DISPATCH(storeMeans)
        (mSource.row(block.y + row) + 4 * block.x, target(block, row), block.width, means);
    }

    // A transparent block becomes zero whatever its colours: premultiplied they are.
    bool storeUniform(const Block& block, float alpha) const override {
        for (int row = 0; alpha == 0 && row < block.height; ++row)
            std::memset(target(block, row), 0, std::size_t{4} * block.width);
        return alpha == 0;
    }

    std::uint8_t* target(const Block& block, int row) const {
        return mTarget + (block.y + row) * mStride + 4 * block.x;
    }

private:
    const Image& mSource;
    std::uint8_t* mTarget;
    std::ptrdiff_t mStride;
};

} // namespace

void bilateralBlur(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::uint8_t* target,
                   std::ptrdiff_t targetStride, int width, int height, int blurScale, ThreadPool& pool) {
    if (width <= 0 || height <= 0)
        return;
    const Image image{source, sourceStride, width, height};
    const PremultipliedBytes formula(image, target, targetStride);
    const BilateralFilter filter = filterOf(blurScale);
    if (filter.reach > 0)
        return filterChannels(image, Channels::AlphaRedGreen, filter, formula, pool);
    const int rows = (height + kBlockHeight - 1) / kBlockHeight;
    pool.run(rows, [&](std::size_t index, unsigned) {
        const int top = static_cast<int>(index) * kBlockHeight;
        for (int y = top; y < std::min(height, top + kBlockHeight); ++y)
            HWY_DYNAMIC_DISPATCH(storeSource)(image.row(y), target + y * targetStride, width);
    });
}

} // namespace Tessaloom::BilateralBlur
#endif
