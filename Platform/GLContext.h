#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

/// Off-screen OpenGL contexts: no window system, no surface. This is all that the GL layer needs of a system:
/// create a context that shares with another, make a context current on this thread, read the current
/// context, restore it. Each platform implements this header in a directory of its own.

/// What a thread has bound: a context with its display and surfaces, or nothing. A plain value that owns
/// nothing; two are equal when they name the same context. The pointers are the platform's own handles.
struct CGLContextObj {
    void* context = nullptr;
    void* display = nullptr;
    void* draw = nullptr;
    void* read = nullptr;
    std::uint64_t serial = 0; ///< of contexts made here, from 1, never reused; 0 for all others

    explicit operator bool() const { return context != nullptr; }
    friend bool operator==(const CGLContextObj& a, const CGLContextObj& b) { return a.context == b.context; }
};

/// Why the system made nothing current.
enum class CGLError {
    None,
    Refused,      ///< current on another thread, or no memory
    ContextLost,  ///< for good: a reset of the GPU, say
    OtherApi,     ///< `CGLIsOtherApiCurrent`
    OtherProcess, ///< the context was made by the process that this one was forked from
};

/// The error in words, for a sentence's end: "the system refused it".
const char* CGLErrorString(CGLError error);

/// The context current on the calling thread, whoever made it.
CGLContextObj CGLGetCurrentContext();

/// Makes `context` current on the calling thread, or none if it is null. On an error nothing changes.
CGLError CGLSetCurrentContext(const CGLContextObj& context);

/// True if another API of the window system, GLX on X11, has a context current on the calling thread, so that
/// none of this header can be made current there. Cheap, and false before the first context was made.
bool CGLIsOtherApiCurrent();

/// True in a process forked from one that has made a context here. The child has neither the driver's threads
/// nor a connection to the GPU of its own: GL isn't for it, and nothing of GL is to be deleted there.
bool CGLIsForked();

/// True if the CPU renders the context, which must be current on the calling thread: its device says so, or
/// its renderer's name, which knows it also where the device is a virtual one.
bool CGLIsSoftwareRenderer(const CGLContextObj& context);

/// Reference counting for the classes below. A new object has one reference, which belongs to its maker; the
/// last `release` deletes the object.
class NSObject {
public:
    NSObject() = default;
    NSObject(const NSObject&) = delete;
    NSObject& operator=(const NSObject&) = delete;

    void retain() { ++mReferences; }
    void release();

protected:
    virtual ~NSObject() = default;

private:
    std::atomic<int> mReferences{1};
};

/// A scope around platform calls: inside it OpenGL is the thread's current client API. `drain`, or the
/// destructor, restores the client API that was current before.
class NSAutoreleasePool {
public:
    NSAutoreleasePool();
    ~NSAutoreleasePool() { drain(); }
    NSAutoreleasePool(const NSAutoreleasePool&) = delete;
    NSAutoreleasePool& operator=(const NSAutoreleasePool&) = delete;

    void drain();

private:
    unsigned mHostApi;
    bool mDrained = false;
};

/// Attributes of a pixel format; those with an argument are followed by it.
enum : std::uint32_t {
    NSOpenGLPFAColorSize = 8,
    NSOpenGLPFAAlphaSize = 11,
    NSOpenGLPFADepthSize = 12,
    NSOpenGLPFAStencilSize = 13,
    NSOpenGLPFANoRecovery = 72,
    NSOpenGLPFAClosestPolicy = 74,
    NSOpenGLPFAOpenGLProfile = 99,
};
enum : std::uint32_t { NSOpenGLProfileVersion3_2Core = 12800 };

class NSOpenGLPixelFormat : public NSObject {
public:
    /// From a zero-terminated list of attributes. The sizes of colour, depth and stencil are those of a
    /// default framebuffer, which a surfaceless context doesn't have, so only the profile counts. Null if
    /// that isn't the core profile.
    static NSOpenGLPixelFormat* initWithAttributes(const std::uint32_t* attributes);
};

/// A context. Its last release destroys it at once if it is current on the calling thread or on none, and
/// otherwise as soon as the thread that has it current ends or asks for its current context. Where
/// `CGLIsForked`, none can be made or made current, and the last release destroys nothing.
class NSOpenGLContext : public NSObject {
public:
    /// A core context of at least version 3.3, in the share group of `share`, or in a new one if that is
    /// null. Null if `format` is null or the system can't create such a context.
    static NSOpenGLContext* initWithFormat(const NSOpenGLPixelFormat* format, const NSOpenGLContext* share);

    /// The context that `makeCurrentContext` made current on the calling thread, not retained; null if none
    /// or another one is current, or if it was made current by `CGLSetCurrentContext`.
    static NSOpenGLContext* currentContext();

    /// On an error the thread's current context stays.
    CGLError makeCurrentContext();
    ::CGLContextObj CGLContextObj() const;

    struct Native;

private:
    explicit NSOpenGLContext(std::shared_ptr<Native> native);
    ~NSOpenGLContext() override;

    std::shared_ptr<Native> mNative;
};
