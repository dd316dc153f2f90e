#include "Platform/GLContext.h"

#include "Platform/MakerProcess.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

template<typename Function>
Function eglFunction(const char* name) {
    return reinterpret_cast<Function>(eglGetProcAddress(name));
}

bool hasWord(const char* words, std::string_view word) {
    std::string_view rest = words ? words : "";
    for (std::size_t at; (at = rest.find(word)) != rest.npos; rest.remove_prefix(at + word.size())) {
        const bool starts = at == 0 || rest[at - 1] == ' ';
        const bool ends = at + word.size() == rest.size() || rest[at + word.size()] == ' ';
        if (starts && ends)
            return true;
    }
    return false;
}

bool isSoftwareDevice(EGLDeviceEXT device) {
    const auto query = eglFunction<PFNEGLQUERYDEVICESTRINGEXTPROC>("eglQueryDeviceStringEXT");
    return query && hasWord(query(device, EGL_EXTENSIONS), "EGL_MESA_device_software");
}

EGLContext createCoreContext(EGLDisplay display, EGLContext share) {
    // clang-format off
    constexpr EGLint kAttributes[] = {
        EGL_CONTEXT_MAJOR_VERSION, 3,
        EGL_CONTEXT_MINOR_VERSION, 3,
        EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
        EGL_NONE};
    // clang-format on
    return eglCreateContext(display, EGL_NO_CONFIG_KHR, share, kAttributes);
}

// A device may initialise and still fail to create a context, so try one.
bool givesCoreContext(EGLDisplay display) {
    if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr))
        return false;
    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    if (!hasWord(extensions, "EGL_KHR_no_config_context") ||
        !hasWord(extensions, "EGL_KHR_surfaceless_context"))
        return false;
    const EGLContext trial = createCoreContext(display, EGL_NO_CONTEXT);
    if (trial == EGL_NO_CONTEXT)
        return false;
    eglDestroyContext(display, trial);
    return true;
}

std::vector<EGLDeviceEXT> hardwareDevices() {
    std::vector<EGLDeviceEXT> devices;
    const auto query = eglFunction<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    EGLint count = 0;
    if (!query || !query(0, nullptr, &count) || count <= 0)
        return devices;
    devices.resize(static_cast<std::size_t>(count));
    if (!query(count, devices.data(), &count))
        count = 0;
    devices.resize(static_cast<std::size_t>(count));
    std::erase_if(devices, isSoftwareDevice);
    return devices;
}

EGLDisplay chooseDisplay() {
    const auto platformDisplay = eglFunction<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
    if (!platformDisplay)
        return EGL_NO_DISPLAY;
    for (EGLDeviceEXT device : hardwareDevices()) {
        const EGLDisplay display = platformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
        if (givesCoreContext(display))
            return display;
    }
    const EGLDisplay surfaceless =
        platformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    return givesCoreContext(surfaceless) ? surfaceless : EGL_NO_DISPLAY;
}

// One display serves the process: that of the first hardware device that gives a core context of at least
// 3.3, otherwise Mesa's surfaceless platform. It is never terminated: other code in the process may use the
// same display, and its contexts would break. Only success is remembered: a process that found no display
// may find one later.
std::mutex mDisplayMutex;
std::atomic<EGLDisplay> mDisplay{EGL_NO_DISPLAY};
MakerProcess mDisplayMaker;

EGLDisplay processDisplay() {
    if (CGLIsForked())
        return EGL_NO_DISPLAY;
    if (mDisplay == EGL_NO_DISPLAY) {
        const std::lock_guard lock(mDisplayMutex);
        if (mDisplay == EGL_NO_DISPLAY) {
            mDisplayMaker = {};
            mDisplay = chooseDisplay();
        }
    }
    return mDisplay;
}

} // namespace

// The EGL context that an `NSOpenGLContext` shares with each thread that has it current; the last of them
// destroys it. If it were destroyed while a thread still remembers it, EGL could reuse its address for
// another context, which the thread would then mistake for this one.
struct NSOpenGLContext::Native {
    ::CGLContextObj handle;
    std::atomic<bool> alive{true};

    Native() = default;
    ~Native() {
        if (handle && !CGLIsForked())
            eglDestroyContext(handle.display, handle.context);
    }
    Native(const Native&) = delete;
    Native& operator=(const Native&) = delete;
};

namespace {

// What this thread last bound through this file: the serial and the object, which EGL doesn't keep. EGL frees
// a context only when no thread has it bound, so a thread unbinds a context of ours when it ends, and when it
// next asks for its current context after that was released on another thread.
struct ThreadBinding {
    CGLContextObj handle;
    NSOpenGLContext* context = nullptr;
    std::shared_ptr<NSOpenGLContext::Native> native;

    ~ThreadBinding() { unbind(); }

    void unbind() {
        if (handle && !CGLIsForked() && eglGetCurrentContext() == handle.context)
            eglMakeCurrent(handle.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        handle = {};
        context = nullptr;
        native.reset();
    }
};

thread_local ThreadBinding mBinding;

// To be asked right after a call that failed.
CGLError lastError() {
    const EGLint error = eglGetError();
    if (error == EGL_CONTEXT_LOST)
        return CGLError::ContextLost;
    return error == EGL_BAD_ACCESS && CGLIsOtherApiCurrent() ? CGLError::OtherApi : CGLError::Refused;
}

// In lower case.
std::string rendererName() {
    const auto getString = eglFunction<const unsigned char* (*)(unsigned)>("glGetString");
    constexpr unsigned kRenderer = 0x1F01; // GL_RENDERER
    const unsigned char* const text = getString ? getString(kRenderer) : nullptr;
    std::string name(text ? reinterpret_cast<const char*>(text) : "");
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

} // namespace

const char* CGLErrorString(CGLError error) {
    switch (error) {
    case CGLError::None:
        return "nothing failed";
    case CGLError::ContextLost:
        return "the context is lost";
    case CGLError::OtherApi:
        return "another OpenGL interface has a context current on this thread";
    case CGLError::OtherProcess:
        return "this process was forked from the one that made it";
    default:
        return "the system refused it";
    }
}

CGLContextObj CGLGetCurrentContext() {
    if (mBinding.native && !mBinding.native->alive)
        mBinding.unbind();
    const EGLContext context = eglGetCurrentContext();
    if (context == EGL_NO_CONTEXT)
        return {};
    if (mBinding.handle.context == context)
        return mBinding.handle;
    return {context, eglGetCurrentDisplay(), eglGetCurrentSurface(EGL_DRAW), eglGetCurrentSurface(EGL_READ),
            0};
}

CGLError CGLSetCurrentContext(const CGLContextObj& context) {
    const CGLContextObj current = CGLGetCurrentContext();
    const EGLDisplay display = context ? context.display : current.display;
    if (display == EGL_NO_DISPLAY)
        return CGLError::None;
    if (CGLIsForked() && (context.serial || current.serial))
        return CGLError::OtherProcess;
    if (!eglMakeCurrent(display, context.draw, context.read, context.context))
        return lastError();
    mBinding.handle = context.serial ? context : CGLContextObj{};
    mBinding.context = nullptr;
    mBinding.native.reset();
    return CGLError::None;
}

// EGL then refuses to make even nothing current.
bool CGLIsOtherApiCurrent() {
    const EGLDisplay display = mDisplay;
    return display != EGL_NO_DISPLAY && !CGLIsForked() && eglGetCurrentContext() == EGL_NO_CONTEXT &&
           !eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT) &&
           eglGetError() == EGL_BAD_ACCESS;
}

bool CGLIsForked() {
    return mDisplay != EGL_NO_DISPLAY && !mDisplayMaker.isThisOne();
}

bool CGLIsSoftwareRenderer(const CGLContextObj& context) {
    if (!context)
        return false;
    const auto query = eglFunction<PFNEGLQUERYDISPLAYATTRIBEXTPROC>("eglQueryDisplayAttribEXT");
    EGLAttrib device = 0;
    if (query && query(context.display, EGL_DEVICE_EXT, &device) &&
        isSoftwareDevice(reinterpret_cast<EGLDeviceEXT>(device)))
        return true;
    const std::string name = rendererName();
    constexpr std::string_view kSoftware[] = {"llvmpipe", "softpipe", "swiftshader", "basic render driver"};
    return std::any_of(std::begin(kSoftware), std::end(kSoftware),
                       [&](std::string_view software) { return name.find(software) != std::string::npos; });
}

void NSObject::release() {
    if (--mReferences == 0)
        delete this;
}

NSAutoreleasePool::NSAutoreleasePool() : mHostApi(eglQueryAPI()) {
    eglBindAPI(EGL_OPENGL_API);
}

void NSAutoreleasePool::drain() {
    if (!mDrained && mHostApi != EGL_NONE)
        eglBindAPI(mHostApi);
    mDrained = true;
}

NSOpenGLPixelFormat* NSOpenGLPixelFormat::initWithAttributes(const std::uint32_t* attributes) {
    std::uint32_t profile = 0;
    for (; *attributes; ++attributes) {
        const bool flag = *attributes == NSOpenGLPFANoRecovery || *attributes == NSOpenGLPFAClosestPolicy;
        if (*attributes == NSOpenGLPFAOpenGLProfile)
            profile = attributes[1];
        if (!flag)
            ++attributes;
    }
    return profile == NSOpenGLProfileVersion3_2Core ? new NSOpenGLPixelFormat : nullptr;
}

NSOpenGLContext* NSOpenGLContext::initWithFormat(const NSOpenGLPixelFormat* format,
                                                 const NSOpenGLContext* share) {
    static std::atomic<std::uint64_t> kNextSerial{1};
    const NSAutoreleasePool pool;
    const EGLDisplay display = format ? processDisplay() : EGL_NO_DISPLAY;
    if (display == EGL_NO_DISPLAY)
        return nullptr;
    // Before the EGL context, which nobody would own where there is no memory for it.
    auto native = std::make_shared<Native>();
    const EGLContext context =
        createCoreContext(display, share ? share->mNative->handle.context : EGL_NO_CONTEXT);
    if (context == EGL_NO_CONTEXT)
        return nullptr;
    native->handle = {context, display, EGL_NO_SURFACE, EGL_NO_SURFACE, kNextSerial++};
    return new NSOpenGLContext(std::move(native));
}

NSOpenGLContext* NSOpenGLContext::currentContext() {
    const auto current = CGLGetCurrentContext();
    return current && current == mBinding.handle ? mBinding.context : nullptr;
}

CGLError NSOpenGLContext::makeCurrentContext() {
    if (const CGLError error = CGLSetCurrentContext(mNative->handle); error != CGLError::None)
        return error;
    mBinding.context = this;
    mBinding.native = mNative;
    return CGLError::None;
}

::CGLContextObj NSOpenGLContext::CGLContextObj() const {
    return mNative->handle;
}

NSOpenGLContext::NSOpenGLContext(std::shared_ptr<Native> native) : mNative(std::move(native)) {}

NSOpenGLContext::~NSOpenGLContext() {
    mNative->alive = false;
    if (mBinding.handle.serial == mNative->handle.serial)
        mBinding.unbind();
}
