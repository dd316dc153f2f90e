#pragma once

#include "Platform/GLContext.h"

#include <array>

/// Stands between a test program, with the modules that it loads, and the system's EGL.
namespace Tessaloom::BilateralBlur::EglWatch {

/// Contexts of the process that were created and not destroyed.
extern std::atomic<int> liveContexts;

/// How many were created so far, and which were destroyed last, the latest at the end: numbers from 1 in the order
/// of their creation.
extern std::atomic<int> madeContexts;
extern std::array<int, 3> lastDestroyed;

/// What fails for contexts that are created now.
enum class Failing { Nothing, Creation, Binding };
extern std::atomic<Failing> failing;

/// Every context but the one that is current on the calling thread is lost: bindings fail for good.
void loseContexts();

/// While it is set, another API of the window system has a context on every thread: bindings fail where EGL
/// has no context current.
extern std::atomic<bool> isOtherApiCurrent;

/// While it is set, devices that render by software look like GPUs, and their renderer has this name.
extern std::atomic<bool> hardware;
extern std::atomic<const char*> renderer;

/// A function that EGL doesn't know while this is its name.
extern std::atomic<const char*> missing;

/// A core context that shares with no other, for the caller to release.
NSOpenGLContext* makeContext();

} // namespace Tessaloom::BilateralBlur::EglWatch
