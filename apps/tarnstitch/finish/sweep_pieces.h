// SPDX-License-Identifier: Apache-2.0
//
// Going on behind a failure of the pipeline.
#pragma once

#include <string>
#include <vector>

#include "key_frame_collector.h"
#include "sweep.h"

namespace tarn::host {

/// What the library answered for one piece of a sweep.
struct sweep_piece {
    int frames = 0;  ///< handed over; the first one is the one before's last that was taken
    int taken = 0;
    code_counts by_code;
    int key_frames = 0;
    int taken_before = 0;  ///< of its frames, those that the piece before has taken, which come first
};

/// What came behind the first piece, without the frames that had been taken before.
struct later_pieces {
    int pieces = 0;
    int frames = 0;
    int taken = 0;
};

/// @param pieces  of one sweep; none where there is none
later_pieces behind_first(const std::vector<sweep_piece>& pieces);

/// Of a sweep's outcome, pictures aside.
sweep_piece piece_of(const sweep_result& result);

/// How a sweep that was gone on with came to its end.
struct sweep_rest {
    sweep_outcome outcome = sweep_outcome::pipeline_failed;  ///< of the last piece
    std::string input_error;                                 ///< what was wrong with the input, if that was it
    std::vector<sweep_piece> pieces;                         ///< in their order
};

/// Begins the library anew on the frame taken last, as often as its pipeline fails, until the input ends or the user
/// wants no more. Nothing but key frames and numbers come of it.
/// @param settings   collector among them, which was told of the sweep so far; its observers are told of each piece
/// @param refused    the frame at which the sweep failed
sweep_rest sweep_on(sweep_input& input, const sweep_settings& settings, key_frame_collector& collector,
                    const feed_frame& refused);

}  // namespace tarn::host
