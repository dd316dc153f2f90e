#include "Program/Options.h"

#include "Program/Errors.h"

#include <CLI/CLI.hpp>

#include <charconv>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// Name and range of the slider, as the options' help shows them.
std::string rangeText(const PF_ParamDef& slider) {
    return std::to_string(slider.u.sd.valid_min) + " to " + std::to_string(slider.u.sd.valid_max);
}

void addOptions(CLI::App& app, Options& options, const std::string& scaleHelp) {
    app.name("bilateral-blur");
    app.set_help_flag();
    app.add_option("INPUT", options.input,
                   "The picture to filter: JPEG, PNG, TIFF or WebP; or a numbered sequence, shot.####.png or "
                   "shot.%04d.png");
    app.add_option("OUTPUT", options.output,
                   "The file to write: .jpg, .png, .tif or .webp; for a sequence with a number as well");
    app.add_option("--blur-scale", options.blurScale, scaleHelp)->type_name("N");
    app.add_option("--frames", options.frames,
                   "Frames of a sequence: 1-240, 1-240x2 (every second), 7,10-20 (default: all that exist)")
        ->type_name("RANGES");
    app.add_flag("--skip-existing", options.skipExisting, "Leave outputs alone that exist already");
    app.add_option("--module", options.module, "The effect's module (default: the one beside the program)")
        ->type_name("PATH");
    app.add_flag("--quiet", options.quiet, "Print nothing but what went wrong");
    app.add_flag("--about", options.about, "Print what the effect says of itself, and exit");
    app.add_flag("--version", options.version, "Print the program's version, and exit");
    app.add_flag("-h,--help", options.help, "Print this text, and exit");
}

void requireArguments(const Options& options) {
    if (options.input.empty())
        throw WrongUse("INPUT is missing: the picture to filter (see --help)");
    if (options.output.empty())
        throw WrongUse("OUTPUT is missing: the file to write (see --help)");
}

} // namespace

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    CLI::App app;
    addOptions(app, options, "");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const std::string text = error.what();
        throw WrongUse(text.substr(0, text.find('\n')) + " (see --help)");
    }
    if (!options.help && !options.about && !options.version)
        requireArguments(options);
    return options;
}

std::string helpText(const std::string& effectName, const PF_ParamDef& slider) {
    Options unused;
    CLI::App app(effectName + " for pictures and sequences.");
    addOptions(app, unused,
               std::string(slider.name) + ", a whole number, " + rangeText(slider) + "; always needed");
    return app.help();
}

int parseBlurScale(const std::string& text, const PF_ParamDef& slider) {
    const std::string accepted = "a whole number, " + rangeText(slider);
    if (text.empty())
        throw WrongUse("--blur-scale is missing: " + accepted);
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end || value < slider.u.sd.valid_min || value > slider.u.sd.valid_max)
        throw WrongUse("--blur-scale " + text + ": needed is " + accepted);
    return value;
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
    throw Failure(name + ": the effect's module isn't beside the program or in its library folder; "
                         "name it with --module PATH");
}

} // namespace Tessaloom::BilateralBlur::Program
