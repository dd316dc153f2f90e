#include "Program/Pipeline.h"

#include "Program/Errors.h"
#include "Program/Files/Picture.h"
#include "Program/OutputFile.h"
#include "Program/Queue.h"

#include <functional>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

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

void doWork(const std::vector<Job>& jobs, Host::Effect& effect, int blurScale, Report& report) {
    Line line;
    std::jthread reader([&] { readAll(jobs, line, report); });
    // Compressing a picture is the slowest step of most sequences, and takes one core.
    std::jthread writer([&] { writeAll(line, report); });
    std::jthread otherWriter([&] { writeAll(line, report); });
    filterAll(line, effect, blurScale, report);
}

} // namespace Tessaloom::BilateralBlur::Program
