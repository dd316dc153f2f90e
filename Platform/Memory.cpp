#include "Platform/Memory.h"

#include "Platform/ControlGroups.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>
#include <sys/resource.h>

namespace Tessaloom::BilateralBlur {

namespace {

using std::filesystem::path;

constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();

std::uint64_t less(std::uint64_t limit, std::uint64_t used) {
    return limit > used ? limit - used : 0;
}

/// The number after a name in a file of lines with a name and a number; 0 where there is none.
std::uint64_t numberAfter(const path& file, std::string_view name) {
    std::ifstream stream(file);
    std::string word;
    std::uint64_t number = 0;
    while (stream >> word)
        if (word == name && stream >> number)
            return number;
    return 0;
}

std::uint64_t machineMemory(const path& root) {
    const std::uint64_t kilobytes = numberAfter(root / "proc/meminfo", "MemAvailable:");
    return kilobytes > 0 ? kilobytes * 1024 : kUnlimited;
}

/// What a control group leaves. Its count holds the pages of files too, which the system takes back when
/// memory gets short.
std::uint64_t groupMemory(const path& group, const char* limitFile, const char* usedFile,
                          const char* reclaimable) {
    std::uint64_t limit = 0, used = 0;
    if (!(std::ifstream(group / limitFile) >> limit) || !(std::ifstream(group / usedFile) >> used))
        return kUnlimited;
    return less(limit, less(used, numberAfter(group / "memory.stat", reclaimable)));
}

std::uint64_t groupsMemory(const path& root) {
    std::uint64_t least = kUnlimited;
    eachControlGroup(root, "memory", [&](const path& group, int version) {
        least =
            std::min(least, version == 2 ? groupMemory(group, "memory.max", "memory.current", "inactive_file")
                                         : groupMemory(group, "memory.limit_in_bytes",
                                                       "memory.usage_in_bytes", "total_inactive_file"));
    });
    return least;
}

std::uint64_t usedOf(const char* field) {
    return numberAfter("/proc/self/status", field) * 1024;
}

std::uint64_t limitMemory(decltype(RLIMIT_AS) kind, const char* field) {
    rlimit limit{};
    if (getrlimit(kind, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return kUnlimited;
    return less(limit.rlim_cur, usedOf(field));
}

} // namespace

std::uint64_t memoryLeft(const path& root) {
    return std::min({machineMemory(root), groupsMemory(root), limitMemory(RLIMIT_AS, "VmSize:"),
                     limitMemory(RLIMIT_DATA, "VmData:")});
}

std::uint64_t residentMemory() {
    return usedOf("VmRSS:");
}

} // namespace Tessaloom::BilateralBlur
