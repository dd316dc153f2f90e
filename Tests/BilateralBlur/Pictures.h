#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace Tessaloom::BilateralBlur::Pictures {

/// An 8-bit picture, 4 bytes a pixel in the host's order A, R, G, B, rows `rowbytes` apart. The spare bytes
/// behind a row hold kSpareByte, so a test can see whether they were touched, or read as pixels.
struct Picture {
    static constexpr std::uint8_t kSpareByte = 0xA5;

    int width;
    int height;
    std::ptrdiff_t rowbytes;
    std::vector<std::uint8_t> bytes;

    Picture(int width, int height, int spareBytes = 0)
        : width(width),
          height(height),
          rowbytes(4 * width + spareBytes),
          bytes(static_cast<std::size_t>(rowbytes) * height, kSpareByte) {}

    std::uint8_t* pixel(int x, int y) { return bytes.data() + y * rowbytes + 4 * x; }
    const std::uint8_t* pixel(int x, int y) const { return bytes.data() + y * rowbytes + 4 * x; }

    /// All values as the texture holds them: width * height * 4 of 0..1, without the spare bytes.
    template<class Real = double>
    std::vector<Real> normalised() const {
        std::vector<Real> values;
        for (int y = 0; y < height; ++y)
            for (int i = 0; i < 4 * width; ++i)
                values.push_back(static_cast<Real>(pixel(0, y)[i]) / Real(255));
        return values;
    }
};

/// Every pixel as `value(x, y, channel)` gives it, rounded and clamped to 0..255; alpha is 255 throughout
/// when `opaque`.
template<class Function>
Picture make(int width, int height, bool opaque, Function value) {
    Picture picture(width, height);
    for (int i = 0; i < 4 * width * height; ++i) {
        const int channel = i % 4, pixel = i / 4;
        const double level = opaque && channel == 0 ? 255.0 : value(pixel % width, pixel / width, channel);
        picture.bytes[i] = static_cast<std::uint8_t>(std::clamp(std::lround(level), 0L, 255L));
    }
    return picture;
}

/// Independent uniform bytes in all four channels.
inline Picture noise(int width, int height, unsigned seed, bool opaque = false) {
    std::mt19937 random(seed);
    return make(width, height, opaque, [&](int, int, int) { return random() >> 24; });
}

/// Noise of +-`amplitude` around mid grey: close enough for every tap to carry weight.
inline Picture softNoise(int width, int height, unsigned seed, int amplitude = 20, bool opaque = false) {
    std::mt19937 random(seed);
    return make(width, height, opaque, [&](int, int, int) {
        return 128 + static_cast<int>(random() % (2u * amplitude + 1)) - amplitude;
    });
}

/// Opaque 5 by 7 blocks of black, white and strong colours: only hard edges.
inline Picture hardEdges(int width, int height) {
    return make(width, height, true, [](int x, int y, int channel) {
        const int block = x / 5 * 3 + y / 7 * 5;
        return (block >> (channel - 1)) & 1 ? 255 : 0;
    });
}

/// Alpha rises from 0 at the left to 255 at the right edge, with colours that vary on their own.
inline Picture alphaRamp(int width, int height) {
    return make(width, height, false, [&](int x, int y, int channel) {
        if (channel == 0)
            return 255.0 * x / std::max(1, width - 1);
        return 127.5 + 127.5 * std::sin(0.11 * channel * x + 0.23 * y + channel);
    });
}

/// Like a photograph, opaque: smooth shading, an edge across it, and a sensor's noise.
inline Picture photograph(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    return make(width, height, true, [&](int x, int y, int channel) {
        const double u = static_cast<double>(x) / width, v = static_cast<double>(y) / height;
        const double shade = 110 + 60 * std::sin(5 * u + channel) * std::cos(4 * v - channel);
        const double edge = std::sin(23 * u + 9 * v * v) > 0.2 ? 50 : 0;
        return shade + edge + (static_cast<int>(random() % 17) - 8);
    });
}

} // namespace Tessaloom::BilateralBlur::Pictures
