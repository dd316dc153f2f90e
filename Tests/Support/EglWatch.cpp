#include "Tests/Support/EglWatch.h"

#include <EGL/egl.h>
#include <dlfcn.h>

namespace Tessaloom::BilateralBlur::EglWatch {

std::atomic<int> liveContexts{0};
std::atomic<bool> failing{false};

NSOpenGLContext* makeContext() {
    constexpr std::uint32_t kCore[] = {NSOpenGLPFAColorSize, 24, NSOpenGLPFAOpenGLProfile,
                                       NSOpenGLProfileVersion3_2Core, 0};
    NSOpenGLPixelFormat* format = NSOpenGLPixelFormat::initWithAttributes(kCore);
    NSOpenGLContext* context = NSOpenGLContext::initWithFormat(format, nullptr);
    format->release();
    return context;
}

// A program's own definitions come before those of its libraries, for the libraries and modules as well.
extern "C" {

__attribute__((visibility("default"))) EGLContext
eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    static const auto kNext =
        reinterpret_cast<decltype(&eglCreateContext)>(dlsym(RTLD_NEXT, "eglCreateContext"));
    const EGLContext context = failing ? EGL_NO_CONTEXT : kNext(display, config, share, attributes);
    liveContexts += context != EGL_NO_CONTEXT;
    return context;
}

__attribute__((visibility("default"))) EGLBoolean eglDestroyContext(EGLDisplay display, EGLContext context) {
    static const auto kNext =
        reinterpret_cast<decltype(&eglDestroyContext)>(dlsym(RTLD_NEXT, "eglDestroyContext"));
    --liveContexts;
    return kNext(display, context);
}
}

} // namespace Tessaloom::BilateralBlur::EglWatch
