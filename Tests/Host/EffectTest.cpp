#include "Host/Effect.h"

#include <gmock/gmock.h>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

class EffectTest : public testing::Test {
protected:
    const Module mModule{MODULE};
    Effect mEffect{mModule};
};

TEST_F(EffectTest, LeavesTheOutputAsItWasWhereAFrameFails) {
    World input(20, 10), output(3, 3), deep(2, 2, PF_PixelFormat_ARGB64);
    output.row(2)[2].red = 77;
    for (const Callback callback :
         {Callback::CheckoutLayer, Callback::CheckoutOutput, Callback::CheckoutParam}) {
        mEffect.faults() = {.failing = {{callback, 4321}}};
        for (World* from : {&input, &output})
            EXPECT_EQ(mEffect.render(*from, output, 0).code, 4321);
        EXPECT_TRUE(output.width == 3 && output.row(2)[2].red == 77);
    }
    mEffect.faults() = {};
    EXPECT_FALSE(mEffect.render(deep, output, 0).ok());
    EXPECT_EQ(mEffect.render(input, output, 0).text(), "");
    EXPECT_TRUE(output.sameShape(input));
    EXPECT_THROW(Effect(mModule, {.failing = {{Callback::AddParam, 5}}}), ModuleError);
}

TEST_F(EffectTest, CountsWhatACommandDoesNotGiveBackAsItsFailure) {
    const Services::Visit visit(mEffect.services());
    const void* suite = nullptr;
    mEffect.inData()->pica_basicP->AcquireSuite("AEGP Item Suite", 10, &suite);
    PF_ParamDef param{};
    mEffect.inData()->inter.checkout_param(mEffect.inData()->effect_ref, 1, 0, 1, 1, &param);
    EXPECT_STREQ(param.name, mEffect.slider().name);
    const Result result = mEffect.command(PF_Cmd_UNUSED_0);
    EXPECT_FALSE(result.ok());
    EXPECT_THAT(result.text(),
                testing::ContainsRegex("parameter.* wasn't given back; suite.* wasn't given back"));
    EXPECT_TRUE(mEffect.command(PF_Cmd_UNUSED_0).ok());
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
