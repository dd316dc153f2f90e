#include "Program/Plan.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageFile.h"
#include "Program/Files/InputFile.h"
#include "Program/OutputFile.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <unistd.h>

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

Plan planImage(const Options& options) {
    if (options.frames)
        throw WrongUse("--frames needs a sequence as INPUT, a name with #### or %04d: " + options.input);
    const Format* format = outputFormat(options);
    auto opened = std::make_shared<ImageFile>(options.input, ReadOptions{options.page});
    if (format)
        opened->checkHeldBy(*format, outputName(options.output));
    return {.jobs = {{options.input, options.output, format, 0, std::move(opened)}}};
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

Plan planSequence(const Options& options, const FramePattern& input) {
    const std::optional<FramePattern> output = FramePattern::parse(options.output);
    if (!output)
        throw WrongUse(options.output + ": a sequence as INPUT needs one as OUTPUT, with #### or %04d");
    const std::vector<int> existing = input.existingFrames();
    const std::vector<int> wanted = options.frames ? parseFrames(*options.frames) : existing;
    const std::vector<int> missing = missingFrom(existing, wanted);
    const std::vector<int> frames = missingFrom(missing, wanted);
    if (frames.empty())
        throw Failure(options.input + ": no frames found" +
                      (options.frames ? " with a number of --frames " + *options.frames : ""));
    checkApart(input, *output, frames);

    Plan plan;
    const Format* format = outputFormat(options);
    for (const int frame : frames)
        plan.jobs.push_back({input.file(frame), output->file(frame), format, frame});
    if (!options.frames && !gapsOf(frames).empty())
        plan.notes.push_back("missing frames " + framesText(gapsOf(frames)));
    plan.missing = missing;
    return plan;
}

void skipExisting(Plan& plan) {
    const std::size_t before = plan.jobs.size();
    std::erase_if(plan.jobs, [](const Job& job) { return isThere(job.output); });
    if (const std::size_t skipped = before - plan.jobs.size())
        plan.notes.push_back(std::to_string(skipped) + (skipped == 1 ? " output exists" : " outputs exist") +
                             " already");
}

} // namespace

std::string outputName(const path& output) {
    return output == kStandardStream ? "standard output" : output.string();
}

Plan makePlan(const Options& options) {
    outputFormat(options);
    if (options.output == kStandardStream && isatty(STDOUT_FILENO))
        throw WrongUse("standard output is a terminal; redirect it or name a file as OUTPUT");
    const std::optional<FramePattern> input =
        isThere(options.input) ? std::nullopt : FramePattern::parse(options.input);
    Plan plan = input ? planSequence(options, *input) : planImage(options);
    if (options.output == kStandardStream)
        return plan;
    checkReplaceable(plan.jobs.front().output);
    if (options.skipExisting)
        skipExisting(plan);
    return plan;
}

} // namespace Tessaloom::BilateralBlur::Program
