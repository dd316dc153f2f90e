#include "Bridges/LinkedEffect.h"

#include <gegl-plugin.h>
#include <gmock/gmock.h>

#include <cmath>
#include <cstring>

extern "C" {
#include <frei0r.h>
gboolean gegl_module_register(GTypeModule* module);
}

// The bridges around an effect of two sliders, a distance and a fraction: each of the two has to get its own
// value.

namespace Tessaloom::BilateralBlur::Bridges {

namespace {

using testing::ElementsAre;

constexpr SliderDeclaration kSliders[] = {{"Reach", "reach", "", 0, 60, 3, 1, true, false},
                                          {"Odd Share", "odd-share", "", -50, 150, 7, 100, false, false}};
constexpr EffectDeclaration kDeclaration{"Odd Effect", "odd",   "", 1, 0, 0, 0, PF_OutFlag2_FLOAT_COLOR_AWARE,
                                         60,           kSliders};

std::vector<std::int32_t> mValues; // that the effect got for its last frame
bool mIsSetUp = false;

/// Gives the first pixel back.
void copyPixel(PF_InData* in, const PF_SmartRenderCallbacks& host) {
    PF_LayerDef *input = nullptr, *output = nullptr;
    host.checkout_layer_pixels(in->effect_ref, 0, &input);
    host.checkout_output(in->effect_ref, &output);
    PF_Pixel8* bytes[2] = {};
    PF_PixelFloat* floats[2] = {};
    if (in->utils->get_pixel_data8(input, nullptr, &bytes[0]) == 0) {
        in->utils->get_pixel_data8(output, nullptr, &bytes[1]);
        *bytes[1] = *bytes[0];
    } else if (in->utils->get_pixel_data_float(input, nullptr, &floats[0]) == 0) {
        in->utils->get_pixel_data_float(output, nullptr, &floats[1]);
        *floats[1] = *floats[0];
    }
}

PF_Err entry(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef*[], PF_LayerDef*, void* extra) {
    if (cmd == PF_Cmd_GLOBAL_SETUP || cmd == PF_Cmd_GLOBAL_SETDOWN)
        mIsSetUp = cmd == PF_Cmd_GLOBAL_SETUP;
    if (cmd == PF_Cmd_SMART_PRE_RENDER) {
        const auto& render = *static_cast<PF_PreRenderExtra*>(extra);
        PF_CheckoutResult result;
        render.cb->checkout_layer(in->effect_ref, 0, 0, &render.input->output_request, 0, 1, 1, &result);
        render.output->result_rect = result.result_rect;
    }
    if (cmd == PF_Cmd_SMART_RENDER) {
        mValues.clear();
        copyPixel(in, *static_cast<PF_SmartRenderExtra*>(extra)->cb);
    }
    out->out_flags2 = kDeclaration.outFlags2;
    PF_ParamDef param{};
    for (const SliderDeclaration& slider : kSliders) {
        ++out->num_params;
        if (cmd == PF_Cmd_PARAMS_SETUP) {
            std::strcpy(param.name, slider.name);
            param.param_type = PF_Param_SLIDER;
            param.u.sd.valid_min = slider.minimum;
            param.u.sd.valid_max = slider.maximum;
            param.u.sd.dephault = slider.defaultValue;
            in->inter.add_param(in->effect_ref, -1, &param);
        } else if (cmd == PF_Cmd_SMART_RENDER) {
            in->inter.checkout_param(in->effect_ref, out->num_params, 0, 1, 1, &param);
            mValues.push_back(param.u.sd.value);
            in->inter.checkin_param(in->effect_ref, &param);
        }
    }
    ++out->num_params;
    return PF_Err_NONE;
}

TEST(TwoSliders, GetAValueEachFromFrei0r) {
    const f0r_instance_t instance = f0r_construct(1, 1);
    std::uint32_t pixel = 77;
    f0r_update(instance, 0, &pixel, &pixel);
    EXPECT_EQ(pixel, 77u);
    EXPECT_THAT(mValues, ElementsAre(3, 7));
    double reach = 0.2, share = 0.75;
    f0r_set_param_value(instance, &reach, 0);
    f0r_set_param_value(instance, &share, 1);
    f0r_update(instance, 0, &pixel, &pixel);
    EXPECT_THAT(mValues, ElementsAre(12, 100));

    testing::internal::CaptureStderr();
    for (auto [given, kept] : {std::pair{0.25, 0.25}, {20, 1}, {std::nan(""), 1}, {-HUGE_VAL, 0}}) {
        f0r_set_param_value(instance, &given, 1);
        f0r_get_param_value(instance, &given, 1);
        EXPECT_EQ(given, kept);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Odd Effect: Odd Share 20 is out of range, 0 to 1 (which means -0.5 to 1.5); using 1\n");
    EXPECT_TRUE(mIsSetUp);
    f0r_destruct(instance);
    EXPECT_FALSE(mIsSetUp);
    // Some hosts go on without an instance.
    f0r_set_param_value(nullptr, &share, 1);
    f0r_get_param_value(nullptr, &share, 1);
    f0r_update(nullptr, 0, &pixel, &pixel);
    f0r_destruct(nullptr);
    f0r_param_info_t info{};
    f0r_get_param_info(&info, 1);
    f0r_get_param_info(&info, 2);
    EXPECT_STREQ(info.name, "Odd Share");
    EXPECT_STREQ(info.explanation, "0 to 1 means -0.5 to 1.5");
}

TEST(TwoSliders, GetAValueEachFromGegl) {
    setenv("GEGL_PATH", GEGL_OPERATIONS, 1);
    gegl_init(nullptr, nullptr);
    gegl_module_register(nullptr);
    g_object_set(gegl_config(), "mipmap-rendering", TRUE, nullptr);
    GeglNode* const graph = gegl_node_new();
    // Floats beyond the range of bytes.
    const GeglRectangle region{0, 0, 1, 1}, extent{0, 0, 4, 4};
    const float given[4] = {-0.25f, 1.5f, 0.3f, 1};
    float kept[4] = {};
    const Babl* const floats = babl_format("R'G'B'A float");
    GeglBuffer* const buffer = gegl_buffer_new(&extent, floats);
    gegl_buffer_set(buffer, &region, 0, floats, given, GEGL_AUTO_ROWSTRIDE);
    GeglNode* const source =
        gegl_node_new_child(graph, "operation", "gegl:buffer-source", "buffer", buffer, nullptr);
    GeglNode* const odd = gegl_node_new_child(graph, "operation", "bilateral-blur:odd", "reach", 40,
                                              "odd-share", 0.29, nullptr);
    gegl_node_link(source, odd);
    double share = 0;
    gegl_node_get(odd, "odd-share", &share, nullptr);
    EXPECT_EQ(share, 0.29);
    for (const auto& [scale, reach] : {std::pair{1.0, 40}, {0.5, 20}}) {
        gegl_node_blit(odd, scale, &region, floats, kept, GEGL_AUTO_ROWSTRIDE, GEGL_BLIT_DEFAULT);
        EXPECT_THAT(mValues, ElementsAre(reach, 29)) << "only distances are shorter in a preview";
    }
    gegl_node_blit(odd, 1, &region, floats, kept, GEGL_AUTO_ROWSTRIDE, GEGL_BLIT_DEFAULT);
    EXPECT_THAT(kept, testing::ElementsAreArray(given));
    g_object_unref(graph);
    g_object_unref(buffer);
    EXPECT_FALSE(mIsSetUp);
}

} // namespace

const LinkedEffect& linkedEffect() {
    static constexpr LinkedEffect kEffect{entry, kDeclaration};
    return kEffect;
}

} // namespace Tessaloom::BilateralBlur::Bridges
