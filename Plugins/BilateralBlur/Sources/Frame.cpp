#include "Plugins/BilateralBlur/Sources/Frame.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/BilateralBlur/Sources/Cpu/CpuFilter.h"
#include "Plugins/BilateralBlur/Sources/GpuFrame.h"
#include "Plugins/Shared/Effect/FrameChecks.h"
#include "Plugins/Shared/Effect/HostGLContext.h"
#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstring>
#include <new>
#include <optional>

namespace Tessaloom::BilateralBlur {

namespace {

// All contexts of a share group are on one device, so the data context decides for those of all threads. On
// software GL no render context is made, and no context is switched.
bool makeGpuContextCurrent() {
    const AEOpenGLContext* data = AEOpenGLContextManager::getSharedDataContext();
    if (!data || data->isSoftware())
        return false;
    try {
        AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
        return true;
    } catch (const GLFailure&) {
        return false;
    }
}

struct BlurScale {
    int value;
    PF_Err code; // of the checkout, or else of the checkin
};

BlurScale readBlurScale(PF_InData* in_data) {
    PF_ParamDef paramDef;
    std::memset(&paramDef, 0, sizeof paramDef);
    const PF_Err checkout = in_data->inter.checkout_param(in_data->effect_ref, 1, in_data->current_time,
                                                          in_data->time_step, in_data->time_scale, &paramDef);
    const int value = paramDef.u.sd.value;
    const PF_Err checkin = in_data->inter.checkin_param(in_data->effect_ref, &paramDef);
    return {value, checkout != PF_Err_NONE ? checkout : checkin};
}

PF_Err renderWorlds(PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input, PF_LayerDef* output,
                    BilateralBlurRender& render, CpuFilter& cpuFilter) {
    HostGLContext host;
    std::optional<GpuFrame> gpuFrame;
    const bool isEmpty = isEmptyWorld(*input);
    if (makeGpuContextCurrent() && !isEmpty) {
        gpuFrame.emplace(out_data, *input);
        gpuFrame->begin();
    }

    // Kept until the end of the frame, though no function of them is called: a host without them isn't one that
    // the effect was made for.
    const SuiteScoper<AEGP_PFInterfaceSuite1> interfaceSuite(in_data, "AEGP PF Interface Suite", 1, nullptr,
                                                             nullptr);
    const SuiteScoper<AEGP_LayerSuite5> layerSuite(in_data, "AEGP Layer Suite", 11, nullptr, nullptr);
    const SuiteScoper<AEGP_ItemSuite6> itemSuite(in_data, "AEGP Item Suite", 10, nullptr, nullptr);
    const BlurScale scale = readBlurScale(in_data);

    // A world without pixels has no address to ask the host for, and no texture can have its size.
    if (gpuFrame) {
        render.setBlurScale(scale.value);
        gpuFrame->render(in_data, render, input, output);
    } else if (!isEmpty) {
        cpuFilter.render(in_data, input, output, scale.value);
    }
    host.restore();
    return scale.code;
}

void showMemoryMessage(PF_OutData* out_data, const PF_LayerDef& input) {
    showMessage(out_data, "There is no memory for a frame of %d x %d pixels.", input.width, input.height);
}

} // namespace

PF_Err renderFrame(PF_InData* in_data, PF_OutData* out_data, PF_LayerDef* input, PF_LayerDef* output,
                   BilateralBlurRender& render, CpuFilter& cpuFilter) {
    try {
        return renderWorlds(in_data, out_data, input, output, render, cpuFilter);
    } catch (int code) {
        if (code == PF_Err_OUT_OF_MEMORY)
            showMemoryMessage(out_data, *input);
        throw;
    } catch (const GLFailure& failure) {
        showMessage(out_data, "%s for a frame of %d x %d pixels.", failure.what(), input->width,
                    input->height);
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    } catch (const std::bad_alloc&) {
        showMemoryMessage(out_data, *input);
        throw;
    }
}

} // namespace Tessaloom::BilateralBlur
