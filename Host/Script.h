#pragma once

#include <string>

namespace Tessaloom::BilateralBlur::Host {

struct ScriptOutcome {
    std::string result; ///< the value of the last statement as text; empty where that is undefined or null
    std::string error;  ///< what went wrong; empty for a script that ran to its end
};

/// What runs an ECMAScript program (UTF-8).
using ScriptEngine = ScriptOutcome (*)(const char* script);

/// Runs a program in an engine of its own.
ScriptOutcome runScript(const char* script);

} // namespace Tessaloom::BilateralBlur::Host
