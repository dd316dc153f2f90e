#include <cstdio>
#include <ext/stdio_sync_filebuf.h>
#include <ostream>

// Hosts send images through standard output, where the effect prints a few lines about each GL context. The
// linker resolves every mention of std::cout in a bridge to the stream below, which writes to standard error,
// and so nothing has to be switched in the process that the bridge is a guest of.

namespace {

__gnu_cxx::stdio_sync_filebuf<char> buffer(stderr);

} // namespace

// The name is the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" std::ostream __wrap__ZSt4cout;
std::ostream __wrap__ZSt4cout(&buffer);
// NOLINTEND(bugprone-reserved-identifier)
