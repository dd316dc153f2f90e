#include "Tests/Effect/EffectTest.h"

// Behind all others, as it defines short names.
#include <GL/glx.h>

namespace Tessaloom::BilateralBlur {
namespace {

// A host that draws with GLX keeps its context in all commands, and can make it current after each: without it, frames
// are drawn with GL where there is a GPU. A thread can have a context of GLX or of EGL, not of both, and X11 ends the
// process where it is refused.
TEST(GlxHost, KeepsItsContextAroundTheEffect) {
    constexpr int kDrawsThere[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, None};
    constexpr int kSize[] = {GLX_PBUFFER_WIDTH, 16, GLX_PBUFFER_HEIGHT, 16, None};
    Display* const display = XOpenDisplay(nullptr);
    ASSERT_NE(display, nullptr);
    int count = 0;
    GLXFBConfig* const configs = glXChooseFBConfig(display, DefaultScreen(display), kDrawsThere, &count);
    const GLXPbuffer surface = glXCreatePbuffer(display, configs[0], kSize);
    const GLXContext context = glXCreateNewContext(display, configs[0], GLX_RGBA_TYPE, nullptr, True);
    XFree(configs);
    const auto makeCurrent = [&](bool isCurrent = true) {
        return glXMakeCurrent(display, isCurrent ? surface : GLXPbuffer{}, isCurrent ? context : nullptr);
    };
    const auto isCurrent = [&] { return glXGetCurrentContext() == context; };
    const Host::Module module(MODULE);
    const Sample sample(Images::photograph(12, 8, 5), 7);
    for (const auto& [renderer, isCurrentAtSetup] :
         {std::pair<const char*, bool>(nullptr, false), {nullptr, true}, {"A GPU", false}, {"A GPU", true}}) {
        EglWatch::renderer = renderer;
        makeCurrent(isCurrentAtSetup);
        std::optional<Host::Effect> effect(std::in_place, module);
        EXPECT_EQ(isCurrent(), isCurrentAtSetup);
        EXPECT_TRUE(makeCurrent()) << "after a setup";
        for (const bool isCurrentAtFrame : {true, false, true}) {
            makeCurrent(isCurrentAtFrame);
            Host::World input = sample.world(), output(0, 0);
            EXPECT_EQ(effect->render(input, output, std::array{sample.scale}).text(), "");
            EXPECT_EQ(sample.difference(output), "");
            EXPECT_EQ(isCurrent(), isCurrentAtFrame);
            EXPECT_TRUE(makeCurrent()) << "after a frame";
        }
        effect.reset();
        EXPECT_TRUE(makeCurrent()) << "after a setdown";
    }
    makeCurrent(false);
    glXDestroyContext(display, context);
    glXDestroyPbuffer(display, surface);
    XCloseDisplay(display);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
