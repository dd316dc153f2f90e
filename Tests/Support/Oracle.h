#pragma once

#include <vector>

/// The effect in double precision.
namespace Tessaloom::BilateralBlur::Oracle {

/// The blur pass. What follows it in the effect is rounded to 8 bits and divided by the alpha.
///
/// For the pixel p and its neighbours q of the square of (blurSize - 1) / 2, truncated towards zero, around
/// it, coordinates clamped to the picture: w(q) = exp(-|q - p|^2 / (2 * 10^2)) * exp(-|c(q) - c(p)|^2 /
/// (2 * 0.1^2)), c being the first three channels (alpha, red, green). Those three come out as their weighted
/// mean, blue as it went in; all four are scaled by `multiplier`, then red, green and blue are multiplied by
/// the alpha.
///
/// @param argb width * height pixels of 4 values, row after row: A, R, G, B as the texture holds them, 0..1.
/// @return     width * height pixels of 4 values: R, G, B premultiplied, A; not quantised.
std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier = 1.0);

} // namespace Tessaloom::BilateralBlur::Oracle
