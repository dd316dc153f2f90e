#pragma once

#include <csignal>

namespace Tessaloom::BilateralBlur {

/// Blocks all signals in the calling thread for the length of a scope. Threads that it starts meanwhile inherit
/// that and keep it, so the host's signal handlers run on the host's threads only.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &mFormer);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mFormer, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t mFormer;
};

} // namespace Tessaloom::BilateralBlur
