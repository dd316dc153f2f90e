#include "Platform/GLContext.h"

#include "Tests/Platform/EglWatch.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

NSOpenGLContext* makeContext(const NSOpenGLContext* share = nullptr) {
    constexpr std::uint32_t kCore[] = {NSOpenGLPFAColorSize, 24, NSOpenGLPFAOpenGLProfile,
                                       NSOpenGLProfileVersion3_2Core, 0};
    NSOpenGLPixelFormat* format = NSOpenGLPixelFormat::initWithAttributes(kCore);
    NSOpenGLContext* context = NSOpenGLContext::initWithFormat(format, share);
    format->release();
    return context;
}

void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

// Leaves nothing current and no context behind.
class GLContextTest : public testing::Test {
protected:
    void TearDown() override {
        CGLSetCurrentContext({});
        EXPECT_EQ(EglWatch::liveContexts(), 0);
    }
};

TEST_F(GLContextTest, KnowsWhatIsCurrentOnEachThread) {
    EXPECT_FALSE(CGLGetCurrentContext());
    EXPECT_TRUE(CGLSetCurrentContext({}));
    NSOpenGLContext* first = makeContext();
    NSOpenGLContext* second = makeContext();
    EXPECT_FALSE(CGLGetCurrentContext()) << "a creation binds nothing";
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    EXPECT_TRUE(CGLSetCurrentContext(second->CGLContextObj()));
    EXPECT_EQ(CGLGetCurrentContext().serial, second->CGLContextObj().serial);
    EXPECT_NE(first->CGLContextObj().serial, second->CGLContextObj().serial);
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr) << "made current on the low level";
    onThread([&] {
        EXPECT_FALSE(CGLSetCurrentContext(second->CGLContextObj())) << "current on the other thread";
        EXPECT_FALSE(CGLGetCurrentContext());
        first->makeCurrentContext();
    });
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first) << "the thread has ended and let go";
    first->release();
    second->release();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
}

TEST_F(GLContextTest, EndsWithItsLastReferenceAndItsThreads) {
    NSOpenGLContext* here = makeContext();
    here->retain();
    here->makeCurrentContext();
    here->release();
    EXPECT_EQ(NSOpenGLContext::currentContext(), here);
    here->release();
    EXPECT_EQ(EglWatch::liveContexts(), 0) << "current on the releasing thread";

    here = makeContext();
    here->makeCurrentContext();
    onThread([&] { here->release(); });
    EXPECT_FALSE(CGLGetCurrentContext()) << "released on another thread";
    EXPECT_EQ(EglWatch::liveContexts(), 0);

    NSOpenGLContext* ended = makeContext();
    onThread([&] {
        ended->makeCurrentContext();
        onThread([&] { ended->release(); });
    });
    EXPECT_EQ(EglWatch::liveContexts(), 0) << "its thread has ended";
}

// A context of somebody else in the process, of either client API, with a surface of its own.
TEST_F(GLContextTest, LeavesTheBindingsOfOthersAsTheyWere) {
    NSOpenGLContext* own = makeContext();
    const EGLDisplay display = own->CGLContextObj().display;
    for (const EGLenum api : {EGL_OPENGL_API, EGL_OPENGL_ES_API}) {
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE,
                                 api == EGL_OPENGL_API ? EGL_OPENGL_BIT : EGL_OPENGL_ES2_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        eglBindAPI(api);
        eglChooseConfig(display, wanted, &config, 1, &count);
        const EGLSurface surface = eglCreatePbufferSurface(display, config, nullptr);
        const EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
        ASSERT_NE(surface, EGL_NO_SURFACE);
        ASSERT_TRUE(eglMakeCurrent(display, surface, surface, context));

        const CGLContextObj saved = CGLGetCurrentContext();
        EXPECT_EQ(saved.serial, 0u);
        EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr);
        own->makeCurrentContext();
        makeContext()->release();
        EXPECT_EQ(eglQueryAPI(), api);
        EXPECT_TRUE(CGLSetCurrentContext(saved));
        EXPECT_TRUE(eglGetCurrentContext() == context && eglGetCurrentSurface(EGL_DRAW) == surface);
        CGLSetCurrentContext({});
        eglDestroyContext(display, context);
        eglDestroySurface(display, surface);
    }
    eglBindAPI(EGL_OPENGL_API);
    own->release();
}

TEST_F(GLContextTest, KnowsTheProfileAndTheRenderer) {
    constexpr std::uint32_t kLegacy[] = {NSOpenGLPFAColorSize, NSOpenGLPFAOpenGLProfile,
                                         NSOpenGLPFAOpenGLProfile, 4096, 0};
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
