#pragma once

/// The numbers of the bilateral filter. The shader of BilateralBlurRender repeats them in its text, which a
/// test compares with these.
namespace Tessaloom::BilateralBlur {

/// Standard deviation of the weights by distance, in pixels.
constexpr double kSpatialSigma = 10.0;

/// Standard deviation of the weights by difference of the filtered channels, in units of full scale.
constexpr double kRangeSigma = 0.1;

/// The largest blur scale; the smallest is 0. Every other value works as the nearest of the two.
constexpr int kLargestBlurScale = 60;

/// How far the neighbourhood of a pixel extends to each side at a blur scale, in pixels.
constexpr int reachOf(int blurScale) {
    return (blurScale - 1) / 2;
}

constexpr int kLargestReach = reachOf(kLargestBlurScale);

} // namespace Tessaloom::BilateralBlur
