#pragma once

#include "Platform/GLContext.h"

#include <atomic>

/// Stands between a test program, with the modules that it loads, and the system's EGL.
namespace Tessaloom::BilateralBlur::EglWatch {

/// Contexts of the process that were created and not destroyed.
extern std::atomic<int> liveContexts;

/// What fails for contexts that are created now.
enum class Failing { Nothing, Creation, Binding };
extern std::atomic<Failing> failing;

/// Every context but the one that is current on the calling thread is lost: bindings fail for good.
void loseContexts();

/// While it is set, another API of the window system has a context on every thread: bindings fail where EGL
/// has no context current.
extern std::atomic<bool> isOtherApiCurrent;

/// While it is set, devices that render by software look like GPUs, and their renderer has this name.
extern std::atomic<const char*> renderer;

/// A core context that shares with no other, for the caller to release.
NSOpenGLContext* makeContext();

} // namespace Tessaloom::BilateralBlur::EglWatch
