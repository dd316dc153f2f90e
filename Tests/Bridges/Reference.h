#pragma once

#include "Host/Effect.h"
#include "Host/Pixels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

namespace Tessaloom::BilateralBlur::Bridges::Test {

/// Pixels of four bytes, red, green, blue, straight alpha, rows without gaps; frames follow each other.
using Bytes = std::vector<std::uint8_t>;

struct Size {
    int width, height;
    std::size_t bytes() const { return std::size_t{4} * width * height; }
};

/// Soft noise around a shade of each frame's own, so that the blur has work everywhere, with edges.
inline Bytes makeFrames(Size size, int count, bool opaque = false) {
    std::mt19937 random(1);
    Bytes frames(size.bytes() * count);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const std::size_t shade = 10 * (i / size.bytes() % 8) + 70 * (i / 4 % size.width / 9 % 2);
        frames[i] = static_cast<std::uint8_t>(opaque && i % 4 == 3 ? 255 : 90 + shade + random() % 24);
    }
    return frames;
}

/// All frames through the effect's own module, driven by the host library, each at the scale of its place;
/// the last scale is for all that follow.
inline Bytes reference(const Bytes& frames, Size size, const std::vector<int>& scales) {
    static const Host::Module kModule(EFFECT_MODULE);
    static Host::Effect kEffect(kModule);
    Host::World input(size.width, size.height), output(size.width, size.height);
    Bytes result(frames.size());
    const std::size_t row = std::size_t{4} * size.width;
    for (std::size_t start = 0; start < frames.size(); start += size.bytes()) {
        for (int y = 0; y < size.height; ++y)
            Host::unpackRow(&frames[start + y * row], 4, size.width, input.row(y));
        const int scale = scales[std::min(start / size.bytes(), scales.size() - 1)];
        if (const Host::Result rendered = kEffect.render(input, output, std::array{scale}); !rendered.ok())
            throw std::runtime_error(rendered.text());
        for (int y = 0; y < size.height; ++y)
            Host::packRow(output.row(y), size.width, 4, &result[start + y * row]);
    }
    return result;
}

} // namespace Tessaloom::BilateralBlur::Bridges::Test
