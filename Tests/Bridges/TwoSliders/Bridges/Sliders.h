#pragma once

#include "Plugins/Shared/Effect/Declaration.h"

#include <array>
#include <cstdint>

// In the place of the bridges' own list: a distance, and a slider that isn't one.

namespace Tessaloom::BilateralBlur::Bridges {

using Slider = SliderDeclaration;

inline constexpr std::array kSliders{Slider{"Reach", "reach", "", 0, 60, 3, 1, true, false},
                                     Slider{"Odd Angle", "odd-angle", "", -50, 150, 7, 1, false, false}};

using SliderValues = std::array<std::int32_t, kSliders.size()>;

} // namespace Tessaloom::BilateralBlur::Bridges
