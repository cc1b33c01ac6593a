// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: the wait for the last worker, and the panorama's file.
#pragma once

#include "shared_state.h"

class TarnStitcher;

namespace tarn {

/// TarnStitcher::get_big_image for a frame handed over in the given generation. Ends at the next poll, having written
/// nothing, when another thread replaces the task meanwhile.
bool finish_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation);

}  // namespace tarn
