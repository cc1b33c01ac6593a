// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: the wait for the last worker, and the panorama's file.
#pragma once

#include "shared_state.h"

class TarnStitcher;

namespace tarn {

/// What came of the panorama's file.
enum class panorama_write {
    pipeline_has_failed,  ///< before there was anything to wait for
    nothing_to_write,     ///< the last worker was not done in time, has failed, or the task was replaced meanwhile
    written,
    file_failed,  ///< disk full, no right to write, memory short
};

/// Waits for the last worker, then writes the panorama into the working directory and puts its path into the task,
/// whether or not that succeeded. For a frame handed over in the given generation; ends at the next poll when another
/// thread replaces the task meanwhile. Host's thread, without a lock.
panorama_write write_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation);

/// TarnStitcher::get_big_image for a frame handed over in the given generation.
/// @returns what it answers: whether the pipeline had not failed before; the file's path tells whether there is one
bool finish_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation);

}  // namespace tarn
