#include "Program/Errors.h"
#include "Program/Options.h"
#include "Program/OutputFile.h"
#include "Program/Pipeline.h"
#include "Program/Plan.h"
#include "Program/Report.h"

#include <vips/vips8>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <malloc.h>
#include <unistd.h>

using namespace Tessaloom::BilateralBlur;
using namespace Tessaloom::BilateralBlur::Program;

namespace {

constexpr int kExitFailure = 1, kExitWrongUse = 2;

// A frame of the size of high-definition video takes and frees blocks of some 30 MB, just under the size from
// which the C library hands memory back. It reuses them badly: a sequence would take 200 MB more than a
// frame.
void handLargeBlocksBack() {
    mallopt(M_MMAP_THRESHOLD, 16 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

// The next frame takes them as fresh pages, one fault each; in large pages that is some hundred times fewer.
// The C library has to be asked for these when a program starts.
void restartWithLargePages(char** argv) {
    constexpr const char* kTunables = "GLIBC_TUNABLES";
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error && !std::getenv(kTunables) && setenv(kTunables, "glibc.malloc.hugetlb=1", 1) == 0)
        execv(program.c_str(), argv);
}

void startVips(const char* program) {
    if (VIPS_INIT(program) != 0)
        throw Failure("the picture library doesn't start: " + std::string(vips_error_buffer()));
    // Beside the list of accepted formats, which every file must pass.
    vips_block_untrusted_set(TRUE);
    // The cache would keep whole pictures of a sequence alive, and each of the program's own threads has its
    // share of the work already.
    vips_cache_set_max(0);
    vips_concurrency_set(1);
    // Its warnings come in many lines; what matters of them makes a picture fail, in our words.
    g_log_set_handler(
        "VIPS", G_LOG_LEVEL_WARNING, [](auto, auto, auto, auto) {}, nullptr);
}

std::string lines(std::string text) {
    std::replace(text.begin(), text.end(), '\r', '\n');
    return text;
}

/// What the module prints goes to standard output with the program's own; where that must hold one thing
/// alone, or nothing, the module is silenced.
class Silence {
public:
    explicit Silence(bool wanted) {
        if (wanted)
            std::cout.rdbuf(nullptr);
    }
    ~Silence() { std::cout.rdbuf(mBuffer); }

private:
    std::streambuf* mBuffer = std::cout.rdbuf();
};

// The thread that ends the process on a signal asks it for the last words, at any moment; never destroyed.
std::atomic<Report*> mReport{nullptr};

int blur(const Options& options, const Work& work, Host::Effect& effect) {
    const int blurScale = parseBlurScale(options.blurScale, effect.slider());
    Report& report = *new Report(options.quiet, static_cast<int>(work.jobs.size() + work.failures.size()));
    mReport = &report;
    for (const std::string& note : work.notes)
        report.note(note);
    for (const std::string& failure : work.failures)
        report.frameFailed(failure);
    doWork(work.jobs, effect, blurScale, report);
    report.finish();
    return report.failed() > 0 ? kExitFailure : 0;
}

int run(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    if (options.version) {
        std::puts("bilateral-blur " BILATERAL_BLUR_VERSION);
        return 0;
    }
    const bool talksOnly = options.help || options.about;
    const Work work = talksOnly ? Work{} : planWork(options);
    if (work.jobs.size() > 1)
        restartWithLargePages(argv);
    const Host::Module module(options.module.empty() ? findModule() : options.module);
    const Silence silence(options.quiet || talksOnly);
    Host::Effect effect(module);
    if (options.help)
        std::fputs(helpText(module.resource().name, effect.slider()).c_str(), stdout);
    else if (options.about)
        std::puts(lines(effect.about()).c_str());
    else
        return blur(options, work, effect);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const auto tell = [](const std::exception& error) {
        std::fprintf(stderr, "bilateral-blur: %s\n", error.what());
    };
    handLargeBlocksBack();
    endCleanlyOnSignals([] {
        if (Report* report = mReport)
            report->interrupted();
    });
    try {
        startVips(argv[0]);
        return run(argc, argv);
    } catch (const WrongUse& error) {
        tell(error);
        return kExitWrongUse;
    } catch (const std::exception& error) {
        tell(error);
        return kExitFailure;
    }
}
