#include "Tests/Support/EglWatch.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <cstring>
#include <dlfcn.h>

namespace Tessaloom::BilateralBlur::EglWatch {

std::atomic<int> liveContexts{0};
std::atomic<Failing> failing{Failing::Nothing};
std::atomic<bool> hardware{false};

namespace {

// The last context, where it was created while bindings fail.
EGLContext mUnbindable = EGL_NO_CONTEXT;

template<typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

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
    mUnbindable = failing == Failing::Binding ? context : EGL_NO_CONTEXT;
    return context;
}

EGLBoolean eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    static const auto kNext = next<decltype(eglMakeCurrent)>("eglMakeCurrent");
    const bool fails = context != EGL_NO_CONTEXT && context == mUnbindable;
    return fails ? EGL_FALSE : kNext(display, draw, read, context);
}

EGLBoolean eglDestroyContext(EGLDisplay display, EGLContext context) {
    static const auto kNext = next<decltype(eglDestroyContext)>("eglDestroyContext");
    --liveContexts;
    return kNext(display, context);
}

__eglMustCastToProperFunctionPointerType eglGetProcAddress(const char* name) {
    static const auto kNext = next<decltype(eglGetProcAddress)>("eglGetProcAddress");
    if (!hardware || std::strcmp(name, "eglQueryDeviceStringEXT") != 0)
        return kNext(name);
    // A device of software names itself in its extensions.
    return reinterpret_cast<__eglMustCastToProperFunctionPointerType>(
        +[](EGLDeviceEXT, EGLint) { return ""; });
}
}
#pragma GCC visibility pop

} // namespace Tessaloom::BilateralBlur::EglWatch
