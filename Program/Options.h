#pragma once

#include "Host/Module.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// What has to be known of the command line before the rest can be read.
struct Preliminaries {
    std::filesystem::path module{}; ///< empty where the program is to find it
    bool version = false;
};

/// The command line.
struct Options {
    std::string input, output;
    std::vector<std::int32_t> values{};  ///< of the effect's sliders, in the order of their declaration
    std::optional<std::string> frames{}; ///< as typed
    unsigned threads = 0;                ///< 0 where it isn't given
    bool skipExisting = false, quiet = false, verbose = false;
    bool help = false, about = false;
};

/// Looks for the options of `Preliminaries` alone.
Preliminaries parsePreliminaries(int argc, const char* const* argv);

/// Reads the command line. `effect` is what the module's property list says. Throws WrongUse for an unknown
/// option, a missing or wrong value, or an argument too many. That input, output and all values are given is
/// checked only where neither `help` nor `about` is set.
Options parseOptions(int argc, const char* const* argv, const Host::Resource& effect);

/// The text of --help.
std::string helpText(const Host::Resource& effect);

/// The module to load where --module isn't given: beside the program, where an installation puts it, or
/// where the build makes it. Throws Failure where it is in none of these places.
std::filesystem::path findModule();

} // namespace Tessaloom::BilateralBlur::Program
