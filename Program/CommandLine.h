#pragma once

#include "Host/Module.h"
#include "Program/Options.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// The declaration of the command line, for whatever is made from it: its values, the help, completion scripts.
struct CommandLine {
    /// `effect` is what the module's property list says. Where it has no sliders, their options are unknown.
    explicit CommandLine(const Host::Resource& effect);
    CommandLine(const CommandLine&) = delete; // the options refer to the members
    CommandLine& operator=(const CommandLine&) = delete;

    CLI::App app;
    Options options;
    std::string first, second; ///< files; those that follow are what remains after parsing
    Preliminaries preliminaries;
};

/// The options, without the positional arguments.
std::vector<const CLI::Option*> optionsOf(const CommandLine& line);

/// The words that an option takes, where its type is a list of them, as "png|jpeg"; else none.
std::vector<std::string> wordsOf(const CLI::Option& option);

/// What a slider's option takes, as users see it: "an integer from 0 to 60", "a number from 0 to 1".
std::string rangeOf(const Host::Slider& slider);

/// "a, b" with ", " between the words.
std::string joined(const std::vector<std::string>& words, const std::string& between);

} // namespace Tessaloom::BilateralBlur::Program
