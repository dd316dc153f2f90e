#pragma once

// What the kernels for different processors share. Only they include it.

#include "Plugins/BilateralBlur/Sources/FilterConstants.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tessaloom::BilateralBlur {

constexpr int kMaxTaps = 2 * kLargestReach + 1;
constexpr int kMaxLanes = 16;

// A block's planes with their margins, 576 KiB, stay in a core's second-level cache; the rows of one tile's
// window come from there once and from the first level afterwards.
constexpr int kBlockWidth = 256;
constexpr int kBlockHeight = 32;
constexpr int kPlaneStride = (kBlockWidth + 2 * kLargestReach + 6 + kMaxLanes - 1) / kMaxLanes * kMaxLanes;
constexpr int kPlaneRows = kBlockHeight + 2 * kLargestReach;

/// One 2^23rd: exponents are kept as integers in this unit, which is that of a float's bits.
constexpr double kOctave = 8388608.0;
constexpr double kLog2E = 1.4426950408889634;

/// The pixels that a job filters.
struct Block {
    int x, y, width, height;

    /// Columns of the planes that the block's tiles reach, in whole vectors.
    int planeColumns(int reach) const {
        const int tiles = (width + kMaxLanes - 1) / kMaxLanes * kMaxLanes;
        return std::min(kPlaneStride, (tiles + 2 * reach + kMaxLanes - 1) / kMaxLanes * kMaxLanes);
    }
    int planeRows(int reach) const { return height + 2 * reach; }
};

/// A picture, where its result goes, and the filter's numbers for its blur size.
struct Frame {
    const std::uint8_t* source;
    std::ptrdiff_t sourceStride;
    std::uint8_t* target;
    std::ptrdiff_t targetStride;
    int width, height;
    int reach;
    std::array<float, kLargestReach + 1> rowWeight; // by distance
    std::array<double, kLargestReach + 1> octaves;  // log2 of the same

    const std::uint8_t* row(int y) const { return source + y * sourceStride; }
    std::uint8_t* targetRow(int y) const { return target + y * targetStride; }
};

/// Loads the row of the picture that the plane's row `row` holds, with the edge pixels repeated, into `line`.
inline void loadLine(const Frame& frame, const Block& block, int row, std::uint8_t (*line)[4]) {
    const std::uint8_t* const source =
        frame.row(std::clamp(block.y - frame.reach + row, 0, frame.height - 1));
    const int x = block.x - frame.reach;
    const int columns = block.planeColumns(frame.reach);
    const int first = std::clamp(-x, 0, columns);
    const int last = std::clamp(frame.width - x, first, columns);
    for (int i = 0; i < first; ++i)
        std::memcpy(line[i], source, sizeof(line[i]));
    std::memcpy(line[first], source + 4 * (x + first), (last - first) * sizeof(line[0]));
    for (int i = last; i < columns; ++i)
        std::memcpy(line[i], source + 4 * (frame.width - 1), sizeof(line[i]));
}

/// What a transparent block becomes whatever its colours: premultiplied they are zero.
inline void clearBlock(const Frame& frame, const Block& block) {
    for (int y = block.y; y < block.y + block.height; ++y)
        std::memset(frame.targetRow(y) + 4 * block.x, 0, 4 * block.width);
}

/// The means of alpha, red and green of a row of a block, in 0..255.
using Means = std::array<std::array<float, kBlockWidth>, 3>;

/// Rounds means to the pixels of the block's row `row`; blue comes from the source.
void storeMeans(const Frame& frame, const Block& block, int row, const Means& means);

#ifdef BILATERAL_BLUR_BF16
/// Whether this processor has what `blurBlockBf16` needs, and the reach is large enough for it.
bool usesBf16(int reach);

/// How much scratch memory `blurBlockBf16` needs, aligned to 64 bytes.
extern const std::size_t kBf16ScratchSize;

/// Filters a block. Means are off by up to 0.1 of a level.
void blurBlockBf16(const Frame& frame, const Block& block, void* memory);
#endif

} // namespace Tessaloom::BilateralBlur
