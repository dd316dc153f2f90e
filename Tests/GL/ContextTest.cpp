#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Tests/GL/GLTest.h"

#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using ContextTest = GLTest;

TEST_F(ContextTest, PrintsItsIdentity) {
    testing::internal::CaptureStdout();
    const gl::GLuint texture = makeTexture(1, 1);
    const AEOpenGLContext made(&context);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("\nOpenGL Version:  [0-9.]+[^\n]*\nOpenGL Vendor:   [^\n]+\n"
                                      "OpenGL Renderer: [^\n]+\nOpenGL Revision: [0-9]+ .gl.xml.\n\n"));
    EXPECT_FALSE(made.extensions().empty());
    EXPECT_EQ(gl::glIsTexture(texture), gl::GL_TRUE) << "shared";
}

TEST_F(ContextTest, FlushesBeforeASwitchUnlessTheFrameBufferIsIncomplete) {
    const CGLContextObj own = CGLGetCurrentContext();
    const AEOpenGLContext other(nullptr);
    const CGLContextObj target = CGLGetCurrentContext();
    CGLSetCurrentContext(own);
    drawInto(makeTexture(2, 2), 2, 2);
    for (const char* status : {"OK", "Framebuffer incomplete, missing attachment!"}) {
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), status);
        GLCalls calls;
        AEOpenGLContext::makeCurrentFlush(target);
        EXPECT_TRUE(CGLGetCurrentContext() == target);
        EXPECT_EQ(calls.counts["glFlush"], *status == 'O');
        CGLSetCurrentContext(own);
        drawInto(0, 2, 2);
    }
}

TEST_F(ContextTest, SwitchesFromTheHostsContextOnAThreadThatIsNewToTheBindings) {
    AEOpenGLContext free(nullptr);
    context.makeContextCurrent();
    const auto onHostThread = [&](auto switchContext) {
        std::thread([&] {
            CGLContextObj host;
            NSOpenGLContext* made = AEOpenGLContext::createNSContext(nullptr, host);
            CGLSetCurrentContext(host);
            auto* saved = (new SaveRestoreGLContextMac)->init();
            switchContext();
            EXPECT_EQ(gl::glIsEnabled(gl::GL_BLEND), gl::GL_FALSE) << "GL can be called";
            saved->restore();
            EXPECT_TRUE(CGLGetCurrentContext() == host);
            AEOpenGLContext::makeNoneCurrent();
            saved->restore();
            EXPECT_FALSE(CGLGetCurrentContext()) << "restored once only";
            saved->release();
            made->release();
        }).join();
    };
    onHostThread([&] { free.makeContextCurrent(); });
    onHostThread([&] { EXPECT_THROW(context.makeContextCurrent(), int) << "in use on another thread"; });
    onHostThread([] { AEOpenGLContext::makeNoneCurrent(); });
}

TEST_F(ContextTest, LeavesTheContextWhereThereWasNoneToRestore) {
    AEOpenGLContext::makeNoneCurrent();
    auto* saved = (new SaveRestoreGLContextMac)->init();
    context.makeContextCurrent();
    saved->restore();
    saved->release();
    EXPECT_TRUE(CGLGetCurrentContext());
}

} // namespace
} // namespace Tessaloom::BilateralBlur
