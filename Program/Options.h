#pragma once

#include "HostInterface/EffectHost.h"

#include <filesystem>
#include <optional>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// The command line.
struct Options {
    std::string input, output;
    std::string blurScale;          ///< as typed; empty where it wasn't
    std::string frames;             ///< as typed; empty where it wasn't
    std::filesystem::path module{}; ///< empty where the program is to find it
    bool skipExisting = false, quiet = false;
    bool help = false, about = false, version = false;
};

/// Reads the command line. Throws WrongUse for an unknown option, a missing value or an argument too many.
/// That input, output and scale are there is tested only where none of `help`, `about` and `version` is set.
Options parseOptions(int argc, const char* const* argv);

/// The text of --help. `effectName` and `slider` are as the module declares them.
std::string helpText(const std::string& effectName, const PF_ParamDef& slider);

/// The value of --blur-scale. Throws WrongUse where it isn't a whole number of the slider's range.
int parseBlurScale(const std::string& text, const PF_ParamDef& slider);

/// The module to load where --module isn't given: beside the program, where an installation puts it, or
/// where the build makes it. Throws Failure where it is in none of these places.
std::filesystem::path findModule();

} // namespace Tessaloom::BilateralBlur::Program
