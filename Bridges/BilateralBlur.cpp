#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Bridges/LinkedEffect.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

namespace Tessaloom::BilateralBlur::Bridges {

static_assert(kDeclaration.sliders.size() <= kMostSliders);

const LinkedEffect& linkedEffect() {
    static constexpr LinkedEffect kEffect{bilateralBlurCommand, kDeclaration};
    return kEffect;
}

} // namespace Tessaloom::BilateralBlur::Bridges
