#pragma once

// How a frame is cut into blocks. Each is filtered from planes of its own, in which the edges are repeated, so
// the loop over neighbours knows no border and no block knows another.

#include "Plugins/Shared/Cpu/BilateralFilter.h"

#include <algorithm>
#include <cstddef>

namespace Tessaloom::BilateralBlur {

constexpr int kMaxTaps = 2 * kReachLimit + 1;
constexpr int kMaxLanes = 16;

constexpr int wholeVectors(int columns) {
    return (columns + kMaxLanes - 1) / kMaxLanes * kMaxLanes;
}

// Up to a reach of 29 a block's planes with their margins, up to 576 KiB, stay in a core's second-level cache; the
// rows of one tile's window come from there once and from the first level afterwards.
constexpr int kBlockWidth = 256;
constexpr int kBlockHeight = 32;

/// Pixels in a row of the widest planes.
constexpr int kLineWidth = wholeVectors(kBlockWidth + 2 * kReachLimit);

/// Elements of a plane. Planes that follow each other start in different sets of the first-level cache.
constexpr std::size_t kPlaneSize =
    static_cast<std::size_t>(kLineWidth) * (kBlockHeight + 2 * kReachLimit) + 128;

/// The pixels that a job filters. Row r, column c of its planes hold the pixel (x - reach + c, y - reach + r) of
/// the frame, clamped to it.
struct Block {
    int x, y, width, height;

    /// Columns of the planes that the block's tiles reach, in whole vectors.
    int planeColumns(int reach) const { return wholeVectors(wholeVectors(width) + 2 * reach); }
    int planeRows(int reach) const { return height + 2 * reach; }
};

/// Elements from one row of a plane to the next.
constexpr std::size_t planeStride(int reach) {
    return static_cast<std::size_t>(wholeVectors(kBlockWidth + 2 * reach));
}

/// The blocks of a frame, about equally wide.
class BlockGrid {
public:
    BlockGrid(int width, int height)
        : mWidth(width),
          mHeight(height),
          mBlockWidth(wholeVectors(parts(width, parts(width, kBlockWidth)))),
          mColumns(parts(width, mBlockWidth)) {}

    std::size_t count() const {
        return static_cast<std::size_t>(mColumns) * static_cast<std::size_t>(parts(mHeight, kBlockHeight));
    }

    Block operator[](std::size_t index) const {
        const int x = static_cast<int>(index % mColumns) * mBlockWidth;
        const int y = static_cast<int>(index / mColumns) * kBlockHeight;
        return {x, y, std::min(mBlockWidth, mWidth - x), std::min(kBlockHeight, mHeight - y)};
    }

private:
    static int parts(int length, int size) { return (length + size - 1) / size; }

    int mWidth, mHeight;
    int mBlockWidth;
    int mColumns;
};

} // namespace Tessaloom::BilateralBlur
