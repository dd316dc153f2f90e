#pragma once

/// Stands between a test program, with the modules that it loads, and the system's EGL.
namespace Tessaloom::BilateralBlur::EglWatch {

/// Contexts of the process that were created and not destroyed.
int liveContexts();

/// Makes the next creations of contexts fail, or no longer.
void failCreations(bool fail);

} // namespace Tessaloom::BilateralBlur::EglWatch
