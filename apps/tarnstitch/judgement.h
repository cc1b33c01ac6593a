// SPDX-License-Identifier: Apache-2.0
//
// What sweeps' results tell: what most of the frames met, whether another try may help, and which of two tries is the
// better one. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "frame_turn.h"
#include "host_error.h"
#include "panorama_verdict.h"
#include "sweep.h"

namespace tarn::host {

/// Whether so many frames were answered with a code that the sweep's failure may be laid to it: a fifth. Single ones
/// are met in any sweep.
bool many_with_code(const sweep_result& result, answer_code code);

/// One way of handing a sweep to the library, of those that are a host's to choose.
struct way {
    frame_turn turn = frame_turn::counter_clockwise;
    float overlap = usual_key_frame_overlap;  ///< of key frames
};

/// The overlap of key frames that a further try takes: they lie nearer to each other, so that more of one is found again
/// in the next, and less is stretched from one to the next.
constexpr float near_key_frame_overlap = 0.85f;

/// The ways that are tried after the first, in this order, until one is good: no more than two, since each costs as much
/// as the first or more. Where features could not be matched others are found with another turn; where the picture is
/// bad nearer key frames have less to distort.
/// @param ended  how the first one ended
std::vector<way> further_ways(const way& first, sweep_outcome ended);

/// By what a way differs from the first one: "the frames turned clockwise and key frames nearer to each other"
std::string difference(const way& first, const way& other);

/// Whether another try may help: after a failure of the pipeline, or where the panorama is bad for another reason than
/// that the camera turned, which it did in any way of looking at it. Not when the camera went the wrong way or did not
/// move, nor where there is one frame only.
bool another_try_may_help(const sweep_result& result, const verdict& judged);

/// The frame beyond which a sweep whose pipeline failed could not be stitched.
int reach_of(const sweep_result& failed);

/// Whether a further try is to be taken instead of the best one so far.
/// @param stopped  whether the user has ended the further one early, so that it is complete as far as it went only
bool is_better(const sweep_result& best, const verdict& best_judged, const sweep_result& further,
               const verdict& further_judged, bool stopped);

/// How the program ends for a sweep that the pipeline gave up: whether the pictures are to blame, a full disk, or a
/// machine that is short of something for now.
exit_code code_of_failure(reason why);

}  // namespace tarn::host
