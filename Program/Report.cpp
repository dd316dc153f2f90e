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
    if (!mQuiet)
        for (const std::string& note : run.notes)
            line(run.name + ": " + note);
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

void Report::showProgress() {
    const Clock::time_point now = Clock::now();
    if (now - mShown < (mIsTerminal ? Clock::duration(100ms) : Clock::duration(5s)))
        return;
    mShown = now;
    const std::string text = progressText(std::chrono::duration<double>(now - mStart).count());
    if (!mIsTerminal)
        return line(text);
    std::fprintf(stderr, "\r\033[K%s", text.substr(0, terminalColumns()).c_str());
    mOnProgressLine = true;
}

std::string Report::progressText(double seconds) const {
    const auto done = mRun.those(Job::State::Done).size();
    const auto handled = done + mRun.those(Job::State::Failed).size();
    char text[128];
    std::snprintf(text, sizeof text, "%zu of %zu frames, %.1f a second, %s left", handled, mRun.jobs.size(),
                  static_cast<double>(done) / seconds,
                  durationText(static_cast<double>(mRun.jobs.size() - handled) * seconds /
                               static_cast<double>(std::max<std::size_t>(done, 1)))
                      .c_str());
    return text;
}

void Report::end() {
    if (!mRun.stopped.empty())
        line(mRun.stopped);
    if (mRun.jobs.size() < 2)
        return;
    const auto done = mRun.those(Job::State::Done).size();
    if (mRun.isInterrupted)
        return line("interrupted: " + std::to_string(done) + " of " + std::to_string(mRun.jobs.size()) +
                    " frames filtered");
    const std::vector<int> failed = mRun.framesOf(Job::State::Failed);
    std::vector<int> left = mRun.framesOf(Job::State::Waiting);
    const std::vector<int> started = mRun.framesOf(Job::State::Started);
    left.insert(left.end(), started.begin(), started.end());
    std::sort(left.begin(), left.end());
    if (!mQuiet || !failed.empty() || !left.empty())
        line(counted(done, "frame") + " filtered, " + std::to_string(failed.size()) + " failed" +
             (failed.empty() ? "" : ": " + framesText(failed)) +
             (left.empty() ? "" : ", not done: " + framesText(left)));
}

} // namespace Tessaloom::BilateralBlur::Program
