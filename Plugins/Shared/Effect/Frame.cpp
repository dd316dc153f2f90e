#include "Plugins/Shared/Effect/Frame.h"

#include "Plugins/Shared/Effect/CpuFrame.h"
#include "Plugins/Shared/Effect/FrameChecks.h"
#include "Plugins/Shared/Effect/GpuFrame.h"
#include "Plugins/Shared/Effect/GpuUse.h"
#include "Plugins/Shared/Effect/HostGLContext.h"
#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstring>
#include <new>
#include <optional>
#include <vector>

namespace Tessaloom::BilateralBlur {

namespace {

// Starts the frame on the GPU, if that is possible. All contexts of a share group are on one device, so the data
// context decides for those of all threads. On software GL no render context is made, and no context is switched.
void beginOnGpu(std::optional<GpuFrame>& frame, const Effect& effect, const PF_LayerDef& input,
                const FrameFormat& format) {
    const AEOpenGLContext* data = AEOpenGLContextManager::getSharedDataContext();
    if (!data || data->isSoftware() || !GpuUse::shared().isPossible())
        return;
    AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
    if (!isEmptyWorld(input))
        frame.emplace(effect, input, format).begin();
}

// Runs a step of a frame on the GPU. Where the GPU fails, or memory for it, the frame is none of the GPU's any more;
// what the host answered goes on as a thrown integer.
template<typename Step>
void tryOnGpu(std::optional<GpuFrame>& frame, const Effect& effect, Step step) {
    try {
        return step();
    } catch (const GLFailure& failure) {
        GpuUse::shared().note(effect.declaration.name, failure);
    } catch (const std::bad_alloc&) {
        GpuUse::shared().note(effect.declaration.name, "There is no memory for a frame of the GPU");
    } catch (const std::exception& failure) { // of the GL bindings
        GpuUse::shared().note(effect.declaration.name, failure.what());
    }
    frame.reset();
}

// The values of the sliders, and the first code of a checkout or checkin that isn't 0.
struct Parameters {
    std::vector<std::int32_t> values;
    PF_Err code = PF_Err_NONE;
};

Parameters readParameters(const EffectDeclaration& effect, PF_InData* in_data) {
    Parameters parameters;
    parameters.values.reserve(effect.sliders.size());
    while (parameters.values.size() < effect.sliders.size()) {
        const auto index = static_cast<std::int32_t>(1 + parameters.values.size());
        PF_ParamDef paramDef;
        std::memset(&paramDef, 0, sizeof paramDef);
        const PF_Err checkout =
            in_data->inter.checkout_param(in_data->effect_ref, index, in_data->current_time,
                                          in_data->time_step, in_data->time_scale, &paramDef);
        parameters.values.push_back(paramDef.u.sd.value);
        const PF_Err checkin = in_data->inter.checkin_param(in_data->effect_ref, &paramDef);
        for (const PF_Err code : {checkout, checkin})
            if (parameters.code == PF_Err_NONE)
                parameters.code = code;
    }
    return parameters;
}

PF_Err renderWorlds(const Effect& effect, PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output,
                    const FrameFormat& format, ThreadPool& (*pool)()) {
    HostGLContext host;
    std::optional<GpuFrame> gpuFrame;
    tryOnGpu(gpuFrame, effect, [&] { beginOnGpu(gpuFrame, effect, *input, format); });

    // Kept until the end of the frame, though no function of them is called: a host without them isn't one that
    // the effect was made for.
    const SuiteScoper<AEGP_PFInterfaceSuite1> interfaceSuite(in_data, "AEGP PF Interface Suite", 1, nullptr,
                                                             nullptr);
    const SuiteScoper<AEGP_LayerSuite5> layerSuite(in_data, "AEGP Layer Suite", 11, nullptr, nullptr);
    const SuiteScoper<AEGP_ItemSuite6> itemSuite(in_data, "AEGP Item Suite", 10, nullptr, nullptr);
    const Parameters parameters = readParameters(effect.declaration, in_data);

    // A GPU may change the bits of a float that it only passes on.
    const bool isIdentity = effect.isStraight && effect.reach(parameters.values) == 0;
    if (gpuFrame && !isIdentity)
        tryOnGpu(gpuFrame, effect, [&] { gpuFrame->render(parameters.values, in_data, input, output); });
    // A world without pixels has no address to ask the host for, and no texture can have its size.
    if ((!gpuFrame || isIdentity) && !isEmptyWorld(*input))
        renderOnCpu(effect, parameters.values, in_data, input, output, format, pool());
    host.restore();
    return parameters.code;
}

void showMemoryMessage(PF_OutData* out_data, const PF_LayerDef& input) {
    showMessage(out_data, "There is no memory for a frame of %d x %d pixels.", input.width, input.height);
}

} // namespace

PF_Err renderFrame(const Effect& effect, PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input,
                   PF_LayerDef* output, const FrameFormat& format, ThreadPool& (*pool)()) {
    try {
        return renderWorlds(effect, in_data, input, output, format, pool);
    } catch (int code) {
        if (code == PF_Err_OUT_OF_MEMORY)
            showMemoryMessage(out_data, *input);
        else if (code == PF_Err_BAD_CALLBACK_PARAM)
            showMessage(out_data, "%s got no pixels of %d bits a channel from the host.",
                        effect.declaration.name, 2 * format.pixelBytes);
        throw;
    } catch (const std::bad_alloc&) {
        showMemoryMessage(out_data, *input);
        throw;
    }
}

} // namespace Tessaloom::BilateralBlur
