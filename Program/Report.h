#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// What the program tells on standard error while it works. Failures are always told, the rest only where
/// the user didn't ask for quiet. Any thread may report.
///
/// Progress of a sequence is one line that is written over and over on a terminal, and elsewhere a line
/// every few seconds.
class Report {
public:
    /// `frames` is what there is to do; progress is told for more than one.
    Report(bool quiet, int frames);

    void note(const std::string& text);

    /// Tells what a frame failed of, and counts it.
    void frameFailed(const std::string& text);
    void frameDone();

    /// The last line: how many frames were done and failed. Nothing for a single picture.
    void finish();

    /// The last line where a signal ends the work.
    void interrupted();

    int failed() const;

private:
    void line(const std::string& text);
    void showProgress();
    std::string progressText(double seconds) const;

    using Clock = std::chrono::steady_clock;

    const bool mQuiet, mIsTerminal;
    const int mFrames;
    const Clock::time_point mStart = Clock::now();
    mutable std::mutex mMutex;
    int mDone = 0, mFailed = 0;
    Clock::time_point mShown = mStart;
    bool mOnProgressLine = false;
};

} // namespace Tessaloom::BilateralBlur::Program
