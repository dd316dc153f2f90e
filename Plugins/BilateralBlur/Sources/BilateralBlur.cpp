#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/BilateralBlur/Sources/Cpu/CpuFilter.h"
#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/BilateralBlur/Sources/Frame.h"
#include "Plugins/Shared/Effect/FrameChecks.h"
#include "Plugins/Shared/Effect/HostGLContext.h"
#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

static_assert(kDeclaration.outFlags2 == PF_OutFlag2_SUPPORTS_SMART_RENDER);
static_assert(kDeclaration.sliders[0].maximum == kLargestBlurScale);

// Either is made again by the first frame after a setdown. At the end of a process that sends no setdown they
// stay: a frame may be under way on another thread.
BilateralBlurRender* mRender = new BilateralBlurRender;
CpuFilter* mCpuFilter = nullptr;

bool mIsSetDown = false;

PF_Err about(const PF_InData* in_data, PF_OutData* out_data) {
    const SuiteScoper<PF_ANSICallbacksSuite1> ansi(in_data, "PF ANSI Suite", 1, nullptr, nullptr);
    ansi->sprintf(out_data->return_msg, "%s v%d.%d\r%s", kDeclaration.name, kDeclaration.version,
                  kDeclaration.subversion, kDeclaration.name);
    return PF_Err_NONE;
}

// Without a data context no GL object was ever made. It can be current on another thread, where a setup on
// that thread left it because the host had none current; this thread's render context serves as well then, as
// objects are common to the share group. With no context at all GL calls do nothing, as they should rather
// than reach the host's objects: ours end with their contexts.
void makeSharedContextCurrent() {
    AEOpenGLContext* data = AEOpenGLContextManager::getSharedDataContext();
    if (!data)
        return;
    try {
        data->makeContextCurrent();
    } catch (...) {
        try {
            AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
        } catch (...) {
            AEOpenGLContext::makeNoneCurrent();
        }
    }
}

// Setup and setdown have no code for a failure.
template<typename Step>
void tryTo(Step step) {
    try {
        step();
    } catch (...) {
    }
}

// Objects go while the contexts live: everything but the vertex arrays and framebuffers of the render
// contexts, which end with these.
PF_Err globalSetdown() {
    mIsSetDown = true;
    tryTo([] {
        HostGLContext host;
        makeSharedContextCurrent();
        AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
        delete std::exchange(mRender, nullptr);
        delete std::exchange(mCpuFilter, nullptr);
        AEOpenGLContextManager::releaseContextManager();
        host.restore();
    });
    return PF_Err_NONE;
}

// A repeated setup restarts the effect. Without a data context, whatever the reason, frames are filtered on
// the CPU until the next setup.
PF_Err globalSetup(PF_OutData* out_data) {
    out_data->my_version = kDeclaration.packedVersion;
    out_data->out_flags = kDeclaration.outFlags;
    out_data->out_flags2 = kDeclaration.outFlags2;

    if (AEOpenGLContextManager::getSharedDataContext())
        globalSetdown();
    mIsSetDown = false;
    tryTo([] {
        HostGLContext host;
        AEOpenGLContextManager::setupContextManager();
        host.restore();
    });
    return PF_Err_NONE;
}

PF_Err paramsSetup(PF_InData* in_data, PF_OutData* out_data) {
    out_data->num_params = 1 + static_cast<std::int32_t>(kDeclaration.sliders.size());
    std::int32_t id = 0;
    for (const SliderDeclaration& slider : kDeclaration.sliders) {
        PF_ParamDef def;
        std::memset(&def, 0, sizeof def);
        def.param_type = PF_Param_SLIDER;
        in_data->utils->ansi.strcpy(def.name, slider.name);
        def.uu.id = ++id;
        def.u.sd.value = def.u.sd.dephault = slider.defaultValue;
        def.u.sd.valid_min = def.u.sd.slider_min = slider.minimum;
        def.u.sd.valid_max = def.u.sd.slider_max = slider.maximum;
        if (const PF_Err error = in_data->inter.add_param(in_data->effect_ref, -1, &def))
            return error;
    }
    return PF_Err_NONE;
}

void UnionRect(const PF_LRect* src, PF_LRect* dst) {
    if (IsEmptyRect(dst)) {
        *dst = *src;
    } else if (!IsEmptyRect(src)) {
        dst->left = std::min(dst->left, src->left);
        dst->top = std::min(dst->top, src->top);
        dst->right = std::max(dst->right, src->right);
        dst->bottom = std::max(dst->bottom, src->bottom);
    }
}

PF_Err smartPreRender(const PF_InData* in_data, PF_PreRenderExtra* extra) {
    const PF_RenderRequest request = extra->input->output_request;
    PF_CheckoutResult result{};
    const PF_Err error = extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &request, in_data->current_time,
                                                   in_data->time_step, in_data->time_scale, &result);
    if (error != PF_Err_NONE)
        return error;
    UnionRect(&result.result_rect, &extra->output->result_rect);
    UnionRect(&result.max_result_rect, &extra->output->max_result_rect);
    return PF_Err_NONE;
}

PF_Err smartRender(PF_InData* in_data, PF_OutData* out_data, PF_SmartRenderExtra* extra) {
    PF_LayerDef* input = nullptr;
    PF_LayerDef* output = nullptr;
    if (const PF_Err error = extra->cb->checkout_layer_pixels(in_data->effect_ref, 0, &input))
        return error;
    if (const PF_Err error = extra->cb->checkout_output(in_data->effect_ref, &output))
        return error;
    checkWorlds(out_data, input, output);
    if (mIsSetDown) {
        showMessage(out_data, "The effect was asked for a frame after its global setdown.");
        return PF_Err_BAD_CALLBACK_PARAM;
    }
    if (!mRender)
        mRender = new BilateralBlurRender;
    if (!mCpuFilter)
        mCpuFilter = new CpuFilter;
    return renderFrame(in_data, out_data, input, output, *mRender, *mCpuFilter);
}

PF_Err dispatch(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra) {
    switch (cmd) {
    case PF_Cmd_ABOUT:
        return about(in_data, out_data);
    case PF_Cmd_GLOBAL_SETUP:
        return globalSetup(out_data);
    case PF_Cmd_GLOBAL_SETDOWN:
        return globalSetdown();
    case PF_Cmd_PARAMS_SETUP:
        return paramsSetup(in_data, out_data);
    case PF_Cmd_SMART_PRE_RENDER:
        return smartPreRender(in_data, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
        return smartRender(in_data, out_data, static_cast<PF_SmartRenderExtra*>(extra));
    default:
        return PF_Err_NONE;
    }
}

} // namespace

bool IsEmptyRect(const PF_LRect* rect) {
    return rect->left >= rect->right || rect->top >= rect->bottom;
}

} // namespace Tessaloom::BilateralBlur

// Inside the effect a failure is a thrown integer, of which the host sees one code. The standard library's
// exceptions mustn't reach the host either: exhausted memory has a code of its own there.
PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*,
                      void* extra) {
    try {
        return Tessaloom::BilateralBlur::dispatch(cmd, in_data, out_data, extra);
    } catch (int) {
        return PF_Err_BAD_CALLBACK_PARAM;
    } catch (const std::bad_alloc&) {
        return PF_Err_OUT_OF_MEMORY;
    } catch (...) {
        return PF_Err_BAD_CALLBACK_PARAM;
    }
}
