#include "Plugins/BilateralSmooth/Sources/BilateralSmooth.h"
#include "Bridges/LinkedEffect.h"
#include "Plugins/BilateralSmooth/Sources/BilateralSmoothDeclaration.h"

namespace Tessaloom::BilateralBlur::Bridges {

static_assert(kDeclaration.sliders.size() <= kMostSliders);

const LinkedEffect& linkedEffect() {
    static constexpr LinkedEffect kEffect{bilateralSmoothCommand, kDeclaration};
    return kEffect;
}

} // namespace Tessaloom::BilateralBlur::Bridges
