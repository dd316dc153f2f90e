#pragma once

#include <cstdint>
#include <filesystem>

namespace Tessaloom::BilateralBlur {

/// Bytes that this process can still take: what the machine has available, within the memory limits of the
/// process's control groups (version 2 or 1) and of its resource limits RLIMIT_AS and RLIMIT_DATA. What can't
/// be read sets no bound; without any, the largest number.
///
/// @param root where /proc and /sys are found.
std::uint64_t memoryLeft(const std::filesystem::path& root = "/");

/// Bytes of memory that this process has now.
std::uint64_t residentMemory();

} // namespace Tessaloom::BilateralBlur
