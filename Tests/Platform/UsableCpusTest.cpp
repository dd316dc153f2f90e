#include "Platform/UsableCpus.h"
#include "Tests/Support/ProcessRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>

namespace Tessaloom::BilateralBlur {
namespace {

using Files = std::map<std::string, std::string>;

unsigned usableCpusAmong(const Files& files) {
    const Folder root;
    for (const auto& [name, text] : files) {
        const std::filesystem::path file = root / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text << '\n';
    }
    return usableCpus(root / "");
}

TEST(UsableCpus, TheLeastQuotaOfTheGroupsBoundsTheAffinity) {
    const std::string proc = "proc/self/cgroup", sys = "sys/fs/cgroup/";
    const unsigned all = usableCpusAmong({}), two = std::min(all, 2u);
    EXPECT_EQ(usableCpusAmong({{proc, "0::/a/b"}, {sys + "a/b/cpu.max", "max 100000"}}), all);
    EXPECT_EQ(usableCpusAmong({{proc, "0::/a/b"}, {sys + "a/b/cpu.max", "50000 100000"}}), 1u);
    EXPECT_EQ(usableCpusAmong({{proc, "0::/a/b"}, {sys + "a/b/cpu.max", "110000 100000"}}), two);
    EXPECT_EQ(
        usableCpusAmong(
            {{proc, "0::/a/b"}, {sys + "a/cpu.max", "100000 100000"}, {sys + "a/b/cpu.max", "max 100000"}}),
        1u);
    // A container that sees its own group at the mount point and the name that it has outside.
    EXPECT_EQ(usableCpusAmong({{proc, "0::/elsewhere"}, {sys + "cpu.max", "100000 100000"}}), 1u);
    const std::string old = "5:memory:/m\n4:cpu,cpuacct:/a\n0::/";
    EXPECT_EQ(usableCpusAmong({{proc, old},
                               {sys + "cpu/a/cpu.cfs_quota_us", "30000"},
                               {sys + "cpu/a/cpu.cfs_period_us", "100000"}}),
              1u);
    EXPECT_EQ(usableCpusAmong({{proc, old},
                               {sys + "cpu/a/cpu.cfs_quota_us", "-1"},
                               {sys + "cpu/a/cpu.cfs_period_us", "100000"}}),
              all);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
