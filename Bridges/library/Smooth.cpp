#include "Bridges/library/Library.h"

#include "Plugins/Declarations/BilateralSmooth.h"

#include <cmath>

using namespace Tessaloom::BilateralBlur;

const char* const Library::kBadRadius = "The radius must be an integer from 0 to 60.";
const char* const Library::kBadThreshold = "The threshold must be a number from 0.001 to 1.";

int bilateral_blur_smooth(const bilateral_blur_image* image, int radius, double threshold) {
    static constexpr LinkedEffect kEffect{bilateralSmoothCommand, kDeclaration};
    constexpr const SliderDeclaration &kRadius = kSliders[0], &kThreshold = kSliders[1];
    static_assert(kRadius.minimum == 0 && kRadius.maximum == 60 && kThreshold.minimum == 1 &&
                      kThreshold.maximum == 1000 && kThreshold.steps == 1000,
                  "the texts above, bilateral-blur.h and bilateral_blur.py name the ranges");
    if (radius < kRadius.minimum || radius > kRadius.maximum)
        return BILATERAL_BLUR_BAD_RADIUS;
    const double steps = threshold * kThreshold.steps;
    if (!(steps >= kThreshold.minimum && steps <= kThreshold.maximum)) // nor if it isn't a number
        return BILATERAL_BLUR_BAD_THRESHOLD;
    return Library::filter(kEffect, image, {radius, static_cast<std::int32_t>(std::lround(steps))});
}
