#include "Platform/UsableCpus.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sched.h>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;

constexpr double kUnbounded = std::numeric_limits<double>::infinity();

unsigned affinity() {
    cpu_set_t set;
    // Fails where the kernel knows more CPUs than the set has bits.
    if (sched_getaffinity(0, sizeof(set), &set) != 0)
        return std::max(1u, std::thread::hardware_concurrency());
    return static_cast<unsigned>(CPU_COUNT(&set));
}

/// Version 2: "max 100000" or "150000 100000".
double quotaOf(const fs::path& group) {
    std::ifstream file(group / "cpu.max");
    double quota = 0, period = 0;
    return file >> quota >> period && period > 0 ? quota / period : kUnbounded;
}

/// Version 1: two files, -1 for no quota.
double legacyQuotaOf(const fs::path& group) {
    double quota = 0, period = 0;
    const bool read = std::ifstream(group / "cpu.cfs_quota_us") >> quota &&
                      std::ifstream(group / "cpu.cfs_period_us") >> period;
    return read && quota > 0 && period > 0 ? quota / period : kUnbounded;
}

/// The least quota of a group and the groups around it. In a container the group's name may be that of the
/// host's tree, of which only the mount point exists: its quota is found there.
double leastQuota(const fs::path& mount, const std::string& name, double (*quota)(const fs::path&)) {
    double least = quota(mount);
    for (fs::path group = fs::path(name).relative_path(); !group.empty(); group = group.parent_path())
        least = std::min(least, quota(mount / group));
    return least;
}

/// The lines of /proc/self/cgroup are "number:controllers:name", with no controllers for version 2.
double quota(const fs::path& root) {
    const fs::path mount = root / "sys/fs/cgroup";
    double least = kUnbounded;
    std::ifstream groups(root / "proc/self/cgroup");
    for (std::string number, controllers, name; std::getline(groups, number, ':') &&
                                                std::getline(groups, controllers, ':') &&
                                                std::getline(groups, name);)
        if (controllers.empty())
            least = std::min(least, leastQuota(mount, name, quotaOf));
        else if (("," + controllers + ",").find(",cpu,") != std::string::npos)
            least = std::min(least, leastQuota(mount / "cpu", name, legacyQuotaOf));
    return least;
}

} // namespace

unsigned usableCpus(const fs::path& root) {
    return static_cast<unsigned>(std::max(1.0, std::min<double>(affinity(), std::ceil(quota(root)))));
}
