#include "Program/Work.h"

#include "Program/Errors.h"
#include "Program/Files/Picture.h"
#include "Program/OutputFile.h"
#include "Program/Queue.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

bool isThere(const path& file) {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

Work planPicture(const Options& options) {
    if (!options.frames.empty())
        throw WrongUse("--frames needs a sequence as INPUT, a name with #### or %04d: " + options.input);
    if (FramePattern::parse(options.output))
        throw WrongUse(options.output + ": a sequence as OUTPUT needs one as INPUT, with #### or %04d");
    checkReadable(options.input);
    return {.jobs = {{options.input, options.output, 0}}, .notes = {}, .failures = {}};
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
    if (!std::filesystem::equivalent(input.folder(), output.folder(), ignored))
        return;
    for (const int frame : frames)
        if (input.frameOf(output.file(frame).filename().string()))
            throw WrongUse(output.file(frame).string() +
                           ": the output's frames would replace the input's; name another folder or file");
}

Work planSequence(const Options& options, const FramePattern& input) {
    const std::optional<FramePattern> output = FramePattern::parse(options.output);
    if (!output)
        throw WrongUse(options.output + ": a sequence as INPUT needs one as OUTPUT, with #### or %04d");
    const std::vector<int> existing = input.existingFrames();
    const std::vector<int> wanted = options.frames.empty() ? existing : parseFrames(options.frames);
    const std::vector<int> missing = missingFrom(existing, wanted);
    const std::vector<int> frames = missingFrom(missing, wanted);
    if (frames.empty())
        throw Failure(options.input + ": no file of this name with a number" +
                      (options.frames.empty() ? "" : " of --frames " + options.frames));
    checkApart(input, *output, frames);

    Work work;
    for (const int frame : frames)
        work.jobs.push_back({input.file(frame), output->file(frame), frame});
    if (options.frames.empty() && !gapsOf(frames).empty())
        work.notes.push_back(options.input + ": there are gaps, without frames " +
                             framesText(gapsOf(frames)));
    for (const int frame : missing)
        work.failures.push_back(input.file(frame).string() + ": no such file");
    return work;
}

void skipExisting(Work& work) {
    const std::size_t before = work.jobs.size();
    std::erase_if(work.jobs, [](const Job& job) { return isThere(job.output); });
    if (const std::size_t skipped = before - work.jobs.size())
        work.notes.push_back(std::to_string(skipped) + (skipped == 1 ? " output exists" : " outputs exist") +
                             " already");
}

/// A picture on its way.
struct Frame {
    const Job* job;
    Picture picture;
};

/// Runs one step for one job; its failure is reported and gives false.
bool attempt(const path& file, Report& report, const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const std::bad_alloc&) {
        report.frameFailed(file.string() + ": out of memory");
    } catch (const Failure& failure) {
        report.frameFailed(failure.what());
    } catch (const std::exception& error) {
        report.frameFailed(file.string() + ": " + error.what());
    }
    return false;
}

/// Notes what of the pictures gets lost, once for each kind of loss.
class LossNotes {
public:
    explicit LossNotes(Report& report) : mReport(report) {}

    void look(const Frame& frame) {
        const std::string file = frame.job->input.string();
        if (frame.picture.is16Bit && !std::exchange(mToldDepth, true))
            mReport.note(file + ": the effect works with 8 bits a channel, 16 are rounded to that");
        if (frame.picture.pages > 1 && !std::exchange(mToldPages, true))
            mReport.note(file + ": of " + std::to_string(frame.picture.pages) +
                         " pages the first alone is filtered and written");
    }

private:
    Report& mReport;
    bool mToldDepth = false, mToldPages = false;
};

/// The way of the pictures between the threads, and of their worlds back for the pictures to come.
struct Line {
    Queue<Frame> toFilter{1}, toWrite{1};
    Queue<Host::World> spares{8}; ///< more than there are worlds on the way, so giving back never waits
};

void readAll(const std::vector<Job>& jobs, Line& line, Report& report) {
    LossNotes losses(report);
    for (const Job& job : jobs)
        attempt(job.input, report, [&] {
            // One picture read ahead is enough, and none is held while another waits.
            line.toFilter.waitForRoom();
            Frame frame{&job, readPicture(job.input, line.spares.tryPop().value_or(Host::World(0, 0)))};
            losses.look(frame);
            line.toFilter.push(std::move(frame));
        });
    line.toFilter.close();
    vips_thread_shutdown();
}

void filter(Frame& frame, Host::Effect& effect, int blurScale) {
    Host::World& world = frame.picture.world;
    const Host::Result result = effect.render(world, world, blurScale, {.current = frame.job->frame});
    if (!result.ok())
        throw Failure(frame.job->input.string() + ": " + result.text());
}

void filterAll(Line& line, Host::Effect& effect, int blurScale, Report& report) {
    while (std::optional<Frame> frame = line.toFilter.pop())
        if (attempt(frame->job->input, report, [&] { filter(*frame, effect, blurScale); }))
            line.toWrite.push(std::move(*frame));
    line.toWrite.close();
}

void writeAll(Line& line, Report& report) {
    while (std::optional<Frame> frame = line.toWrite.pop()) {
        const path& output = frame->job->output;
        if (attempt(output, report, [&] { replaceFile(output, encodePicture(frame->picture, output)); }))
            report.frameDone();
        line.spares.push(std::move(frame->picture.world));
    }
    vips_thread_shutdown();
}

} // namespace

Work planWork(const Options& options) {
    checkWritableType(options.output);
    const std::optional<FramePattern> input =
        isThere(options.input) ? std::nullopt : FramePattern::parse(options.input);
    Work work = input ? planSequence(options, *input) : planPicture(options);
    checkReplaceable(work.jobs.front().output);
    if (options.skipExisting)
        skipExisting(work);
    return work;
}

void doWork(const std::vector<Job>& jobs, Host::Effect& effect, int blurScale, Report& report) {
    Line line;
    std::jthread reader([&] { readAll(jobs, line, report); });
    // Compressing a picture is the slowest step of most sequences, and takes one core.
    std::jthread writer([&] { writeAll(line, report); });
    std::jthread otherWriter([&] { writeAll(line, report); });
    filterAll(line, effect, blurScale, report);
}

} // namespace Tessaloom::BilateralBlur::Program
