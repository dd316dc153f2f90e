#include "Plugins/Declarations/BilateralBlur.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/BilateralBlur/Sources/CpuFormula.h"
#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/Effect/Effect.h"

#include <algorithm>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

// At the end of a process that sends no setdown it stays: a frame may be under way on another thread.
BilateralBlurRender* mRender = new BilateralBlurRender;

int reach(SliderValues values) {
    return reachOf(std::clamp(values[0], 1, kLargestBlurScale));
}

// A setdown, or a frame that failed, has released the pass.
void draw(SliderValues values, unsigned texture, float multiplier16bit) {
    if (!mRender)
        mRender = new BilateralBlurRender;
    mRender->setBlurScale(values[0]);
    mRender->draw(texture, multiplier16bit);
}

void releasePass() {
    delete std::exchange(mRender, nullptr);
}

void filter(SliderValues values, const Image& source, void* target, std::ptrdiff_t targetStride,
            ThreadPool& pool) {
    bilateralBlur(source.pixels, source.stride, static_cast<std::uint8_t*>(target), targetStride,
                  source.width, source.height, values[0], pool);
}

EffectState mState;

constexpr Effect kEffect{.declaration = kDeclaration,
                         .state = mState,
                         .isStraight = false,
                         .reach = reach,
                         .draw = draw,
                         .releasePass = releasePass,
                         .filter = filter};

} // namespace

PF_Err bilateralBlurCommand(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[],
                            PF_LayerDef*, void* extra) {
    return runCommand(kEffect, cmd, in_data, out_data, extra);
}

} // namespace Tessaloom::BilateralBlur
