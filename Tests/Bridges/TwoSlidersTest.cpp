#include "Bridges/Sliders.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

#include <gegl-plugin.h>
#include <gmock/gmock.h>

#include <cmath>
#include <cstring>

extern "C" {
#include <frei0r.h>
gboolean gegl_module_register(GTypeModule* module);
}

// The bridges' own sources with an effect of two sliders: each of the two has to get its own value.

using namespace Tessaloom::BilateralBlur;

namespace {

using testing::ElementsAre;

std::vector<std::int32_t> mValues; // that the effect got for its last frame
bool mIsSetUp = false;

} // namespace

// It draws nothing.
PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef*[], PF_LayerDef*, void* extra) {
    out->my_version = kDeclaration.packedVersion;
    out->out_flags2 = kDeclaration.outFlags2;
    out->num_params = 3;
    if (cmd == PF_Cmd_GLOBAL_SETUP || cmd == PF_Cmd_GLOBAL_SETDOWN)
        mIsSetUp = cmd == PF_Cmd_GLOBAL_SETUP;
    PF_ParamDef slider{};
    if (cmd == PF_Cmd_PARAMS_SETUP)
        for (const Bridges::Slider& listed : Bridges::kSliders) {
            std::strcpy(slider.name, listed.name);
            slider.param_type = PF_Param_SLIDER;
            slider.u.sd.valid_min = listed.minimum;
            slider.u.sd.valid_max = listed.maximum;
            slider.u.sd.dephault = listed.defaultValue;
            in->inter.add_param(in->effect_ref, -1, &slider);
        }
    if (cmd == PF_Cmd_SMART_PRE_RENDER) {
        const auto& render = *static_cast<PF_PreRenderExtra*>(extra);
        render.output->result_rect = render.input->output_request.rect;
    }
    if (cmd == PF_Cmd_SMART_RENDER) {
        mValues.clear();
        for (const int index : {1, 2}) {
            in->inter.checkout_param(in->effect_ref, index, 0, 1, 1, &slider);
            mValues.push_back(slider.u.sd.value);
            in->inter.checkin_param(in->effect_ref, &slider);
        }
    }
    return PF_Err_NONE;
}

TEST(TwoSliders, GetAValueEachFromFrei0r) {
    const f0r_instance_t instance = f0r_construct(1, 1);
    std::uint32_t pixel = 77;
    f0r_update(instance, 0, &pixel, &pixel);
    EXPECT_EQ(pixel, 0u) << "the effect drew nothing";
    EXPECT_THAT(mValues, ElementsAre(3, 7));
    double reach = 0.2, angle = 0.75;
    f0r_set_param_value(instance, &reach, 0);
    f0r_set_param_value(instance, &angle, 1);
    f0r_update(instance, 0, &pixel, &pixel);
    EXPECT_THAT(mValues, ElementsAre(12, 100));
    EXPECT_TRUE(mIsSetUp);
    f0r_destruct(instance);
    EXPECT_FALSE(mIsSetUp);
    // Some hosts go on without an instance.
    f0r_set_param_value(nullptr, &angle, 1);
    f0r_get_param_value(nullptr, &angle, 1);
    f0r_update(nullptr, 0, &pixel, &pixel);
    f0r_destruct(nullptr);
    f0r_param_info_t info{};
    f0r_get_param_info(&info, 1);
    f0r_get_param_info(&info, 2);
    EXPECT_STREQ(info.name, "Odd Angle");
    EXPECT_STREQ(info.explanation, "0 to 1 means -50 to 150");
}

TEST(TwoSliders, StayWithinTheirRangesInFrei0r) {
    testing::internal::CaptureStderr();
    const f0r_instance_t instance = f0r_construct(1, 1);
    for (auto [given, kept] : {std::pair{0.25, 0.25}, {20, 1}, {std::nan(""), 1}, {-HUGE_VAL, 0}}) {
        f0r_set_param_value(instance, &given, 1);
        f0r_get_param_value(instance, &given, 1);
        EXPECT_EQ(given, kept);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Bilateral Blur: Odd Angle 20 is out of range, 0 to 1 (which means -50 to 150); using 1\n");
    f0r_destruct(instance);
}

TEST(TwoSliders, GetAValueEachFromGegl) {
    setenv("GEGL_PATH", GEGL_OPERATIONS, 1);
    gegl_init(nullptr, nullptr);
    gegl_module_register(nullptr);
    g_object_set(gegl_config(), "mipmap-rendering", TRUE, nullptr);
    GeglNode* const graph = gegl_node_new();
    GeglNode* const source = gegl_node_new_child(graph, "operation", "gegl:checkerboard", nullptr);
    GeglNode* const blur = gegl_node_new_child(graph, "operation", "bilateral-blur:bilateral-blur", "reach",
                                               40, "odd-angle", 100, nullptr);
    gegl_node_link(source, blur);
    int angle = 0;
    gegl_node_get(blur, "odd-angle", &angle, nullptr);
    EXPECT_EQ(angle, 100);
    std::uint32_t pixel = 0;
    const GeglRectangle region{0, 0, 1, 1};
    for (const auto& [scale, reach] : {std::pair{1.0, 40}, {0.5, 20}}) {
        gegl_node_blit(blur, scale, &region, babl_format("R'G'B'A u8"), &pixel, 4, GEGL_BLIT_DEFAULT);
        EXPECT_THAT(mValues, ElementsAre(reach, 100)) << "only distances are shorter in a preview";
    }
    EXPECT_TRUE(mIsSetUp);
    g_object_unref(graph);
    EXPECT_FALSE(mIsSetUp);
}
