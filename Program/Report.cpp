#include "Program/Report.h"

#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

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

std::string counted(int number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

/// The columns that a line may take on the terminal of standard error now.
std::size_t terminalColumns() {
    winsize size{};
    // The last column is left free: some terminals start a new line after it.
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1 : 79;
}

} // namespace

Report::Report(bool quiet, int frames)
    : mQuiet(quiet), mIsTerminal(isatty(STDERR_FILENO) != 0), mFrames(frames) {}

void Report::line(const std::string& text) {
    // A line shorter than the progress would leave some of it on the terminal.
    std::fprintf(stderr, "%sbilateral-blur: %s\n", mOnProgressLine ? "\r\033[K" : "", text.c_str());
    mOnProgressLine = false;
}

void Report::note(const std::string& subject, const std::string& text) {
    if (!mQuiet && mNotes.insert(text).second)
        line(subject + ": " + text);
}

void Report::framesFailed(const std::string& text, int frames) {
    mFailed += frames;
    line(text);
}

void Report::frameDone() {
    ++mDone;
    if (!mQuiet && mFrames > 1)
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
    const int handled = mDone + mFailed;
    char text[128];
    std::snprintf(text, sizeof text, "%d of %d frames, %.1f a second, %s left", handled, mFrames,
                  mDone / seconds, durationText((mFrames - handled) * seconds / mDone).c_str());
    return text;
}

void Report::finish() {
    if (mFrames > 1 && (!mQuiet || mFailed > 0))
        line(counted(mDone, "frame") + " filtered, " + std::to_string(mFailed) + " failed");
}

void Report::stopped(const std::string& text, const std::string& remaining) {
    line(text);
    if (mFrames > 1)
        line(counted(mDone, "frame") + " filtered, " + std::to_string(mFailed) + " failed" +
             (remaining.empty() ? "" : ", not done: " + remaining));
}

void Report::interrupted() {
    if (mFrames > 1)
        line("interrupted: " + std::to_string(mDone) + " of " + std::to_string(mFrames) + " frames filtered");
}

} // namespace Tessaloom::BilateralBlur::Program
