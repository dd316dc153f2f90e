#pragma once

// Assertions, which end the run as a crash does, are on whatever the build.
#undef NDEBUG
#include <cassert>
#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

/// What libFuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// The path of a file in memory that has the input, until the next call.
inline std::string fileOf(const std::uint8_t* data, std::size_t size) {
    static const int kFile = memfd_create("input", 0);
    assert(ftruncate(kFile, 0) == 0);
    assert(pwrite(kFile, data, size, 0) == static_cast<ssize_t>(size));
    return "/proc/self/fd/" + std::to_string(kFile);
}
