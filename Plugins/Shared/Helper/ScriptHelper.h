#pragma once

#include "HostInterface/EffectHost.h"

#include <string>

namespace Tessaloom::BilateralBlur {

/// Runs scripts in the host's scripting engine.
class ScriptHelper {
public:
    /// Runs `script` and returns its result text. A script that fails isn't reported: the return value is
    /// what the host left as the result, or an empty string if it left nothing. Throws the integer 13 if the
    /// host has no "AEGP Utility Suite" or no "AEGP Memory Suite".
    static std::string RunSriptAndGetStringResult(SPBasicSuite* basic, const char* script);

    /// A copy of `text` without the white space at both ends. White space is blank, tab, line feed,
    /// vertical tab, form feed and carriage return.
    static std::string TrimStringWhiteSpaces(const std::string& text);
};

} // namespace Tessaloom::BilateralBlur
