#include "Host/Effect.h"
#include "Platform/UsableCpus.h"
#include "Program/Errors.h"
#include "Program/Memory.h"
#include "Program/Options.h"
#include "Program/Plan.h"
#include "Program/Report.h"
#include "Program/Sequence.h"
#include "Program/Supervisor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>

using namespace Tessaloom::BilateralBlur;
using namespace Tessaloom::BilateralBlur::Program;

namespace {

constexpr int kExitFailure = 1, kExitWrongUse = 2;

/// Prints on standard output. Throws Failure where that fails, on a full disk for instance.
void print(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw Failure(std::string("standard output: ") + std::strerror(errno));
}

std::string aboutText(const std::filesystem::path& module) {
    // The module prints what it runs on.
    std::cout.rdbuf(nullptr);
    const Host::Module loaded(module);
    std::string text = Host::Effect(loaded).about() + "\n";
    std::replace(text.begin(), text.end(), '\r', '\n');
    return text;
}

int blur(const Options& options, const std::filesystem::path& module) {
    if (options.memory > 0)
        boundMemory(options.memory);
    const Plan plan = makePlan(options);
    if (options.threads > 0)
        restrictToCpus(options.threads);
    Report report(options.quiet, static_cast<int>(plan.jobs.size() + plan.missing.size()));
    for (const std::string& note : plan.notes)
        report.note(options.input, note);
    if (!plan.missing.empty())
        report.framesFailed(options.input + ": no such frames: " + framesText(plan.missing),
                            static_cast<int>(plan.missing.size()));
    superviseJobs(plan.jobs, {module, options.values, {options.page}, {options.quality}, options.verbose},
                  report);
    return report.isComplete() ? 0 : kExitFailure;
}

int run(int argc, char** argv) {
    const Preliminaries preliminaries = parsePreliminaries(argc, argv);
    if (preliminaries.version) {
        print("bilateral-blur " BILATERAL_BLUR_VERSION "\n");
        return 0;
    }
    const std::filesystem::path module = preliminaries.module.empty() ? findModule() : preliminaries.module;
    if (std::error_code ignored; !std::filesystem::exists(module, ignored))
        throw Failure(module.string() + ": there is no such module");
    // Names, ranges and wrong use are known without loading the module, which takes a GPU driver.
    const Host::Resource effect =
        Host::readResource(std::filesystem::path(module).replace_extension(".plist"));
    const Options options = parseOptions(argc, argv, effect);
    if (options.help)
        print(helpText(effect));
    else if (!options.completion.empty())
        print(completionText(options.completion, effect));
    else if (options.about)
        print(aboutText(module));
    else
        return blur(options, module);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const auto report = [](const std::exception& error) {
        std::fprintf(stderr, "bilateral-blur: %s\n", error.what());
    };
    // These two end a process in the middle of a write. Ignored, the write fails and the failure is reported.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const WrongUse& error) {
        report(error);
        return kExitWrongUse;
    } catch (const std::exception& error) {
        report(error);
        return kExitFailure;
    }
}
