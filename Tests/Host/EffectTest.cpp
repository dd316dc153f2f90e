#include "Host/Effect.h"
#include "Tests/Support/FaultyHost.h"

#include <array>
#include <climits>
#include <cstring>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

class EffectTest : public testing::Test {
protected:
    const Module mModule{MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    std::optional<Effect> mEffect{mHost.module()};
};

TEST_F(EffectTest, LeavesTheOutputOfAFailedFrameAlone) {
    World input(20, 10), output(3, 3), deep(20, 10, PF_PixelFormat_ARGB64), endless(2, 2);
    output.row(2)[2].red = 77;
    const auto expectFailure = [&](World& from, const std::string& text) {
        EXPECT_EQ(mEffect->render(from, output, std::array{0}).text(), text);
        EXPECT_EQ(output.width, 3);
        EXPECT_EQ(output.row(2)[2].red, 77);
    };
    for (const char* callback : {"checkout_layer", "checkout_output", "checkout_param"}) {
        mHost.faults.failing = {{callback, -1}};
        expectFailure(output, "the effect failed with code -1");
    }
    mHost.faults = {};
    expectFailure(deep, "the effect doesn't take worlds of 16 bits a channel");
#ifndef __SANITIZE_ADDRESS__ // which ends the process for want of memory
    static_cast<PF_LayerDef&>(endless) = {1 << 28, INT_MAX, 1 << 30};
    expectFailure(endless, "out of memory");
#endif
    for (World* into : {&deep, &output}) { // a world of another depth isn't taken for the next frame
        EXPECT_EQ(mEffect->render(input, *into, std::array{0}).text(), "");
        EXPECT_TRUE(into->sameShape(input));
    }
    EXPECT_EQ(mEffect->render(input, output, std::array{0, 0}).text(), "2 values were given for 1 sliders");
    for (const int value : {-1, 61})
        EXPECT_EQ(mEffect->render(input, output, std::array{value}).text(),
                  "Blur Scale " + std::to_string(value) + " is out of range, 0 to 60");
    for (int i = 0; i < 200; ++i)
        input.row(i / 20)[i % 20] = {255, static_cast<std::uint8_t>(100 + i % 2 * 9), 9, 9};
    EXPECT_EQ(mEffect->render(input, output, {}).text(), "");
    EXPECT_EQ(output.row(5)[10].red, 100) << "the default is 0, which filters nothing";
}

TEST_F(EffectTest, IsOneOfItsModuleAtATime) {
    const auto setUp = [this] { const Effect other(mHost.module()); };
    EXPECT_THAT(setUp, ThrowsMessage<ModuleError>(HasSubstr("the process has this effect already")));
    World world(2, 2);
    EXPECT_TRUE(mEffect->render(world, world, {}).ok()) << "it goes on";
    mEffect.reset();
    mHost.faults.failing = {{"add_param", -1}};
    EXPECT_THAT(setUp, ThrowsMessage<ModuleError>(HasSubstr("the effect failed with code -1")));
    mHost.faults = {};
    mEffect.emplace(mHost.module());
    static_assert(!std::is_constructible_v<Effect, Module>);
    EXPECT_THROW(Module(nullptr, {}), ModuleError);
}

/// What an effect without sliders does to its host.
class Misdeeds : public testing::Test {
protected:
    struct Rendering {
        PF_InData* in;
        PF_OutData* out;
        PF_LayerDef *input, *output;
        PF_Err result = PF_Err_NONE;
    };

    static PF_Err entry(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef**, PF_LayerDef*,
                        void* extra) {
        mLast = cmd;
        out->num_params = mParameters;
        if (cmd == PF_Cmd_SMART_PRE_RENDER) {
            const auto& render = *static_cast<PF_PreRenderExtra*>(extra);
            PF_CheckoutResult result;
            render.cb->checkout_layer(in->effect_ref, 0, 7, &render.input->output_request, 0, 1, 1, &result);
            render.output->result_rect = result.result_rect;
            render.output->result_rect.bottom -= mMissing;
        }
        if (cmd != PF_Cmd_SMART_RENDER)
            return PF_Err_NONE;
        const auto& render = *static_cast<PF_SmartRenderExtra*>(extra);
        Rendering frame{in, out, nullptr, nullptr};
        render.cb->checkout_layer_pixels(in->effect_ref, 7, &frame.input);
        render.cb->checkout_output(in->effect_ref, &frame.output);
        mRender(frame);
        return frame.result;
    }

    static PF_Pixel8* pixels(const Rendering& frame, PF_LayerDef* world) {
        PF_Pixel8* base = nullptr;
        frame.in->utils->get_pixel_data8(world, nullptr, &base);
        return base;
    }

    /// What the host says of a frame.
    std::string complaint(void (*render)(Rendering&)) {
        mRender = render;
        World output(0, 0);
        std::string text = mEffect->render(mInput, output, {}).text();
        EXPECT_EQ(output.width, text.empty() ? 9 : 0);
        return text;
    }

    static inline PF_Cmd mLast = 0;
    static inline int mParameters = 1, mMissing = 0;
    static inline void (*mRender)(Rendering&) = nullptr;
    const Module mModule{entry, {}};
    std::optional<Effect> mEffect{mModule};
    World mInput{9, 300};
};

TEST_F(Misdeeds, AreReportedInOneLine) {
    EXPECT_EQ(complaint([](auto&) {}), "");
    EXPECT_EQ(complaint([](auto& frame) { ++frame.input->width; }), "the record of a world was overwritten");
    EXPECT_EQ(complaint([](auto& frame) { ++frame.output->rowbytes; }),
              "the record of a world was overwritten");
    EXPECT_EQ(complaint([](auto& frame) { ++pixels(frame, frame.output)[9].red; }),
              "the padding of the output's rows was overwritten");
    EXPECT_EQ(complaint([](auto& frame) {
                  PF_ParamDef slider{};
                  slider.param_type = PF_Param_SLIDER;
                  frame.result = frame.in->inter.add_param(frame.in->effect_ref, -1, &slider);
              }),
              "the effect failed with code 516; a parameter was added outside of parameters setup");
    EXPECT_EQ(complaint([](auto& frame) {
                  std::strcpy(frame.out->return_msg, "too\r\nlarge");
                  frame.out->out_flags = PF_OutFlag_DISPLAY_ERROR_MESSAGE;
                  frame.result = 5;
              }),
              "too large");
    EXPECT_EQ(complaint([](auto&) { throw 5; }), "an exception left the entry");
    int noticed = 0;
    for (int i = 0; i < 4; ++i) // a row in four is checked
        noticed += complaint([](auto& frame) { ++pixels(frame, frame.input)[0].red; }) ==
                   "the input was overwritten";
    EXPECT_EQ(noticed, 1);
    mMissing = 1;
    EXPECT_EQ(complaint(nullptr), "the effect promises 0,0 to 9,299 instead of 0,0 to 9,300");
    mMissing = 0;
}

TEST_F(Misdeeds, InTheSetupEndWithASetdown) {
    mEffect.reset();
    mParameters = 2;
    EXPECT_THROW(Effect{mModule}, ModuleError);
    EXPECT_EQ(mLast, PF_Cmd_GLOBAL_SETDOWN);
    mParameters = 1;
    mEffect.emplace(mModule);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
