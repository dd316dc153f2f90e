#include <cstdlib>

// A module whose setup ends the process, as libraries do where memory runs out.
extern "C" __attribute__((visibility("default"))) int EntryPointFunc() {
    std::abort();
}
