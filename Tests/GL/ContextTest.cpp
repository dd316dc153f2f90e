#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Tests/GL/GLTest.h"

#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using ContextTest = GLTest;

TEST_F(ContextTest, PrintsItsIdentityAndShares) {
    const gl::GLuint texture = makeTexture(1, 1);
    testing::internal::CaptureStdout();
    const AEOpenGLContext made(&context);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("\nOpenGL Version:  "));
    EXPECT_EQ(gl::glIsTexture(texture), gl::GL_TRUE);
}

TEST_F(ContextTest, FlushesBeforeASwitchUnlessTheFrameBufferIsIncomplete) {
    for (const bool complete : {true, false}) {
        context.makeContextCurrent();
        drawInto(complete ? makeTexture(2, 2) : 0, 2, 2);
        GLCalls calls;
        AEOpenGLContext::makeNoneCurrent();
        EXPECT_EQ(calls.counts["glFlush"], complete);
    }
    context.makeContextCurrent();
}

TEST_F(ContextTest, RestoresTheHostsContextOnce) {
    const CGLContextObj host = CGLGetCurrentContext();
    auto* saved = (new SaveRestoreGLContextMac)->init();
    AEOpenGLContext other(nullptr);
    saved->restore();
    EXPECT_TRUE(CGLGetCurrentContext() == host);
    other.makeContextCurrent();
    saved->restore();
    EXPECT_FALSE(CGLGetCurrentContext() == host);
    saved->release();
    std::thread([&] { EXPECT_THROW(other.makeContextCurrent(), GLFailure) << "in use"; }).join();
    context.makeContextCurrent();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
