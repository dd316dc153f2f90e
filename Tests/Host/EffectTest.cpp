#include "Host/Effect.h"
#include "Tests/Support/FaultyHost.h"

#include <gmock/gmock.h>

#include <array>
#include <climits>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

class EffectTest : public testing::Test {
protected:
    const Module mModule{MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    Effect mEffect{mHost.module()};
};

TEST_F(EffectTest, LeavesTheOutputOfAFailedFrameAlone) {
    World input(20, 10), output(3, 3), deep(2, 2, PF_PixelFormat_ARGB64), endless(2, 2);
    output.row(2)[2].red = 77;
    const auto expectFailure = [&](World& from, const std::string& text) {
        EXPECT_EQ(mEffect.render(from, output, std::array{0}).text(), text);
        EXPECT_EQ(output.width, 3);
        EXPECT_EQ(output.row(2)[2].red, 77);
    };
    for (const char* callback : {"checkout_layer", "checkout_output", "checkout_param"}) {
        mHost.faults.failing = {{callback, 4321}};
        for (World* from : {&input, &output})
            expectFailure(*from, "the effect failed with code 4321");
    }
    mHost.faults = {};
    expectFailure(deep, "the effect takes worlds of 8 bits a channel");
#ifndef __SANITIZE_ADDRESS__ // which ends the process for want of memory
    static_cast<PF_LayerDef&>(endless) = {1 << 28, INT_MAX, 1 << 30};
    expectFailure(endless, "out of memory");
#endif
    for (World* into : {&deep, &output}) { // a world of another depth isn't taken for the next frame
        EXPECT_EQ(mEffect.render(input, *into, std::array{0}).text(), "");
        EXPECT_TRUE(into->sameShape(input));
    }
    mHost.faults.failing = {{"add_param", 5}};
    EXPECT_THROW(Effect{mHost.module()}, ModuleError);
}

TEST_F(EffectTest, FailsWhenASuiteIsNotReleased) {
    mHost.faults.failing = {{"ReleaseSuite", 7}};
    World world(2, 2);
    const Result result = mEffect.render(world, world, std::array{0});
    EXPECT_FALSE(result.ok());
    EXPECT_THAT(result.text(),
                testing::ContainsRegex("Item Suite\".* wasn't released; .*Layer Suite\".* wasn't released"));
    mHost.faults = {};
    EXPECT_TRUE(mEffect.render(world, world, std::array{0}).ok());
}

std::vector<std::int32_t> mValues; // that the effect was given

// An effect of two sliders that draws nothing.
PF_Err twoSliders(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef*[], PF_LayerDef*, void*) {
    PF_ParamDef slider{};
    slider.param_type = PF_Param_SLIDER;
    for (const int index : {1, 2})
        if (cmd == PF_Cmd_PARAMS_SETUP) {
            in->inter.add_param(in->effect_ref, -1, &slider);
        } else if (cmd == PF_Cmd_SMART_RENDER) {
            in->inter.checkout_param(in->effect_ref, index, 0, 1, 1, &slider);
            mValues.push_back(slider.u.sd.value);
            in->inter.checkin_param(in->effect_ref, &slider);
        }
    out->num_params = 3;
    return 0;
}

TEST(TwoSliders, GetAValueEach) {
    Resource resource;
    resource.sliders.resize(2);
    const Module module(twoSliders, resource);
    Effect effect(module);
    World world(3, 2);
    world.row(1)[2].red = 77;
    EXPECT_EQ(effect.render(world, world, std::array{11, 22}).text(), "");
    EXPECT_THAT(mValues, testing::ElementsAre(11, 22));
    EXPECT_EQ(world.row(1)[2].red, 0) << "the effect promised no pixels";
    EXPECT_EQ(effect.render(world, world, std::array{11}).text(), "1 values were given for 2 sliders");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
