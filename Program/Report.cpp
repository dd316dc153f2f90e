#include "Program/Report.h"

#include "Program/Errors.h"
#include "Program/Sequence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using namespace std::chrono_literals;

/// "1:02:03", "2:03".
std::string durationText(double seconds) {
    const long all = std::lround(seconds);
    char text[32];
    if (all >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", all / 3600, all / 60 % 60, all % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", all / 60, all % 60);
    return text;
}

std::string counted(std::size_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

/// The columns that a line may take on the terminal of standard error now.
std::size_t terminalColumns() {
    winsize size{};
    // The last column is left free: some terminals start a new line after it.
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1 : 79;
}

} // namespace

Report::Report(const Run& run, bool quiet)
    : mRun(run), mQuiet(quiet), mIsTerminal(isatty(STDERR_FILENO) != 0) {
    if (!run.jobs.empty())
        mDoing = "reading " + run.jobs.front().input.string();
    if (!mQuiet)
        for (const std::string& note : run.notes)
            line(note);
    for (const int index : run.those(Job::State::Failed))
        failed(run.jobs[static_cast<std::size_t>(index)]);
}

void Report::line(const std::string& text) {
    // A line shorter than the progress would leave some of it on the terminal.
    std::fprintf(stderr, "%sbilateral-blur: %s\n", mOnProgressLine ? "\r\033[K" : "",
                 printable(text).c_str());
    mOnProgressLine = false;
}

/// Whether a text wasn't printed before, whichever of a job's files it names.
bool Report::isNew(const std::string& text, const Job& job) {
    std::string cause = text;
    for (const std::string& name : {job.input.string(), job.output.string()})
        if (cause.starts_with(name + ": "))
            cause.erase(0, name.size());
    return mPrinted.insert(cause).second;
}

void Report::noted(const Job& job) {
    if (!mQuiet && isNew(job.notes.back(), job))
        line(job.input.string() + ": " + job.notes.back());
}

void Report::failed(const Job& job) {
    if (isNew(job.reason, job))
        line(job.reason);
}

void Report::done() {
    if (!mQuiet && mRun.jobs.size() > 1)
        showProgress();
}

void Report::tick() {
    if (!mQuiet && mIsTerminal)
        showProgress();
}

void Report::showProgress() {
    const Clock::time_point now = Clock::now();
    if (now - mShown < (mIsTerminal ? Clock::duration(100ms) : Clock::duration(5s)))
        return;
    mShown = now;
    const std::string text = progressText(std::chrono::duration<double>(now - mStart).count());
    if (!mIsTerminal)
        return line(text);
    std::fprintf(stderr, "\r\033[K%s", printable(text).substr(0, terminalColumns()).c_str());
    mOnProgressLine = true;
}

std::string Report::progressText(double seconds) const {
    const auto done = mRun.those(Job::State::Done).size();
    const auto handled = done + mRun.those(Job::State::Failed).size();
    if (handled == 0)
        return mDoing + ", " + durationText(seconds);
    char text[128];
    std::snprintf(text, sizeof text, "%zu of %zu %s, %.1f a second, %s left", handled, mRun.jobs.size(),
                  mRun.isSequence ? "frames" : "images", static_cast<double>(done) / seconds,
                  durationText(static_cast<double>(mRun.jobs.size() - handled) * seconds /
                               static_cast<double>(std::max<std::size_t>(done, 1)))
                      .c_str());
    return text;
}

/// The frames that some jobs are for, or the first of their files.
std::string Report::named(const std::vector<int>& jobs) const {
    constexpr std::size_t kMost = 10;
    std::vector<int> frames;
    std::vector<std::string> names;
    for (const int index : jobs) {
        const Job& job = mRun.jobs[static_cast<std::size_t>(index)];
        frames.push_back(job.frame);
        names.push_back(job.input.string());
    }
    return mRun.isSequence ? framesText(frames) : firstOf(names, kMost);
}

void Report::end() {
    if (mOnProgressLine)
        std::fputs("\r\033[K", stderr);
    mOnProgressLine = false;
    if (!mRun.stopped.empty())
        line(mRun.stopped);
    if (mRun.jobs.size() < 2)
        return;
    const std::string noun = mRun.isSequence ? "frame" : "image";
    const auto done = mRun.those(Job::State::Done).size();
    if (mRun.isInterrupted)
        return line("interrupted: " + std::to_string(done) + " of " + counted(mRun.jobs.size(), noun) +
                    " filtered");
    const std::vector<int> failed = mRun.those(Job::State::Failed);
    std::vector<int> left = mRun.those(Job::State::Waiting);
    const std::vector<int> started = mRun.those(Job::State::Started);
    left.insert(left.end(), started.begin(), started.end());
    std::sort(left.begin(), left.end());
    if (!mQuiet || !failed.empty() || !left.empty())
        line(counted(done, noun) + " filtered, " + std::to_string(failed.size()) + " failed" +
             (failed.empty() ? "" : ": " + named(failed)) +
             (left.empty() ? "" : ", not done: " + named(left)));
}

} // namespace Tessaloom::BilateralBlur::Program
