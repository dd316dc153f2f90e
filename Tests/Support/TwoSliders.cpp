#include "HostInterface/EffectHost.h"

#include <cstring>
#include <initializer_list>

namespace {

PF_Err declareSliders(PF_InData* in_data, PF_OutData* out_data) {
    out_data->num_params = 3;
    for (const char* name : {"First", "Second Slider"}) {
        PF_ParamDef def{};
        def.param_type = PF_Param_SLIDER;
        std::strcpy(def.name, name);
        def.u.sd.valid_max = 100;
        if (const PF_Err code = in_data->inter.add_param(in_data->effect_ref, -1, &def))
            return code;
    }
    return PF_Err_NONE;
}

PF_Err preRender(const PF_InData* in_data, const PF_PreRenderExtra* extra) {
    PF_CheckoutResult result{};
    const PF_Err code =
        extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &extra->input->output_request,
                                  in_data->current_time, in_data->time_step, in_data->time_scale, &result);
    *extra->output = {result.result_rect, result.max_result_rect};
    return code;
}

std::uint8_t valueOf(const PF_InData* in_data, std::int32_t index) {
    PF_ParamDef param{};
    in_data->inter.checkout_param(in_data->effect_ref, index, in_data->current_time, in_data->time_step,
                                  in_data->time_scale, &param);
    in_data->inter.checkin_param(in_data->effect_ref, &param);
    return static_cast<std::uint8_t>(param.u.sd.value);
}

PF_Err render(const PF_InData* in_data, const PF_SmartRenderExtra* extra) {
    PF_LayerDef* output = nullptr;
    PF_Pixel8* base = nullptr;
    extra->cb->checkout_output(in_data->effect_ref, &output);
    if (const PF_Err code = in_data->utils->get_pixel_data8(output, nullptr, &base))
        return code;
    const PF_Pixel8 pixel{255, valueOf(in_data, 1), valueOf(in_data, 2),
                          static_cast<std::uint8_t>(in_data->current_time)};
    for (int y = 0; y < output->height; ++y)
        for (int x = 0; x < output->width; ++x)
            reinterpret_cast<PF_Pixel8*>(reinterpret_cast<char*>(base) + y * output->rowbytes)[x] = pixel;
    return PF_Err_NONE;
}

} // namespace

/// An effect of two sliders from 0 to 100: each pixel's red gets the value of the first, its green that of
/// the second, and its blue the time.
extern "C" __attribute__((visibility("default"))) PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data,
                                                                        PF_OutData* out_data, PF_ParamDef*[],
                                                                        PF_LayerDef*, void* extra) {
    switch (cmd) {
    case PF_Cmd_PARAMS_SETUP:
        return declareSliders(in_data, out_data);
    case PF_Cmd_SMART_PRE_RENDER:
        return preRender(in_data, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
        return render(in_data, static_cast<PF_SmartRenderExtra*>(extra));
    default:
        return PF_Err_NONE;
    }
}
