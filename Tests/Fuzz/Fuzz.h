#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include <unistd.h>

/// What libFuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Tessaloom::BilateralBlur::Tests {

/// Ends the run with the condition's text, as libFuzzer does for a crash, where it doesn't hold.
#define FUZZ_CHECK(condition)                                                                                \
    ((condition) ? void()                                                                                    \
                 : (std::fprintf(stderr, "%s:%d: not " #condition "\n", __FILE__, __LINE__), std::abort()))

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// A file for inputs of code that reads files; in memory, and removed when the run ends.
class InputFile {
public:
    explicit InputFile(const std::string& ending)
        : mPath("/dev/shm/fuzz." + std::to_string(getpid()) + "." + ending) {}
    ~InputFile() { std::remove(mPath.c_str()); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    const std::string& path() const { return mPath; }
    void write(std::string_view bytes) const {
        std::ofstream(mPath, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::string mPath;
};

} // namespace Tessaloom::BilateralBlur::Tests
