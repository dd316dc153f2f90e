#pragma once

#include <vector>

/// The effects in double precision.
namespace Tessaloom::BilateralBlur::Oracle {

/// The blur pass. What follows it in the effect is rounded to 8 bits and divided by the alpha.
///
/// For the pixel p and its neighbours q of the square of (blurSize - 1) / 2, blurSize being clamped to 1..60 and the
/// quotient truncated, around it, coordinates clamped to the image: w(q) = exp(-|q - p|^2 / (2 * 10^2)) * exp(-|c(q) - c(p)|^2 /
/// (2 * 0.1^2)), c being the first three channels (alpha, red, green). Those three come out as their weighted
/// mean, blue as it went in; all four are scaled by `multiplier`, then red, green and blue are multiplied by
/// the alpha.
///
/// @param argb width * height pixels of 4 values, row after row: A, R, G, B as the texture holds them, 0..1.
/// @return     width * height pixels of 4 values: R, G, B premultiplied, A; not quantised.
std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier = 1.0);

/// "Bilateral Smooth": for the pixel p and its neighbours q of the square of `radius` around it, coordinates clamped to
/// the image: w(q) = a(q) * exp(-|q - p|^2 / (2 * (radius / 2)^2)) * exp(-|c(q) - c(p)|^2 / (2 * threshold^2)), c
/// being red, green and blue and a the alpha from 0 up. Red, green and blue come out as their weighted mean. A neighbour
/// that isn't finite weighs 0; a pixel that isn't, or whose neighbours all weigh 0, comes out as it is.
///
/// @param argb width * height pixels of 4 values, row after row: A, R, G, B, straight, in units of full scale.
/// @param least weights, all together, below which a pixel's values are left out: they are NaN then.
std::vector<double> smooth(const std::vector<double>& argb, int width, int height, int radius,
                           double threshold, double least);

} // namespace Tessaloom::BilateralBlur::Oracle
