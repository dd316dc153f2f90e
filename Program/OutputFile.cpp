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
    path target = std::filesystem::absolute(file);
    for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(target, error); ++links)
        target = target.parent_path() / std::filesystem::read_symlink(target, error);
    const path directory = std::filesystem::canonical(target.parent_path(), error);
    return error ? target : directory / target.filename();
}

path temporaryOf(const path& target) {
    std::string name = std::string(".").append(target.filename().string()).append(".part");
    if (name.size() > NAME_MAX)
        name = ".bilateral-blur-" + std::to_string(std::hash<std::string>()(name)) + ".part";
    return target.parent_path() / name;
}

/// Opens and locks a temporary; -1 where that fails. The lock goes with the process.
int openLocked(const path& temporary, int flags) {
    const int file = open(temporary.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | flags, 0666);
    struct stat opened, named;
    // The second test finds a temporary that took its name between the opening and the lock.
    if (file >= 0 && (flock(file, LOCK_EX | LOCK_NB) != 0 || fstat(file, &opened) != 0 ||
                      stat(temporary.c_str(), &named) != 0 || opened.st_ino != named.st_ino)) {
        close(file);
        errno = EWOULDBLOCK;
        return -1;
    }
    return file;
}

/// The same, but waits a moment for a lock: the process that did the work of a killed run ends just after it.
int openOnceFree(const path& temporary) {
    constexpr int kTries = 20;
    constexpr std::chrono::milliseconds kPause{50};
    int file = openLocked(temporary, O_CREAT);
    for (int tries = 1; file < 0 && errno == EWOULDBLOCK && tries < kTries; ++tries) {
        std::this_thread::sleep_for(kPause);
        file = openLocked(temporary, O_CREAT);
    }
    return file;
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

/// The temporary beside a file, open and locked for this process alone; removed unless it took the name.
class Temporary {
public:
    explicit Temporary(const path& target)
        : mTarget(target), mPath(temporaryOf(target)), mFile(openOnceFree(mPath)) {
        if (mFile < 0 && errno == EWOULDBLOCK)
            throw Failure(mTarget.string() + ": another program is writing it");
        if (mFile < 0)
            failWithErrno(mTarget);
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
        // Another run may have left some of its bytes.
        if (ftruncate(mFile, 0) != 0)
            failWithErrno(mTarget);
        if (!writeBytes(mFile, bytes))
            failWithErrno(mTarget);
    }

    void takeName() {
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
        struct stat before;
        if (stat(mTarget.c_str(), &before) != 0)
            return;
        // Only the superuser may give a file away, and anybody only to a group of theirs. A file of another
        // owner must not run as that owner.
        const bool kept = fchown(mFile, before.st_uid, before.st_gid) == 0;
        if (!kept && fchown(mFile, -1, before.st_gid) != 0)
            errno = 0;
        fchmod(mFile, before.st_mode & (kept ? 07777 : 0777));
    }

    const path mTarget, mPath;
    int mFile;
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
    const path directory = std::filesystem::absolute(file).parent_path();
    std::error_code ignored;
    if (!std::filesystem::is_directory(directory, ignored))
        throw CommonFailure(file.string() + ": there is no directory " + directory.string());
}

void removeTemporary(const path& file) {
    const path temporary = temporaryOf(resolved(file));
    const int left = openLocked(temporary, 0);
    if (left < 0)
        return;
    unlink(temporary.c_str());
    close(left);
}

} // namespace Tessaloom::BilateralBlur::Program
