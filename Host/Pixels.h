#pragma once

#include "HostInterface/EffectHost.h"

#include <cstdint>

namespace Tessaloom::BilateralBlur::Host {

/// Rows of images to rows of worlds and back. An image's pixel has `channels` samples side by side: 1 grey,
/// 2 grey and alpha, 3 red, green, blue, 4 red, green, blue, alpha. Alpha is straight on both sides. `width`
/// counts pixels; neither side may overlap the other.
///
/// Samples are std::uint8_t, std::uint16_t or float, with a full scale of 255, 65535 or 1. Pixels are those of
/// the three formats; full scale is 255, 32768 or 1. Values are rounded to the nearest. So 8-bit samples come
/// back unchanged from worlds of any format, and 16-bit samples from float worlds; worlds of 16 bits don't hold
/// all their values. Floats stay as they are between floats, and are limited to 0 to full scale otherwise,
/// where those that aren't numbers become 0.
///
/// Grey goes into all three colours of the world and comes back from its green. Red would do as well; blue
/// wouldn't, as an effect may treat it in another way than the two. An image without alpha is opaque.

template<class Sample, class Pixel>
void unpackRow(const Sample* samples, int channels, int width, Pixel* row);

template<class Pixel, class Sample>
void packRow(const Pixel* row, int width, int channels, Sample* samples);

} // namespace Tessaloom::BilateralBlur::Host
