#include "Bridges/library/Library.h"

#include "Plugins/Declarations/BilateralBlur.h"

using namespace Tessaloom::BilateralBlur;

const char* const Library::kBadBlurScale = "The blur scale must be an integer from 0 to 60.";

int bilateral_blur_blur(const bilateral_blur_image* image, int blur_scale) {
    static constexpr LinkedEffect kEffect{bilateralBlurCommand, kDeclaration};
    constexpr const SliderDeclaration& kScale = kSliders[0];
    static_assert(kScale.minimum == 0 && kScale.maximum == 60,
                  "the text above, bilateral-blur.h and bilateral_blur.py name the range");
    if (blur_scale < kScale.minimum || blur_scale > kScale.maximum)
        return BILATERAL_BLUR_BAD_BLUR_SCALE;
    return Library::filter(kEffect, image, {blur_scale});
}
