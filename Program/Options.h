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
    std::string effect{};           ///< its key; empty where it isn't given
    std::filesystem::path module{}; ///< empty where the program is to find it
    bool version = false;
};

/// The command line.
struct Options {
    std::vector<std::string> inputs; ///< files, patterns of sequences and directories, as typed
    std::string output;
    std::vector<std::int32_t> values{};  ///< of the effect's sliders, in the order of their declaration
    std::optional<std::string> frames{}; ///< as typed
    std::string format{};                ///< as typed; empty where it isn't given, as are those below where 0
    int quality = 0, page = 0;
    int compression = -1;     ///< WriteOptions::compression
    std::uint64_t memory = 0; ///< bytes
    unsigned threads = 0;
    bool skipExisting = false, quiet = false, verbose = false;
    bool help = false, about = false;
    std::string completion{}; ///< the shell whose completion script is to be printed; empty for none
};

/// Looks for the options of `Preliminaries` alone.
Preliminaries parsePreliminaries(int argc, const char* const* argv);

/// Reads the command line. `effect` is what the module's property list says. Throws WrongUse for an unknown
/// option, a missing or wrong value, or an argument too many. That input, output and the values of sliders that
/// require one are given is checked only where none of `help`, `about` and `completion` is set; other sliders have
/// their defaults.
Options parseOptions(int argc, const char* const* argv, const Host::Resource& effect);

/// The text of --help.
std::string helpText(const Host::Resource& effect);

/// The text of --completion, a script that completes the options for "bash" or "fish".
std::string completionText(const std::string& shell, const Host::Resource& effect);

} // namespace Tessaloom::BilateralBlur::Program
