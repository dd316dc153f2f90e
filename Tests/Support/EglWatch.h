#pragma once

#include "Platform/GLContext.h"

/// Stands between a test program, with the modules that it loads, and the system's EGL.
namespace Tessaloom::BilateralBlur::EglWatch {

/// Contexts of the process that were created and not destroyed.
extern std::atomic<int> liveContexts;

/// What fails for contexts that are created now.
enum class Failing { Nothing, Creation, Binding };
extern std::atomic<Failing> failing;

/// While it is set, devices that render by software look like GPUs.
extern std::atomic<bool> hardware;

/// A core context that shares with no other, for the caller to release.
NSOpenGLContext* makeContext();

} // namespace Tessaloom::BilateralBlur::EglWatch
