#pragma once

#include <csignal>

namespace Tessaloom::BilateralBlur {

/// SIGINT, SIGTERM and SIGHUP as something to wait for: they end nothing while an object of this class lives.
/// Those that the process was started to ignore stay ignored. To be made before any thread starts.
class EndingSignals {
public:
    /// Throws std::system_error where the system refuses the file descriptor.
    EndingSignals();
    ~EndingSignals();
    EndingSignals(const EndingSignals&) = delete;
    EndingSignals& operator=(const EndingSignals&) = delete;

    /// A file descriptor that is readable when one of the signals has arrived.
    int descriptor() const { return mDescriptor; }

    /// The signal that has arrived; waits for one.
    int take() const;

    /// For a child process: the signals end it as they do by default.
    void release() const;

private:
    sigset_t mSignals, mBefore;
    int mDescriptor;
};

/// Ends the process the way `signal` does by default, so that its parent sees what ended it.
[[noreturn]] void endBySignal(int signal);

} // namespace Tessaloom::BilateralBlur
