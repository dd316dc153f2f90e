#include "Host/Pixels.h"

namespace Tessaloom::BilateralBlur::Host {

namespace {

std::uint8_t to8(std::uint8_t sample) {
    return sample;
}
std::uint8_t to8(std::uint16_t sample) {
    return static_cast<std::uint8_t>((sample + 128u) / 257u);
}

void from8(std::uint8_t value, std::uint8_t& sample) {
    sample = value;
}
void from8(std::uint8_t value, std::uint16_t& sample) {
    sample = static_cast<std::uint16_t>(value * 257u);
}

// The number of channels is a template argument: the loops then have constant strides, which compilers
// turn into vector code.
template<int kChannels, class Sample>
void unpack(const Sample* samples, int width, PF_Pixel8* row) {
    constexpr bool kHasAlpha = kChannels % 2 == 0;
    constexpr int kStep = kChannels < 3 ? 0 : 1;
    for (int x = 0; x < width; ++x, samples += kChannels) {
        row[x].alpha = kHasAlpha ? to8(samples[kChannels - 1]) : std::uint8_t{255};
        row[x].red = to8(samples[0]);
        row[x].green = to8(samples[kStep]);
        row[x].blue = to8(samples[2 * kStep]);
    }
}

template<int kChannels, class Sample>
void pack(const PF_Pixel8* row, int width, Sample* samples) {
    for (int x = 0; x < width; ++x, samples += kChannels) {
        if constexpr (kChannels < 3) {
            from8(row[x].green, samples[0]);
        } else {
            from8(row[x].red, samples[0]);
            from8(row[x].green, samples[1]);
            from8(row[x].blue, samples[2]);
        }
        if constexpr (kChannels % 2 == 0)
            from8(row[x].alpha, samples[kChannels - 1]);
    }
}

template<class Sample>
void unpackAny(const Sample* samples, int channels, int width, PF_Pixel8* row) {
    switch (channels) {
    case 1:
        return unpack<1>(samples, width, row);
    case 2:
        return unpack<2>(samples, width, row);
    case 3:
        return unpack<3>(samples, width, row);
    case 4:
        return unpack<4>(samples, width, row);
    }
}

template<class Sample>
void packAny(const PF_Pixel8* row, int width, int channels, Sample* samples) {
    switch (channels) {
    case 1:
        return pack<1>(row, width, samples);
    case 2:
        return pack<2>(row, width, samples);
    case 3:
        return pack<3>(row, width, samples);
    case 4:
        return pack<4>(row, width, samples);
    }
}

} // namespace

void unpackRow(const std::uint8_t* samples, int channels, int width, PF_Pixel8* row) {
    unpackAny(samples, channels, width, row);
}

void unpackRow(const std::uint16_t* samples, int channels, int width, PF_Pixel8* row) {
    unpackAny(samples, channels, width, row);
}

void packRow(const PF_Pixel8* row, int width, int channels, std::uint8_t* samples) {
    packAny(row, width, channels, samples);
}

void packRow(const PF_Pixel8* row, int width, int channels, std::uint16_t* samples) {
    packAny(row, width, channels, samples);
}

} // namespace Tessaloom::BilateralBlur::Host
