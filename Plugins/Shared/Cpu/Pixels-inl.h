// Vectors of pixels of any depth. Each set of instructions includes it inside its own namespace, after Vectors-inl.h.

template<class Value>
constexpr hn::Rebind<Value, TagF> kPixelTag;

/// The channels of `kLanes` pixels.
template<class Value>
HWY_INLINE void loadPixels(const Value* from, VF& a, VF& r, VF& g, VF& b) {
    hn::Vec<decltype(kPixelTag<Value>)> va, vr, vg, vb;
    hn::LoadInterleaved4(kPixelTag<Value>, from, va, vr, vg, vb);
    const auto floats = [](auto values) HWY_ATTR { return hn::ConvertTo(df, hn::PromoteTo(di, values)); };
    a = floats(va);
    r = floats(vr);
    g = floats(vg);
    b = floats(vb);
}
HWY_INLINE void loadPixels(const float* from, VF& a, VF& r, VF& g, VF& b) {
    hn::LoadInterleaved4(df, from, a, r, g, b);
}

/// Stores `kLanes` pixels, each channel as the nearest value of its type.
template<class Value>
HWY_INLINE void storePixels(VF a, VF r, VF g, VF b, Value* to) {
    const auto values = [](VF floats) HWY_ATTR { return hn::DemoteTo(kPixelTag<Value>, nearestInt(floats)); };
    hn::StoreInterleaved4(values(a), values(r), values(g), values(b), kPixelTag<Value>, to);
}
HWY_INLINE void storePixels(VF a, VF r, VF g, VF b, float* to) {
    hn::StoreInterleaved4(a, r, g, b, df, to);
}
