#include "Program/Files/InputFile.h"

#include "Program/Errors.h"
#include "Program/Files/Format.h"
#include "Program/Memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

[[noreturn]] void fail(const path& path, const std::string& why) {
    throw Failure(inputName(path) + ": " + why);
}

/// Linux would open what is behind the second name once more, and wait where that is a named pipe.
bool isStandardInput(const path& path) {
    return path == "-" || path == "/dev/stdin";
}

/// An open file; standard input stays open.
class Descriptor {
public:
    explicit Descriptor(const path& path) : mPath(path) {
        if (isStandardInput(path))
            return;
        mFile = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (mFile < 0)
            fail(path, errno == ENOENT ? "no such file" : std::strerror(errno));
    }
    ~Descriptor() {
        if (mFile != STDIN_FILENO)
            close(mFile);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Size of a regular file; 0 for a pipe, whose end isn't known.
    std::size_t size() const {
        struct stat status;
        if (fstat(mFile, &status) != 0)
            fail(mPath, std::strerror(errno));
        if (S_ISDIR(status.st_mode))
            fail(mPath, "this is a directory; an image is needed (" + formatNames() + ")");
        if (isatty(mFile))
            fail(mPath, "this is a terminal; an image is needed, from a file or a pipe");
        return S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
    }

    /// Fills what it can of a block; fewer bytes at the end of the file alone.
    std::size_t read(std::span<std::byte> block) const {
        std::size_t filled = 0;
        while (filled < block.size()) {
            const ssize_t count = ::read(mFile, block.data() + filled, block.size() - filled);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                fail(mPath, std::string("can't be read: ") + std::strerror(errno));
            if (count == 0)
                break;
            filled += static_cast<std::size_t>(count);
        }
        return filled;
    }

private:
    const path mPath;
    int mFile = STDIN_FILENO;
};

} // namespace

std::string inputName(const path& path) {
    return path == "-" ? "standard input" : path.string();
}

Bytes readInput(const path& path, const std::function<bool(std::span<const std::byte>)>& isAccepted) {
    constexpr std::size_t kStart = 4096, kSmallest = 1 << 20;
    const Descriptor file(path);
    const std::size_t expected = file.size();
    Bytes bytes(kStart);
    std::size_t size = file.read(bytes);
    if (size == 0)
        fail(path, "the file is empty");
    if (!isAccepted(std::span(bytes).first(size)))
        fail(path, "this isn't an image in " + formatNames());
    while (size == bytes.size()) {
        // One byte more than expected, so that the end is seen.
        const std::size_t next = std::max({expected + 1, bytes.size() * 2, kSmallest});
        requireMemory(inputName(path) + ": the bytes of the file", next - size);
        bytes.resize(next);
        size += file.read(std::span(bytes).subspan(size));
    }
    bytes.resize(size);
    return bytes;
}

} // namespace Tessaloom::BilateralBlur::Program
