// A small effect without a GPU: it inverts the colours by way of a host handle, or does a misdeed.

#include "Platform/EffectHost.h"
#include "Tests/Host/Modules/Misdeed.h"

#include <cstdio>
#include <cstring>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

PF_Err setUpParams(PF_InData* in_data, PF_OutData* out_data) {
    out_data->num_params = 2;
    PF_ParamDef def{};
    def.param_type = PF_Param_SLIDER;
    in_data->utils->ansi.strcpy(def.name, "Misdeed");
    def.u.sd.valid_max = def.u.sd.slider_max = kMisdeeds - 1;
    return in_data->inter.add_param(in_data->effect_ref, -1, &def);
}

PF_Err preRender(PF_InData* in_data, PF_PreRenderExtra* extra) {
    PF_CheckoutResult result{};
    const PF_Err code =
        extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &extra->input->output_request,
                                  in_data->current_time, in_data->time_step, in_data->time_scale, &result);
    extra->output->result_rect = result.result_rect;
    extra->output->max_result_rect = result.max_result_rect;
    return code;
}

void invert(PF_InData* in_data, PF_LayerDef* input, PF_LayerDef* output, const PF_HandleSuite1& memory,
            Misdeed misdeed) {
    PF_Pixel8 *in = nullptr, *out = nullptr;
    in_data->utils->get_pixel_data8(input, nullptr, &in);
    in_data->utils->get_pixel_data8(output, nullptr, &out);
    void* handle = memory.host_new_handle(static_cast<std::uint64_t>(output->rowbytes) * output->height);
    auto* staged = static_cast<PF_Pixel8*>(memory.host_lock_handle(handle));
    const int step = output->rowbytes / 4;
    const int width = output->width + (misdeed == kWritesBehindRows ? 1 : 0);
    for (int y = 0; y < output->height; ++y)
        for (int x = 0; x < width; ++x) {
            const PF_Pixel8 pixel = in[y * input->rowbytes / 4 + x];
            staged[y * step + x] = {pixel.alpha, static_cast<std::uint8_t>(~pixel.red),
                                    static_cast<std::uint8_t>(~pixel.green),
                                    static_cast<std::uint8_t>(~pixel.blue)};
        }
    for (int y = 0; y < output->height; ++y)
        std::memcpy(out + y * step, staged + y * step, width * sizeof(PF_Pixel8));
    if (misdeed != kDisposesLocked)
        memory.host_unlock_handle(handle);
    if (misdeed == kUnlocksTwice)
        memory.host_unlock_handle(handle);
    if (misdeed != kKeepsHandle)
        memory.host_dispose_handle(handle);
    if (misdeed == kDisposesTwice)
        memory.host_dispose_handle(handle);
}

PF_Err render(PF_InData* in_data, PF_OutData* out_data, PF_SmartRenderExtra* extra) {
    PF_LayerDef *input = nullptr, *output = nullptr;
    PF_Err code = extra->cb->checkout_layer_pixels(in_data->effect_ref, 0, &input);
    if (code == PF_Err_NONE)
        code = extra->cb->checkout_output(in_data->effect_ref, &output);
    PF_ParamDef param{};
    if (code == PF_Err_NONE)
        code = in_data->inter.checkout_param(in_data->effect_ref, 1, in_data->current_time,
                                             in_data->time_step, in_data->time_scale, &param);
    const auto misdeed = static_cast<Misdeed>(param.u.sd.value);
    if (misdeed != kKeepsParameter && input && output)
        in_data->inter.checkin_param(in_data->effect_ref, &param);
    if (code != PF_Err_NONE)
        return code;
    if (misdeed == kThrows)
        throw 13;
    if (misdeed == kFailsWithMessage) {
        out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
        std::snprintf(out_data->return_msg, sizeof out_data->return_msg, "two\rlines");
        return 1234;
    }
    const void* suite = nullptr;
    if (in_data->pica_basicP->AcquireSuite("PF Handle Suite", 2, &suite) != 0)
        return PF_Err_BAD_CALLBACK_PARAM;
    invert(in_data, input, output, *static_cast<const PF_HandleSuite1*>(suite), misdeed);
    for (int i = misdeed == kReleasesTwice ? 2 : misdeed == kKeepsSuite ? 0 : 1; i > 0; --i)
        in_data->pica_basicP->ReleaseSuite("PF Handle Suite", 2);
    return code;
}

PF_Err run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, void* extra) {
    switch (cmd) {
    case PF_Cmd_ABOUT:
        in_data->utils->ansi.sprintf(out_data->return_msg, "%s v%d", "Inverter", 2);
        return PF_Err_NONE;
    case PF_Cmd_GLOBAL_SETUP:
        out_data->my_version = PF_VERSION(2, 0, 0, PF_Stage_DEVELOP, 7);
        out_data->out_flags2 = PF_OutFlag2_SUPPORTS_SMART_RENDER;
        return PF_Err_NONE;
    case PF_Cmd_PARAMS_SETUP:
        return setUpParams(in_data, out_data);
    case PF_Cmd_SMART_PRE_RENDER:
        return preRender(in_data, static_cast<PF_PreRenderExtra*>(extra));
    case PF_Cmd_SMART_RENDER:
        return render(in_data, out_data, static_cast<PF_SmartRenderExtra*>(extra));
    default:
        return PF_Err_NONE;
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test

extern "C" __attribute__((visibility("default"))) PF_Err TEST_MODULE_ENTRY(PF_Cmd cmd, PF_InData* in_data,
                                                                           PF_OutData* out_data,
                                                                           PF_ParamDef*[], PF_LayerDef*,
                                                                           void* extra) {
    return Tessaloom::BilateralBlur::Host::Test::run(cmd, in_data, out_data, extra);
}
