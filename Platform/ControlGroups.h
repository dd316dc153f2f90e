#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace Tessaloom::BilateralBlur {

/// Calls `take` with the directory of each control group that this process is in, and of each group around
/// it, by /proc/self/cgroup: those of version 2, which have no controllers of their own, and those of version 1
/// with the controller, such as "cpu" or "memory".
///
/// A container may see its own group at the mount point, with the name that it has outside, so the mount
/// point is among them, and not all of them exist.
///
/// @param root where /proc and /sys are found.
void eachControlGroup(const std::filesystem::path& root, const std::string& controller,
                      const std::function<void(const std::filesystem::path& group, int version)>& take);

} // namespace Tessaloom::BilateralBlur
