#pragma once

#include "Platform/GLContext.h"

#include <glbinding/gl/extension.h>

#include <set>

namespace Tessaloom::BilateralBlur {

/// An OpenGL core profile context that draws only off screen, in framebuffers. It belongs to one thread at a
/// time.
class AEOpenGLContext {
public:
    /// Creates the context in the share group of `share`, or in a new one if that is null, leaves it current
    /// on the calling thread and prints its identity to standard output. Throws a `GLFailure` if the system
    /// can't create it or make it current; the current context stays as it was then.
    explicit AEOpenGLContext(const AEOpenGLContext* share);
    virtual ~AEOpenGLContext();
    AEOpenGLContext(const AEOpenGLContext&) = delete;
    AEOpenGLContext& operator=(const AEOpenGLContext&) = delete;

    /// Makes the context current on the calling thread and points glbinding at it. Throws a `GLFailure` if
    /// the system refuses: GL calls would otherwise reach another context.
    void makeContextCurrent();

    /// Leaves the calling thread without a context, flushing the one that was current: GL calls do nothing.
    static void makeNoneCurrent();

    /// The GL extensions of the context, read once at its creation.
    const std::set<gl::GLextension>& extensions() const { return mExtensions; }

    /// True where the context is rendered by software, as found at its creation.
    bool isSoftware() const { return mIsSoftware; }

    /// Makes a platform context, with one reference for the caller, and puts its low-level handle into
    /// `out`. Null if the system can't create one.
    static NSOpenGLContext* createNSContext(NSOpenGLContext* share, CGLContextObj& out);

    /// Switches to `context`, or to none if it is null, flushing the one that was current unless its draw
    /// framebuffer is incomplete. Does nothing if `context` is already current, or where `CGLIsForked`.
    static void makeCurrentFlush(const CGLContextObj& context) noexcept;

    /// Flushes the current context, whoever made it, unless its draw framebuffer is bound and incomplete.
    static void flushCompleteFrameBuffer() noexcept;

    /// Connects glbinding to the current context and prints the context's identity in six lines.
    static void InitializeOpenGLBindings();

private:
    CGLContextObj mCGLContext;
    NSOpenGLContext* mNSContext = nullptr;
    std::set<gl::GLextension> mExtensions;
    bool mIsSoftware = false;
};

} // namespace Tessaloom::BilateralBlur
