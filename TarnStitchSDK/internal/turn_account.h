// SPDX-License-Identifier: Apache-2.0
//
// When workers came to which point of their work, for a host that wants to know where the time goes.
#pragma once

#include <vector>

#include "shared_state.h"
#include "tarn_sweep.h"

namespace tarn {

/// The points of worker_turn.
enum class turn_point { begun, prepared, taken, registered, ended };

/// Notes that a key frame's worker has come to a point now, unless its task has been replaced by one of which something
/// is noted already. Any thread, with or without the hand-over lock. Never throws: without memory nothing is noted.
void note_turn(task_generation generation, int key_frame, turn_point point) noexcept;

/// What has been noted in a task so far, by the key frames' numbers. Any thread.
std::vector<worker_turn> turns_of(task_generation generation);

}  // namespace tarn
