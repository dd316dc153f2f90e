#pragma once

#include "Host/Effect.h"
#include "Host/Pixels.h"

#include <cstdint>
#include <stdexcept>
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

/// Values of an effect's sliders, in its order.
using Values = std::vector<std::int32_t>;

/// An effect's own module, driven by the host library.
class Reference {
public:
    explicit Reference(const char* module) : mModule(module) {}

    /// All frames with the values of their places; the last values are for all that follow. Samples are bytes
    /// or floats.
    template<class Sample>
    std::vector<Sample> operator()(const std::vector<Sample>& frames, Size size,
                                   const std::vector<Values>& values) {
        constexpr bool kHasFloats = sizeof(Sample) == sizeof(float);
        constexpr std::int32_t kFormat = kHasFloats ? PF_PixelFormat_ARGB128 : PF_PixelFormat_ARGB32;
        using Pixel = std::conditional_t<kHasFloats, PF_PixelFloat, PF_Pixel8>;
        Host::World input(size.width, size.height, kFormat), output(size.width, size.height, kFormat);
        std::vector<Sample> result(frames.size());
        const std::size_t row = std::size_t{4} * size.width;
        for (std::size_t start = 0; start < frames.size(); start += size.bytes()) {
            for (int y = 0; y < size.height; ++y)
                Host::unpackRow(&frames[start + y * row], 4, size.width, input.row<Pixel>(y));
            const Values& ofFrame = values[std::min(start / size.bytes(), values.size() - 1)];
            if (const Host::Result rendered = mEffect.render(input, output, ofFrame); !rendered.ok())
                throw std::runtime_error(rendered.text());
            for (int y = 0; y < size.height; ++y)
                Host::packRow(output.row<Pixel>(y), size.width, 4, &result[start + y * row]);
        }
        return result;
    }

private:
    const Host::Module mModule;
    Host::Effect mEffect{mModule};
};

inline Reference& blurred() {
    static Reference kBlur(BLUR_MODULE);
    return kBlur;
}

inline Reference& smoothed() {
    static Reference kSmooth(SMOOTH_MODULE);
    return kSmooth;
}

} // namespace Tessaloom::BilateralBlur::Bridges::Test
