#include "Tests/Platform/EglWatch.h"

#include <EGL/egl.h>
#include <dlfcn.h>

#include <atomic>

namespace {

std::atomic<int> liveCount{0};
std::atomic<bool> failing{false};

template<typename Function>
Function system(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace Tessaloom::BilateralBlur::EglWatch {

int liveContexts() {
    return liveCount;
}

void failCreations(bool fail) {
    failing = fail;
}

} // namespace Tessaloom::BilateralBlur::EglWatch

// A program's own definitions come before those of its libraries, for the libraries and modules as well.
extern "C" {

__attribute__((visibility("default"))) EGLContext
eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    static const auto kCreate = system<decltype(&eglCreateContext)>("eglCreateContext");
    const EGLContext context = failing ? EGL_NO_CONTEXT : kCreate(display, config, share, attributes);
    if (context != EGL_NO_CONTEXT)
        ++liveCount;
    return context;
}

__attribute__((visibility("default"))) EGLBoolean eglDestroyContext(EGLDisplay display, EGLContext context) {
    static const auto kDestroy = system<decltype(&eglDestroyContext)>("eglDestroyContext");
    --liveCount;
    return kDestroy(display, context);
}
}
