#include "Program/Options.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/Memory.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <sstream>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// "--blur-scale" of "Blur Scale".
std::string optionOf(const Host::Slider& slider) {
    std::string name = slider.name;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
        return static_cast<char>(std::isalnum(c) ? std::tolower(c) : '-');
    });
    return name.insert(0, "--");
}

std::string rangeText(std::int32_t minimum, std::int32_t maximum) {
    return "an integer from " + std::to_string(minimum) + " to " + std::to_string(maximum);
}

/// An option's text as a number.
std::int32_t parseNumber(const std::string& option, const std::string& text, std::int32_t minimum,
                         std::int32_t maximum) {
    std::int32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end || value < minimum || value > maximum)
        throw WrongUse(option + " " + text + ": must be " + rangeText(minimum, maximum));
    return value;
}

/// The declaration of the command line, for whatever is made from it.
struct CommandLine {
    explicit CommandLine(const Host::Resource& effect);

    CLI::App app;
    Options options;
    std::vector<std::string> values; ///< as typed, of the sliders
    std::string module, quality, page, memory, threads;
    bool version = false;
};

CommandLine::CommandLine(const Host::Resource& effect)
    : app(effect.name + " for images and numbered sequences."), values(effect.sliders.size()) {
    app.name("bilateral-blur");
    app.set_help_flag();
    app.allow_extras();
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("INPUT", options.input,
                   "The image to filter: " + formatNames() +
                       "; - is standard input; or a numbered sequence, shot.####.png or shot.%04d.png");
    app.add_option("OUTPUT", options.output,
                   "The file to write: " + formatExtensions() +
                       "; - is standard output; for a sequence with a number as well");
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Host::Slider& slider = effect.sliders[i];
        app.add_option(optionOf(slider), values[i],
                       slider.name + ", " + rangeText(slider.minimum, slider.maximum) + "; required")
            ->type_name("N");
    }
    app.add_option("--frames", options.frames,
                   "Frames of a sequence: 1-240, 1-240x2 (every second), 7,10-20 (default: all that exist)")
        ->type_name("RANGES");
    app.add_flag("--skip-existing", options.skipExisting, "Skip frames whose output already exists");
    app.add_option("--format", options.format,
                   "The format of OUTPUT (default: by its extension; for - the format of the input)")
        ->type_name(formatChoices());
    app.add_option("--quality", quality, "Quality of JPEG and WebP, 1 to 100 (default: the input's)")
        ->type_name("N");
    app.add_option("--page", page, "Filter only this page of a TIFF, or this frame of an animation, from 1")
        ->type_name("N");
    app.add_option("--memory", memory,
                   "Use at most SIZE bytes of memory, as 800M or 4G (default: what is available)")
        ->type_name("SIZE");
    app.add_option("--threads", threads, "Use at most N processor cores (default: all)")->type_name("N");
    app.add_option("--module", module, "The effect's module (default: the one beside the program)")
        ->type_name("PATH");
    app.add_flag("--quiet", options.quiet, "Print errors only");
    app.add_flag("--verbose", options.verbose, "Print also what the effect runs on");
    app.add_flag("--about", options.about, "Print the effect's about text and exit");
    app.add_option("--completion", options.completion,
                   "Print a script that completes these options in a shell, and exit")
        ->type_name("bash|fish");
    app.add_flag("--version", version, "Print the program's version and exit");
    app.add_flag("-h,--help", options.help, "Print this text and exit");
}

/// For messages, a text of any length.
std::string shortened(const std::string& text) {
    constexpr std::size_t kMost = 60;
    return text.size() <= kMost ? text : text.substr(0, kMost) + "...";
}

void refuseSurplus(const std::vector<std::string>& surplus) {
    if (surplus.empty())
        return;
    const bool isOption = surplus.front().size() > 1 && surplus.front().front() == '-';
    const std::string more = surplus.size() > 1 ? " and " + std::to_string(surplus.size() - 1) + " more" : "";
    throw WrongUse((isOption ? "unknown option " : "unexpected argument ") + shortened(surplus.front()) +
                   more + " (see --help)");
}

/// The words that an option takes, where its type is a list of them, as "png|jpeg".
std::vector<std::string> choicesOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.find('|') == std::string::npos ? std::vector<std::string>{} : CLI::detail::split(type, '|');
}

void checkChoices(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        const std::vector<std::string> choices = choicesOf(*option);
        if (!choices.empty() && option->count() > 0 &&
            std::find(choices.begin(), choices.end(), option->as<std::string>()) == choices.end())
            throw WrongUse(option->get_name() + " " + shortened(option->as<std::string>()) +
                           ": must be one of " + CLI::detail::join(choices, ", "));
    }
}

void requireArguments(const CommandLine& line, const Host::Resource& effect) {
    if (line.options.input.empty())
        throw WrongUse("INPUT is missing: the image to filter (see --help)");
    if (line.options.output.empty())
        throw WrongUse("OUTPUT is missing: the file to write (see --help)");
    for (std::size_t i = 0; i < effect.sliders.size(); ++i)
        if (line.app.count(optionOf(effect.sliders[i])) == 0)
            throw WrongUse(optionOf(effect.sliders[i]) +
                           " is missing: " + rangeText(effect.sliders[i].minimum, effect.sliders[i].maximum));
}

/// "-h, --help", "--threads=N".
std::string namesOf(const CLI::Option& option) {
    std::string names;
    for (const std::string& name : option.get_snames())
        names.append("-").append(name).append(", ");
    names += option.get_name();
    return option.get_items_expected() > 0 ? names + "=" + option.get_type_name() : names;
}

/// A name and its description side by side, in lines of at most 79 characters.
std::string helpEntry(const std::string& name, const std::string& description) {
    constexpr std::size_t kColumn = 22, kWidth = 79;
    std::string text, line = std::string(2, ' ') + name + " ";
    if (line.size() > kColumn)
        text = std::exchange(line, "").substr(0, name.size() + 2) + "\n";
    std::istringstream words(description);
    for (std::string word; words >> word;) {
        if (line.size() + word.size() > kWidth) {
            text += line.substr(0, line.size() - 1) + "\n";
            line.clear();
        }
        line.resize(std::max(line.size(), kColumn), ' ');
        line += word + " ";
    }
    return text + line.substr(0, line.size() - 1) + "\n";
}

/// The options of a command line, without its positional arguments.
std::vector<const CLI::Option*> optionsOf(const CommandLine& line) {
    return line.app.get_options([](const CLI::Option* option) { return !option->get_positional(); });
}

/// Where nothing of ours fits, bash completes file names.
std::string bashCompletion(const CommandLine& line) {
    std::string names, choices;
    for (const CLI::Option* option : optionsOf(line)) {
        names += option->get_name() + " ";
        if (!choicesOf(*option).empty())
            choices += "    " + option->get_name() + ") words='" +
                       CLI::detail::join(choicesOf(*option), " ") + "' ;;\n";
    }
    return "_bilateral_blur() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} words=\n"
           "    [[ $word == = ]] && word=\n"
           "    [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD-2]}\n"
           "    case $before in\n" +
           choices + "    *) [[ $word == -* ]] && words='" + names +
           "' ;;\n"
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "}\n"
           "complete -o default -F _bilateral_blur bilateral-blur\n";
}

std::string fishCompletion(const CommandLine& line) {
    std::string script;
    for (const CLI::Option* option : optionsOf(line)) {
        const std::string description = CLI::detail::find_and_replace(option->get_description(), "'", "\\'");
        script += "complete -c bilateral-blur -l " + option->get_lnames().front();
        if (!choicesOf(*option).empty())
            script += " -xa '" + CLI::detail::join(choicesOf(*option), " ") + "'";
        else if (option->get_items_expected() > 0)
            script += option->get_type_name() == "PATH" ? " -rF" : " -x";
        script += " -d '" + description + "'\n";
    }
    return script;
}

} // namespace

Preliminaries parsePreliminaries(int argc, const char* const* argv) {
    CommandLine line{Host::Resource{}};
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError&) {
        // The parser of the whole command line reports it.
    }
    return {line.module, line.version};
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
    Options options = line.options;
    checkChoices(line.app);
    if (options.help || options.about || !options.completion.empty())
        return options;
    requireArguments(line, effect);
    for (std::size_t i = 0; i < effect.sliders.size(); ++i) {
        const Host::Slider& slider = effect.sliders[i];
        options.values.push_back(
            parseNumber(optionOf(slider), line.values[i], slider.minimum, slider.maximum));
    }
    const auto parseIfGiven = [&](const char* option, const std::string& text, std::int32_t maximum) {
        return line.app.count(option) > 0 ? parseNumber(option, text, 1, maximum) : 0;
    };
    options.quality = parseIfGiven("--quality", line.quality, 100);
    options.page = parseIfGiven("--page", line.page, std::numeric_limits<std::int32_t>::max());
    options.threads = parseIfGiven("--threads", line.threads, std::numeric_limits<std::int32_t>::max());
    if (line.app.count("--memory") > 0)
        options.memory = parseSize(line.memory);
    return options;
}

std::string helpText(const Host::Resource& effect) {
    const CommandLine line(effect);
    std::string text =
        "Usage: bilateral-blur [OPTION]... INPUT OUTPUT\n" + line.app.get_description() + "\n\n";
    for (const CLI::Option* option : line.app.get_options())
        if (option->get_positional())
            text += helpEntry(option->get_name(true), option->get_description());
    text += "\n";
    for (const CLI::Option* option : optionsOf(line))
        text += helpEntry(namesOf(*option), option->get_description());
    return text;
}

std::string completionText(const std::string& shell, const Host::Resource& effect) {
    const CommandLine line(effect);
    return shell == "bash" ? bashCompletion(line) : fishCompletion(line);
}

std::filesystem::path findModule() {
    const std::filesystem::path directory = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string name = "BilateralBlur.so";
    for (const char* place : {".", BILATERAL_BLUR_INSTALLED_MODULE, "../Plugins/BilateralBlur"}) {
        std::filesystem::path module = (directory / place / name).lexically_normal();
        std::error_code ignored;
        if (std::filesystem::exists(module, ignored))
            return module;
    }
    throw Failure(name + ": the effect's module isn't beside the program or in its library directory; "
                         "name it with --module PATH");
}

} // namespace Tessaloom::BilateralBlur::Program
