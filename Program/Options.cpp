#include "Program/Options.h"

#include "Program/CommandLine.h"
#include "Program/Completion.h"
#include "Program/Errors.h"
#include "Program/Help.h"

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// INPUT, those that follow it, and OUTPUT. Throws WrongUse for an unknown option, whose value, if what follows
/// is one, is among the files then.
std::vector<std::string> filesOf(const CommandLine& line) {
    std::vector<std::string> files{line.first, line.second}, unknown;
    bool isAfterMark = false; // only files follow
    for (const std::string& text : line.app.remaining()) {
        if (!isAfterMark && text == "--")
            isAfterMark = true;
        else if (!isAfterMark && text.size() > 1 && text.front() == '-')
            unknown.push_back(shortened(text));
        else
            files.push_back(text);
    }
    if (!unknown.empty())
        throw WrongUse("unknown option " + firstOf(unknown, 1) + " (see --help)");
    return files;
}

void requireArguments(const CommandLine& line, const Host::Resource& effect) {
    if (line.first.empty())
        throw WrongUse("INPUT is missing: the image to filter (see --help)");
    if (line.second.empty())
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
    line.options.inputs = filesOf(line);
    line.options.output = line.options.inputs.back();
    line.options.inputs.pop_back();
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
