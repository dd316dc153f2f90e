#pragma once

#include <atomic>
#include <cstddef>

/// Lets memory run out in a test program, and in the modules that it loads.
namespace Tessaloom::BilateralBlur::AllocationLimit {

/// The largest size in bytes that `new` gives memory for.
extern std::atomic<std::size_t> largest;

} // namespace Tessaloom::BilateralBlur::AllocationLimit
