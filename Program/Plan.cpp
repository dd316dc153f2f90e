#include "Program/Plan.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/OutputFile.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <unistd.h>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

bool isThere(const path& file) {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

/// Null where the output has the format of the input.
const Format* outputFormat(const Options& options) {
    if (!options.format.empty())
        return formatNamed(options.format);
    return options.output == kStandardStream ? nullptr : &formatOf(options.output);
}

Run planImage(const Options& options, const Format* format) {
    if (options.frames)
        throw WrongUse("--frames needs a sequence as INPUT, a name with #### or %04d: " + options.input);
    return {.name = options.input,
            .jobs = {{.input = options.input, .output = options.output, .format = format}}};
}

/// The frames of a rising range that aren't in `present`, which is rising too.
std::vector<int> missingFrom(const std::vector<int>& present, const std::vector<int>& wanted) {
    std::vector<int> missing;
    std::set_difference(wanted.begin(), wanted.end(), present.begin(), present.end(),
                        std::back_inserter(missing));
    return missing;
}

std::vector<int> gapsOf(const std::vector<int>& frames) {
    std::vector<int> gaps;
    for (std::size_t i = 1; i < frames.size(); ++i)
        for (int frame = frames[i - 1] + 1; frame < frames[i]; ++frame)
            gaps.push_back(frame);
    return gaps;
}

/// Throws WrongUse where writing these frames would replace files that belong to the input.
void checkApart(const FramePattern& input, const FramePattern& output, const std::vector<int>& frames) {
    std::error_code ignored;
    if (!std::filesystem::equivalent(input.directory(), output.directory(), ignored))
        return;
    for (const int frame : frames)
        if (input.frameOf(output.file(frame).filename().string()))
            throw WrongUse(output.file(frame).string() +
                           ": the output's frames would replace the input's; name another directory or file");
}

Run planSequence(const Options& options, const FramePattern& input, const Format* format) {
    const std::optional<FramePattern> output = FramePattern::parse(options.output);
    if (!output)
        throw WrongUse(options.output + ": a sequence as INPUT needs one as OUTPUT, with #### or %04d");
    if (const std::optional<path> padded = input.patternOfPadded())
        throw WrongUse(options.input +
                       ": there are files whose numbers have leading zeros; name them all with " +
                       padded->string());
    const std::vector<int> existing = input.existingFrames();
    const std::vector<int> wanted = options.frames ? parseFrames(*options.frames) : existing;
    const std::vector<int> missing = missingFrom(existing, wanted);
    if (missing.size() == wanted.size())
        throw Failure(options.input + ": no frames found" +
                      (options.frames ? " with a number of --frames " + *options.frames : ""));
    checkApart(input, *output, wanted);

    Run run{.name = options.input, .jobs = {}};
    for (const int frame : wanted)
        run.jobs.push_back(
            {.input = input.file(frame), .output = output->file(frame), .format = format, .frame = frame});
    for (Job& job : run.jobs)
        if (std::binary_search(missing.begin(), missing.end(), job.frame)) {
            job.state = Job::State::Failed;
            job.reason = options.input + ": no such frames: " + framesText(missing);
        }
    if (!options.frames && !gapsOf(wanted).empty())
        run.notes.push_back("missing frames " + framesText(gapsOf(wanted)));
    return run;
}

void skipExisting(Run& run) {
    const std::size_t before = run.jobs.size();
    std::erase_if(run.jobs,
                  [](const Job& job) { return job.state == Job::State::Waiting && isThere(job.output); });
    if (const std::size_t skipped = before - run.jobs.size())
        run.notes.push_back(std::to_string(skipped) + (skipped == 1 ? " output exists" : " outputs exist") +
                            " already");
}

} // namespace

Run makePlan(const Options& options) {
    // Before anything is looked for: a wrong name of the output is wrong use whatever the input is.
    const Format* format = outputFormat(options);
    if (options.output == kStandardStream && isatty(STDOUT_FILENO))
        throw WrongUse("standard output is a terminal; redirect it or name a file as OUTPUT");
    const std::optional<FramePattern> input =
        isThere(options.input) ? std::nullopt : FramePattern::parse(options.input);
    Run run = input ? planSequence(options, *input, format) : planImage(options, format);
    if (options.output == kStandardStream)
        return run;
    checkReplaceable(run.jobs.front().output);
    if (options.skipExisting)
        skipExisting(run);
    return run;
}

} // namespace Tessaloom::BilateralBlur::Program
