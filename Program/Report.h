#pragma once

#include <chrono>
#include <set>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// What the program prints on standard error while it works. Failures are always printed, the rest only where
/// the user didn't ask for quiet.
///
/// Progress of a sequence is one line, rewritten in place on a terminal and cut to its width; elsewhere a
/// line every few seconds.
class Report {
public:
    /// @param frames how many frames are to be done; progress is printed for more than one.
    Report(bool quiet, int frames);

    /// Prints `subject` and `text`. A text is printed once, with the first subject that it is about.
    void note(const std::string& subject, const std::string& text);

    /// @param frames how many frames the text is about.
    void framesFailed(const std::string& text, int frames = 1);
    void frameDone();

    /// The last line of a sequence: how many frames were done and failed.
    void finish();

    /// The last lines where `text` ended the work before its end.
    /// @param remaining the frames of a sequence that weren't tried, as a list of ranges; may be empty.
    void stopped(const std::string& text, const std::string& remaining);

    /// The last line where a signal ended the work.
    void interrupted();

    /// True where every frame is done.
    bool isComplete() const { return mDone == mFrames; }

private:
    void line(const std::string& text);
    void showProgress();
    std::string progressText(double seconds) const;

    using Clock = std::chrono::steady_clock;

    const bool mQuiet, mIsTerminal;
    const int mFrames;
    const Clock::time_point mStart = Clock::now();
    int mDone = 0, mFailed = 0;
    std::set<std::string> mNotes;
    Clock::time_point mShown = mStart;
    bool mOnProgressLine = false;
};

} // namespace Tessaloom::BilateralBlur::Program
