#include "Program/Options.h"

#include "Program/CommandLine.h"
#include "Program/Completion.h"
#include "Program/Errors.h"
#include "Program/Help.h"

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// Refuses what no option and no argument takes. What follows an unknown option may be meant as its value.
void refuseSurplus(const std::vector<std::string>& surplus) {
    std::vector<std::string> options, arguments;
    bool isAfterMark = false; // only arguments follow
    for (const std::string& text : surplus) {
        if (!isAfterMark && text == "--")
            isAfterMark = true;
        else if (!isAfterMark && text.size() > 1 && text.front() == '-')
            options.push_back(text);
        else
            arguments.push_back(text);
    }
    const std::vector<std::string>& named = options.empty() ? arguments : options;
    if (named.empty())
        return;
    throw WrongUse((options.empty() ? "unexpected argument " : "unknown option ") + shortened(named.front()) +
                   (named.size() > 1 ? " and " + std::to_string(named.size() - 1) + " more" : "") +
                   " (see --help)");
}

void requireArguments(const CommandLine& line, const Host::Resource& effect) {
    if (line.options.input.empty())
        throw WrongUse("INPUT is missing: the image to filter (see --help)");
    if (line.options.output.empty())
        throw WrongUse("OUTPUT is missing: the file to write (see --help)");
    for (const Host::Slider& slider : effect.sliders)
        if (slider.isRequired && line.app.count("--" + slider.key) == 0)
            throw WrongUse("--" + slider.key + " is missing: " + rangeOf(slider) + " (see --help)");
}

} // namespace

Preliminaries parsePreliminaries(int argc, const char* const* argv) {
    CommandLine line{Host::Resource{}};
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError&) {
        // The parser of the whole command line reports it.
    }
    return line.preliminaries;
}

Options parseOptions(int argc, const char* const* argv, const Host::Resource& effect) {
    CommandLine line(effect);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const std::string text = error.what();
        throw WrongUse(text.substr(0, text.find('\n')) + " (see --help)");
    }
    refuseSurplus(line.app.remaining());
    if (!line.options.help && !line.options.about && line.options.completion.empty())
        requireArguments(line, effect);
    return line.options;
}

std::string helpText(const Host::Resource& effect) {
    return helpText(CommandLine(effect));
}

std::string completionText(const std::string& shell, const Host::Resource& effect) {
    return completionText(shell, CommandLine(effect));
}

} // namespace Tessaloom::BilateralBlur::Program
