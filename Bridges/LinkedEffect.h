#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Declaration.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Tessaloom::BilateralBlur::Bridges {

/// An effect that a bridge carries.
struct LinkedEffect {
    PF_EntryPointFunc entry;
    const EffectDeclaration& declaration;
};

/// Each bridge of one effect has a source that defines this. All else takes names, sliders and entry from it.
const LinkedEffect& linkedEffect();

/// How many sliders an effect of the bridges has at most.
inline constexpr std::size_t kMostSliders = 8;

/// A value for each slider, in the order of the declaration; the rest counts for nothing.
using SliderValues = std::array<std::int32_t, kMostSliders>;

} // namespace Tessaloom::BilateralBlur::Bridges
