// SPDX-License-Identifier: Apache-2.0
//
// How the C library's allocator deals with the large blocks of a sweep.
#pragma once

namespace tarn::host {

/// Keeps the blocks of frames and key frames in the process when they are freed, for the next ones. By default the
/// allocator maps most of them anew, and the system clears every page of them again: a tenth of a run's processor time.
/// The peak of memory grows by what lies unused. To be called before other threads run. Does nothing where the allocator
/// is not GNU's, or where the environment has set it up (glibc.malloc in GLIBC_TUNABLES, MALLOC_MMAP_THRESHOLD_,
/// MALLOC_TRIM_THRESHOLD_).
void keep_freed_blocks();

}  // namespace tarn::host
