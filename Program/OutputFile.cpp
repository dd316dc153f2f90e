#include "Program/OutputFile.h"

#include "Program/Errors.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

// Held while a temporary comes into being or ceases to be one. The thread that ends the process takes it and
// never gives it back, so nothing appears or gets its name after the clean-up.
struct Temporaries {
    std::mutex mutex;
    std::set<path> paths;
};

Temporaries& temporaries() {
    // Never destroyed: the thread that waits for signals outlives `main`.
    static Temporaries& kTemporaries = *new Temporaries;
    return kTemporaries;
}

[[noreturn]] void failWithErrno(const path& file) {
    throw Failure(file.string() + ": can't be written: " + std::strerror(errno));
}

/// The temporary beside a file, open and locked for this process alone; removed unless it took the name.
class Temporary {
public:
    explicit Temporary(const path& target)
        : mTarget(target),
          mPath(target.parent_path() / path(".").concat(target.filename().string() + ".part")) {
        const std::lock_guard lock(temporaries().mutex);
        mFile = openLocked();
        temporaries().paths.insert(mPath);
        // Another run may have left some of its bytes.
        if (ftruncate(mFile, 0) != 0) {
            const int error = errno;
            discard();
            errno = error;
            failWithErrno(mTarget);
        }
    }

    ~Temporary() {
        const std::lock_guard lock(temporaries().mutex);
        if (mFile >= 0)
            discard();
    }

    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    void write(std::span<const std::byte> bytes) {
        while (!bytes.empty()) {
            const ssize_t written = ::write(mFile, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR)
                continue;
            if (written < 0)
                failWithErrno(mTarget);
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
    }

    void takeName() {
        struct stat before;
        if (stat(mTarget.c_str(), &before) == 0)
            fchmod(mFile, before.st_mode & 07777);
        // Without this a machine that fails could leave the name with no bytes behind it.
        if (fsync(mFile) != 0 && errno != EINVAL)
            failWithErrno(mTarget);
        const std::lock_guard lock(temporaries().mutex);
        if (rename(mPath.c_str(), mTarget.c_str()) != 0)
            failWithErrno(mTarget);
        temporaries().paths.erase(mPath);
        close(std::exchange(mFile, -1));
    }

private:
    int openLocked() {
        const int file = open(mPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (file < 0)
            failWithErrno(mTarget);
        struct stat opened, named;
        // The second test finds a temporary that took its name between the opening and the lock.
        if (flock(file, LOCK_EX | LOCK_NB) != 0 || fstat(file, &opened) != 0 ||
            stat(mPath.c_str(), &named) != 0 || opened.st_ino != named.st_ino) {
            close(file);
            throw Failure(mTarget.string() + ": another program is writing it");
        }
        return file;
    }

    void discard() {
        unlink(mPath.c_str());
        temporaries().paths.erase(mPath);
        close(std::exchange(mFile, -1));
    }

    const path mTarget, mPath;
    int mFile = -1;
};

/// The file that a write to `file` ends in: links are followed, a file need not exist.
path resolved(const path& file) {
    std::error_code error;
    const path absolute = std::filesystem::absolute(file);
    path real = std::filesystem::weakly_canonical(absolute, error);
    return error ? absolute : real;
}

void waitForSignal(const sigset_t& signals, const std::function<void()>& lastWords) {
    int signal = 0;
    if (sigwait(&signals, &signal) != 0)
        return;
    temporaries().mutex.lock();
    for (const path& temporary : temporaries().paths)
        unlink(temporary.c_str());
    lastWords();
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    kill(getpid(), signal);
}

} // namespace

void replaceFile(const path& file, std::span<const std::byte> bytes) {
    Temporary temporary(resolved(file));
    temporary.write(bytes);
    temporary.takeName();
}

void checkReplaceable(const path& file) {
    const path target = resolved(file);
    std::error_code ignored;
    const auto status = std::filesystem::status(target, ignored);
    if (std::filesystem::is_directory(status))
        throw Failure(file.string() + ": this is a folder; the name of a file is needed");
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw Failure(file.string() + ": this isn't a regular file, and isn't replaced");
    const path folder = target.parent_path();
    if (!std::filesystem::is_directory(folder, ignored))
        throw Failure(file.string() + ": there is no folder " + folder.string());
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw Failure(file.string() + ": the folder can't be written to: " + std::strerror(errno));
}

void endCleanlyOnSignals(std::function<void()> lastWords) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current;
        if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
            sigaddset(&signals, signal);
    }
    // All threads that start later inherit this; without it one of them would take the signal.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // These two end the process in the middle of a write, which then fails and is told in words instead.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    temporaries();
    std::thread([signals, words = std::move(lastWords)] { waitForSignal(signals, words); }).detach();
}

} // namespace Tessaloom::BilateralBlur::Program
