// SPDX-License-Identifier: Apache-2.0
//
// What becomes of a frame's memory when it is freed, as GNU's allocator tells it.
#include <cstdlib>
#include <cstring>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <gtest/gtest.h>

#include "allocation.h"
#include "support/sanitizers.h"

using namespace tarn::host;

namespace {

#if defined(__GLIBC__) && !defined(TARN_SANITIZED)
#if __GLIBC_PREREQ(2, 33)

constexpr std::size_t frame_size = std::size_t{1920} * 1080 * 4;
constexpr int by_heap = 10;
constexpr int by_itself = 11;
constexpr int given_back = 12;

/// Sets the allocator up in a process of its own, where a frame is made and freed. What became of it is the exit code.
[[noreturn]] void free_a_frame(const char* variable, const char* value)
{
    for (const char* const known : {"GLIBC_TUNABLES", "MALLOC_MMAP_THRESHOLD_", "MALLOC_TRIM_THRESHOLD_"}) {
        unsetenv(known);
    }
    setenv(variable, value, 1);
    constexpr int usual = 128 << 10;
    mallopt(M_MMAP_THRESHOLD, usual);  // it may have moved, by what was freed before
    keep_freed_blocks();
    const std::size_t mapped = mallinfo2().hblks;
    void* volatile const frame = std::malloc(frame_size);  // or else the compiler would leave it out
    std::memset(frame, 1, frame_size);
    const bool is_mapped = mallinfo2().hblks > mapped;
    const std::size_t heap = mallinfo2().arena;
    std::free(frame);
    if (is_mapped) {
        std::_Exit(by_itself);
    }
    std::_Exit(mallinfo2().arena < heap ? given_back : by_heap);
}

TEST(Allocation, KeepsAFreedFrame)
{
    EXPECT_EXIT(free_a_frame("GLIBC_TUNABLES", "glibc.elision.enable=0"), testing::ExitedWithCode(by_heap), "");
}

TEST(Allocation, IsTheEnvironmentsWhereThatHasSetItUp)
{
    EXPECT_EXIT(free_a_frame("GLIBC_TUNABLES", "glibc.malloc.arena_max=1"), testing::ExitedWithCode(by_itself), "");
    EXPECT_EXIT(free_a_frame("MALLOC_MMAP_THRESHOLD_", "131072"), testing::ExitedWithCode(by_itself), "");
    EXPECT_EXIT(free_a_frame("MALLOC_TRIM_THRESHOLD_", "131072"), testing::ExitedWithCode(by_itself), "");
}

#endif
#endif

}  // namespace
