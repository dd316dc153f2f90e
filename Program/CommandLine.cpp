#include "Program/CommandLine.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/FindModule.h"
#include "Program/Memory.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <sstream>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

template<class Number>
std::optional<Number> parsed(const std::string& text) {
    Number number{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

/// An option's text must be what `valueOf` knows; it is replaced by that value. `wanted` is for messages.
template<class ValueOf>
CLI::Validator accepts(const std::string& wanted, ValueOf valueOf) {
    return CLI::Validator(
        [=](std::string& text) {
            const auto value = valueOf(text);
            if (!value)
                return "must be " + wanted + ", not " + shortened(text);
            text = std::to_string(*value);
            return std::string();
        },
        "");
}

std::string wholeRange(std::int32_t minimum, std::int32_t maximum) {
    return "an integer from " + std::to_string(minimum) + " to " + std::to_string(maximum);
}

CLI::Validator whole(std::int32_t minimum, std::int32_t maximum) {
    return accepts(wholeRange(minimum, maximum), [=](const std::string& text) {
        const auto value = parsed<std::int32_t>(text);
        return value && minimum <= *value && *value <= maximum ? value : std::nullopt;
    });
}

CLI::Validator oneOf(const std::string& words) {
    return CLI::Validator(
        [=](std::string& text) {
            if (("|" + words + "|").find("|" + text + "|") != std::string::npos)
                return std::string();
            std::string list = words;
            for (std::size_t at = 0; (at = list.find('|', at)) != std::string::npos;)
                list.replace(at, 1, ", ");
            return "must be one of " + list + ", not " + shortened(text);
        },
        "");
}

CLI::Validator size() {
    return accepts("a size such as 800M or 4G", parseSize);
}

CLI::Validator compression() {
    constexpr int kHighest = 9;
    return accepts(wholeRange(0, kHighest) + ", or lzw", [](const std::string& text) {
        const auto level = text == "lzw" ? std::optional(kLzw) : parsed<int>(text);
        return level && 0 <= *level && *level <= (text == "lzw" ? kLzw : kHighest) ? level : std::nullopt;
    });
}

/// What users see for a slider's value: its share of `steps`, without zeros at the end.
std::string shownValue(const Host::Slider& slider, std::int32_t value) {
    char text[32];
    const auto [end, error] = std::to_chars(std::begin(text), std::end(text), double(value) / slider.steps);
    return {text, end};
}

CLI::Validator valueOf(const Host::Slider& slider) {
    if (slider.steps == 1)
        return whole(slider.minimum, slider.maximum);
    return accepts(rangeOf(slider), [slider](const std::string& text) -> std::optional<long> {
        const auto shown = parsed<double>(text);
        const double value = shown ? *shown * slider.steps : std::nan("");
        if (!(value >= slider.minimum - 1e-9 && value <= slider.maximum + 1e-9))
            return std::nullopt;
        return std::lround(value);
    });
}

} // namespace

std::string rangeOf(const Host::Slider& slider) {
    if (slider.steps == 1)
        return wholeRange(slider.minimum, slider.maximum);
    return "a number from " + shownValue(slider, slider.minimum) + " to " +
           shownValue(slider, slider.maximum);
}

CommandLine::CommandLine(const Host::Resource& effect)
    : app(effect.name + " for images, directories of them and numbered sequences.", "bilateral-blur") {
    app.set_help_flag();
    app.allow_extras();
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto add = [&](const std::string& name, auto& value, const char* type,
                         const std::string& description) {
        return app.add_option(name, value, description)->type_name(type);
    };
    app.add_option("INPUT", first,
                   "An image to filter: " + formatNames() +
                       "; - is standard input; or a numbered sequence, shot.####.png or shot.%04d.png; or a "
                       "directory, for the images in it");
    app.add_option("OUTPUT", second,
                   "The file to write: " + formatExtensions() +
                       "; - is standard output; for a sequence with a number as well; or a directory that "
                       "exists, for files with the names of the inputs");
    // Before all that may be wrong: parsing ends there, and the effect must be known to say what is wrong.
    CLI::Option* const key = add("--effect", preliminaries.effect, joined(effectKeys(), "|").c_str(),
                                 "The effect, whose options follow (default: " + effectKeys().front() + ")");
    options.values.resize(effect.sliders.size());
    for (std::size_t i = 0; i < options.values.size(); ++i) {
        const Host::Slider& slider = effect.sliders[i];
        options.values[i] = slider.defaultValue;
        add("--" + slider.key, options.values[i], "N",
            slider.description + ", " + rangeOf(slider) +
                (slider.isRequired ? "; required"
                                   : " (default: " + shownValue(slider, slider.defaultValue) + ")"))
            ->transform(valueOf(slider));
    }
    add("--frames", options.frames, "RANGES",
        "Frames of a sequence: 1-240, 1-240x2 (every second), 7,10-20 (default: all that exist)");
    app.add_flag("--skip-existing", options.skipExisting,
                 "Skip images whose output already exists, whatever it was made with");
    add("--format", options.format, formatChoices().c_str(),
        "The format of OUTPUT, also of all files in a directory (default: by the extension; for - the "
        "format of the input)")
        ->check(oneOf(formatChoices()));
    add("--quality", options.quality, "N", "Quality of JPEG and WebP, 1 to 100 (default: the input's)")
        ->transform(whole(1, 100));
    add("--compression", options.compression, "LEVEL",
        "Compression of PNG and TIFF, 0 (none) to 9 (the smallest file, slowly), or lzw for TIFF "
        "(default: 4 for PNG, lzw for TIFF)")
        ->transform(compression());
    add("--page", options.page, "N", "Filter only this page of a TIFF, or this frame of an animation, from 1")
        ->transform(whole(1, kMost));
    add("--memory", options.memory, "SIZE",
        "Use at most SIZE bytes of memory, as 800M or 4G (default: what is available)")
        ->transform(size());
    add("--threads", options.threads, "N", "Use at most N processor cores (default: all)")
        ->transform(whole(1, kMost));
    add("--module", preliminaries.module, "PATH", "The effect's module (default: the one beside the program)")
        ->excludes(key);
    app.add_flag("--quiet", options.quiet, "Print errors only");
    app.add_flag("--verbose", options.verbose, "Print also what the effect runs on");
    app.add_flag("--about", options.about, "Print the effect's about text and exit");
    constexpr const char* kShells = "bash|fish";
    add("--completion", options.completion, kShells,
        "Print a script that completes these options in a shell, and exit")
        ->check(oneOf(kShells));
    app.add_flag("--version", preliminaries.version, "Print the program's version and exit");
    app.add_flag("-h,--help", options.help, "Print this text and exit");
}

std::vector<const CLI::Option*> optionsOf(const CommandLine& line) {
    return line.app.get_options([](const CLI::Option* option) { return !option->get_positional(); });
}

std::vector<std::string> wordsOf(const CLI::Option& option) {
    std::vector<std::string> words;
    std::istringstream type(option.get_type_name());
    for (std::string word; std::getline(type, word, '|');)
        words.push_back(word);
    return words.size() > 1 ? words : std::vector<std::string>{};
}

std::string joined(const std::vector<std::string>& words, const std::string& between) {
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : between).append(word);
    return text;
}

} // namespace Tessaloom::BilateralBlur::Program
