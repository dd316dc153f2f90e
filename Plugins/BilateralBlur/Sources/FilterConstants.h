#pragma once

#include "Plugins/BilateralBlur/Sources/FragmentStage.h"
#include "Plugins/Declarations/BilateralBlur.h"
#include "Plugins/Shared/Cpu/BilateralFilter.h"

#include <algorithm>
#include <string_view>

/// The numbers of the effect's bilateral filter: the scale's are those of the declaration, the sigmas those of the
/// shader, so that the CPU can't differ from the GPU.
namespace Tessaloom::BilateralBlur {

/// The decimal number that follows `name` in the shader. It doesn't compile where the shader lacks the name.
consteval double numberAfter(std::string_view name) {
    double digits = 0, unit = 1;
    bool isFraction = false;
    for (const char character : kFragmentStage.substr(kFragmentStage.find(name)).substr(name.size())) {
        if (character == '.')
            isFraction = true;
        else if (character < '0' || character > '9')
            break;
        else {
            digits = 10 * digits + (character - '0');
            unit *= isFraction ? 10 : 1;
        }
    }
    return digits / unit;
}

/// Standard deviation of the weights by distance, in pixels.
constexpr double kSpatialSigma = numberAfter("#define SIGMA ");

/// Standard deviation of the weights by difference of the filtered channels, in units of full scale.
constexpr double kRangeSigma = numberAfter("#define BSIGMA ");

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
static_assert(2 * kLargestReach + 1 == numberAfter("float kernel["));

/// The filter at a blur scale.
constexpr BilateralFilter filterOf(int blurScale) {
    return {reachOf(blurScale), kSpatialSigma, kRangeSigma};
}

} // namespace Tessaloom::BilateralBlur
