#pragma once

#include "HostInterface/EffectHost.h"
#include "Plugins/Shared/Effect/Declaration.h"

namespace Tessaloom::BilateralBlur {

/// An effect that is linked into a module or a bridge.
struct LinkedEffect {
    PF_EntryPointFunc entry;
    const EffectDeclaration& declaration;
};

/// The effect of a shared object that has one. The build makes a source with this for each effect, which its module and
/// its bridges link.
const LinkedEffect& linkedEffect();

} // namespace Tessaloom::BilateralBlur
