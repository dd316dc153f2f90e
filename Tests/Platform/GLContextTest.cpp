#include "Tests/Support/EglWatch.h"

#include <EGL/egl.h>

namespace Tessaloom::BilateralBlur {
namespace {

using EglWatch::makeContext;

// Looks again for a display that it didn't find at first.
TEST(GLContext, ReadsWhatIsCurrentOnEachThread) {
    EglWatch::failing = EglWatch::Failing::Creation;
    EXPECT_EQ(makeContext(), nullptr);
    EglWatch::failing = EglWatch::Failing::Nothing;
    NSOpenGLContext *first = makeContext(), *second = makeContext();
    ASSERT_NE(first, nullptr);
    EXPECT_FALSE(CGLGetCurrentContext()) << "a creation binds nothing";
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first);
    CGLSetCurrentContext(second->CGLContextObj());
    EXPECT_EQ(CGLGetCurrentContext().serial, second->CGLContextObj().serial);
    EXPECT_EQ(NSOpenGLContext::currentContext(), nullptr) << "made current on the low level";
    std::thread([&] {
        EXPECT_EQ(CGLSetCurrentContext(second->CGLContextObj()), CGLError::Refused)
            << "current on the other thread";
        first->makeCurrentContext();
    }).join();
    first->makeCurrentContext();
    EXPECT_EQ(NSOpenGLContext::currentContext(), first) << "the other thread has ended";
    first->release();
    second->release();
    EXPECT_EQ(EglWatch::liveContexts, 0) << "also the one that is current";
}

// A context that the rest of the process made, of another client API, with a surface.
TEST(GLContext, RestoresAContextOfTheHost) {
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
    own->makeCurrentContext();
    makeContext()->release();
    EXPECT_EQ(eglQueryAPI(), EGLenum{EGL_OPENGL_ES_API});
    EXPECT_EQ(CGLSetCurrentContext(saved), CGLError::None);
    EXPECT_EQ(eglGetCurrentContext(), context);
    EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), surface);
    CGLSetCurrentContext({});
    eglDestroyContext(display, context);
    eglDestroySurface(display, surface);
    eglBindAPI(EGL_OPENGL_API);
    own->release();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
