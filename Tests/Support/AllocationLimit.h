#pragma once

#include <atomic>
#include <cstddef>
#include <limits>

/// Lets memory run out in a test program, and in the modules that it loads.
namespace Tessaloom::BilateralBlur::AllocationLimit {

/// The largest size in bytes that `new` gives memory for.
extern std::atomic<std::size_t> largest;

/// How many more allocations of the program itself and of glbinding succeed on the calling thread; `kUnlimited` at first.
/// Drivers, which abort without memory, get all that they ask for.
constexpr int kUnlimited = std::numeric_limits<int>::max();
extern constinit thread_local int left;

} // namespace Tessaloom::BilateralBlur::AllocationLimit
