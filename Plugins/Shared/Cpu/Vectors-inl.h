// Vectors of floats and integers. Each set of instructions includes it inside its own namespace.

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
