#include "Tests/Support/EglWatch.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <algorithm>
#include <array>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <utility>

namespace Tessaloom::BilateralBlur::EglWatch {

std::atomic<int> liveContexts{0};
std::atomic<Failing> failing{Failing::Nothing};
std::atomic<bool> isOtherApiCurrent{false};
std::atomic<const char*> renderer{nullptr};

namespace {

std::mutex mMutex;
// In an array, as tests exhaust the memory.
struct Context {
    EGLContext name;
    EGLint bindingError = EGL_SUCCESS;
};
std::array<Context, 4096> mContexts{};

// `EGL_NO_CONTEXT` finds a free place.
Context& find(EGLContext name) {
    return *std::find_if(mContexts.begin(), mContexts.end(),
                         [name](const Context& context) { return context.name == name; });
}

// Of the last binding on this thread, where it is ours that failed.
thread_local EGLint mError = EGL_SUCCESS;

template<typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void loseContexts() {
    const std::lock_guard lock(mMutex);
    for (Context& context : mContexts)
        if (context.name != EGL_NO_CONTEXT && context.name != eglGetCurrentContext())
            context.bindingError = EGL_CONTEXT_LOST;
}

NSOpenGLContext* makeContext() {
    constexpr std::uint32_t kCore[] = {NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core, 0};
    NSOpenGLPixelFormat* format = NSOpenGLPixelFormat::initWithAttributes(kCore);
    NSOpenGLContext* context = NSOpenGLContext::initWithFormat(format, nullptr);
    format->release();
    return context;
}

// A program's own definitions come before those of its libraries, for the libraries and modules as well.
#pragma GCC visibility push(default)
extern "C" {

EGLContext eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share,
                            const EGLint* attributes) {
    static const auto kNext = next<decltype(eglCreateContext)>("eglCreateContext");
    if (failing == Failing::Creation)
        return EGL_NO_CONTEXT;
    const EGLContext context = kNext(display, config, share, attributes);
    liveContexts += context != EGL_NO_CONTEXT;
    const std::lock_guard lock(mMutex);
    if (context != EGL_NO_CONTEXT)
        find(EGL_NO_CONTEXT) = {context, failing == Failing::Binding ? EGL_BAD_ALLOC : EGL_SUCCESS};
    return context;
}

EGLBoolean eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    static const auto kNext = next<decltype(eglMakeCurrent)>("eglMakeCurrent");
    {
        const std::lock_guard lock(mMutex);
        mError = find(context).bindingError;
    }
    if (isOtherApiCurrent && eglGetCurrentContext() == EGL_NO_CONTEXT)
        mError = EGL_BAD_ACCESS;
    return mError == EGL_SUCCESS ? kNext(display, draw, read, context) : EGL_FALSE;
}

EGLint eglGetError() {
    static const auto kNext = next<decltype(eglGetError)>("eglGetError");
    const EGLint ours = std::exchange(mError, EGL_SUCCESS);
    return ours == EGL_SUCCESS ? kNext() : ours;
}

EGLBoolean eglDestroyContext(EGLDisplay display, EGLContext context) {
    static const auto kNext = next<decltype(eglDestroyContext)>("eglDestroyContext");
    --liveContexts;
    const std::lock_guard lock(mMutex);
    find(context) = {};
    return kNext(display, context);
}

__eglMustCastToProperFunctionPointerType eglGetProcAddress(const char* name) {
    static const auto kNext = next<decltype(eglGetProcAddress)>("eglGetProcAddress");
    using Function = __eglMustCastToProperFunctionPointerType;
    // A device of software names itself in its extensions.
    if (renderer && std::strcmp(name, "eglQueryDeviceStringEXT") == 0)
        return reinterpret_cast<Function>(+[](EGLDeviceEXT, EGLint) { return ""; });
    // Asked for the renderer's name alone.
    if (renderer && std::strcmp(name, "glGetString") == 0)
        return reinterpret_cast<Function>(
            +[](unsigned) { return reinterpret_cast<const unsigned char*>(renderer.load()); });
    return kNext(name);
}
}
#pragma GCC visibility pop

} // namespace Tessaloom::BilateralBlur::EglWatch
