#pragma once

#include <array>
#include <cstdint>

// In the place of the bridges' own list: a distance, and a slider that isn't one.

namespace Tessaloom::BilateralBlur::Bridges {

struct Slider {
    const char* name;
    const char* description;
    std::int32_t minimum, maximum, defaultValue;
    bool isDistance;
};

inline constexpr std::array kSliders{Slider{"Reach", "", 0, 60, 3, true},
                                     Slider{"Odd Angle", "", -50, 150, 7, false}};

using SliderValues = std::array<std::int32_t, kSliders.size()>;

} // namespace Tessaloom::BilateralBlur::Bridges
