#pragma once

#include "Plugins/Shared/Cpu/Pixels.h"
#include "Plugins/Shared/Cpu/ThreadPool.h"

#include <cstddef>

namespace Tessaloom::BilateralBlur {

/// The largest radius; the smallest is 0. Every other value works as the nearest of the two.
constexpr int kLargestRadius = kReachLimit;

/// The whole effect on the CPU's vector units, at the image's own depth.
///
/// Red, green and blue become their means over the square of `radius` pixels each way, coordinates clamped to the
/// image. A neighbour q of the pixel p weighs a(q) * exp(-|q - p|^2 / (2 * s^2)) * exp(-|c(q) - c(p)|^2 / (2 *
/// threshold^2)), c being straight red, green and blue and a the straight alpha from 0 up, in units of full scale, and
/// s = radius / 2. Alpha stays. Where all weights are 0 the pixel stays, and so do all with radius 0. Results are rounded
/// once; floats aren't clamped. A neighbour with a channel that isn't finite has no weight, and such a pixel stays.
///
/// The precision of the means, memory and exceptions are those of `filterChannels`; after an exception the target is
/// incomplete. The result doesn't depend on the number of threads.
///
/// `target` has the size and the depth of `source` and doesn't overlap it. The bytes after a row aren't touched. An
/// image without pixels is left alone.
///
/// @param target first pixel of the first row, 4 channels a pixel: A, R, G, B, straight.
/// @param targetStride bytes from one row to the next.
/// @param threshold in units of full scale, 0.001 to 1.
void bilateralSmooth(const Image& source, void* target, std::ptrdiff_t targetStride, int radius,
                     double threshold, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
