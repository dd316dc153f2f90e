#pragma once

#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

#include <array>
#include <cstdint>

namespace Tessaloom::BilateralBlur::Bridges {

using Slider = SliderDeclaration;

/// The sliders that the effect declares, in that order. A bridge has a parameter for each.
inline constexpr std::array kSliders = std::to_array(BilateralBlur::kSliders);

/// A value for each slider.
using SliderValues = std::array<std::int32_t, kSliders.size()>;

} // namespace Tessaloom::BilateralBlur::Bridges
