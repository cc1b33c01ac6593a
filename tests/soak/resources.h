// SPDX-License-Identifier: Apache-2.0
//
// What a process holds of its system.
#pragma once

#include <string>

namespace tarn::test {

struct resources {
    double resident = 0.0;  ///< MiB of memory that is in use and present
    int threads = 0;
    int descriptors = 0;
};

/// Of this process, from /proc; all 0 where there is none.
resources resources_now();

/// "12.3 MiB, 4 threads, 9 descriptors".
std::string text_of(const resources& held);

}  // namespace tarn::test
