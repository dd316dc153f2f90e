#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"

#include "Plugins/Shared/Cpu/Filter.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Plugins/BilateralSmooth/Sources/CpuFormula.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace {
namespace HWY_NAMESPACE {
#include "Plugins/Shared/Cpu/Vectors-inl.h"

#include "Plugins/Shared/Cpu/Pixels-inl.h"

/// Replaces red, green and blue of `kLanes` pixels by the means, which are differences. They aren't numbers where all
/// weights are 0.
template<class Value>
HWY_INLINE void storeVector(const Value* source, Value* target, const Means& means, int column) {
    VF a, r, g, b;
    loadPixels(source, a, r, g, b);
    const auto isFinite =
        hn::And(hn::And(hn::IsFinite(a), hn::IsFinite(r)), hn::And(hn::IsFinite(g), hn::IsFinite(b)));
    const auto replaced = [&](VF own, int channel) HWY_ATTR {
        const VF mean = hn::LoadU(df, &means[channel][column]);
        return hn::IfThenElse(hn::And(isFinite, hn::Eq(mean, mean)), hn::Add(own, mean), own);
    };
    storePixels(a, replaced(r, 0), replaced(g, 1), replaced(b, 2), target);
}

/// The same for means in 0..255, pixel by pixel as integers.
HWY_INLINE void storeVector(const std::uint8_t* source, std::uint8_t* target, const Means& means,
                            int column) {
    const VI own = hn::LoadU(di, reinterpret_cast<const std::int32_t*>(source));
    const auto mean = [&](int channel) HWY_ATTR { return hn::LoadU(df, &means[channel][column]); };
    const VI a = hn::And(own, hn::Set(di, 0xFF)), r = hn::ShiftLeft<8>(nearestInt(mean(0))),
             g = hn::ShiftLeft<16>(nearestInt(mean(1))), b = hn::ShiftLeft<24>(nearestInt(mean(2)));
    const auto isNumber = hn::RebindMask(di, hn::Eq(mean(0), mean(0)));
    hn::StoreU(hn::IfThenElse(isNumber, hn::Or(hn::Or(a, r), hn::Or(g, b)), own), di,
               reinterpret_cast<std::int32_t*>(target));
}

template<class Value>
HWY_INLINE void storeValues(const std::uint8_t* from, std::uint8_t* to, int count, const Means& means) {
    const auto* const source = reinterpret_cast<const Value*>(from);
    auto* const target = reinterpret_cast<Value*>(to);
    int column = 0;
    for (; column + kLanes <= count; column += kLanes)
        storeVector(source + 4 * column, target + 4 * column, means, column);
    if (column < count) {
        Value line[4 * kLanes] = {};
        const std::size_t bytes = sizeof(Value) * 4 * (count - column);
        std::memcpy(line, source + 4 * column, bytes);
        storeVector(line, line, means, column);
        std::memcpy(target + 4 * column, line, bytes);
    }
}

void storeMeans(Depth depth, const std::uint8_t* source, std::uint8_t* target, int count,
                const Means& means) {
    switch (depth) {
    case Depth::Bits8:
        return storeValues<std::uint8_t>(source, target, count, means);
    case Depth::Bits16:
        return storeValues<std::uint16_t>(source, target, count, means);
    case Depth::Float:
        return storeValues<float>(source, target, count, means);
    }
}

} // namespace HWY_NAMESPACE
} // namespace
} // namespace Tessaloom::BilateralBlur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessaloom::BilateralBlur {
namespace {

HWY_EXPORT(storeMeans);

class CarriedAlpha : public Formula {
public:
    CarriedAlpha(const Image& source, void* target, std::ptrdiff_t stride)
        : mSource(source),
          mTarget(static_cast<std::uint8_t*>(target)),
          mStride(stride),
          mPixelBytes(source.depth == Depth::Bits8    ? 4
                      : source.depth == Depth::Bits16 ? 8
                                                      : 16) {}

    void store(const Block& block, int row, const Means& means) const override {
        HWY_DYNAMIC_DISPATCH(storeMeans)
        (mSource.depth, source(block.x, block.y + row), target(block.x, block.y + row), block.width, means);
    }

    bool storeUniform(const Block& block, float alpha) const override {
        if (!(alpha <= 0))
            return false;
        copy(block);
        return true;
    }

    void copy(const Block& block) const {
        for (int y = block.y; y < block.y + block.height; ++y)
            std::memcpy(target(block.x, y), source(block.x, y), block.width * mPixelBytes);
    }

private:
    const std::uint8_t* source(int x, int y) const { return mSource.row(y) + x * mPixelBytes; }
    std::uint8_t* target(int x, int y) const { return mTarget + y * mStride + x * mPixelBytes; }

    const Image& mSource;
    std::uint8_t* mTarget;
    std::ptrdiff_t mStride;
    std::ptrdiff_t mPixelBytes;
};

} // namespace

void bilateralSmooth(const Image& source, void* target, std::ptrdiff_t targetStride, int radius,
                     double threshold, ThreadPool& pool) {
    if (source.width <= 0 || source.height <= 0)
        return;
    const CarriedAlpha formula(source, target, targetStride);
    const int reach = std::clamp(radius, 0, kLargestRadius);
    if (reach > 0)
        return filterChannels(source, Channels::RedGreenBlue, {reach, reach / 2.0, threshold}, formula, pool);
    const BlockGrid grid(source.width, source.height);
    pool.run(grid.count(), [&](std::size_t index, unsigned) { formula.copy(grid[index]); });
}

} // namespace Tessaloom::BilateralBlur
#endif
