#include "Tests/Support/EglWatch.h"

#include <EGL/egl.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using EglWatch::makeContext;

// At the end nothing is current and no context exists.
class GLContextTest : public testing::Test {
protected:
    ~GLContextTest() override {
        CGLSetCurrentContext({});
        EXPECT_EQ(EglWatch::liveContexts, 0);
    }
};

TEST_F(GLContextTest, ReadsWhatIsCurrentOnEachThread) {
    EXPECT_TRUE(CGLSetCurrentContext({}));
    NSOpenGLContext *first = makeContext(), *second = makeContext();
    EXPECT_FALSE(CGLGetCurrentContext()) << "a creation binds nothing";
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    EXPECT_TRUE(CGLSetCurrentContext(second->CGLContextObj()));
    EXPECT_EQ(CGLGetCurrentContext().serial, second->CGLContextObj().serial);
    EXPECT_NE(first->CGLContextObj().serial, second->CGLContextObj().serial);
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr) << "made current on the low level";
    std::thread([&] {
        EXPECT_FALSE(CGLSetCurrentContext(second->CGLContextObj())) << "current on the other thread";
        EXPECT_FALSE(CGLGetCurrentContext());
        first->makeCurrentContext();
    }).join();
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first) << "the other thread has ended";
    first->release();
    second->release();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
}

TEST_F(GLContextTest, IsDestroyedWithItsLastReference) {
    NSOpenGLContext *here = makeContext(), *elsewhere = makeContext(), *ended = makeContext();
    here->retain();
    here->makeCurrentContext();
    here->release();
    EXPECT_EQ(NSOpenGLContext::currentContext(), here);
    here->release();
    EXPECT_EQ(EglWatch::liveContexts, 2) << "current on the releasing thread";
    elsewhere->makeCurrentContext();
    std::thread([&] {
        elsewhere->release();
        ended->makeCurrentContext();
        std::thread([&] { ended->release(); }).join();
    }).join();
    EXPECT_FALSE(CGLGetCurrentContext()) << "released on another thread";
    EXPECT_EQ(EglWatch::liveContexts, 0) << "the thread that had it current has ended";
}

// A context that the rest of the process made, of another client API, with a surface.
TEST_F(GLContextTest, RestoresAContextOfTheHost) {
    NSOpenGLContext* own = makeContext();
    const EGLDisplay display = own->CGLContextObj().display;
    constexpr EGLint kWanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
                                  EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    eglBindAPI(EGL_OPENGL_ES_API);
    eglChooseConfig(display, kWanted, &config, 1, &count);
    const EGLSurface surface = eglCreatePbufferSurface(display, config, nullptr);
    const EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
    ASSERT_TRUE(eglMakeCurrent(display, surface, surface, context));
    const CGLContextObj saved = CGLGetCurrentContext();
    EXPECT_EQ(saved.serial, 0u);
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr);
    own->makeCurrentContext();
    makeContext()->release();
    EXPECT_EQ(eglQueryAPI(), EGLenum{EGL_OPENGL_ES_API});
    EXPECT_TRUE(CGLSetCurrentContext(saved));
    EXPECT_EQ(eglGetCurrentContext(), context);
    EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), surface);
    CGLSetCurrentContext({});
    eglDestroyContext(display, context);
    eglDestroySurface(display, surface);
    eglBindAPI(EGL_OPENGL_API);
    own->release();
}

TEST_F(GLContextTest, RefusesOtherProfilesAndDetectsSoftware) {
    // The profile's own number as the argument of another attribute doesn't count.
    constexpr std::uint32_t kLegacy[] = {NSOpenGLPFAOpenGLProfile,
                                         4096,
                                         NSOpenGLPFAColorSize,
                                         NSOpenGLPFAOpenGLProfile,
                                         NSOpenGLProfileVersion3_2Core,
                                         24,
                                         0};
    EXPECT_EQ(NSOpenGLPixelFormat::initWithAttributes(kLegacy), nullptr);
    EXPECT_EQ(NSOpenGLContext::initWithFormat(nullptr, nullptr), nullptr);
    NSOpenGLContext* context = makeContext();
    context->makeCurrentContext();
    const auto getString = reinterpret_cast<const char* (*)(unsigned)>(eglGetProcAddress("glGetString"));
    const bool software = std::string(getString(0x1F01)).find("pipe") != std::string::npos; // GL_RENDERER
    EXPECT_EQ(CGLIsSoftwareRenderer(context->CGLContextObj()), software);
    context->release();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
