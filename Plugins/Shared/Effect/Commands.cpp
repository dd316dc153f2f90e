#include "Plugins/Shared/Effect/Effect.h"
#include "Plugins/Shared/Effect/Frame.h"
#include "Plugins/Shared/Effect/FrameChecks.h"
#include "Plugins/Shared/Effect/FrameFormat.h"
#include "Plugins/Shared/Effect/GpuUse.h"
#include "Plugins/Shared/Effect/HostGLContext.h"
#include "Plugins/Shared/Effect/PreRender.h"
#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstring>
#include <new>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

// Made by the first frame after a setup that is filtered on the CPU. At the end of a process that sends no setdown it
// stays: a frame may be under way on another thread.
ThreadPool* mPool = nullptr;

ThreadPool& pool() {
    if (!mPool)
        mPool = new ThreadPool;
    return *mPool;
}

int mSetUp = 0; // how many effects are set up

PF_Err about(const EffectDeclaration& effect, const PF_InData* in_data, PF_OutData* out_data) {
    const SuiteScoper<PF_ANSICallbacksSuite1> ansi(in_data, "PF ANSI Suite", 1, nullptr, nullptr);
    ansi->sprintf(out_data->return_msg, "%s v%d.%d\r%s", effect.name, effect.version, effect.subversion,
                  effect.name);
    return PF_Err_NONE;
}

// Where the data context can't be made current, GL calls do nothing, as they should rather than reach the host's
// objects: ours end with their contexts.
void makeSharedContextCurrent() {
    AEOpenGLContext* data = AEOpenGLContextManager::getSharedDataContext();
    if (!data)
        return; // no GL object was ever made
    try {
        data->makeContextCurrent();
    } catch (...) {
        AEOpenGLContext::makeNoneCurrent();
    }
}

// Objects go while the contexts live: everything but the vertex arrays and framebuffers of the render
// contexts, which end with these.
void releaseGpu(const Effect& effect) {
    HostGLContext host;
    makeSharedContextCurrent();
    if (mSetUp == 0)
        AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
    effect.releasePass();
    if (mSetUp == 0)
        AEOpenGLContextManager::releaseContextManager();
    host.restore();
}

// The command has no code for a failure. A forked process has a copy of the objects, but they aren't its own.
PF_Err globalSetdown(const Effect& effect) {
    if (effect.state.isSetUp)
        --mSetUp;
    effect.state = {.isSetUp = false, .isSetDown = true};
    try {
        if (CGLIsForked())
            AEOpenGLContextManager::releaseContextManager();
        else
            releaseGpu(effect);
    } catch (...) { // exhausted memory: the GL objects stay
    }
    if (mSetUp == 0)
        delete std::exchange(mPool, nullptr);
    return PF_Err_NONE;
}

// A repeated setup restarts the effect. Without a data context, whatever the reason, frames are filtered on
// the CPU until the next setup.
PF_Err globalSetup(const Effect& effect, PF_OutData* out_data) {
    out_data->my_version = effect.declaration.packedVersion;
    out_data->out_flags = effect.declaration.outFlags;
    out_data->out_flags2 = effect.declaration.outFlags2;

    if (effect.state.isSetUp)
        globalSetdown(effect);
    effect.state = {.isSetUp = true, .isSetDown = false};
    if (++mSetUp > 1)
        return PF_Err_NONE;
    GpuUse::shared().reset();
    try {
        HostGLContext host;
        AEOpenGLContextManager::setupContextManager();
        host.restore();
    } catch (const GLFailure& failure) {
        GpuUse::shared().note(effect.declaration.name, failure);
    } catch (...) {
        GpuUse::shared().note(effect.declaration.name, "There is no memory for OpenGL");
    }
    return PF_Err_NONE;
}

PF_Err paramsSetup(const EffectDeclaration& effect, PF_InData* in_data, PF_OutData* out_data) {
    out_data->num_params = 1 + static_cast<std::int32_t>(effect.sliders.size());
    std::int32_t id = 0;
    for (const SliderDeclaration& slider : effect.sliders) {
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

PF_Err smartRender(const Effect& effect, PF_InData* in_data, PF_OutData* out_data,
                   PF_SmartRenderExtra* extra) {
    PF_LayerDef* input = nullptr;
    PF_LayerDef* output = nullptr;
    if (const PF_Err error = extra->cb->checkout_layer_pixels(in_data->effect_ref, 0, &input))
        return error;
    if (const PF_Err error = extra->cb->checkout_output(in_data->effect_ref, &output))
        return error;
    const FrameFormat& format = frameFormat(effect.declaration, out_data, *extra);
    checkWorlds(out_data, input, output, format.pixelBytes);
    if (effect.state.isSetDown) {
        showMessage(out_data, "The effect was asked for a frame after its global setdown.");
        return PF_Err_BAD_CALLBACK_PARAM;
    }
    return renderFrame(effect, in_data, out_data, input, output, format, pool);
}

PF_Err dispatch(const Effect& effect, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra) {
    switch (cmd) {
    case PF_Cmd_ABOUT:
        return about(effect.declaration, in_data, out_data);
    case PF_Cmd_GLOBAL_SETUP:
        return globalSetup(effect, out_data);
    case PF_Cmd_GLOBAL_SETDOWN:
        return globalSetdown(effect);
    case PF_Cmd_PARAMS_SETUP:
        return paramsSetup(effect.declaration, in_data, out_data);
    case PF_Cmd_SMART_PRE_RENDER:
        return smartPreRender(in_data, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
        return smartRender(effect, in_data, out_data, static_cast<PF_SmartRenderExtra*>(extra));
    default:
        return PF_Err_NONE;
    }
}

} // namespace

// Inside an effect a failure is a thrown integer, of which the host sees one code. The standard library's
// exceptions mustn't reach the host either: exhausted memory has a code of its own there.
PF_Err runCommand(const Effect& effect, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra) {
    try {
        return dispatch(effect, cmd, in_data, out_data, extra);
    } catch (int) {
        return PF_Err_BAD_CALLBACK_PARAM;
    } catch (const std::bad_alloc&) {
        return PF_Err_OUT_OF_MEMORY;
    } catch (...) {
        return PF_Err_BAD_CALLBACK_PARAM;
    }
}

} // namespace Tessaloom::BilateralBlur
