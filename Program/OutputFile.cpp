#include "Program/OutputFile.h"

#include "Program/Errors.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

/// True for errors that every write to the same directory meets.
bool isCommon(int error) {
    return error == ENOSPC || error == EDQUOT || error == EROFS || error == ENOENT || error == ESTALE;
}

[[noreturn]] void failWithErrno(const path& file) {
    const std::string text = file.string() + ": can't be written: " + std::strerror(errno);
    if (isCommon(errno))
        throw CommonFailure(text);
    throw Failure(text);
}

/// The file that a write to `file` ends in: links are followed, whether or not they lead to a file.
path resolved(const path& file) {
    constexpr int kMostLinks = 40; // as the system has it
    std::error_code error;
    path target = std::filesystem::absolute(file, error);
    if (error)
        throw CommonFailure(file.string() + ": the current directory is gone; name OUTPUT from the root");
    for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(target, error); ++links)
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    const path directory = std::filesystem::canonical(target.parent_path(), error);
    return error ? target : directory / target.filename();
}

/// The name of a temporary beside a file: with `mark` empty the one that every run knows.
path temporaryOf(const path& target, const std::string& mark = "") {
    std::string name = std::string(".").append(target.filename().string()).append(mark).append(".part");
    if (name.size() > NAME_MAX)
        name = ".bilateral-blur-" + std::to_string(std::hash<std::string>()(name)) + ".part";
    return target.parent_path() / name;
}

/// A name that no other run uses at the same time: of this process, or of the one that watches it.
path ownTemporaryOf(const path& target) {
    static const std::string kMark = std::string(".").append(std::to_string(getpid()));
    return temporaryOf(target, kMark);
}
// Before the process has children.
[[maybe_unused]] const path kMarkIsMade = ownTemporaryOf("/x");

enum class Lock { Taken, Held, Impossible };

/// Locks a file that the path still names. The lock goes with the process.
Lock lock(int file, const path& temporary) {
    struct stat opened, named;
    if (flock(file, LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? Lock::Held : Lock::Impossible;
    // Another process may have locked and removed it between its opening and the lock.
    const bool isNamed = fstat(file, &opened) == 0 && lstat(temporary.c_str(), &named) == 0 &&
                         opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
    return isNamed ? Lock::Taken : Lock::Held;
}

int create(const path& temporary, mode_t mode) {
    return open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

/// True for what only a run of this user can have left there: no pipe, nobody else's file, no file with a second
/// name.
bool isOurs(const path& temporary) {
    struct stat status;
    return lstat(temporary.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           status.st_uid == geteuid();
}

/// Removes what an earlier run has left. Held where that run, or another, is at work.
Lock removeLeft(const path& temporary) {
    const int left = open(temporary.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (left < 0)
        return errno == ENOENT ? Lock::Taken : Lock::Impossible;
    const Lock result = lock(left, temporary);
    if (result == Lock::Taken)
        unlink(temporary.c_str());
    close(left);
    return result;
}

/// A temporary, open and locked for this process alone where the file system has locks.
struct Opened {
    int file;
    path name;
};

/// Makes the temporary that every run knows, so that two runs of one file don't mix. Waits a moment for one that
/// another process holds: the process that did the work of a killed run ends just after it. Without locks, or
/// where something else has that name, the temporary has a name of this run's own. `file` is -1 where the system
/// refuses, with EWOULDBLOCK for a lock.
Opened openTemporary(const path& target, mode_t mode) {
    constexpr int kTries = 20;
    constexpr std::chrono::milliseconds kPause{50};
    const path known = temporaryOf(target);
    Lock state = Lock::Held;
    for (int tries = 0; tries < kTries && state != Lock::Impossible; ++tries) {
        if (tries > 0 && state == Lock::Held)
            std::this_thread::sleep_for(kPause);
        if (const int file = create(known, mode); file >= 0) {
            state = lock(file, known);
            if (state == Lock::Taken)
                return {file, known};
            if (state == Lock::Impossible)
                unlink(known.c_str());
            close(file);
        } else if (errno != EEXIST) {
            return {-1, known};
        } else {
            state = isOurs(known) ? removeLeft(known) : Lock::Impossible;
        }
    }
    if (state != Lock::Impossible) {
        errno = EWOULDBLOCK;
        return {-1, known};
    }
    const path own = ownTemporaryOf(target);
    unlink(own.c_str()); // of an earlier process with this number
    return {create(own, mode), own};
}

/// False where the system refuses, with errno set.
bool writeBytes(int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

/// The temporary beside a file; removed unless it took the name.
class Temporary {
public:
    explicit Temporary(const path& target) : mTarget(target) {
        // Nobody who may not read the old file may read the new one meanwhile.
        const bool isNew = stat(mTarget.c_str(), &mBefore) != 0;
        auto [file, name] = openTemporary(mTarget, isNew ? 0666 : 0600);
        if (file < 0 && errno == EWOULDBLOCK)
            throw Failure(mTarget.string() + ": another program is writing it");
        if (file < 0)
            failWithErrno(mTarget);
        mFile = file;
        mPath = std::move(name);
        mReplaces = !isNew;
    }

    ~Temporary() {
        if (mFile < 0)
            return;
        unlink(mPath.c_str());
        close(mFile);
    }

    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    void write(std::span<const std::byte> bytes) {
        if (!writeBytes(mFile, bytes))
            failWithErrno(mTarget);
    }

    void takeName() {
        if (mReplaces)
            keepOwnerAndMode();
        // Without this a machine that fails could leave the name with no bytes behind it.
        if (fsync(mFile) != 0 && errno != EINVAL)
            failWithErrno(mTarget);
        if (rename(mPath.c_str(), mTarget.c_str()) != 0)
            failWithErrno(mTarget);
        close(std::exchange(mFile, -1));
    }

private:
    void keepOwnerAndMode() {
        // Only the superuser may give a file away, and anybody only to a group of theirs. A file of another
        // owner must not run as that owner.
        const bool kept = fchown(mFile, mBefore.st_uid, mBefore.st_gid) == 0;
        if (!kept && fchown(mFile, -1, mBefore.st_gid) != 0)
            errno = 0;
        struct stat now {};
        const mode_t wanted = mBefore.st_mode & (kept ? 07777 : 0777);
        // Some file systems have one mode for all files, and refuse even that.
        if (fstat(mFile, &now) == 0 && (now.st_mode & 07777) != wanted && fchmod(mFile, wanted) != 0)
            throw Failure(mTarget.string() + ": its permissions can't be kept: " + std::strerror(errno));
    }

    const path mTarget;
    path mPath;
    struct stat mBefore {};
    bool mReplaces = false;
    int mFile = -1;
};

} // namespace

void replaceFile(const path& file, std::span<const std::byte> bytes) {
    checkReplaceable(file);
    Temporary temporary(resolved(file));
    temporary.write(bytes);
    temporary.takeName();
}

void writeStandardOutput(int descriptor, std::span<const std::byte> bytes) {
    if (!writeBytes(descriptor, bytes))
        throw Failure(std::string("standard output: ") + std::strerror(errno));
}

void checkReplaceable(const path& file) {
    const path target = resolved(file);
    std::error_code ignored;
    const auto status = std::filesystem::status(target, ignored);
    if (std::filesystem::is_directory(status))
        throw Failure(file.string() + ": this is a directory; name a file");
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw Failure(file.string() + ": not a regular file; refusing to overwrite it");
    checkDirectoryExists(target);
    if (access(target.parent_path().c_str(), W_OK | X_OK) != 0)
        throw CommonFailure(file.string() + ": the directory can't be written to: " + std::strerror(errno));
    if (std::filesystem::exists(status) && access(target.c_str(), W_OK) != 0)
        throw Failure(file.string() + ": can't be replaced: " + std::strerror(errno));
}

void checkDirectoryExists(const path& file) {
    std::error_code ignored;
    const path directory = std::filesystem::absolute(file, ignored).parent_path();
    if (!std::filesystem::is_directory(directory, ignored))
        throw CommonFailure(file.string() + ": there is no directory " + directory.string());
}

void removeTemporary(const path& file) {
    const path target = resolved(file);
    if (isOurs(temporaryOf(target)))
        removeLeft(temporaryOf(target));
    unlink(ownTemporaryOf(target).c_str());
}

} // namespace Tessaloom::BilateralBlur::Program
