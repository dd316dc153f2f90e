#include <cstdlib>
#include <unistd.h>

// A module whose setup ends the process, as libraries do where memory runs out.
extern "C" __attribute__((visibility("default"))) int EntryPointFunc() {
    usleep(100'000); // frames are read meanwhile
    std::abort();
}
