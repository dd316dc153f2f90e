#pragma once

// How pixels come into a block's planes, and how means become pixels.

#include "Plugins/Shared/Cpu/Blocks.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tessaloom::BilateralBlur {

/// What a channel of a pixel is made of.
enum class Depth { Bits8, Bits16, Float };

/// Which three channels are filtered; the fourth is carried. Where alpha is carried, neighbours also weigh by it.
enum class Channels { AlphaRedGreen, RedGreenBlue };

/// An image in the caller's memory, 4 channels a pixel: A, R, G, B, straight. 8 bits need no alignment, the other
/// depths that of their type; the stride, bytes from one row to the next, may be negative.
struct Image {
    const std::uint8_t* pixels;
    std::ptrdiff_t stride;
    int width, height;
    Depth depth = Depth::Bits8;
    double fullScale = 255; // the value of a channel that is 1

    const std::uint8_t* row(int y) const { return pixels + y * stride; }
};

/// Loads the row of the image that row `row` of a block's planes holds, with the edge pixels repeated, into `line`,
/// which has room for `block.planeColumns(reach)` pixels of the image's depth.
template<class Value>
void loadLine(const Image& image, const Block& block, int reach, int row, Value (*line)[4]) {
    constexpr int kSize = sizeof(line[0]);
    const std::uint8_t* const source = image.row(std::clamp(block.y - reach + row, 0, image.height - 1));
    const int x = block.x - reach;
    const int columns = block.planeColumns(reach);
    const int first = std::clamp(-x, 0, columns);
    const int last = std::clamp(image.width - x, first, columns);
    for (int i = 0; i < first; ++i)
        std::memcpy(line[i], source, kSize);
    std::memcpy(line[first], source + kSize * (x + first), static_cast<std::size_t>(last - first) * kSize);
    for (int i = last; i < columns; ++i)
        std::memcpy(line[i], source + kSize * (image.width - 1), kSize);
}

/// That row where it is: in the image if it has all of its pixels, else in `room`, where it is loaded.
template<class Value>
const Value* lineOf(const Image& image, const Block& block, int reach, int row, Value (*room)[4]) {
    const int x = block.x - reach, y = block.y - reach + row;
    if (x >= 0 && x + block.planeColumns(reach) <= image.width && y >= 0 && y < image.height)
        return reinterpret_cast<const Value*>(image.row(y) + x * std::ptrdiff_t{sizeof(room[0])});
    loadLine(image, block, reach, row, room);
    return room[0];
}

/// The means of the filtered channels for a row of a block: of 8 bits in 0..255, of other depths less the pixel's own
/// values. They are NaN where all weights are 0.
using Means = std::array<std::array<float, kBlockWidth>, 3>;

/// What an effect makes of the means. Jobs on several threads call it, each for pixels of its own.
class Formula {
public:
    /// Writes the pixels of row `row` of a block, 0 to `block.height` - 1.
    virtual void store(const Block& block, int row, const Means& means) const = 0;

    /// Writes a block all of whose pixels and neighbours have the same alpha, if its result follows from that alone.
    /// @param alpha in units of the image.
    /// @return whether it does.
    virtual bool storeUniform(const Block& block, float alpha) const = 0;

protected:
    ~Formula() = default;
};

} // namespace Tessaloom::BilateralBlur
