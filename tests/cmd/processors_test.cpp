// SPDX-License-Identifier: Apache-2.0
//
// The quotas of control groups, in made-up trees of files.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "processors.h"
#include "scratch_directory.h"

using namespace tarn::host;

namespace {

class ProcessorQuota : public testing::Test {
protected:
    void put(const std::string& file, const std::string& text) const
    {
        const std::filesystem::path path = root() + file;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text << "\n";
    }

    std::string root() const
    {
        return directory_.path() + "root";
    }

    double quota() const
    {
        return processor_quota(root());
    }

private:
    scratch_directory directory_;
};

TEST_F(ProcessorQuota, IsNoneWhereThereAreNoGroups)
{
    EXPECT_EQ(quota(), 0.0);
}

TEST_F(ProcessorQuota, IsTheSmallestOnTheWayToTheGroupInVersion2)
{
    put("/proc/self/cgroup", "0::/batch/job");
    put("/sys/fs/cgroup/batch/job/cpu.max", "max 100000");
    EXPECT_EQ(quota(), 0.0);
    put("/sys/fs/cgroup/batch/cpu.max", "250000 100000");
    EXPECT_EQ(quota(), 2.5);
    put("/sys/fs/cgroup/batch/job/cpu.max", "50000 100000");
    EXPECT_EQ(quota(), 0.5);
    put("/sys/fs/cgroup/batch/job/cpu.max", "400000 100000");
    EXPECT_EQ(quota(), 2.5);
}

TEST_F(ProcessorQuota, IsTheMountsOwnWhereAContainerSeesTheHostsPath)
{
    put("/proc/self/cgroup", "0::/../../of-the-host");
    put("/sys/fs/cgroup/cpu.max", "100000 100000");
    EXPECT_EQ(quota(), 1.0);
}

TEST_F(ProcessorQuota, IsReadOfTheGroupOfProcessorsInVersion1)
{
    put("/proc/self/cgroup", "5:memory:/a\n4:cpu,cpuacct:/b\n0::/c");
    put("/sys/fs/cgroup/memory/a/cpu.cfs_quota_us", "100000");
    put("/sys/fs/cgroup/memory/a/cpu.cfs_period_us", "100000");
    put("/sys/fs/cgroup/cpu,cpuacct/b/cpu.cfs_quota_us", "-1");
    put("/sys/fs/cgroup/cpu,cpuacct/b/cpu.cfs_period_us", "100000");
    EXPECT_EQ(quota(), 0.0);
    put("/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_quota_us", "300000");
    put("/sys/fs/cgroup/cpu,cpuacct/cpu.cfs_period_us", "100000");
    EXPECT_EQ(quota(), 3.0);
}

TEST_F(ProcessorQuota, IsNoneWhereTheFilesMakeNoSense)
{
    put("/proc/self/cgroup", "nonsense\n\n0::");
    put("/sys/fs/cgroup/cpu.max", "much 0");
    EXPECT_EQ(quota(), 0.0);
    put("/sys/fs/cgroup/cpu.max", "100000");
    EXPECT_EQ(quota(), 0.0);
}

TEST(Processors, AreAtLeastOne)
{
    EXPECT_GE(processors_given(), 1);
}

}  // namespace
