#pragma once

#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"
#include "Plugins/Shared/Cpu/BilateralFilter.h"

#include <algorithm>

/// The numbers of the effect's bilateral filter. The shader of BilateralBlurRender has the sigmas and the number of
/// its weights in its text, which the compiler compares with these.
namespace Tessaloom::BilateralBlur {

/// Standard deviation of the weights by distance, in pixels.
constexpr double kSpatialSigma = 10.0;

/// Standard deviation of the weights by difference of the filtered channels, in units of full scale.
constexpr double kRangeSigma = 0.1;

/// The largest blur scale; the smallest is 0. Every other value works as the nearest of the two.
constexpr int kLargestBlurScale = kSliders[0].maximum;
static_assert(kSliders[0].minimum == 0);

/// How far the neighbourhood of a pixel extends to each side at a blur scale, in pixels.
constexpr int reachOf(int blurScale) {
    return (std::clamp(blurScale, 1, kLargestBlurScale) - 1) / 2;
}

constexpr int kLargestReach = reachOf(kLargestBlurScale);
static_assert(kLargestReach <= kReachLimit);
static_assert(kLargestReach == kDeclaration.margin, "EFFECT_MARGIN in Declaration.cmake is this");

/// The filter at a blur scale.
constexpr BilateralFilter filterOf(int blurScale) {
    return {reachOf(blurScale), kSpatialSigma, kRangeSigma};
}

} // namespace Tessaloom::BilateralBlur
