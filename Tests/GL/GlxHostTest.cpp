#include "Tests/Support/GlxHost.h"
#include "Host/Effect.h"
#include "Tests/Effect/EffectTest.h"
#include "Tests/Support/EglWatch.h"

#include <gtest/gtest.h>

#include <array>

namespace Tessaloom::BilateralBlur {
namespace {

using GlxHostTest = testing::TestWithParam<bool>;

// A thread can have a context of GLX or of EGL, not of both. The host keeps its own in all commands, and can make
// it current after each: without it, frames are drawn with GL where there is a GPU.
TEST_P(GlxHostTest, KeepsItsContextAroundTheEffect) {
    EglWatch::hardware = GetParam();
    GlxHost host;
    const Host::Module module(MODULE);
    const Sample sample(Pictures::photograph(12, 8, 5), 7);
    for (const bool isCurrentAtSetup : {false, true}) {
        isCurrentAtSetup ? host.makeCurrent() : host.makeNoneCurrent();
        std::optional<Host::Effect> effect(std::in_place, module);
        EXPECT_EQ(host.isCurrent(), isCurrentAtSetup);
        EXPECT_TRUE(host.makeCurrent()) << "after a setup";
        for (const bool isCurrent : {true, false, true}) {
            isCurrent ? host.makeCurrent() : host.makeNoneCurrent();
            Host::World input = sample.world(), output(0, 0);
            EXPECT_EQ(effect->render(input, output, std::array{sample.scale}).text(), "");
            EXPECT_EQ(sample.difference(output), "");
            EXPECT_EQ(host.isCurrent(), isCurrent);
            EXPECT_TRUE(host.makeCurrent()) << "after a frame";
        }
        effect.reset();
        EXPECT_TRUE(host.makeCurrent()) << "after a setdown";
    }
    EglWatch::hardware = false;
}

INSTANTIATE_TEST_SUITE_P(Hardware, GlxHostTest, testing::Bool());

} // namespace
} // namespace Tessaloom::BilateralBlur
