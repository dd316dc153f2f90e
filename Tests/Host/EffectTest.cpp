#include "Host/Effect.h"
#include "Tests/Host/Modules/Misdeed.h"
#include "Tests/Host/TestModules.h"

#include <gmock/gmock.h>

#include <cstring>
#include <thread>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

using testing::HasSubstr;

void fill(World& world, std::uint8_t first) {
    for (int y = 0; y < world.height; ++y)
        for (int x = 0; x < world.width; ++x)
            world.row(y)[x] = {static_cast<std::uint8_t>(x), first, static_cast<std::uint8_t>(y), 3};
}

class EffectTest : public testing::Test {
protected:
    /// Whether a frame through the inverter comes out right.
    bool invertsRightly(int width, int height) {
        World input(width, height), output(0, 0);
        fill(input, 9);
        EXPECT_EQ(mEffect.render(input, output, kNone).text(), "");
        if (!output.sameShape(input))
            return false;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const PF_Pixel8 in = input.row(y)[x], out = output.row(y)[x];
                if (out.alpha != in.alpha || out.red != 246 || out.green != 255 - in.green || out.blue != 252)
                    return false;
            }
        return true;
    }

    const ModuleFolder mFolder;
    const Module mModule{mFolder.modulePath()};
    Effect mEffect{mModule};
};

TEST_F(EffectTest, KnowsWhatTheModuleDeclares) {
    EXPECT_STREQ(mEffect.slider().name, "Misdeed");
    EXPECT_EQ(mEffect.slider().u.sd.valid_max, kMisdeeds - 1);
    EXPECT_EQ(mEffect.about(), "Inverter v2");
    EXPECT_TRUE(mEffect.command(PF_Cmd_UNUSED_0).ok());
}

TEST_F(EffectTest, RendersFramesOfAnySizeOnAnyThread) {
    for (const auto& [width, height] : {std::pair{1, 1}, {16, 9}, {33, 2}, {5, 70}, {0, 0}, {16, 16}}) {
        bool right = false;
        std::thread([&, width = width, height = height] { right = invertsRightly(width, height); }).join();
        EXPECT_TRUE(right) << width << " by " << height;
    }
}

TEST_F(EffectTest, TellsEachMisdeedAndLeavesTheCallersPictureAsItWas) {
    const struct {
        Misdeed misdeed;
        PF_Err code;
        const char* words;
    } kCases[] = {
        {kKeepsHandle, 0, "handle 1 wasn't given back"},
        {kKeepsSuite, 0, "suite \"PF Handle Suite\" version 2 wasn't given back"},
        {kKeepsParameter, 0, "parameter in record"},
        {kDisposesTwice, 0, "isn't one of the host's"},
        {kDisposesLocked, 0, "was still locked when it was disposed of"},
        {kUnlocksTwice, 0, "was unlocked more often than locked"},
        {kReleasesTwice, 0, "was given back but not taken"},
        {kWritesBehindRows, 0, "the bytes behind the output's rows were written to"},
        {kFailsWithMessage, 1234, "two lines"},
        {kThrows, 0, "an exception left the entry"},
    };
    World input(8, 8), output(8, 8);
    fill(input, 9);
    for (const auto& [misdeed, code, words] : kCases) {
        fill(output, 77);
        const Result result = mEffect.render(input, output, misdeed);
        EXPECT_FALSE(result.ok()) << words;
        EXPECT_EQ(result.code, code) << words;
        EXPECT_THAT(result.text(), HasSubstr(words));
        EXPECT_EQ(output.row(7)[7].red, 77);
        output = World(8, 8);
        EXPECT_TRUE(invertsRightly(8, 8)) << "after " << words;
    }
}

TEST_F(EffectTest, FaultsReachTheEffectOneAtATime) {
    World input(8, 8), output(8, 8);
    for (const Callback callback : {Callback::CheckoutLayer, Callback::CheckoutLayerPixels,
                                    Callback::CheckoutOutput, Callback::CheckoutParam}) {
        mEffect.faults().failing = {{callback, 4321}};
        EXPECT_EQ(mEffect.render(input, output, kNone).code, 4321);
    }
    mEffect.faults() = {.missingSuite = "PF Handle Suite"};
    EXPECT_EQ(mEffect.render(input, output, kNone).code, PF_Err_BAD_CALLBACK_PARAM);
    mEffect.faults() = {};
    EXPECT_TRUE(invertsRightly(8, 8));
    EXPECT_THROW(Effect(mModule, {.failing = {{Callback::AddParam, 5}}}), ModuleError);
}

TEST_F(EffectTest, TakesAnEightBitWorldAlone) {
    World deep(2, 2, PF_PixelFormat_ARGB64), output(2, 2);
    EXPECT_FALSE(mEffect.render(deep, output, kNone).ok());
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
