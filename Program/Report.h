#pragma once

#include "Program/Run.h"

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// What the program prints on standard error while it works. Failures are always printed, the rest only where
/// the user didn't ask for quiet. A text is printed once, with the first file that it is about.
///
/// Progress of several images is one line, rewritten in place on a terminal and cut to its width; elsewhere a
/// line every few seconds. Until one is done, and for a single image, the line says on a terminal what is being done,
/// and for how long.
class Report {
public:
    /// Prints what is known before the work starts.
    Report(const Run& run, bool quiet);

    void noted(const Job& job);  ///< its last note is new
    void failed(const Job& job); ///< its state is new
    void done();                 ///< the state of a job is new

    void doing(const std::string& text) { mDoing = text; } ///< as "filtering 40 x 30 pixels"
    void tick();                                           ///< nothing was new for a while

    /// The last lines: why the run has ended, and how many images were done and failed.
    void end();

private:
    void line(const std::string& text);
    bool isNew(const std::string& text, const Job& job);
    void showProgress();
    std::string progressText(double seconds) const;
    std::string named(const std::vector<int>& jobs) const;

    using Clock = std::chrono::steady_clock;

    const Run& mRun;
    const bool mQuiet, mIsTerminal;
    std::string mDoing;
    const Clock::time_point mStart = Clock::now();
    std::set<std::string> mPrinted;
    Clock::time_point mShown = mStart;
    bool mOnProgressLine = false;
};

} // namespace Tessaloom::BilateralBlur::Program
