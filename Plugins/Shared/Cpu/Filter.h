#pragma once

#include "Plugins/Shared/Cpu/BilateralFilter.h"
#include "Plugins/Shared/Cpu/Pixels.h"
#include "Plugins/Shared/Cpu/ThreadPool.h"

namespace Tessaloom::BilateralBlur {

/// Filters three channels of an image, which has at least one pixel, on the CPU's vector units, and gives
/// their means to the formula, block by block. Coordinates of neighbours are clamped to the image.
///
/// Neighbours weigh as the filter says, and by their alpha too, from 0 up, where it is carried. A neighbour of which a
/// channel isn't finite has no weight then; what becomes of such a pixel itself is for the formula.
///
/// Means of 8 bits are up to 0.002 of a level of 255 off. On a processor with AVX512-BF16, from a reach of 4 up and where
/// the sigmas allow it, that is up to 0.1 of a level if alpha is filtered. Means of other depths are up to 2e-4 of a
/// range sigma off, or some roundings of a float. Differences of more than 1e32 sigmas count as none or as such. A
/// pixel's sums are always taken in the same order, so the means don't depend on the number of threads; instruction
/// sets differ by the last bits of a float.
///
/// The scratch memory, less than 2 MB a thread, belongs to the pool and is kept for later frames; if it can't be
/// allocated, std::bad_alloc is thrown, and some pixels aren't stored.
void filterChannels(const Image& image, Channels channels, const BilateralFilter& filter,
                    const Formula& formula, ThreadPool& pool);

} // namespace Tessaloom::BilateralBlur
