#include "Tests/Effect/EffectTest.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

// Behind all others, as it defines short names.
#include <GL/glx.h>

namespace Tessaloom::BilateralBlur {
namespace {

// X11 has one handler for the errors of a process; its own ends the process.
bool mHasFailed = false;

int noteError(Display*, XErrorEvent*) {
    mHasFailed = true;
    return 0;
}

// A host on X11 that draws with GLX, in a window of its own. A thread can have a context of GLX or of EGL, not of both.
class GlxHostTest : public testing::Test {
protected:
    GlxHostTest() {
        int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, None};
        XVisualInfo* visual =
            mDisplay ? glXChooseVisual(mDisplay, DefaultScreen(mDisplay), attributes) : nullptr;
        if (!visual)
            throw std::runtime_error("no X11 display with GLX");
        XSetErrorHandler(noteError);
        const ::Window root = RootWindow(mDisplay, visual->screen);
        XSetWindowAttributes with{};
        with.colormap = XCreateColormap(mDisplay, root, visual->visual, AllocNone);
        mWindow = XCreateWindow(mDisplay, root, 0, 0, 16, 16, 0, visual->depth, InputOutput, visual->visual,
                                CWColormap, &with);
        mContext = glXCreateContext(mDisplay, visual, nullptr, True);
        XFree(visual);
    }
    ~GlxHostTest() override {
        makeCurrent(false);
        glXDestroyContext(mDisplay, mContext);
        XCloseDisplay(mDisplay);
    }

    // Makes the host's context current, or none. False where X11 refuses.
    bool makeCurrent(bool isCurrent = true) {
        mHasFailed = false;
        const bool works =
            glXMakeCurrent(mDisplay, isCurrent ? mWindow : ::Window{}, isCurrent ? mContext : nullptr);
        XSync(mDisplay, False);
        return works && !mHasFailed;
    }

    bool isCurrent() const { return glXGetCurrentContext() == mContext; }

    Display* const mDisplay = XOpenDisplay(nullptr);
    ::Window mWindow = 0;
    GLXContext mContext = nullptr;
};

// The host keeps its context in all commands, and can make it current after each: without it, frames are drawn with GL
// where there is a GPU.
TEST_F(GlxHostTest, KeepsItsContextAroundTheEffect) {
    const Host::Module module(MODULE);
    const Sample sample(Images::photograph(12, 8, 5), 7);
    for (const auto& [hardware, isCurrentAtSetup] :
         {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
        EglWatch::hardware = hardware;
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
    EglWatch::hardware = false;
}

} // namespace
} // namespace Tessaloom::BilateralBlur
