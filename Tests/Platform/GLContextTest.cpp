#include "Platform/GLContext.h"

#include "Tests/Platform/EglWatch.h"

#include <GL/gl.h>
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

// A context of somebody else in the process, of any client API, with a surface of its own.
class ForeignContext {
public:
    explicit ForeignContext(EGLDisplay display, EGLenum api = EGL_OPENGL_API) : mDisplay(display) {
        const EGLenum before = eglQueryAPI();
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE,
                                 api == EGL_OPENGL_API ? EGL_OPENGL_BIT : EGL_OPENGL_ES2_BIT, EGL_NONE};
        const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION, 2, EGL_NONE};
        const EGLint size[] = {EGL_WIDTH, 8, EGL_HEIGHT, 8, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        eglBindAPI(api);
        eglChooseConfig(display, wanted, &config, 1, &count);
        surface = eglCreatePbufferSurface(display, config, size);
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, version);
        eglBindAPI(before);
    }
    ~ForeignContext() {
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(mDisplay, context);
        eglDestroySurface(mDisplay, surface);
    }
    void makeCurrent() { ASSERT_TRUE(eglMakeCurrent(mDisplay, surface, surface, context)); }
    bool isCurrent() const {
        return eglGetCurrentContext() == context && eglGetCurrentSurface(EGL_DRAW) == surface;
    }

    EGLContext context = EGL_NO_CONTEXT;
    EGLSurface surface = EGL_NO_SURFACE;

private:
    EGLDisplay mDisplay;
};

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

TEST_F(GLContextTest, KnowsWhatIsCurrent) {
    EXPECT_FALSE(CGLGetCurrentContext());
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr);
    EXPECT_TRUE(CGLSetCurrentContext({}));

    NSOpenGLContext* first = makeContext();
    NSOpenGLContext* second = makeContext();
    EXPECT_FALSE(CGLGetCurrentContext()) << "a creation binds nothing";
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    EXPECT_EQ(CGLGetCurrentContext().serial, first->CGLContextObj().serial);
    EXPECT_TRUE(CGLSetCurrentContext(second->CGLContextObj()));
    EXPECT_TRUE(CGLGetCurrentContext() == second->CGLContextObj());
    EXPECT_EQ(CGLGetCurrentContext().serial, second->CGLContextObj().serial);
    EXPECT_NE(first->CGLContextObj().serial, second->CGLContextObj().serial);
    onThread([&] {
        EXPECT_FALSE(CGLGetCurrentContext());
        EXPECT_FALSE(CGLSetCurrentContext(second->CGLContextObj())) << "current on the other thread";
        EXPECT_FALSE(CGLGetCurrentContext());
        first->makeCurrentContext();
        EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    });
    // That thread has ended and let go.
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    first->release();
    second->release();
    EXPECT_FALSE(CGLGetCurrentContext());
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

    NSOpenGLContext* low = makeContext();
    CGLSetCurrentContext(low->CGLContextObj());
    low->release();
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT) << "current through its handle";

    NSOpenGLContext* elsewhere = makeContext();
    elsewhere->makeCurrentContext();
    onThread([&] { elsewhere->release(); });
    EXPECT_FALSE(CGLGetCurrentContext()) << "released on another thread";
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr);
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    EXPECT_EQ(EglWatch::liveContexts(), 0);

    NSOpenGLContext* ended = makeContext();
    onThread([&] {
        ended->makeCurrentContext();
        onThread([&] { ended->release(); });
    });
    EXPECT_EQ(EglWatch::liveContexts(), 0) << "its thread has ended";
}

TEST_F(GLContextTest, LeavesTheBindingsOfOthersAsTheyWere) {
    NSOpenGLContext* own = makeContext();
    for (const EGLenum api : {EGL_OPENGL_API, EGL_OPENGL_ES_API}) {
        ForeignContext foreign(own->CGLContextObj().display, api);
        ASSERT_NE(foreign.context, EGL_NO_CONTEXT);
        eglBindAPI(api);
        foreign.makeCurrent();
        const CGLContextObj saved = CGLGetCurrentContext();
        EXPECT_TRUE(saved);
        EXPECT_EQ(saved.serial, 0u);
        EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr);
        {
            const NSAutoreleasePool pool;
            NSOpenGLContext* inside = makeContext(own);
            ASSERT_NE(inside, nullptr);
            inside->makeCurrentContext();
            EXPECT_EQ(NSOpenGLContext::currentContext(), inside);
            inside->release();
        }
        EXPECT_EQ(eglQueryAPI(), api);
        EXPECT_FALSE(CGLGetCurrentContext());
        EXPECT_TRUE(CGLSetCurrentContext(saved));
        EXPECT_TRUE(foreign.isCurrent());
        EXPECT_EQ(eglQueryAPI(), api);
        eglBindAPI(EGL_OPENGL_API);
    }
    own->release();
}

TEST_F(GLContextTest, HasNothingToGiveForAnotherProfileOrWithoutASystemThatDoes) {
    constexpr std::uint32_t kLegacy[] = {NSOpenGLPFAColorSize, NSOpenGLPFAOpenGLProfile,
                                         NSOpenGLPFAOpenGLProfile, 4096, 0};
    EXPECT_EQ(NSOpenGLPixelFormat::initWithAttributes(kLegacy), nullptr);
    EXPECT_EQ(NSOpenGLContext::initWithFormat(nullptr, nullptr), nullptr);
    EglWatch::failCreations(true);
    EXPECT_EQ(makeContext(), nullptr);
    EglWatch::failCreations(false);
    NSOpenGLContext* context = makeContext();
    ASSERT_NE(context, nullptr) << "a failure isn't remembered";
    context->release();
}

TEST_F(GLContextTest, TellsASoftwareRenderer) {
    EXPECT_FALSE(CGLIsSoftwareRenderer({}));
    NSOpenGLContext* context = makeContext();
    context->makeCurrentContext();
    const auto getString = reinterpret_cast<const GLubyte* (*)(GLenum)>(eglGetProcAddress("glGetString"));
    const std::string renderer = reinterpret_cast<const char*>(getString(GL_RENDERER));
    const bool software =
        renderer.find("llvmpipe") != renderer.npos || renderer.find("softpipe") != renderer.npos;
    EXPECT_EQ(CGLIsSoftwareRenderer(context->CGLContextObj()), software) << renderer;
    context->release();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
