#include <cstdio>
#include <ext/stdio_sync_filebuf.h>
#include <ostream>

// Programs send pictures through standard output, where the effect prints a few lines about each GL context.
// The linker resolves every mention of std::cout in this shared object to the stream below, which is one on
// standard error, and so nothing has to be switched in the process that the filter is a guest of.

namespace {

__gnu_cxx::stdio_sync_filebuf<char> buffer(stderr);

} // namespace

// The name is the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" std::ostream __wrap__ZSt4cout;
std::ostream __wrap__ZSt4cout(&buffer);
// NOLINTEND(bugprone-reserved-identifier)
