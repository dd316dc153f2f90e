#include "Platform/UsableCpus.h"

#include "Platform/ControlGroups.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sched.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using Tessaloom::BilateralBlur::eachControlGroup;

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

double quota(const fs::path& root) {
    double least = kUnbounded;
    eachControlGroup(root, "cpu", [&](const fs::path& group, int version) {
        least = std::min(least, version == 2 ? quotaOf(group) : legacyQuotaOf(group));
    });
    return least;
}

} // namespace

unsigned usableCpus(const fs::path& root) {
    return static_cast<unsigned>(std::max(1.0, std::min<double>(affinity(), std::ceil(quota(root)))));
}

void restrictToCpus(unsigned count) {
    cpu_set_t set;
    // The call fails on machines with more CPUs than the set holds.
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &set) && count > 0)
            --count;
        else
            CPU_CLR(cpu, &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}
