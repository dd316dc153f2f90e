#include "Platform/EndingSignals.h"

#include <cerrno>
#include <cstdlib>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace Tessaloom::BilateralBlur {

EndingSignals::EndingSignals() {
    sigemptyset(&mSignals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current;
        if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
            sigaddset(&mSignals, signal);
    }
    mDescriptor = signalfd(-1, &mSignals, SFD_CLOEXEC);
    if (mDescriptor < 0)
        throw std::system_error(errno, std::generic_category(), "can't watch for signals");
    sigprocmask(SIG_BLOCK, &mSignals, &mBefore);
}

EndingSignals::~EndingSignals() {
    close(mDescriptor);
    release();
}

int EndingSignals::take() const {
    signalfd_siginfo info{};
    while (read(mDescriptor, &info, sizeof info) < 0 && errno == EINTR)
        continue;
    return static_cast<int>(info.ssi_signo);
}

void EndingSignals::release() const {
    sigprocmask(SIG_SETMASK, &mBefore, nullptr);
}

void endBySignal(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
    std::abort(); // the signal's default is to end the process
}

} // namespace Tessaloom::BilateralBlur
