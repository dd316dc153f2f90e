#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Images {

/// An 8-bit image without gaps, 4 bytes a pixel in the host's order A, R, G, B.
struct Image {
    int width, height;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(std::size_t{4} * width * height);

    const std::uint8_t* pixel(int x, int y) const { return bytes.data() + std::size_t{4} * (y * width + x); }

    /// All values as the texture holds them, 0..1.
    std::vector<double> normalised() const {
        std::vector<double> values(bytes.begin(), bytes.end());
        for (double& value : values)
            value /= 255;
        return values;
    }
};

/// Every pixel as `value(x, y, channel)` gives it, rounded and clamped to 0..255; alpha is 255 throughout
/// when `opaque`.
template<class Function>
Image make(int width, int height, bool opaque, Function value) {
    Image image{width, height};
    for (int i = 0; i < 4 * width * height; ++i) {
        const int channel = i % 4, pixel = i / 4;
        const double level = opaque && channel == 0 ? 255.0 : value(pixel % width, pixel / width, channel);
        image.bytes[i] = static_cast<std::uint8_t>(std::clamp(std::lround(level), 0L, 255L));
    }
    return image;
}

/// Independent values, up to `amplitude` from mid grey: with a small one every tap carries weight.
inline Image noise(int width, int height, unsigned seed, bool opaque = false, int amplitude = 128) {
    std::mt19937 random(seed);
    return make(width, height, opaque, [&](int, int, int) {
        return 128 - amplitude + static_cast<int>(random() % (2u * amplitude + 1));
    });
}

/// Like a photograph, opaque: smooth shading, an edge across it, and a sensor's noise.
inline Image photograph(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    return make(width, height, true, [&](int x, int y, int channel) {
        const double u = static_cast<double>(x) / width, v = static_cast<double>(y) / height;
        const double shade = 110 + 60 * std::sin(5 * u + channel) * std::cos(4 * v - channel);
        const double edge = std::sin(23 * u + 9 * v * v) > 0.2 ? 50 : 0;
        return shade + edge + (static_cast<int>(random() % 17) - 8);
    });
}

inline int below(std::mt19937& random, int bound) {
    return static_cast<int>(random() % static_cast<unsigned>(bound));
}

/// One of the above by chance, now and then wide or high. Alpha is the content's own or, throughout or on the left, a
/// constant one.
inline Image random(std::mt19937& random) {
    const int shape = below(random, 15);
    const int width = 1 + (shape == 0 ? 256 + below(random, 30) : below(random, 40));
    const int height = 1 + below(random, shape == 0 ? 3 : shape == 1 ? 70 : 24);
    const int amplitude = 1 + below(random, 128), alpha = std::array{0, 1, 77, 255}[below(random, 4)];
    const int end = width * below(random, 3) / 2;
    const unsigned seed = random();
    Image image = seed % 2 ? noise(width, height, seed, false, amplitude) : photograph(width, height, seed);
    for (std::size_t i = 0; i < image.bytes.size(); i += 4)
        if (static_cast<int>(i / 4) % width < end)
            image.bytes[i] = static_cast<std::uint8_t>(alpha);
    return image;
}

/// What the 8-bit framebuffer between the passes held for straight bytes A, R, G, B, which give it back exactly, in the
/// order of Oracle::pass. Colours of transparent pixels, which have to be 0, are as they are.
inline std::vector<int> premultiplied(const std::vector<std::uint8_t>& argb) {
    std::vector<int> values;
    for (std::size_t i = 0; i < argb.size(); i += 4) {
        for (std::size_t channel = 1; channel < 4; ++channel)
            values.push_back(argb[i] ? (2 * argb[i + channel] * argb[i] + 255) / 510 : argb[i + channel]);
        values.push_back(argb[i]);
    }
    return values;
}

/// The first of the values, of 0 to 255, that is farther than `rounding` from what the oracle expects, of 0 to 1, and
/// not left out by it. Empty if there is none.
template<class Value>
std::string difference(const std::vector<Value>& values, const std::vector<double>& expected,
                       double rounding) {
    for (std::size_t i = 0; i < values.size(); ++i)
        if (std::abs(values[i] - 255 * expected.at(i)) > rounding)
            return "value " + std::to_string(i) + " of " + std::to_string(values.size()) + ": " +
                   std::to_string(values[i]) + " instead of " + std::to_string(255 * expected[i]);
    return {};
}

} // namespace Tessaloom::BilateralBlur::Images
