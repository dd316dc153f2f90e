#pragma once

#include "HostInterface/EffectHost.h"

#include <cstdint>

namespace Tessaloom::BilateralBlur::Host {

/// Rows of pictures to rows of 8-bit worlds and back. A picture's pixel has `channels` samples side by
/// side: 1 grey, 2 grey and alpha, 3 red, green, blue, 4 red, green, blue, alpha. Alpha is straight on
/// both sides. `width` counts pixels; neither side may overlap the other.
///
/// Grey goes into all three colours of the world and comes back from its green. Red would do as well; blue
/// wouldn't, as an effect may treat it in another way than the two. A picture without alpha is opaque.

void unpackRow(const std::uint8_t* samples, int channels, int width, PF_Pixel8* row);
void packRow(const PF_Pixel8* row, int width, int channels, std::uint8_t* samples);

/// 16-bit samples, full scale being 65535: rounded to the nearest 8-bit value on the way in, times 257 on
/// the way out.
void unpackRow(const std::uint16_t* samples, int channels, int width, PF_Pixel8* row);
void packRow(const PF_Pixel8* row, int width, int channels, std::uint16_t* samples);

} // namespace Tessaloom::BilateralBlur::Host
