#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// Bytes that this process can use for images, those that it uses for them already included: what the machine
/// has available, within the memory limits of its control groups (version 2 or 1) and of its resource limits
/// RLIMIT_AS and RLIMIT_DATA. Where `boundMemory` was called, the bound less what the process used at the
/// first call and takes when the effect is set up, in place of all that.
std::uint64_t availableMemory();

/// What the process may use in all, whatever the machine has. For the option --memory.
void boundMemory(std::uint64_t bytes);

/// Throws Failure where `bytes` are more than there are available: one line with `what` ("x.png: 4 x 3
/// pixels"), what it needs, what is available, and the option that changes the bound.
void requireMemory(const std::string& what, std::uint64_t bytes);

/// "800M", "4G" and plain bytes: a positive integer, with K, M, G or T (powers of 1024, upper or lower case)
/// or without. Nothing for anything else.
std::optional<std::uint64_t> parseSize(const std::string& text);

} // namespace Tessaloom::BilateralBlur::Program
