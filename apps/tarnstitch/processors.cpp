// SPDX-License-Identifier: Apache-2.0
//
// Affinity by the system's call, quotas as control groups show them in files.
#include "processors.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#ifdef __linux__
#include <sched.h>
#endif

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

int processors_of_affinity()
{
#ifdef __linux__
    constexpr int most = 1 << 16;
    for (int possible = CPU_SETSIZE; possible <= most; possible *= 2) {
        cpu_set_t* const set = CPU_ALLOC(static_cast<std::size_t>(possible));
        const std::size_t size = CPU_ALLOC_SIZE(static_cast<std::size_t>(possible));
        const int count = set != nullptr && sched_getaffinity(0, size, set) == 0 ? CPU_COUNT_S(size, set) : 0;
        CPU_FREE(set);
        if (count > 0) {
            return count;
        }
    }
#endif
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

/// A quota in a group's directory: "QUOTA PERIOD" in one file, or each in its own. 0 for none ("max", -1).
double quota_in(const fs::path& group)
{
    std::string quota;
    std::string period;
    if (std::ifstream both(group / "cpu.max"); both) {
        both >> quota >> period;
    } else {
        std::ifstream(group / "cpu.cfs_quota_us") >> quota;
        std::ifstream(group / "cpu.cfs_period_us") >> period;
    }
    const double microseconds = std::strtod(quota.c_str(), nullptr);
    const double of = std::strtod(period.c_str(), nullptr);
    return microseconds > 0.0 && of > 0.0 ? microseconds / of : 0.0;
}

}  // namespace

double processor_quota(const std::string& root)
{
    double least = 0.0;
    std::ifstream groups(root + "/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        std::istringstream parts(line);  // "0::/a/b", or "4:cpu,cpuacct:/a/b" in version 1
        std::string number;
        std::string controllers;
        std::string path;
        std::getline(parts, number, ':');
        std::getline(parts, controllers, ':');
        std::getline(parts, path);
        if (!controllers.empty() && ("," + controllers + ",").find(",cpu,") == std::string::npos) {
            continue;
        }
        for (const std::string& mount : {std::string(), std::string("unified"), std::string("cpu"), controllers}) {
            // A container may see its own group as the mount's root, and the path of the host's: what is missing has
            // no quota.
            for (fs::path group = fs::path(path).relative_path();; group = group.parent_path()) {
                const double quota = quota_in(fs::path(root + "/sys/fs/cgroup") / mount / group);
                least = quota > 0.0 && (least == 0.0 || quota < least) ? quota : least;
                if (group.empty()) {
                    break;
                }
            }
        }
    }
    return least;
}

int processors_given()
{
    const int processors = processors_of_affinity();
    const double quota = processor_quota("");
    return quota > 0.0 ? std::clamp(static_cast<int>(std::ceil(quota)), 1, processors) : processors;
}

}  // namespace tarn::host
