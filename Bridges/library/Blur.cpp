#include "Bridges/library/Library.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

using namespace Tessaloom::BilateralBlur;

int bilateral_blur_blur(const bilateral_blur_image* image, int blur_scale) {
    static constexpr Bridges::LinkedEffect kEffect{bilateralBlurCommand, kDeclaration};
    constexpr const SliderDeclaration& kScale = kSliders[0];
    static_assert(kDeclaration.sliders.size() == 1 && kScale.minimum == 0 && kScale.maximum == 60,
                  "bilateral-blur.h and the texts name the ranges");
    if (blur_scale < kScale.minimum || blur_scale > kScale.maximum)
        return BILATERAL_BLUR_BAD_BLUR_SCALE;
    return Library::filter(kEffect, image, {blur_scale});
}
