// Weights whose exponents are exact integers. Each set of instructions includes it inside its own namespace.
//
// The weight of a tap is one power of two. Its exponent is an exact integer, -c * |q - p|^2 without the part
// that all taps of a pixel share: two 16-bit multiply-accumulates give it in the unit of a float's bits, so
// that it is nearly the weight's bits already, and a cubic corrects the rest. The weight along y is taken out
// of the sum over a row, which keeps the rows' sums short and so precise. Where the first channel doesn't vary, one
// multiply-accumulate is enough.
//
// With 512-bit vectors the two units for multiply-adds bound the loop: 8 of its 11 instructions a tap need
// them (6 of 9.5 with a constant first channel). Tried on a processor with such vectors and given up: weighing each
// pair of pixels once for both, as the second pixel's sums must then go through memory at each tap (4.4
// to 5.9 cycles a vector of taps, against 5.1 to 5.3); planes on which every load is aligned, the loop in two
// or three overlapped stages, the loop unrolled, and one or three rows at a time (within 3 %, four rows
// slower).
//
// With 16 registers the two loads a cycle bound the loop where all three channels vary: constants and centres must be
// loaded at each tap. So each value is loaded once for both rows, and as few constants as can be are used.
// One row at a time needs fewer loads, but then waits for its own sums (2 % faster, 10 % slower with a constant
// first channel); aligned loads would gain 5 % there and nothing with two channels. The sums of a tap beside the exponents
// of the next were 4 to 8 % slower.

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

HWY_INLINE VI pairOf(VI low, VI high) {
    return hn::Or(hn::And(low, hn::Set(di, 0xFFFF)), hn::ShiftLeft<16>(high));
}

/// Of kCount channels, which end with the third; times alpha if kAlpha.
template<int kCount, bool kAlpha>
class IntegerWeights;

/// The planes of one block. Values are differences from 128.
struct IntegerData {
    alignas(64) std::int32_t pairs[kPlaneSize]; // of 16-bit values, for the squared distance
    alignas(64) std::int32_t pairs2[kPlaneSize];
    alignas(64) float channels[3][kPlaneSize];
    alignas(64) float alpha[kPlaneSize]; // 0..1
};

template<Channels kChannels>
struct IntegerPlanes : IntegerData {
    static constexpr bool kCarriesAlpha = kChannels == Channels::RedGreenBlue;
    using Varying = IntegerWeights<3, kCarriesAlpha>;
    using Uniform = IntegerWeights<kCarriesAlpha ? 3 : 2, false>;

    /// @return alpha, if it has one value all over them.
    std::optional<float> fill(const FrameJobs& frame, const IntegerNumbers& numbers, const Block& block) {
        constexpr int kFirst = kCarriesAlpha ? 8 : 0; // bits of the first filtered channel
        std::uint8_t room[kLineWidth][4];
        const VI byte = hn::Set(di, 0xFF);
        const VI middle = hn::Set(di, 128);
        const VI factor = hn::Set(di, numbers.factors.neighbour);
        VI different = hn::Zero(di);
        VI first = hn::Zero(di);
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            const std::uint8_t* const line = lineOf(frame.image, block, frame.reach, row, room);
            if (row == 0)
                first = hn::Set(di, line[0]);
            const std::size_t start = frame.stride * row;
            for (int column = 0; column < columns; column += kLanes) {
                const std::size_t at = start + column;
                const VI pixels = hn::LoadU(di, reinterpret_cast<const std::int32_t*>(line + 4 * column));
                const VI a = hn::Sub(hn::And(hn::ShiftRight<kFirst>(pixels), byte), middle);
                const VI r = hn::Sub(hn::And(hn::ShiftRight<kFirst + 8>(pixels), byte), middle);
                const VI g = hn::Sub(hn::And(hn::ShiftRight<kFirst + 16>(pixels), byte), middle);
                different = hn::Or(different, hn::Xor(hn::And(pixels, byte), first));
                hn::Store(hn::ConvertTo(df, a), df, channels[0] + at);
                hn::Store(hn::ConvertTo(df, r), df, channels[1] + at);
                hn::Store(hn::ConvertTo(df, g), df, channels[2] + at);
                const VI square = hn::Add(hn::Add(hn::Mul(a, a), hn::Mul(r, r)), hn::Mul(g, g));
                hn::Store(pairOf(hn::Mul(a, factor), hn::Mul(r, factor)), di, pairs + at);
                hn::Store(pairOf(hn::Mul(g, factor), hn::Sub(square, hn::Set(di, kSquareMiddle))), di,
                          pairs2 + at);
                if constexpr (kCarriesAlpha)
                    hn::Store(hn::Mul(hn::ConvertTo(df, hn::And(pixels, byte)), hn::Set(df, 1 / 255.0f)), df,
                              alpha + at);
            }
        }
        if (!hn::AllTrue(di, hn::Eq(different, hn::Zero(di))))
            return std::nullopt;
        return static_cast<float>(hn::GetLane(first));
    }

    /// Rewrites the pairs for red and green alone, where alpha is filtered.
    void makeUniform(const FrameJobs& frame, const IntegerNumbers& numbers, const Block& block) {
        if (kCarriesAlpha)
            return;
        const VI factor = hn::Set(di, numbers.factors.neighbour);
        const VI half = hn::Set(di, -numbers.factors.unit() / 2);
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            for (int column = 0; column < columns; column += kLanes) {
                const std::size_t at = frame.stride * row + column;
                const VI r = hn::ConvertTo(di, hn::Load(df, channels[1] + at));
                const VI g = hn::ConvertTo(di, hn::Load(df, channels[2] + at));
                const VI square = hn::Add(hn::Mul(r, r), hn::Mul(g, g));
                hn::Store(pairOf(hn::Mul(r, factor), hn::Mul(g, factor)), di, pairs + at);
                hn::Store(hn::Mul(square, half), di, pairs2 + at);
            }
        }
    }
};

/// The exponents leave out the term of |p|^2, which is common to all taps of a pixel and so cancels out.
template<int kCount, bool kAlpha>
class IntegerWeights {
public:
    static constexpr int kLanes = HWY_NAMESPACE::kLanes;
    static constexpr bool kPairsRows = true;
    struct Scope {};
    struct Tile;

    IntegerWeights(const FrameJobs& frame, const IntegerNumbers& numbers, const IntegerData& planes)
        : mPlanes(planes),
          mStride(frame.stride),
          mReach(frame.reach),
          mNumbers(numbers),
          mStarts(numbers.starts[kCount - 2].data()) {}

    /// Adds one row of neighbours to each of the tiles, one above the other.
    template<class... Tiles>
    HWY_INLINE void addRow(int row, int column, Tiles&... tiles) const {
        const std::size_t at = mStride * row + column;
        (tiles.beginRow(), ...);
        for (int tap = 0; tap <= 2 * mReach; ++tap) {
            Neighbour q = neighbour(at + tap, tap);
            q.keep();
            if constexpr (kAlpha)
                q.alpha = hn::LoadU(df, mPlanes.alpha + at + tap);
            (tiles.weigh(q), ...);
            // Channel by channel, so that 16 registers are enough to load each value once for all tiles.
            for (int channel = 0; channel < kCount; ++channel) {
                VF value = hn::LoadU(df, mPlanes.channels[kFirst + channel] + at + tap);
                keepInRegister(value);
                (tiles.add(channel, value), ...);
            }
        }
        (tiles.endRow(mNumbers.rowWeight[std::abs(row - tiles.row)]), ...);
    }

private:
    static constexpr int kFirst = 3 - kCount;

    struct Neighbour {
        VI start, pair, pair2;
        VF alpha;
        HWY_INLINE void keep() {
            keepInRegister(pair);
            if constexpr (kCount == 2)
                keepInRegister(start);
            else
                keepInRegister(pair2);
        }
    };

    HWY_INLINE Neighbour neighbour(std::size_t at, int tap) const {
        const VI start = hn::Set(di, mStarts[tap]), pair = hn::LoadU(di, mPlanes.pairs + at),
                 pair2 = hn::LoadU(di, mPlanes.pairs2 + at);
        if constexpr (kCount == 2)
            return {hn::Add(start, pair2), pair, pair2, hn::Zero(df)};
        else
            return {start, pair, pair2, hn::Zero(df)};
    }

    HWY_INLINE VI scaled(std::size_t at, int channel) const {
        const VI value = hn::ConvertTo(di, hn::LoadU(df, mPlanes.channels[channel] + at));
        return hn::Mul(value, hn::Set(di, mNumbers.factors.centre));
    }

    const IntegerData& mPlanes;
    std::size_t mStride;
    int mReach;
    const IntegerNumbers& mNumbers;
    const std::int32_t* mStarts;
};

template<int kCount, bool kAlpha>
struct IntegerWeights<kCount, kAlpha>::Tile {
    VI centre, centre2;
    int row;            // within the planes
    VF sum[kCount + 1]; // of the row: the weights, then the weighted channels
    VF total[kCount + 1];
    VF weight; // of the current tap

    HWY_INLINE Tile(const IntegerWeights& weights, int row, int column) : row(row) {
        const std::size_t at = weights.mStride * row + column;
        centre = pairOf(weights.scaled(at, kFirst), weights.scaled(at, kFirst + 1));
        centre2 = kCount == 2
                      ? hn::Zero(di)
                      : pairOf(weights.scaled(at, 2), hn::Set(di, -weights.mNumbers.factors.unit() / 2));
        for (VF& value : total)
            value = hn::Zero(df);
    }
    HWY_INLINE void beginRow() {
        for (VF& value : sum)
            value = hn::Zero(df);
    }
    HWY_INLINE void weigh(const Neighbour& q) {
        VI exponent = addPairProducts(q.start, centre, q.pair);
        if constexpr (kCount == 3)
            exponent = addPairProducts(exponent, centre2, q.pair2);
        weight = exp2Bits(exponent);
        if constexpr (kAlpha)
            weight = hn::Mul(weight, q.alpha);
        keepInRegister(weight);
        sum[0] = hn::Add(sum[0], weight);
    }
    HWY_INLINE void add(int channel, VF value) {
        sum[1 + channel] = hn::MulAdd(weight, value, sum[1 + channel]);
    }
    HWY_INLINE void endRow(float rowWeight) {
        for (int i = 0; i <= kCount; ++i)
            total[i] = hn::MulAdd(hn::Set(df, rowWeight), sum[i], total[i]);
    }
    /// Stores the means of the channels.
    HWY_INLINE void store(Means& means, int column) const {
        for (int i = 0; i < kCount; ++i)
            hn::StoreU(hn::Add(hn::Div(total[1 + i], total[0]), hn::Set(df, 128.0f)), df,
                       &means[kFirst + i][column]);
    }
};
