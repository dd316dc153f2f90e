#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur::Host {

/// The suites of the host:
///
/// - "PF ANSI Suite" 1 and "PF Handle Suite" 2;
/// - "PF iterateFloat Suite" 1, which always uses several threads. Worlds that aren't float worlds give
///   `PF_Err_BAD_CALLBACK_PARAM`;
/// - "AEGP Utility Suite" 11, which runs ECMAScript. The result handle holds the value of the last statement
///   as text, the error handle the message; the one that doesn't apply holds an empty text, and the code is 0
///   either way. Scripts share no state, and fail where an effect is linked into the program;
/// - "AEGP Memory Suite" 1. Freeing a memory handle ends its locks, as there is no unlock;
/// - "AEGP PF Interface Suite" 1, "AEGP Layer Suite" 11, "AEGP Item Suite" 10, "DRAWBOT Draw Suite" 1,
///   "DRAWBOT Supplier Suite" 1, "DRAWBOT Surface Suite" 2 and "DRAWBOT Path Suite" 1, which exist but have
///   no functions.
///
/// Their functions act on the Services that a `Visit` has bound to the calling thread, and fail without one.
SPBasicSuite* basicSuite();

/// Text functions, and the addresses of the pixels of living worlds.
PF_UtilCallbacks* utilCallbacks();

} // namespace Tessaloom::BilateralBlur::Host
