#include "Host/Pixels.h"

#include <algorithm>
#include <type_traits>

namespace Tessaloom::BilateralBlur::Host {

namespace {

template<class Value, unsigned kScale>
struct Channel {};

template<class Sample>
using SampleChannel = Channel<Sample, std::is_same_v<Sample, std::uint8_t>    ? 255
                                      : std::is_same_v<Sample, std::uint16_t> ? 65535
                                                                              : 1>;

template<class Pixel>
using PixelChannel = Channel<decltype(Pixel::red), std::is_same_v<Pixel, PF_Pixel8>    ? 255
                                                   : std::is_same_v<Pixel, PF_Pixel16> ? 32768
                                                                                       : 1>;

template<class From, unsigned kFrom, class To, unsigned kTo>
To convert(From value, Channel<From, kFrom>, Channel<To, kTo>) {
    if constexpr (std::is_same_v<From, To> && kFrom == kTo) {
        return value;
    } else if constexpr (std::is_same_v<To, float>) {
        return static_cast<float>(value) / kFrom;
    } else if constexpr (std::is_same_v<From, float>) {
        const float limited = value > 0 ? std::min(value, 1.0f) : 0.0f;
        return static_cast<To>(limited * kTo + 0.5f);
    } else if constexpr (kTo % kFrom == 0) {
        return static_cast<To>(value * (kTo / kFrom));
    } else if constexpr (kFrom % kTo == 0) {
        constexpr unsigned kStep = kFrom / kTo;
        return static_cast<To>((value + kStep / 2) / kStep);
    } else {
        return static_cast<To>((value * kTo + kFrom / 2) / kFrom);
    }
}

// The number of channels is a template argument: the loops then have constant strides, which compilers
// turn into vector code.
template<int kChannels, class Sample, class Pixel>
void unpack(const Sample* samples, int width, Pixel* row) {
    constexpr bool kHasAlpha = kChannels % 2 == 0;
    constexpr int kStep = kChannels < 3 ? 0 : 1;
    const auto converted = [](Sample sample) {
        return convert(sample, SampleChannel<Sample>(), PixelChannel<Pixel>());
    };
    for (int x = 0; x < width; ++x, samples += kChannels) {
        row[x].alpha = kHasAlpha
                           ? converted(samples[kChannels - 1])
                           : convert(std::uint8_t{1}, Channel<std::uint8_t, 1>(), PixelChannel<Pixel>());
        row[x].red = converted(samples[0]);
        row[x].green = converted(samples[kStep]);
        row[x].blue = converted(samples[2 * kStep]);
    }
}

template<int kChannels, class Pixel, class Sample>
void pack(const Pixel* row, int width, Sample* samples) {
    const auto converted = [](decltype(Pixel::red) value) {
        return convert(value, PixelChannel<Pixel>(), SampleChannel<Sample>());
    };
    for (int x = 0; x < width; ++x, samples += kChannels) {
        if constexpr (kChannels < 3) {
            samples[0] = converted(row[x].green);
        } else {
            samples[0] = converted(row[x].red);
            samples[1] = converted(row[x].green);
            samples[2] = converted(row[x].blue);
        }
        if constexpr (kChannels % 2 == 0)
            samples[kChannels - 1] = converted(row[x].alpha);
    }
}

} // namespace

template<class Sample, class Pixel>
void unpackRow(const Sample* samples, int channels, int width, Pixel* row) {
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

template<class Pixel, class Sample>
void packRow(const Pixel* row, int width, int channels, Sample* samples) {
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

// Types can't be in parentheses here.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define INSTANTIATE(Sample, Pixel)                                                                           \
    template void unpackRow(const Sample*, int, int, Pixel*);                                                \
    template void packRow(const Pixel*, int, int, Sample*);
// NOLINTEND(bugprone-macro-parentheses)

#define INSTANTIATE_FOR(Sample)                                                                              \
    INSTANTIATE(Sample, PF_Pixel8)                                                                           \
    INSTANTIATE(Sample, PF_Pixel16)                                                                          \
    INSTANTIATE(Sample, PF_PixelFloat)

INSTANTIATE_FOR(std::uint8_t)
INSTANTIATE_FOR(std::uint16_t)
INSTANTIATE_FOR(float)

} // namespace Tessaloom::BilateralBlur::Host
