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
    World input(20, 10), output(3, 3), deep(20, 10, PF_PixelFormat_ARGB64), endless(2, 2);
    output.row(2)[2].red = 77;
    const auto expectFailure = [&](World& from, const std::string& text) {
        EXPECT_EQ(mEffect.render(from, output, std::array{0}).text(), text);
        EXPECT_EQ(output.width, 3);
        EXPECT_EQ(output.row(2)[2].red, 77);
    };
    for (const char* callback : {"checkout_layer", "checkout_output", "checkout_param"}) {
        mHost.faults.failing = {{callback, 4321}};
        expectFailure(output, "the effect failed with code 4321");
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
    EXPECT_EQ(mEffect.render(input, output, {}).text(), "0 values were given for 1 sliders");
}

TEST_F(EffectTest, FailsWhenASuiteIsNotReleased) {
    mHost.faults.failing = {{"ReleaseSuite", 7}};
    World world(2, 2);
    const Result result = mEffect.render(world, world, std::array{0});
    EXPECT_FALSE(result.ok());
    EXPECT_THAT(result.text(),
                testing::ContainsRegex("Item Suite\".* wasn't released; .*Layer Suite\".* wasn't released"));
}

TEST(Effect, IsSetDownWhereItIsRefused) {
    static PF_Cmd kLast = 0;
    const auto miscount = [](PF_Cmd cmd, PF_InData*, PF_OutData* out, PF_ParamDef**, PF_LayerDef*, void*) {
        kLast = cmd;
        out->num_params = 2;
        return PF_Err{0};
    };
    const Module module(miscount, {});
    EXPECT_THROW(Effect{module}, ModuleError);
    EXPECT_EQ(kLast, PF_Cmd_GLOBAL_SETDOWN);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
