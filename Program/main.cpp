#include "Host/Effect.h"
#include "Platform/UsableCpus.h"
#include "Program/Errors.h"
#include "Program/Files/Bytes.h"
#include "Program/FindModule.h"
#include "Program/Memory.h"
#include "Program/ModuleOutput.h"
#include "Program/Options.h"
#include "Program/OutputFile.h"
#include "Program/Plan.h"
#include "Program/Report.h"
#include "Program/Run.h"
#include "Program/Supervisor.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Tessaloom::BilateralBlur;
using namespace Tessaloom::BilateralBlur::Program;

namespace {

constexpr int kExitFailure = 1, kExitWrongUse = 2;

void print(const std::string& text) {
    writeStandardOutput(STDOUT_FILENO, bytesOf(text));
}

void printAbout(const std::filesystem::path& module) {
    const int standardOutput = takeStandardOutput(false);
    const Host::Module loaded(module);
    std::string text = Host::Effect(loaded).about() + "\n";
    std::replace(text.begin(), text.end(), '\r', '\n');
    writeStandardOutput(standardOutput, bytesOf(text));
}

/// The module's property list. Names, ranges and wrong use are known by it without loading the module, which takes a
/// GPU driver.
Host::Resource resourceOf(std::filesystem::path module) {
    return Host::readResource(module.replace_extension(".plist"));
}

/// The sliders of all effects that are there, each name once.
Host::Resource allEffects() {
    Host::Resource all;
    for (const std::string& key : presentEffects())
        for (const Host::Slider& slider : resourceOf(findModule(key)).sliders)
            if (std::none_of(all.sliders.begin(), all.sliders.end(),
                             [&](const Host::Slider& other) { return other.key == slider.key; }))
                all.sliders.push_back(slider);
    return all;
}

int blur(const Options& options, const std::filesystem::path& module, const Host::Resource& effect) {
    if (options.memory > 0)
        boundMemory(options.memory);
    Run run = makePlan(options);
    if (options.threads > 0)
        restrictToCpus(options.threads);
    Report report(run, options.quiet);
    superviseJobs(run,
                  {.module = module,
                   .values = options.values,
                   .reading = {options.page, effect.takes(PF_PixelFormat_ARGB128)},
                   .writing = {options.quality, options.compression},
                   .verbose = options.verbose},
                  report);
    return run.isComplete() ? 0 : kExitFailure;
}

/// A file that the program opens must not become a standard stream that the caller has closed.
void openStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", O_RDWR); // takes the lowest number that is free
}

int run(int argc, char** argv) {
    const Preliminaries preliminaries = parsePreliminaries(argc, argv);
    if (preliminaries.version) {
        print("bilateral-blur " BILATERAL_BLUR_VERSION "\n");
        return 0;
    }
    const std::filesystem::path module =
        preliminaries.module.empty() ? findModule(preliminaries.effect) : preliminaries.module;
    if (std::error_code ignored; !std::filesystem::exists(module, ignored)) {
        const std::vector<std::string> present = presentEffects();
        throw Failure(module.string() + ": there is no such module" +
                      (present.empty() ? "" : "; --effect takes " + firstOf(present, present.size())));
    }
    const Host::Resource effect = resourceOf(module);
    const Options options = parseOptions(argc, argv, effect);
    if (options.help)
        print(helpText(effect));
    else if (!options.completion.empty())
        print(completionText(options.completion, preliminaries.module.empty() ? allEffects() : effect));
    else if (options.about)
        printAbout(module);
    else
        return blur(options, module, effect);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const auto report = [](const std::exception& error) {
        std::fprintf(stderr, "bilateral-blur: %s\n", printable(error.what()).c_str());
    };
    openStandardStreams();
    // Where a caller ignores it, a process that has ended leaves no word of how.
    std::signal(SIGCHLD, SIG_DFL);
    // These two end a process in the middle of a write. Ignored, the write fails and the failure is reported.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const WrongUse& error) {
        report(error);
        return kExitWrongUse;
    } catch (const std::bad_alloc&) {
        report(Failure("out of memory"));
        return kExitFailure;
    } catch (const std::exception& error) {
        report(error);
        return kExitFailure;
    }
}
