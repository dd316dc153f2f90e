#pragma once

#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <cstddef>
#include <cstdint>

namespace Tessaloom::BilateralBlur {

/// The whole effect on an 8-bit picture, on the CPU's vector units.
///
/// For the pixel p and its neighbours q of the square of (blurSize - 1) / 2 pixels each way (truncated
/// towards zero), coordinates clamped to the picture: w(q) = exp(-|q - p|^2 / (2 * 10^2)) * exp(-|c(q) -
/// c(p)|^2 / (2 * 0.1^2)), c being alpha, red and green in units of full scale. These three become their mean
/// weighted by w, blue stays. The result is then rounded as the GPU's 8-bit frame buffers do: the colours
/// are multiplied by alpha and all four rounded to bytes, then divided by the rounded alpha and rounded
/// again. Where alpha rounds to 0 all four are 0; an opaque pixel is rounded once.
///
/// The weights are single precision and accurate to 2e-4 of themselves. A pixel's sums are always taken in
/// the same order, so the result doesn't depend on the number of threads; instruction sets differ by the
/// last bits of a float before rounding. On a processor with AVX512-BF16, from a blurSize of 9 up, weights are
/// accurate to 1 %, and the three means are up to 0.1 of 255 off before rounding.
///
/// `source` and `target` must not overlap. They need no alignment; strides may be negative. The bytes after a
/// row aren't touched. A picture without pixels is left alone. A blurSize below 0 works as 0, one above 60
/// as 60. The scratch memory, less than 1 MB a thread, belongs to the pool and is kept for later frames; if
/// it can't be allocated, std::bad_alloc is thrown and the target is left incomplete.
///
/// @param source first pixel of the first row, 4 bytes a pixel: A, R, G, B, straight.
/// @param sourceStride bytes from one row to the next.
/// @param target likewise.
/// @param targetStride likewise.
void bilateralBlur(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::uint8_t* target,
                   std::ptrdiff_t targetStride, int width, int height, int blurSize, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
