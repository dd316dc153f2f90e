#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"

#include "Plugins/Shared/Cpu/Filter.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)
#define HWY_WANT_AVX3_DL
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Plugins/BilateralSmooth/Sources/CpuFormula.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace {
namespace HWY_NAMESPACE {

#include "Plugins/Shared/Cpu/Vectors-inl.h"

/// The nearest value of the type.
template<class Value>
Value rounded(float value) {
    constexpr float kMost = std::numeric_limits<Value>::max();
    return static_cast<Value>(static_cast<int>(std::min(std::max(value, 0.0f), kMost) + 0.5f));
}

/// Replaces red, green and blue of up to a block's row of pixels. Bytes have means, other types differences.
template<class Value>
HWY_INLINE void storeValues(const std::uint8_t* source, std::uint8_t* target, int count, const Means& means) {
    alignas(64) Value values[4 * kBlockWidth];
    alignas(64) float buffer[4 * kBlockWidth];
    std::memcpy(values, source, 4 * count * sizeof(Value));
    float* const floats = asFloats(values, 4 * count, buffer);
    for (int column = 0; column < count; column += kLanes) {
        VF a, r, g, b;
        hn::LoadInterleaved4(df, floats + 4 * column, a, r, g, b);
        const auto isFinite =
            hn::And(hn::And(hn::IsFinite(a), hn::IsFinite(r)), hn::And(hn::IsFinite(g), hn::IsFinite(b)));
        const auto replaced = [&](VF own, int channel) HWY_ATTR {
            const VF mean = hn::LoadU(df, &means[channel][column]);
            const VF result = sizeof(Value) == 1 ? mean : hn::Add(own, mean);
            // All weights are 0 where the mean isn't a number.
            return hn::IfThenElse(hn::And(isFinite, hn::Eq(mean, mean)), result, own);
        };
        hn::StoreInterleaved4(a, replaced(r, 0), replaced(g, 1), replaced(b, 2), df, floats + 4 * column);
    }
    if constexpr (!std::is_same_v<Value, float>)
        std::transform(floats, floats + 4 * count, values, rounded<Value>);
    std::memcpy(target, values, 4 * count * sizeof(Value));
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
