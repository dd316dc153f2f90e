#include <cerrno>
#include <cstdlib>
#include <unistd.h>

// What libraries and systems do to the program, in one library for each place that it is put in.

#define EXPORTED extern "C" __attribute__((visibility("default")))

/// As a module: its setup ends the process, as libraries do where memory runs out.
EXPORTED int EntryPointFunc() {
    usleep(100'000); // frames are read meanwhile
    std::abort();
}

/// As a GL driver: it ends the process in its setup. The name is the loader's.
EXPORTED int __egl_Main() { // NOLINT(bugprone-reserved-identifier)
    std::abort();
}

/// Loaded before the system's library: a file system without locks.
EXPORTED int flock(int, int) {
    errno = ENOLCK;
    return -1;
}
