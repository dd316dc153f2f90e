#include <cstdio>
#include <cstdlib>
#include <ext/stdio_sync_filebuf.h>
#include <ostream>

// Hosts send images through standard output, where the effect prints a few lines about each GL context, and why a
// frame is filtered on the CPU. The linker resolves every mention of std::cout in a bridge to the stream below, and so
// nothing has to be switched in the process that the bridge is a guest of. It writes to standard error where the
// environment variable BILATERAL_BLUR_VERBOSE is set when the bridge is loaded, else nowhere.

namespace {

__gnu_cxx::stdio_sync_filebuf<char> buffer(stderr);

} // namespace

// The name is the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" std::ostream __wrap__ZSt4cout;
std::ostream __wrap__ZSt4cout(std::getenv("BILATERAL_BLUR_VERBOSE") ? &buffer : nullptr);
// NOLINTEND(bugprone-reserved-identifier)
