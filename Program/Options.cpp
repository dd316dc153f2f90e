#include "Program/Options.h"

#include "Program/Errors.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sstream>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// "--blur-scale" of "Blur Scale".
std::string optionOf(const Host::Slider& slider) {
    std::string name = "--" + slider.name;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
        return static_cast<char>(std::isalnum(c) ? std::tolower(c) : '-');
    });
    return name;
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
    std::string module, threads;
    bool version = false;
};

CommandLine::CommandLine(const Host::Resource& effect)
    : app(effect.name + " for images and numbered sequences."), values(effect.sliders.size()) {
    app.name("bilateral-blur");
    app.set_help_flag();
    app.allow_extras();
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("INPUT", options.input,
                   "The image to filter: JPEG, PNG, TIFF or WebP; or a numbered sequence, shot.####.png or "
                   "shot.%04d.png");
    app.add_option("OUTPUT", options.output,
                   "The file to write: .jpg, .png, .tif or .webp; for a sequence with a number as well");
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
    app.add_option("--threads", threads, "Use at most N processor cores (default: all)")->type_name("N");
    app.add_option("--module", module, "The effect's module (default: the one beside the program)")
        ->type_name("PATH");
    app.add_flag("--quiet", options.quiet, "Print errors only");
    app.add_flag("--verbose", options.verbose, "Print also what the effect runs on");
    app.add_flag("--about", options.about, "Print the effect's about text and exit");
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
        names += "-" + name + ", ";
    names += "--" + option.get_lnames().front();
    return option.get_items_expected() > 0 ? names + "=" + option.get_type_name() : names;
}

/// A name and its description side by side, in lines of at most 79 characters.
std::string helpEntry(const std::string& name, const std::string& description) {
    constexpr std::size_t kColumn = 22, kWidth = 79;
    std::string text, line = "  " + name + " ";
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
    if (options.help || options.about)
        return options;
    requireArguments(line, effect);
    for (std::size_t i = 0; i < effect.sliders.size(); ++i) {
        const Host::Slider& slider = effect.sliders[i];
        options.values.push_back(
            parseNumber(optionOf(slider), line.values[i], slider.minimum, slider.maximum));
    }
    if (line.app.count("--threads") > 0)
        options.threads = parseNumber("--threads", line.threads, 1, 1024);
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
    for (const CLI::Option* option : line.app.get_options())
        if (!option->get_positional())
            text += helpEntry(namesOf(*option), option->get_description());
    return text;
}

std::filesystem::path findModule() {
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string name = "BilateralBlur.so";
    for (const char* place : {".", BILATERAL_BLUR_INSTALLED_MODULE, "../Plugins/BilateralBlur"}) {
        std::filesystem::path module = (folder / place / name).lexically_normal();
        std::error_code ignored;
        if (std::filesystem::exists(module, ignored))
            return module;
    }
    throw Failure(name + ": the effect's module isn't beside the program or in its library directory; "
                         "name it with --module PATH");
}

} // namespace Tessaloom::BilateralBlur::Program
