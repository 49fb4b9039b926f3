// What is read from the kernel's files: cores, caches and quotas, from texts and from made-up systems in a directory.
#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/allowed.h"
#include "core/quota.h"
#include "core/textfile.h"
#include "core/topology.h"

namespace {

using std::to_string;

// A directory that stands for the root of a file system, gone at the end of the test.
class MadeUpSystem : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name = ::testing::TempDir() + "qorcore_XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    root_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  void put(const std::string& path, const std::string& text) {
    const std::filesystem::path file = root_ + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }

  const char* root() const { return root_.c_str(); }

 private:
  std::string root_;
};

class CoreTopology : public MadeUpSystem {
 protected:
  void putTopology(int cpu, const std::string& name, const std::string& text) {
    put("/sys/devices/system/cpu/cpu" + to_string(cpu) + "/topology/" + name, text + "\n");
  }
  void putCache(int index, const std::string& size) {
    put("/sys/devices/system/cpu/cpu0/cache/index" + to_string(index) + "/size", size + "\n");
  }
};

std::string cpusIn(const core::CpuSet& cpus) {
  std::string text;
  for (int32_t cpu = -1; cpu <= core::maxCpus; ++cpu) {
    if (core::hasCpu(cpus, cpu)) text += (text.empty() ? "" : " ") + to_string(cpu);
  }
  return text;
}

TEST(CoreCpuList, ReadsNumbersAndRanges) {
  core::CpuSet cpus;
  ASSERT_TRUE(core::parseCpuList("0", &cpus));
  EXPECT_EQ(cpusIn(cpus), "0");
  ASSERT_TRUE(core::parseCpuList("0-3,8,10-11", &cpus));
  EXPECT_EQ(cpusIn(cpus), "0 1 2 3 8 10 11");
  ASSERT_TRUE(core::parseCpuList("62-65,127,128,8191", &cpus));
  EXPECT_EQ(cpusIn(cpus), "62 63 64 65 127 128 8191");
  ASSERT_TRUE(core::parseCpuList("5-5", &cpus));
  EXPECT_EQ(cpusIn(cpus), "5");
  ASSERT_TRUE(core::parseCpuList("", &cpus));
  EXPECT_EQ(cpusIn(cpus), "");
}

TEST(CoreCpuList, RefusesAllElse) {
  core::CpuSet cpus;
  for (const char* text : {"x", "0,", ",0", "0-", "-1", "3-1", "0-3-5", "0 1", "0,,1", "0x10", "1\n2", "8192", "0-8192",
                           "99999999999999999999", "0-99999999999999999999"}) {
    EXPECT_FALSE(core::parseCpuList(text, &cpus)) << text;
  }
}

TEST(CoreCacheSize, ReadsUnits) {
  EXPECT_EQ(core::parseCacheSize("512"), 512);
  EXPECT_EQ(core::parseCacheSize("32K"), 32768);
  EXPECT_EQ(core::parseCacheSize("36608K"), 37486592);
  EXPECT_EQ(core::parseCacheSize("35M"), 36700160);
  EXPECT_EQ(core::parseCacheSize("1G"), 1073741824);
  EXPECT_EQ(core::parseCacheSize("9007199254740991K"), INT64_MAX - 1023);
}

TEST(CoreCacheSize, AllElseIsUnknown) {
  for (const char* text : {"", "K", "-1", "-32K", "32KB", "32k", "32 K", " 32K", "1.5M", "0", "0K", "many",
                           "99999999999999999999", "9223372036854775807K", "9007199254740992K"}) {
    EXPECT_EQ(core::parseCacheSize(text), 0) << text;
  }
}

TEST_F(CoreTopology, EveryCoreOfThePackageCounts) {
  for (int cpu = 0; cpu < 4; ++cpu) {
    putTopology(cpu, "package_cpus_list", "0-3");
    putTopology(cpu, "core_cpus_list", to_string(cpu));
  }
  for (int cpu = 0; cpu < 4; ++cpu) EXPECT_EQ(core::coresOnDie(root(), cpu), 4);
}

TEST_F(CoreTopology, HyperthreadsOfACoreCountOnce) {
  for (int cpu = 0; cpu < 8; ++cpu) {
    putTopology(cpu, "die_cpus_list", "0-7");
    putTopology(cpu, "core_cpus_list", to_string(cpu % 4) + "," + to_string(cpu % 4 + 4));
  }
  for (int cpu = 0; cpu < 8; ++cpu) EXPECT_EQ(core::coresOnDie(root(), cpu), 4);
}

// Processors 0-3 are two cores of two threads each, 4-6 are cores of one thread.
TEST_F(CoreTopology, CoresOfDifferentKindsMayShareADie) {
  for (int cpu = 0; cpu < 7; ++cpu) {
    putTopology(cpu, "die_cpus_list", "0-6");
    putTopology(cpu, "core_cpus_list", cpu < 2 ? "0-1" : cpu < 4 ? "2-3" : to_string(cpu));
  }
  EXPECT_EQ(core::coresOnDie(root(), 3), 5);
}

// Package 0 has cores {0,8} {1,9} {2,10}, package 1 has {3,11} and 4.
TEST_F(CoreTopology, OnlyThePackageOfTheProcessorCounts) {
  for (const int cpu : {0, 1, 2, 8, 9, 10}) {
    putTopology(cpu, "package_cpus_list", "0-2,8-10");
    putTopology(cpu, "core_cpus_list", to_string(cpu % 8) + "," + to_string(cpu % 8 + 8));
  }
  for (const int cpu : {3, 4, 11}) {
    putTopology(cpu, "package_cpus_list", "3-4,11");
    putTopology(cpu, "core_cpus_list", cpu == 4 ? "4" : "3,11");
  }
  EXPECT_EQ(core::coresOnDie(root(), 0), 3);
  EXPECT_EQ(core::coresOnDie(root(), 10), 3);
  EXPECT_EQ(core::coresOnDie(root(), 4), 2);
  EXPECT_EQ(core::coresOnDie(root(), 11), 2);
}

TEST_F(CoreTopology, ADieIsLessThanItsPackage) {
  for (int cpu = 0; cpu < 8; ++cpu) {
    putTopology(cpu, "package_cpus_list", "0-7");
    putTopology(cpu, "core_siblings_list", "0-7");
    putTopology(cpu, "die_cpus_list", cpu < 3 ? "0-2" : "3-7");
    putTopology(cpu, "core_cpus_list", to_string(cpu));
  }
  EXPECT_EQ(core::coresOnDie(root(), 1), 3);
  EXPECT_EQ(core::coresOnDie(root(), 7), 5);
}

TEST_F(CoreTopology, OlderFileNamesAreUnderstood) {
  for (int cpu = 0; cpu < 6; ++cpu) {
    putTopology(cpu, "core_siblings_list", "0-5");
    putTopology(cpu, "thread_siblings_list",
                cpu % 2 == 0 ? to_string(cpu) + "-" + to_string(cpu + 1) : to_string(cpu - 1) + "-" + to_string(cpu));
  }
  EXPECT_EQ(core::coresOnDie(root(), 5), 3);
}

// The first thread of the core is offline: the remaining one still stands for the core.
TEST_F(CoreTopology, CoreWhoseFirstThreadIsNotOnTheDieCounts) {
  putTopology(1, "die_cpus_list", "1-2");
  putTopology(1, "core_cpus_list", "0-1");
  putTopology(2, "core_cpus_list", "2");
  EXPECT_EQ(core::coresOnDie(root(), 1), 2);
}

TEST_F(CoreTopology, ProcessorsWithoutSiblingListsAreCores) {
  putTopology(0, "die_cpus_list", "0-2");
  EXPECT_EQ(core::coresOnDie(root(), 0), 3);
}

TEST_F(CoreTopology, MissingOrOddDieListsAreUnknown) {
  EXPECT_EQ(core::coresOnDie(root(), 0), 0);
  EXPECT_EQ(core::coresOnDie(root(), -1), 0);
  EXPECT_EQ(core::coresOnDie("/nowhere", 0), 0);
  for (const char* text : {"", "garbage", "1-3", "0-99999"}) {
    putTopology(0, "die_cpus_list", text);
    EXPECT_EQ(core::coresOnDie(root(), 0), 0) << text;
  }
}

TEST_F(CoreTopology, OddDieListGivesWayToThePackages) {
  putTopology(0, "die_cpus_list", "");
  putTopology(0, "package_cpus_list", "0-1");
  EXPECT_EQ(core::coresOnDie(root(), 0), 2);
}

TEST_F(CoreTopology, LargestCacheWins) {
  putCache(0, "48K");
  putCache(1, "32K");
  putCache(2, "2048K");
  putCache(3, "35M");
  EXPECT_EQ(core::largestCache(root()), 36700160);
}

TEST_F(CoreTopology, LargestCacheNeedNotBeTheLastOrInARow) {
  putCache(0, "32K");
  putCache(2, "1024K");
  putCache(5, "garbage");
  putCache(6, "64K");
  EXPECT_EQ(core::largestCache(root()), 1048576);
}

TEST_F(CoreTopology, CacheBeyondTheTypeIsCutToItsLargestValue) {
  putCache(3, "4G");
  EXPECT_EQ(core::largestCache(root()), INT32_MAX);
}

TEST_F(CoreTopology, MissingOrOddCachesAreUnknown) {
  EXPECT_EQ(core::largestCache(root()), 0);
  putCache(0, "");
  putCache(1, "garbage");
  EXPECT_EQ(core::largestCache(root()), 0);
}

TEST_F(MadeUpSystem, TextsLoseOneNewlineAtTheEnd) {
  char text[16];
  put("/one", "two\nlines\n\n");
  ASSERT_TRUE(core::readText(text, sizeof text, "%s/%s", root(), "one"));
  EXPECT_STREQ(text, "two\nlines\n");
  put("/none", "no\nne");
  ASSERT_TRUE(core::readText(text, sizeof text, "%s/none", root()));
  EXPECT_STREQ(text, "no\nne");
}

TEST_F(MadeUpSystem, TextsThatCannotBeReadOrDoNotFitAreRefused) {
  char text[8];
  put("/fits", "1234567");
  put("/long", "12345678");
  EXPECT_TRUE(core::readText(text, sizeof text, "%s/fits", root()));
  EXPECT_FALSE(core::readText(text, sizeof text, "%s/long", root()));
  EXPECT_FALSE(core::readText(text, sizeof text, "%s/missing", root()));
  EXPECT_FALSE(core::readText(text, sizeof text, "%s", root())) << "a directory";
  const std::string longName(5000, 'x');
  EXPECT_FALSE(core::readText(text, sizeof text, "%s/%s", root(), longName.c_str()));
}

TEST(CoreQuotaText, QuotasAreRoundedUp) {
  EXPECT_EQ(core::parseCpuMax("100000 100000"), 1);
  EXPECT_EQ(core::parseCpuMax("100001 100000"), 2);
  EXPECT_EQ(core::parseCpuMax("150000 100000"), 2);
  EXPECT_EQ(core::parseCpuMax("200000 100000"), 2);
  EXPECT_EQ(core::parseCpuMax("1000 100000"), 1);
  EXPECT_EQ(core::parseCpuMax("75000 10000"), 8);
  EXPECT_EQ(core::parseCpuMax("9223372036854775807 1"), core::noQuota);
}

TEST(CoreQuotaText, AllElseIsNoQuota) {
  for (const char* text :
       {"max 100000", "max", "", "50000", "50000 ", "50000  100000", "0 100000", "50000 0", "-1 100000", "50000 -1",
        "garbage", "50000 100000 7", "50000x 100000", "99999999999999999999 100000", "50000 99999999999999999999"}) {
    EXPECT_EQ(core::parseCpuMax(text), core::noQuota) << text;
  }
}

TEST(CoreQuotaPath, GroupIsFoundBelowTheRootOfItsMount) {
  EXPECT_STREQ(core::pathInMount("/", "/"), "");
  EXPECT_STREQ(core::pathInMount("/a/b", "/"), "/a/b");
  EXPECT_STREQ(core::pathInMount("/a/b", "/a"), "/b");
  EXPECT_STREQ(core::pathInMount("/a/b", "/a/b"), "");
  EXPECT_STREQ(core::pathInMount("/..x/b", "/"), "/..x/b");
}

TEST(CoreQuotaPath, GroupOutsideTheMountIsNotFound) {
  EXPECT_EQ(core::pathInMount("/a", "/b"), nullptr);
  EXPECT_EQ(core::pathInMount("/ab", "/a"), nullptr);
  EXPECT_EQ(core::pathInMount("/", "/a"), nullptr);
  EXPECT_EQ(core::pathInMount("/../x", "/"), nullptr);
  EXPECT_EQ(core::pathInMount("/../../x", "/.."), nullptr);
}

// A process that got a view of its own, but kept the mounts of the view before.
TEST(CoreQuotaPath, MountFromFurtherUpShowsOnlyItsTop) {
  EXPECT_STREQ(core::pathInMount("/", "/.."), "");
  EXPECT_STREQ(core::pathInMount("/a", "/../.."), "");
  EXPECT_STREQ(core::pathInMount("/../x", "/.."), "/x");
  EXPECT_EQ(core::pathInMount("/a", "/../x"), nullptr);
}

// A kernel for 5000 processors that lets the process run on every other one.
int affinityOfLargeKernel(pid_t process, size_t bytes, cpu_set_t* mask) {
  EXPECT_EQ(process, getpid());
  if (bytes * 8 < 5000) {
    errno = EINVAL;
    return -1;
  }
  CPU_ZERO_S(bytes, mask);
  for (size_t cpu = 0; cpu < 5000; cpu += 2) CPU_SET_S(cpu, bytes, mask);
  return 0;
}

int failures = 0;

template <int error>
int failingAffinity(pid_t, size_t, cpu_set_t*) {
  ++failures;
  errno = error;
  return -1;
}

TEST(CoreAffinity, MaskMayBeLongerThanUsual) { EXPECT_EQ(core::processorsInAffinity(affinityOfLargeKernel), 2500); }

TEST(CoreAffinity, WithoutMaskProcessorsOnlineCount) {
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  failures = 0;
  EXPECT_EQ(core::processorsInAffinity(failingAffinity<EPERM>), online);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(core::processorsInAffinity(failingAffinity<EINVAL>), online);
}

class CoreQuota : public MadeUpSystem {
 protected:
  const std::string plainV2 = "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw,nsdelegate\n";
  const std::string plainV1 =
      "20 1 8:1 / / rw - ext4 /dev/sda rw\n"
      "31 23 0:27 / /sys/fs/cgroup rw - tmpfs tmpfs rw,mode=755\n"
      "32 31 0:28 / /sys/fs/cgroup/cpu,cpuacct rw,nosuid shared:9 - cgroup cgroup rw,cpu,cpuacct\n"
      "33 31 0:29 / /sys/fs/cgroup/cpuset rw,nosuid shared:9 - cgroup cgroup rw,cpuset\n";

  void putProcess(const std::string& groups, const std::string& mounts) {
    put("/proc/self/cgroup", groups);
    put("/proc/self/mountinfo", mounts);
  }
  void putV2(const std::string& group, const std::string& text) {
    put("/sys/fs/cgroup" + group + "/cpu.max", text + "\n");
  }
  void putV1(const std::string& group, const std::string& quota, const std::string& period) {
    put("/sys/fs/cgroup/cpu,cpuacct" + group + "/cpu.cfs_quota_us", quota + "\n");
    put("/sys/fs/cgroup/cpu,cpuacct" + group + "/cpu.cfs_period_us", period + "\n");
  }
};

TEST_F(CoreQuota, NoFilesNoQuota) {
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
  EXPECT_EQ(core::quotaProcessors("/nowhere"), core::noQuota);
  put("/proc/self/cgroup", "0::/\n");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
  put("/proc/self/mountinfo", plainV2);
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

TEST_F(CoreQuota, V2QuotaOfTheProcessesOwnGroup) {
  putProcess("0::/user/app\n", plainV2);
  putV2("/user/app", "250000 100000");
  putV2("/user", "max 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 3);
}

TEST_F(CoreQuota, V2TightestGroupOnTheWayUpCounts) {
  putProcess("0::/a/b/c\n", plainV2);
  putV2("/a/b/c", "800000 100000");
  putV2("/a/b", "max 100000");
  putV2("/a", "400000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 4);
  putV2("/a/b", "150000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 2);
  putV2("", "100000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 1);
}

TEST_F(CoreQuota, V2GroupsBesideTheWayDoNotCount) {
  putProcess("0::/a/b\n", plainV2);
  putV2("/a/b", "500000 100000");
  putV2("/a/b/c", "100000 100000");
  putV2("/a/d", "100000 100000");
  put("/sys/fs/cpu.max", "100000 100000\n");
  put("/cpu.max", "100000 100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), 5);
}

TEST_F(CoreQuota, V2ContainerSeesItsGroupAsTheRoot) {
  putProcess("0::/\n", plainV2);
  putV2("", "300000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 3);
}

TEST_F(CoreQuota, V2ContainerWithTheHostsNamesFindsItsMount) {
  putProcess("0::/pods/one/init\n", "30 23 0:26 /pods/one /sys/fs/cgroup ro - cgroup2 cgroup rw\n");
  putV2("/init", "max 100000");
  putV2("", "600000 100000");
  putV2("/pods/one/init", "100000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 6);
}

TEST_F(CoreQuota, V2MountOfAnotherGroupDoesNotCount) {
  putProcess("0::/pods/one\n", "30 23 0:26 /pods/two /sys/fs/cgroup ro - cgroup2 cgroup rw\n");
  putV2("", "100000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

TEST_F(CoreQuota, V2MountPointMayHaveBlanksAndLineMayBeLong) {
  putProcess("0::/a:b\n", "29 23 0:25 / /merged rw - overlay overlay rw,lowerdir=" + std::string(20000, 'l') +
                              "\n30 23 0:26 / /control\\040groups\\134 rw - cgroup2 cgroup2 rw\n");
  put("/control groups\\/a:b/cpu.max", "700000 100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), 7);
}

TEST_F(CoreQuota, V1QuotaAndPeriod) {
  putProcess("5:cpuset:/other\n4:cpu,cpuacct:/app\n1:name=systemd:/\n", plainV1);
  putV1("/app", "150000", "50000");
  putV1("", "-1", "100000");
  EXPECT_EQ(core::quotaProcessors(root()), 3);
  putV1("/app", "150001", "50000");
  EXPECT_EQ(core::quotaProcessors(root()), 4);
}

TEST_F(CoreQuota, V1TightestGroupOnTheWayUpCounts) {
  putProcess("4:cpuacct,cpu:/a/b\n", plainV1);
  putV1("/a/b", "900000", "100000");
  putV1("/a", "200000", "100000");
  EXPECT_EQ(core::quotaProcessors(root()), 2);
  putV1("/a", "-1", "100000");
  EXPECT_EQ(core::quotaProcessors(root()), 9);
}

TEST_F(CoreQuota, V1OtherControllersDoNotCount) {
  putProcess("5:cpuset:/a\n4:cpuacct:/a\n3:name=cpu:/a\n", plainV1);
  putV1("/a", "100000", "100000");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

TEST_F(CoreQuota, MountsOfOtherKindsDoNotCount) {
  putProcess("4:cpu,cpuacct:/a\n0::/a\n", plainV1 + "50 1 0:50 / /other rw - tmpfs tmpfs rw,cpu\n");
  put("/sys/fs/cgroup/cpuset/a/cpu.cfs_quota_us", "100000\n");
  put("/sys/fs/cgroup/cpuset/a/cpu.cfs_period_us", "100000\n");
  put("/other/a/cpu.cfs_quota_us", "100000\n");
  put("/other/a/cpu.cfs_period_us", "100000\n");
  put("/other/a/cpu.max", "100000 100000\n");
  putV2("/cpu,cpuacct/a", "100000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

TEST_F(CoreQuota, V1OddNumbersAreNoQuota) {
  putProcess("4:cpu,cpuacct:/a\n", plainV1);
  const char* cases[][2] = {{"-1", "100000"}, {"0", "100000"},   {"100000", "0"},  {"", ""},
                            {"x", "100000"},  {"100000", "1e5"}, {"100000", "-1"}, {"max", "100000"}};
  for (const auto& odd : cases) {
    putV1("/a", odd[0], odd[1]);
    EXPECT_EQ(core::quotaProcessors(root()), core::noQuota) << odd[0] << " " << odd[1];
  }
}

TEST_F(CoreQuota, V1PeriodMissingIsNoQuota) {
  putProcess("4:cpu,cpuacct:/a\n", plainV1);
  put("/sys/fs/cgroup/cpu,cpuacct/a/cpu.cfs_quota_us", "100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

int32_t processorsInMask() {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (sched_getaffinity(getpid(), sizeof mask, &mask) != 0) abort();
  return CPU_COUNT(&mask);
}

TEST_F(CoreQuota, SmallerOfQuotaAndAffinityIsAllowed) {
  EXPECT_EQ(core::allowedProcessors(root()), processorsInMask());
  putProcess("0::/a\n", plainV2);
  putV2("/a", "50000 100000");
  EXPECT_EQ(core::allowedProcessors(root()), 1);
  putV2("/a", "900000000 100000");
  EXPECT_EQ(core::allowedProcessors(root()), processorsInMask());
}

// Version 2 for some controllers beside version 1 for others, one of them mounted below the other's directory.
TEST_F(CoreQuota, BothVersionsTogetherTightestCounts) {
  putProcess("4:cpu,cpuacct:/a\n0::/b\n",
             plainV1 + "41 31 0:38 / /sys/fs/cgroup/unified rw,relatime - cgroup2 cgroup2 rw\n");
  putV1("/a", "300000", "100000");
  put("/sys/fs/cgroup/unified/b/cpu.max", "500000 100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), 3);
  put("/sys/fs/cgroup/unified/b/cpu.max", "200000 100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), 2);
  put("/sys/fs/cgroup/unified/a/cpu.max", "100000 100000\n");
  EXPECT_EQ(core::quotaProcessors(root()), 2);
}

TEST_F(CoreQuota, GarbageInTheProcessesFilesIsSkipped) {
  putProcess("garbage\n\n:\n::\n0:\n1::/a\n0::/a\n",
             "garbage\n\n - \n - cgroup2 \n1 2 - cgroup2 cgroup2 rw\n1 2 3 / - cgroup2 x rw\n" + plainV2);
  putV2("/a", "400000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), 4);
  put("/proc/self/mountinfo", plainV2.substr(0, 40));
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

TEST_F(CoreQuota, PathBeyondAllLimitsIsNoQuota) {
  putProcess("0::/" + std::string(9000, 'x') + "\n", plainV2);
  putV2("", "100000 100000");
  EXPECT_EQ(core::quotaProcessors(root()), core::noQuota);
}

}  // namespace
