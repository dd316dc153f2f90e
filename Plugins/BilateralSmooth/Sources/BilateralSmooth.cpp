#include "Plugins/Declarations/BilateralSmooth.h"

#include "Plugins/BilateralSmooth/Sources/BilateralSmoothRender.h"
#include "Plugins/BilateralSmooth/Sources/CpuFormula.h"
#include "Plugins/Shared/Effect/Effect.h"

#include <algorithm>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

static_assert(kDeclaration.sliders[0].maximum == kLargestRadius);
static_assert(kDeclaration.margin == kLargestRadius);

// At the end of a process that sends no setdown it stays: a frame may be under way on another thread.
BilateralSmoothRender* mRender = nullptr;

int reach(SliderValues values) {
    return std::clamp(values[0], 0, kLargestRadius);
}

double threshold(SliderValues values) {
    constexpr const SliderDeclaration& kSlider = kSliders[1];
    return static_cast<double>(std::clamp(values[1], kSlider.minimum, kSlider.maximum)) / kSlider.steps;
}

void draw(SliderValues values, unsigned texture, float multiplier16bit) {
    if (!mRender)
        mRender = new BilateralSmoothRender;
    mRender->setFilter(reach(values), static_cast<float>(threshold(values)));
    mRender->draw(texture, multiplier16bit);
}

void releasePass() {
    delete std::exchange(mRender, nullptr);
}

void filter(SliderValues values, const Image& source, void* target, std::ptrdiff_t targetStride,
            ThreadPool& pool) {
    bilateralSmooth(source, target, targetStride, reach(values), threshold(values), pool);
}

EffectState mState;

constexpr Effect kEffect{.declaration = kDeclaration,
                         .state = mState,
                         .isStraight = true,
                         .reach = reach,
                         .draw = draw,
                         .releasePass = releasePass,
                         .filter = filter};

} // namespace

PF_Err bilateralSmoothCommand(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[],
                              PF_LayerDef*, void* extra) {
    return runCommand(kEffect, cmd, in_data, out_data, extra);
}

} // namespace Tessaloom::BilateralBlur
