#include "Host/Effect.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

World opaque(int width, int height) {
    World world(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            world.row(y)[x] = {255, static_cast<std::uint8_t>(3 * x), static_cast<std::uint8_t>(7 * y), 9};
    return world;
}

bool nearlyEqual(const World& a, const World& b) {
    bool equal = a.sameShape(b);
    for (int y = 0; equal && y < a.height; ++y)
        for (int i = 0; equal && i < 4 * a.width; ++i)
            equal = std::abs(a.row<std::uint8_t>(y)[i] - b.row<std::uint8_t>(y)[i]) <= 1;
    return equal;
}

class EffectTest : public testing::Test {
protected:
    const Module mModule{MODULE};
    Effect mEffect{mModule};
};

TEST_F(EffectTest, RendersIntoAnyWorldAndIntoTheInputItself) {
    World output(5, 5);
    for (const auto& [width, height] : {std::pair{40, 30}, {16, 9}, {1, 1}, {0, 0}}) {
        World input = opaque(width, height);
        ASSERT_EQ(mEffect.render(input, output, 0).text(), "");
        EXPECT_TRUE(nearlyEqual(output, input)) << width;
        ASSERT_TRUE(mEffect.render(input, input, 0).ok());
        EXPECT_TRUE(nearlyEqual(output, input)) << width;
    }
}

TEST_F(EffectTest, LeavesTheOutputAsItWasWhereAFrameFails) {
    World input = opaque(20, 10), output = opaque(3, 3), deep(2, 2, PF_PixelFormat_ARGB64);
    for (const Callback callback :
         {Callback::CheckoutLayer, Callback::CheckoutOutput, Callback::CheckoutParam}) {
        mEffect.faults() = {.failing = {{callback, 4321}}};
        EXPECT_EQ(mEffect.render(input, output, 0).code, 4321);
        EXPECT_TRUE(nearlyEqual(output, opaque(3, 3)));
    }
    mEffect.faults() = {};
    EXPECT_FALSE(mEffect.render(deep, output, 0).ok());
    EXPECT_TRUE(mEffect.render(input, output, 0).ok());
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
