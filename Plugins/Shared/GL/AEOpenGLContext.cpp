#include "Plugins/Shared/GL/AEOpenGLContext.h"

#include "Plugins/Shared/GL/GLFailure.h"

#include <glbinding/Binding.h>
#include <glbinding/ContextInfo.h>
#include <glbinding/Meta.h>
#include <glbinding/Version.h>
#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <iostream>
#include <memory>
#include <new>
#include <string>

namespace Tessaloom::BilateralBlur {

namespace {

void check(CGLError error) {
    if (error != CGLError::None)
        throw GLFailure(std::string("OpenGL's context can't be made current, as ") + CGLErrorString(error),
                        error == CGLError::ContextLost);
}

} // namespace

// The making of a context takes milliseconds, so what can be known before is asked first.
AEOpenGLContext::AEOpenGLContext(const AEOpenGLContext* share) {
    check(CGLIsForked()            ? CGLError::OtherProcess
          : CGLIsOtherApiCurrent() ? CGLError::OtherApi
                                   : CGLError::None);
    mNSContext = createNSContext(share ? share->mNSContext : nullptr, mCGLContext);
    if (!mNSContext)
        throw GLFailure("The system gives no OpenGL context");
    try {
        check(mNSContext->makeCurrentContext());
        InitializeOpenGLBindings();
        mExtensions = glbinding::ContextInfo::extensions();
        mIsSoftware = CGLIsSoftwareRenderer(mCGLContext);
    } catch (...) {
        mNSContext->release();
        throw;
    }
}

AEOpenGLContext::~AEOpenGLContext() {
    mNSContext->release();
}

void AEOpenGLContext::makeContextCurrent() {
    const NSAutoreleasePool pool;
    check(mNSContext->makeCurrentContext());
    makeCurrentFlush(mCGLContext);
    glbinding::Binding::useCurrentContext();
}

void AEOpenGLContext::makeNoneCurrent() {
    makeCurrentFlush({});
    glbinding::Binding::useCurrentContext();
}

NSOpenGLContext* AEOpenGLContext::createNSContext(NSOpenGLContext* share, CGLContextObj& out) {
    const NSAutoreleasePool pool;
    // clang-format off
    constexpr std::uint32_t kAttributes[] = {
        NSOpenGLPFAClosestPolicy,
        NSOpenGLPFANoRecovery,
        NSOpenGLPFAAlphaSize, 0,
        NSOpenGLPFAColorSize, 24,
        NSOpenGLPFAStencilSize, 0,
        NSOpenGLPFADepthSize, 0,
        NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core,
        0};
    // clang-format on
    struct Release {
        void operator()(NSOpenGLPixelFormat* format) const { format->release(); }
    };
    const std::unique_ptr<NSOpenGLPixelFormat, Release> format(
        NSOpenGLPixelFormat::initWithAttributes(kAttributes));
    NSOpenGLContext* context = NSOpenGLContext::initWithFormat(format.get(), share);
    if (context)
        out = context->CGLContextObj();
    return context;
}

void AEOpenGLContext::makeCurrentFlush(const CGLContextObj& context) noexcept {
    const CGLContextObj current = CGLGetCurrentContext();
    if (current == context || CGLIsForked())
        return;
    if (current)
        flushCompleteFrameBuffer();
    CGLSetCurrentContext(context);
}

// The thread may be new to glbinding, when the host's context is the first to be flushed. Where there is no
// memory for that, the switch matters more than the flush.
void AEOpenGLContext::flushCompleteFrameBuffer() noexcept {
    try {
        glbinding::Binding::useCurrentContext();
        gl::GLint drawFrameBuffer = 0;
        gl::glGetIntegerv(gl::GL_DRAW_FRAMEBUFFER_BINDING, &drawFrameBuffer);
        if (drawFrameBuffer == 0 ||
            gl::glCheckFramebufferStatus(gl::GL_FRAMEBUFFER) == gl::GL_FRAMEBUFFER_COMPLETE)
            gl::glFlush();
    } catch (const std::bad_alloc&) {
    }
}

// glbinding identifies a context by a handle that is the same for all EGL contexts, and ignores a handle that
// it already knows, so on a thread that is new to it the context must be selected as well.
void AEOpenGLContext::InitializeOpenGLBindings() {
    glbinding::Binding::initialize(false);
    glbinding::Binding::useCurrentContext();
    // Its own text has no numbers for a version that glbinding doesn't know.
    const glbinding::Version version = glbinding::ContextInfo::version();
    std::cout << std::endl;
    std::cout << "OpenGL Version:  " << +version.majorVersion() << '.' << +version.minorVersion()
              << std::endl;
    std::cout << "OpenGL Vendor:   " << glbinding::ContextInfo::vendor() << std::endl;
    std::cout << "OpenGL Renderer: " << glbinding::ContextInfo::renderer() << std::endl;
    std::cout << "OpenGL Revision: " << glbinding::Meta::glRevision() << " (gl.xml)" << std::endl;
    std::cout << std::endl;
}

} // namespace Tessaloom::BilateralBlur
