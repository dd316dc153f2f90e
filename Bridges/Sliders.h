#pragma once

#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

#include <array>
#include <cstdint>

namespace Tessaloom::BilateralBlur::Bridges {

/// A slider of the effect.
struct Slider {
    const char* name;
    const char* description; ///< one line, for users
    std::int32_t minimum, maximum, defaultValue;
    bool isDistance; ///< counts pixels: half as many in an image of half the size
};

/// The sliders that the effect declares, in that order. A bridge has a parameter for each.
inline constexpr std::array kSliders{Slider{Declaration::kBlurScaleName, "How far the blur reaches",
                                            Declaration::kBlurScaleMinimum, Declaration::kBlurScaleMaximum,
                                            Declaration::kBlurScaleDefault, true}};

/// A value for each slider.
using SliderValues = std::array<std::int32_t, kSliders.size()>;

} // namespace Tessaloom::BilateralBlur::Bridges
