// SPDX-License-Identifier: Apache-2.0
//
// The processors that this process was given.
#pragma once

#include <string>

namespace tarn::host {

/// How many processors may be used: those of the affinity (taskset, a batch system's cpuset), and no more than the
/// quota of time of the process's control groups, rounded up. At least 1.
int processors_given();

/// The processors that a quota of time on this process comes to: the smallest of its control group's and of the groups
/// around that one, of version 1 or 2; 0 where there is none.
/// @param root  where the file system begins: "" but for tests
double processor_quota(const std::string& root);

}  // namespace tarn::host
