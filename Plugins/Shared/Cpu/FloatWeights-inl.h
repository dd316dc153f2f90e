// Weights as floats, for any sigma and depth. Each set of instructions includes it inside its own namespace.
//
// Channels are scaled so that the squared distance of two pixels is their exponent. The sums are of weighted
// differences from the centre, which the distance needs anyway: they keep the precision of the smallest differences,
// and flat areas come back to the bit. Far values, infinite ones among them, have a squared distance beyond all
// exponents; their weight is then exactly 0.
//
// With 512-bit vectors a tap takes 15 instructions: 3 differences, 3 multiply-adds for the exponent, one to take its
// fraction, a cubic of 3, one to scale by the power, 4 for the sums, and 1 more for alpha. The two units that run
// them bound the loop; its instructions were counted, but it has not been timed.
//
// With 16 registers a tap takes 19, as the power goes through integers and small weights are cut off. With 256-bit vectors
// the longest unit needs 5 cycles for them, but a tap takes 9.1: each instruction waits for the one before it, some 50
// cycles from the loads to the sums, and few taps fit the processor's window at once (without the waiting a tap takes
// 6.8). So every instruction less counts: rows are filtered one at a time, and differences taken straight from memory.
// Two rows, which share what they load, were 13 % slower, as their state doesn't fit the registers. Slower too were two
// taps side by side, the sums of a tap beside the exponents of the next, and the exponents or weights of a row first.

/// Of exponents, in octaves.
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
constexpr double kFloatUnit = 1;
#else
constexpr double kFloatUnit = 1 / kOctave;
#endif

/// A multiple of 2^x in the unit of `kFloatUnit`; 0 below the least.
HWY_INLINE VF exp2Float(VF x) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    constexpr double c0 = kBend[0] + kBend[1] + kBend[2] + kBend[3] - 1,
                     c1 = kBend[1] + 2 * kBend[2] + 3 * kBend[3] + 1, c2 = kBend[2] + 3 * kBend[3],
                     c3 = kBend[3];
    const VF f{_mm512_reduce_ps(x.raw, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC)};
    VF power = hn::MulAdd(hn::Set(df, static_cast<float>(c3)), f, hn::Set(df, static_cast<float>(c2)));
    power = hn::MulAdd(power, f, hn::Set(df, static_cast<float>(c1)));
    power = hn::MulAdd(power, f, hn::Set(df, static_cast<float>(c0)));
    return VF{_mm512_scalef_ps(power.raw, x.raw)};
#else
    const VF least = hn::Set(df, static_cast<float>(-kFloatLimits.octaves / kFloatUnit));
    return hn::IfThenElseZero(hn::Gt(x, least), exp2Bits(nearestInt(x)));
#endif
}

/// For the length of a scope results too small for a normal float are 0, which only such weights and their products
/// can be: with 512-bit vectors some processors take more than a hundred cycles for each of them.
class FlushedUnderflow {
public:
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
    FlushedUnderflow() {
        _mm_setcsr(mFormer | _MM_FLUSH_ZERO_ON);
    }
    ~FlushedUnderflow() {
        _mm_setcsr(mFormer);
    }

private:
    const unsigned mFormer = _mm_getcsr();
#else
    FlushedUnderflow() {} // small weights are cut off
#endif
};

/// Of kCount channels, which end with the third; times alpha if kAlpha.
template<int kCount, bool kAlpha>
class FloatWeights;

/// The planes of one block.
struct FloatData {
    alignas(64) float channels[3][kPlaneSize]; // scaled: squared distances are exponents
    alignas(64) float alpha[kPlaneSize];
};

template<Channels kChannels>
struct FloatPlanes : FloatData {
    static constexpr bool kCarriesAlpha = kChannels == Channels::RedGreenBlue;
    using Varying = FloatWeights<3, kCarriesAlpha>;
    using Uniform = FloatWeights<kCarriesAlpha ? 3 : 2, false>;

    /// @return alpha, if it has one value all over them.
    std::optional<float> fill(const FrameJobs& frame, const FloatNumbers& numbers, const Block& block) {
        switch (frame.image.depth) {
        case Depth::Bits8:
            return fillFrom<std::uint8_t>(frame, numbers, block);
        case Depth::Bits16:
            return fillFrom<std::uint16_t>(frame, numbers, block);
        default:
            return fillFrom<float>(frame, numbers, block);
        }
    }

    void makeUniform(const FrameJobs&, const FloatNumbers&, const Block&) {}

private:
    template<class Value>
    std::optional<float> fillFrom(const FrameJobs& frame, const FloatNumbers& numbers, const Block& block) {
        Value room[kLineWidth][4];
        const auto fullScale = static_cast<float>(1 / frame.image.fullScale);
        VI different = hn::Zero(di);
        VI first = hn::Zero(di);
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            const Value* const line = lineOf(frame.image, block, frame.reach, row, room);
            if (row == 0)
                first = hn::BitCast(di, hn::Set(df, static_cast<float>(line[0])));
            for (int column = 0; column < columns; column += kLanes) {
                const std::size_t at = frame.stride * row + column;
                VF a, r, g, b;
                loadPixels(line + 4 * column, a, r, g, b);
                different = hn::Or(different, hn::Xor(hn::BitCast(di, a), first));
                const auto isFinite = hn::And(hn::And(hn::IsFinite(a), hn::IsFinite(r)),
                                              hn::And(hn::IsFinite(g), hn::IsFinite(b)));
                const auto store = [&](int channel, VF value) HWY_ATTR {
                    const VF limit = hn::Set(df, kFloatLimits.value);
                    const VF scaled = hn::Mul(value, hn::Set(df, numbers.scale));
                    hn::Store(hn::IfThenElse(isFinite, hn::Max(hn::Min(scaled, limit), hn::Neg(limit)),
                                             hn::Set(df, kFloatLimits.notFinite)),
                              df, channels[channel] + at);
                };
                store(0, kCarriesAlpha ? r : a);
                store(1, kCarriesAlpha ? g : r);
                store(2, kCarriesAlpha ? b : g);
                if constexpr (kCarriesAlpha)
                    hn::Store(hn::IfThenElseZero(isFinite,
                                                 hn::Mul(hn::Max(a, hn::Zero(df)), hn::Set(df, fullScale))),
                              df, alpha + at);
            }
        }
        if (!hn::AllTrue(di, hn::Eq(different, hn::Zero(di))))
            return std::nullopt;
        return hn::GetLane(hn::BitCast(df, first));
    }
};

template<int kCount, bool kAlpha>
class FloatWeights {
public:
    static constexpr int kLanes = HWY_NAMESPACE::kLanes;
    static constexpr bool kPairsRows = HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL;
    using Scope = FlushedUnderflow;
    struct Tile;

    FloatWeights(const FrameJobs& frame, const FloatNumbers& numbers, const FloatData& planes)
        : mPlanes(planes),
          mStride(frame.stride),
          mReach(frame.reach),
          mNumbers(numbers),
          mIsBytes(frame.image.depth == Depth::Bits8) {}

    /// Adds one row of neighbours to each of the tiles, one above the other.
    template<class... Tiles>
    HWY_INLINE void addRow(int row, int column, Tiles&... tiles) const {
        const std::size_t at = mStride * row + column;
        for (int tap = 0; tap <= 2 * mReach; ++tap) {
            VF values[kCount + 1];
            for (int i = 0; i < kCount; ++i)
                values[i] = value(at + tap, i);
            if constexpr (kAlpha)
                values[kCount] = hn::LoadU(df, mPlanes.alpha + at + tap);
            // One tile takes its differences from memory.
            if constexpr (sizeof...(Tiles) > 1)
                for (int i = 0; i < kCount; ++i)
                    keepInRegister(values[i]);
            (tiles.add(values, mNumbers.starts[std::abs(row - tiles.row)][tap]), ...);
        }
    }

private:
    HWY_INLINE VF value(std::size_t at, int channel) const {
        return hn::LoadU(df, mPlanes.channels[3 - kCount + channel] + at);
    }

    const FloatData& mPlanes;
    std::size_t mStride;
    int mReach;
    const FloatNumbers& mNumbers;
    bool mIsBytes;
};

template<int kCount, bool kAlpha>
struct FloatWeights<kCount, kAlpha>::Tile {
    VF centre[kCount];
    int row;            // within the planes
    VF sum[kCount + 1]; // the weights, then the weighted differences from the centre
    float unit;         // of the image's values for one step of the planes
    bool isBytes;

    HWY_INLINE Tile(const FloatWeights& weights, int row, int column)
        : row(row), unit(1 / weights.mNumbers.scale), isBytes(weights.mIsBytes) {
        for (int i = 0; i < kCount; ++i)
            centre[i] = weights.value(weights.mStride * row + column, i);
        for (VF& value : sum)
            value = hn::Zero(df);
    }
    HWY_INLINE void add(const VF (&values)[kCount + 1], float start) {
        VF difference[kCount];
        VF exponent = hn::Set(df, start);
        for (int i = 0; i < kCount; ++i) {
            difference[i] = hn::Sub(centre[i], values[i]);
            exponent = hn::NegMulAdd(difference[i], difference[i], exponent);
        }
        VF weight = exp2Float(exponent);
        if constexpr (kAlpha)
            weight = hn::Mul(weight, values[kCount]);
        sum[0] = hn::Add(sum[0], weight);
        for (int i = 0; i < kCount; ++i)
            sum[1 + i] = hn::NegMulAdd(weight, difference[i], sum[1 + i]);
    }
    HWY_INLINE void store(Means& means, int column) const {
        for (int i = 0; i < kCount; ++i) {
            const VF difference = hn::Div(sum[1 + i], sum[0]);
            hn::StoreU(hn::Mul(isBytes ? hn::Add(centre[i], difference) : difference, hn::Set(df, unit)), df,
                       &means[3 - kCount + i][column]);
        }
    }
};
