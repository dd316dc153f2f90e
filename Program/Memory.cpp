#include "Program/Memory.h"

#include "Program/Errors.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();
std::atomic<std::uint64_t> mBound = kUnlimited;

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

std::uint64_t machineMemory() {
    const std::uint64_t kilobytes = numberAfter("/proc/meminfo", "MemAvailable:");
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

/// The least that a group or one of those above it leaves.
template<class GroupMemory>
std::uint64_t leastUpwards(const path& root, path group, GroupMemory memoryOf) {
    std::uint64_t least = memoryOf(root);
    for (; group.has_relative_path(); group = group.parent_path())
        least = std::min(least, memoryOf(root / group.relative_path()));
    return least;
}

std::uint64_t groupsMemory() {
    std::uint64_t least = kUnlimited;
    std::ifstream stream("/proc/self/cgroup");
    for (std::string line; std::getline(stream, line);) {
        const std::size_t first = line.find(':'), second = line.find(':', first + 1);
        if (second == std::string::npos)
            continue;
        const std::string controllers = line.substr(first + 1, second - first - 1);
        const path group = line.substr(second + 1);
        if (controllers.empty())
            least = std::min(least, leastUpwards("/sys/fs/cgroup", group, [](const path& place) {
                                 return groupMemory(place, "memory.max", "memory.current", "inactive_file");
                             }));
        else if (("," + controllers + ",").find(",memory,") != std::string::npos)
            least = std::min(least, leastUpwards("/sys/fs/cgroup/memory", group, [](const path& place) {
                                 return groupMemory(place, "memory.limit_in_bytes", "memory.usage_in_bytes",
                                                    "total_inactive_file");
                             }));
    }
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

std::string sizeText(std::uint64_t bytes) {
    constexpr double kMega = 1e6, kGiga = 1e9;
    char text[32];
    std::snprintf(text, sizeof text, bytes < kGiga ? "%.0f MB" : "%.1f GB",
                  static_cast<double>(bytes) / (bytes < kGiga ? kMega : kGiga));
    return text;
}

} // namespace

std::uint64_t availableMemory() {
    const std::uint64_t used = usedOf("VmRSS:");
    static const std::uint64_t kUsedAtStart = used;
    if (mBound != kUnlimited)
        return less(mBound, kUsedAtStart);
    const std::uint64_t left = std::min({machineMemory(), groupsMemory(), limitMemory(RLIMIT_AS, "VmSize:"),
                                         limitMemory(RLIMIT_DATA, "VmData:")});
    return left == kUnlimited ? left : left + less(used, kUsedAtStart);
}

void boundMemory(std::uint64_t bytes) {
    mBound = bytes;
}

void requireMemory(const std::string& what, std::uint64_t bytes) {
    const std::uint64_t available = availableMemory();
    if (bytes > available)
        throw Failure(what + " need " + sizeText(bytes) + " of memory, and " + sizeText(available) +
                      " are available; --memory SIZE sets another bound");
}

std::uint64_t parseSize(const std::string& text) {
    std::uint64_t size = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, size);
    const std::string unit(stop, end);
    constexpr std::string_view kUnits = "KMGT";
    const std::size_t power =
        unit.size() == 1 ? kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit[0]))))
                         : std::string_view::npos;
    const unsigned shift = unit.empty() ? 0 : 10 * (static_cast<unsigned>(power) + 1);
    if (error != std::errc{} || (!unit.empty() && power == std::string_view::npos) || size == 0 ||
        size > kUnlimited >> shift)
        throw WrongUse("--memory " + text + ": must be a size such as 800M or 4G");
    return size << shift;
}

} // namespace Tessaloom::BilateralBlur::Program
