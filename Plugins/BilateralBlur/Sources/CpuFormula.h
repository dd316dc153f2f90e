#pragma once

#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <cstddef>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// The whole effect on an 8-bit image, on the CPU's vector units.
///
/// Alpha, red and green become their means by the filter of the blur scale, blue stays. The result is then rounded as
/// the GPU's 8-bit frame buffers do: the colours are multiplied by alpha and all four rounded to bytes, then divided
/// by the rounded alpha and rounded again. Where alpha rounds to 0 all four are 0; an opaque pixel is rounded once.
///
/// The precision of the means, memory and exceptions are those of `filterChannels`; after an exception the target is
/// incomplete. The result doesn't depend on the number of threads.
///
/// `source` and `target` must not overlap. They need no alignment; strides may be negative. The bytes after a
/// row aren't touched. An image without pixels is left alone. A blur scale below 0 works as 0, one above the largest
/// as that.
///
/// @param source first pixel of the first row, 4 bytes a pixel: A, R, G, B, straight.
/// @param sourceStride bytes from one row to the next.
/// @param target likewise.
/// @param targetStride likewise.
void bilateralBlur(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::uint8_t* target,
                   std::ptrdiff_t targetStride, int width, int height, int blurScale, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
