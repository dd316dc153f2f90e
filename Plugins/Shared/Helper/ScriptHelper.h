#pragma once

#include "HostInterface/EffectHost.h"

#include <string>

namespace Tessaloom::BilateralBlur {

/// Runs scripts in the host's scripting engine.
class ScriptHelper {
public:
    /// Runs `script` and returns its result text. A script that fails gives no sign: what the host left as
    /// the result comes back, and an empty string where it left nothing. A missing "AEGP Utility Suite" or
    /// "AEGP Memory Suite" is a thrown integer, 13.
    static std::string RunSriptAndGetStringResult(SPBasicSuite* basic, const char* script);

    /// A copy of `text` without the white space at its two ends. White space is blank, tab, line feed,
    /// vertical tab, form feed and carriage return.
    static std::string TrimStringWhiteSpaces(const std::string& text);
};

} // namespace Tessaloom::BilateralBlur
