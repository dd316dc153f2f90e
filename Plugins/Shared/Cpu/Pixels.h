#pragma once

// How pixels come into a block's planes, and how means become pixels.

#include "Plugins/Shared/Cpu/Blocks.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tessaloom::BilateralBlur {

/// An 8-bit image in the caller's memory, 4 bytes a pixel: A, R, G, B, straight. It needs no alignment; the stride,
/// bytes from one row to the next, may be negative.
struct Image {
    const std::uint8_t* pixels;
    std::ptrdiff_t stride;
    int width, height;

    const std::uint8_t* row(int y) const { return pixels + y * stride; }
};

/// Loads the row of the image that row `row` of a block's planes holds, with the edge pixels repeated, into `line`,
/// which has room for `block.planeColumns(reach)` pixels.
inline void loadLine(const Image& image, const Block& block, int reach, int row, std::uint8_t (*line)[4]) {
    const std::uint8_t* const source = image.row(std::clamp(block.y - reach + row, 0, image.height - 1));
    const int x = block.x - reach;
    const int columns = block.planeColumns(reach);
    const int first = std::clamp(-x, 0, columns);
    const int last = std::clamp(image.width - x, first, columns);
    for (int i = 0; i < first; ++i)
        std::memcpy(line[i], source, sizeof(line[i]));
    std::memcpy(line[first], source + 4 * (x + first), (last - first) * sizeof(line[0]));
    for (int i = last; i < columns; ++i)
        std::memcpy(line[i], source + 4 * (image.width - 1), sizeof(line[i]));
}

/// The means of the filtered channels for a row of a block, in 0..255.
using Means = std::array<std::array<float, kBlockWidth>, 3>;

/// What an effect makes of the means. Jobs on several threads call it, each for pixels of its own.
class Formula {
public:
    /// Writes the pixels of row `row` of a block, 0 to `block.height` - 1.
    virtual void store(const Block& block, int row, const Means& means) const = 0;

    /// Writes a block all of whose pixels and neighbours have the same first channel, if it follows from that
    /// alone.
    /// @return whether it does.
    virtual bool storeUniform(const Block& block, std::uint8_t first) const = 0;

protected:
    ~Formula() = default;
};

} // namespace Tessaloom::BilateralBlur
