#include "Host/Effect.h"
#include "Tests/Host/PageFaults.h"
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
    World input(20, 10), output(3, 3), deep(2, 2, PF_PixelFormat_ARGB64);
    output.row(2)[2].red = 77;
    for (const char* callback : {"checkout_layer", "checkout_output", "checkout_param"}) {
        mHost.faults.failing = {{callback, 4321}};
        for (World* from : {&input, &output})
            EXPECT_EQ(mEffect.render(*from, output, std::array{0}).code, 4321);
        EXPECT_EQ(output.width, 3);
        EXPECT_EQ(output.row(2)[2].red, 77);
    }
    mHost.faults = {};
    EXPECT_FALSE(mEffect.render(deep, output, std::array{0}).ok());
    EXPECT_EQ(mEffect.render(input, output, std::array{0}).text(), "");
    EXPECT_TRUE(output.sameShape(input));
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

class TwoSliders : public testing::Test {
protected:
    const Module mModule{TWO_SLIDERS};
    Effect mEffect{mModule};
};

TEST_F(TwoSliders, GetAValueEach) {
    World world(3, 2);
    EXPECT_EQ(mEffect.render(world, world, std::array{11, 22}, {.current = 33}).text(), "");
    EXPECT_EQ(world.row(1)[2].red, 11);
    EXPECT_EQ(world.row(1)[2].green, 22);
    EXPECT_EQ(world.row(1)[2].blue, 33);
    EXPECT_EQ(mEffect.render(world, world, std::array{11}).text(), "1 values were given for 2 sliders");
}

TEST_F(TwoSliders, TakeNoFreshPagesForASecondFrame) {
    World input(1000, 1000), output(1000, 1000);
    const auto render = [&] { EXPECT_TRUE(mEffect.render(input, output, std::array{1, 2}).ok()); };
    render();
    EXPECT_LT(pageFaults(render), 100);
}

TEST_F(TwoSliders, ReportMemoryThatRunsOut) {
    World world(2, 2), endless(2, 2);
    static_cast<PF_LayerDef&>(endless) = {1 << 28, INT_MAX, 1 << 30};
    EXPECT_EQ(mEffect.render(endless, world, std::array{1, 2}).text(), "out of memory");
    EXPECT_EQ(mEffect.render(world, world, std::array{1, 2}).text(), "");
}

TEST_F(TwoSliders, RenderAfterAnOutputOfAnotherDepth) {
    World input(3, 2), deep(3, 2, PF_PixelFormat_ARGB64), output(3, 2);
    EXPECT_EQ(mEffect.render(input, deep, std::array{1, 2}).text(), "");
    EXPECT_EQ(mEffect.render(input, output, std::array{1, 2}).text(), "");
    EXPECT_EQ(output.row(1)[2].red, 1);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
