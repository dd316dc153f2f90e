#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tessaloom::BilateralBlur::Oracle {

/// The blur pass alone, in double precision.
///
/// For the pixel p and its neighbours q of the square of (blurSize - 1) / 2, truncated towards
/// zero, around it, coordinates clamped to the picture: w(q) = exp(-|q - p|^2 / (2 * 10^2)) * exp(-|c(q) - c(p)|^2 / (2 * 0.1^2)), c being the
/// first three channels (alpha, red, green). Those three come out as their weighted mean, blue as it went in;
/// all four are scaled by `multiplier`, then red, green and blue are multiplied by the alpha.
///
/// @param argb width * height pixels of 4 values, row after row: A, R, G, B as the texture holds them, 0..1.
/// @return     width * height pixels of 4 values: R, G, B premultiplied, A; not quantised.
std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier = 1.0);

/// The whole effect on an 8-bit world, in double precision: the pass, then the division by the alpha.
///
/// No 8-bit rounding happens between the two. The real effect stores the premultiplied picture with 8 bits,
/// so its straight colours may be off by up to 0.5 * 255 / alpha (alpha 0..255) before their own rounding:
/// scale a bound by the alpha that this returns.
///
/// @param argb     the world's first pixel, 4 bytes a pixel: A, R, G, B.
/// @param rowbytes distance between rows in bytes, at least 4 * width.
/// @return width * height pixels of 4 values in 0..255: A, R, G, B, straight. All four are 0 where the
///         filtered alpha rounds to 0 of 255.
std::vector<double> effect(const std::uint8_t* argb, int width, int height, std::ptrdiff_t rowbytes,
                           int blurSize);

} // namespace Tessaloom::BilateralBlur::Oracle
