// SPDX-License-Identifier: Apache-2.0
//
// Going on behind a failure of the pipeline.
#pragma once

#include "key_frame_collector.h"
#include "sweep.h"

namespace tarn::host {

/// Begins the library anew on the frame taken last, as often as its pipeline fails, until the input ends or the user
/// wants no more. Nothing but key frames comes of it.
/// @param settings   collector among them, which was told of the sweep so far
/// @param refused    the frame at which the sweep failed
/// @returns how the last piece ended
sweep_outcome sweep_on(sweep_input& input, const sweep_settings& settings, key_frame_collector& collector,
                       const feed_frame& refused);

}  // namespace tarn::host
