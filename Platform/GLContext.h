#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

/// Off-screen OpenGL contexts: no window system, no surface. This is all that the GL layer needs of a system:
/// create a context that shares with another, make a context current on this thread, read the current
/// context, restore it. Each platform implements this header in a folder of its own.

/// What a thread has bound: a context with its display and surfaces, or nothing. A plain value that owns
/// nothing; two are equal when they name the same context. The pointers are the platform's own handles.
struct CGLContextObj {
    void* context = nullptr;
    void* display = nullptr;
    void* draw = nullptr;
    void* read = nullptr;
    std::uint64_t serial = 0; ///< of contexts made here, from 1 and never used again; 0 for all others

    explicit operator bool() const { return context != nullptr; }
    friend bool operator==(const CGLContextObj& a, const CGLContextObj& b) { return a.context == b.context; }
};

/// The calling thread's binding, whoever made it.
CGLContextObj CGLGetCurrentContext();

/// Makes `context` current on the calling thread, or nothing where it is null. False where the system
/// refuses.
bool CGLSetCurrentContext(const CGLContextObj& context);

/// True where a context is rendered by the CPU.
bool CGLIsSoftwareRenderer(const CGLContextObj& context);

/// Reference counting in the manner of the classes below: a new object has one reference, which is its
/// maker's, and goes with its last.
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
/// destructor, restores the client API that the rest of the process had chosen.
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
    /// From a zero-terminated list of attributes. Sizes of colour, depth and stencil concern a default frame
    /// buffer, which a surfaceless context doesn't have, so the profile is what counts. Null where the list
    /// asks for another profile than the core one.
    static NSOpenGLPixelFormat* initWithAttributes(const std::uint32_t* attributes);
};

/// A context. Its last release ends it at once where it is current on the calling thread or on none, and
/// otherwise as soon as the thread that has it current ends or asks for its current context.
class NSOpenGLContext : public NSObject {
public:
    /// A core context of at least version 3.3, in the share group of `share`, or in a new one where that is
    /// null. Null where the format is, or where the system has no such context to give.
    static NSOpenGLContext* initWithFormat(const NSOpenGLPixelFormat* format, const NSOpenGLContext* share);

    /// The context that `makeCurrentContext` made current on the calling thread, not retained; null where
    /// another one is, or none, or it was made current on the low level.
    static NSOpenGLContext* currentContext();

    void makeCurrentContext();
    ::CGLContextObj CGLContextObj() const;

    struct Native;

private:
    explicit NSOpenGLContext(const ::CGLContextObj& handle);
    ~NSOpenGLContext() override;

    std::shared_ptr<Native> mNative;
};
