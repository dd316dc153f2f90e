#include "Platform/UsableCpus.h"
#include "Tests/Support/ProcessRun.h"

#include <map>
#include <sched.h>

namespace Tessaloom::BilateralBlur {
namespace {

// For a process of these control groups, with files below the groups' mount point.
unsigned usableCpusOf(const std::string& groups, const std::map<std::string, std::string>& files) {
    const Directory root;
    const auto write = [&](const std::string& name, const std::string& text) {
        const std::filesystem::path file = root / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text << '\n';
    };
    write("proc/self/cgroup", groups);
    for (const auto& [name, text] : files)
        write("sys/fs/cgroup/" + name, text);
    return usableCpus(root / "");
}

TEST(UsableCpus, AreThoseOfTheAffinity) {
    cpu_set_t all, one{};
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    CPU_SET(sched_getcpu(), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(usableCpusOf("0::/", {}), 1u);
    sched_setaffinity(0, sizeof all, &all);
}

TEST(UsableCpus, TheLeastQuotaOfTheGroupsBoundsTheAffinity) {
    const unsigned all = usableCpusOf("0::/", {});
    EXPECT_EQ(usableCpusOf("0::/a/b", {{"a/b/cpu.max", "110000 100000"}}), std::min(all, 2u));
    EXPECT_EQ(usableCpusOf("0::/a/b", {{"a/cpu.max", "100000 100000"}, {"a/b/cpu.max", "max 100000"}}), 1u);
    // A container that sees its own group at the mount point and the name that it has outside.
    EXPECT_EQ(usableCpusOf("0::/elsewhere", {{"cpu.max", "100000 100000"}}), 1u);
    // Version 1, where -1 is no quota.
    for (const auto& [quota, expected] : {std::pair{"30000", 1u}, {"-1", all}})
        EXPECT_EQ(usableCpusOf("5:memory:/m\n4:cpu,cpuacct:/a\n0::/",
                               {{"cpu/a/cpu.cfs_quota_us", quota}, {"cpu/a/cpu.cfs_period_us", "100000"}}),
                  expected);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
