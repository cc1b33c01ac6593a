// SPDX-License-Identifier: Apache-2.0
//
// Two thresholds of malloc.
#include "allocation.h"

#include <cstdlib>
#include <cstring>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace tarn::host {

#ifdef __GLIBC__

namespace {

/// Whoever started the program may have set malloc up already, by its tunables or by the variables before these.
bool is_set_up()
{
    const char* const tunables = std::getenv("GLIBC_TUNABLES");
    return (tunables != nullptr && std::strstr(tunables, "glibc.malloc.") != nullptr)
           || std::getenv("MALLOC_MMAP_THRESHOLD_") != nullptr || std::getenv("MALLOC_TRIM_THRESHOLD_") != nullptr;
}

}  // namespace

#endif

void keep_freed_blocks()
{
#ifdef __GLIBC__
    if (is_set_up()) {
        return;
    }
    constexpr int largest_kept = 16 << 20;  // bytes of a block: pictures of the live path, layers of a key frame
    constexpr int most_unused = 512 << 20;  // bytes at the end of the heap
    // Where addresses have 32 bits the first is refused, and the second alone would do harm.
    if (mallopt(M_MMAP_THRESHOLD, largest_kept) != 0) {
        mallopt(M_TRIM_THRESHOLD, most_unused);
    }
#endif
}

}  // namespace tarn::host
