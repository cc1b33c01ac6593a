// SPDX-License-Identifier: Apache-2.0
//
// The high-resolution panorama: one worker per key frame, on a detached thread, and the protocol by which the
// workers take turns.
//
// Shared state (module_globals.h): big_stitch_status, big_frame_num (the number of turns over, the "ticket"),
// big_stitch_image and the neighbour_* record of the frame composed last.
//
//   big_stitch_status 0   No panorama yet. The worker that gets its turn makes its frame the base.
//   big_stitch_status 2   One worker holds its turn. It writes the panorama and the neighbour_* record, and only
//                         by handing over complete ones when its turn ends.
//   big_stitch_status 3   The last turn ended well. The panorama and the neighbour_* record belong together;
//                         anyone may read them. Only the switch to the sphere (step 2) writes them in this
//                         state, the panorama first and its description later, both outside any turn.
//   big_stitch_status 4   The last turn failed, a frame could not be prepared, or a wait timed out; the last two
//                         whatever the status was. While it lasts the live path answers -1, and workers that
//                         start now do nothing but pass the ticket on.
//
// The life of the worker with index N (1, 2, 3, … within a sweep):
//
//   1  status 4: raise the ticket and end.
//   2  Prepare the frame, describe it, write its frame file. No shared state is needed, so workers do this side
//      by side. (Only the second frame may wait here, for the base, when the sphere is switched on.) On an
//      error raise the ticket, set 4, end, without waiting for the turn.
//   3  Wait while the status is 2, polling every 10 ms; after max_wait_seconds raise the ticket, set 4, end.
//   4  Wait until the ticket is N - 1, polling every 10 ms; after max_wait_seconds raise the ticket, set 4, end.
//      From here on the worker N - 1 is done with everything shared: whoever raises the ticket does so under the
//      hand-over mutex, together with all else that it has left to write, and step 5 takes that lock too.
//   5  Take the turn: set 2, whatever the status was. (So a worker that was already waiting goes on after
//      another one's failure, and its success makes the status 3 again. By design.)
//   6  Old status 0: the frame becomes the panorama; set 3, raise the ticket, end.
//   7  Otherwise register against the neighbour_* record and compose: hand over, set 3, raise the ticket; or
//      fail: set 4, raise the ticket.
//
// Every way out raises the ticket by exactly one, so that a failure never blocks those behind it. The one
// exception is a worker whose sweep has been replaced: the ticket is not its own any more, and it just ends.
//
// A time-out, and an error in step 2, raise the ticket out of turn, so after one two workers may hold turns at
// once: the one that was at work meanwhile and the one that the raised ticket let in. Each works on the record that
// it took, both hand over whole ones under the lock, and the later one stands. So does its status: a worker that
// held its turn when another one set 4 makes the status 3 again.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "vocabulary.h"

/// Body of a worker: adds one frame to the high-resolution panorama of the current sweep. The live path runs it
/// on a detached thread; called directly it works on the caller's thread and blocks until its turn is over.
///
/// @param frame            full-size camera frame, CV_8UC3, B,G,R; its pixels are shared and only read;
///                         one of floats fails the turn
/// @param angles           the frame's four corner angles in degrees, top-left, top-right, bottom-right,
///                         bottom-left; fewer than four fail the turn
/// @param scales           the frame's four side ratios; fewer than four fail the turn
/// @param direction        direction of the sweep, 0 to 4 (motion.h)
/// @param big_frame_index  1, 2, 3, … within the sweep: names the frame file and fixes the turn
///
/// Failure shows in big_stitch_status only; nothing derived from std::exception leaves the function.
void stitch_big_image(cv::Mat frame, std::vector<float> angles, std::vector<float> scales, int direction,
                      int big_frame_index);

namespace tarn {

/// Where a key frame lies in the high-resolution panorama.
struct composed_key_frame {
    cv::Size frame;                   ///< as it was composed: shrunk, turned, bent if so; px
    cv::Matx33d panorama_from_frame;  ///< into the panorama as it is with the last of them
    int key_frame = 0;                ///< its number in the sweep, from 1
};

/// One consistent look at the high-resolution pipeline of the current sweep.
struct pipeline_snapshot {
    int status;              ///< big_stitch_status
    int turns_over;          ///< big_frame_num: key frames done with, successfully or not
    int first_failed_frame;  ///< big_frame_index of the first worker that failed in this sweep; 0 if none has
    cv::Mat panorama;        ///< big_stitch_image so far, CV_8UC3, perhaps a view; its pixels never change
    reason first_failure;    ///< why that first one failed; none if none has
};

/// For a host that wants to hold back, report progress or keep a part of the panorama: may be called from any
/// thread at any time. TarnStitcher::big_frame_index minus `turns_over` is the number of key frames still on
/// their way. The panorama is empty before the first turn is over.
pipeline_snapshot look_at_pipeline();

/// Sets max_wait_seconds, also while workers wait or a frame is inside, which go by it from then on; assigning to the
/// variable is for moments without either. Any thread.
/// @param seconds  as the variable; 0 or less: no wait is longer than one poll
void set_max_wait_seconds(int seconds);

}  // namespace tarn
