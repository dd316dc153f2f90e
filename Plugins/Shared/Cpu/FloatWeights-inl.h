// Weights as floats, for any sigma. Each set of instructions includes it inside its own namespace.

/// 2^x in the unit of `kFloatUnit`, 0 from -100 octaves on.
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
    const VF least = hn::Set(df, static_cast<float>(-100 * kOctave));
    return hn::IfThenElseZero(hn::Gt(x, least), exp2Bits(nearestInt(x)));
#endif
}

/// Of exponents, in octaves.
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
constexpr double kFloatUnit = 1;
#else
constexpr double kFloatUnit = 1 / kOctave;
#endif

/// The planes of one block: scaled differences from 128, whose squared distances are exponents.
struct FloatPlanes {
    template<int kChannels>
    class Weights;

    alignas(64) float channels[3][kPlaneSize];

    /// @return whether the first channel has one value all over them.
    bool fill(const Frame& frame, const FloatNumbers& numbers, const Block& block) {
        alignas(64) std::uint8_t line[wholeVectors(kBlockWidth + 2 * kReachLimit)][4];
        std::uint8_t different = 0, first = 0;
        const int columns = block.planeColumns(frame.reach);
        for (int row = 0; row < block.planeRows(frame.reach); ++row) {
            loadLine(frame.image, block, frame.reach, row, line);
            if (row == 0)
                first = line[0][0];
            for (int column = 0; column < columns; ++column) {
                different |= line[column][0] ^ first;
                for (int channel = 0; channel < 3; ++channel)
                    channels[channel][frame.stride * row + column] =
                        numbers.scale * static_cast<float>(line[column][channel] - 128);
            }
        }
        return different == 0;
    }

    void dropFirst(const Frame&, const FloatNumbers&, const Block&) {}
};

template<int kChannels>
class FloatPlanes::Weights {
public:
    static constexpr int kLanes = HWY_NAMESPACE::kLanes;
    struct Tile;

    Weights(const Frame& frame, const FloatNumbers& numbers, const FloatPlanes& planes)
        : mPlanes(planes), mStride(frame.stride), mReach(frame.reach), mNumbers(numbers) {}

    /// Adds one row of neighbours to each of the tiles, one above the other.
    template<class... Tiles>
    HWY_INLINE void addRow(int row, int column, Tiles&... tiles) const {
        const std::size_t at = mStride * row + column;
        for (int tap = 0; tap <= 2 * mReach; ++tap) {
            VF values[kChannels];
            for (int i = 0; i < kChannels; ++i) {
                values[i] = value(at + tap, i);
                keepInRegister(values[i]);
            }
            (tiles.add(values, mNumbers.starts[std::abs(row - tiles.row)][tap]), ...);
        }
    }

private:
    HWY_INLINE VF value(std::size_t at, int channel) const {
        return hn::LoadU(df, mPlanes.channels[3 - kChannels + channel] + at);
    }

    const FloatPlanes& mPlanes;
    std::size_t mStride;
    int mReach;
    const FloatNumbers& mNumbers;
};

template<int kChannels>
struct FloatPlanes::Weights<kChannels>::Tile {
    VF centre[kChannels];
    int row;               // within the planes
    VF sum[kChannels + 1]; // the weights, then the weighted differences from the centre
    float unit;            // levels for one step of the planes

    HWY_INLINE Tile(const Weights& weights, int row, int column)
        : row(row), unit(1 / weights.mNumbers.scale) {
        for (int i = 0; i < kChannels; ++i)
            centre[i] = weights.value(weights.mStride * row + column, i);
        for (VF& value : sum)
            value = hn::Zero(df);
    }
    HWY_INLINE void add(const VF (&values)[kChannels], float start) {
        VF difference[kChannels];
        VF exponent = hn::Set(df, start);
        for (int i = 0; i < kChannels; ++i) {
            difference[i] = hn::Sub(values[i], centre[i]);
            exponent = hn::NegMulAdd(difference[i], difference[i], exponent);
        }
        const VF weight = exp2Float(exponent);
        sum[0] = hn::Add(sum[0], weight);
        for (int i = 0; i < kChannels; ++i)
            sum[1 + i] = hn::MulAdd(weight, difference[i], sum[1 + i]);
    }
    /// Stores the means of the channels.
    HWY_INLINE void store(Means& means, int column) const {
        for (int i = 0; i < kChannels; ++i) {
            const VF mean = hn::Add(centre[i], hn::Div(sum[1 + i], sum[0]));
            hn::StoreU(hn::MulAdd(mean, hn::Set(df, unit), hn::Set(df, 128.0f)), df,
                       &means[3 - kChannels + i][column]);
        }
    }
};
