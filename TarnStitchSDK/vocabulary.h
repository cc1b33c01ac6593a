// SPDX-License-Identifier: Apache-2.0
//
// The words of the library, once: what a frame is answered, where a camera goes, what the pipeline is at, and why
// something was not done. The interface's own functions speak of them as ints; every other part uses these.
//
// The numbers are fixed: they are those of the interface, and of every binding. An enumeration may hold a value
// without a name when it was made from a host's int; the functions below then say "unknown".
#pragma once

namespace tarn {

/// What videoStitch answers for a frame.
enum answer_code : int {
    code_pipeline_failed = -1,  ///< the high-resolution pipeline has failed; the frame was dropped
    code_lost = 0,              ///< ten frames in a row were rejected, or another call is still inside
    code_normal = 1,            ///< taken; or rejected, but not for long yet
    code_few_details = 2,       ///< taken with 20 to 49 inliers
    code_very_few_details = 3,  ///< taken with fewer than 20 inliers
    code_wrong_way = 4,         ///< rejected: motion against the hint
    code_too_fast = 5,          ///< taken; mean motion above 10 px of a frame 300 px wide
    code_skewed = 6,            ///< taken, but skewed
};

constexpr answer_code lowest_code = code_pipeline_failed;  ///< all codes lie between this one
constexpr answer_code highest_code = code_skewed;          ///< and this one

/// What a code alone says about its frame. A code that leaves it open is told apart by frame_answer::taken.
enum class frame_fate { taken, rejected, either };

/// A direction of the camera's motion, as a hint and as a measurement, in the frames' own coordinates. Down and up,
/// right and left are opposites.
enum direction_code : int {
    direction_undecided = 0,  ///< as a hint: any direction is welcome
    direction_down = 1,
    direction_up = 2,
    direction_right = 3,
    direction_left = 4,
};

constexpr direction_code last_direction_code = direction_left;  ///< directions are 0 to this one

/// Values of big_stitch_status (high_res_worker.h has their meaning in full); 1 is never used.
enum pipeline_state : int {
    pipeline_empty = 0,   ///< no panorama yet
    pipeline_busy = 2,    ///< a worker holds its turn
    pipeline_ready = 3,   ///< the last turn ended well
    pipeline_failed = 4,  ///< the last turn failed, or a frame or a wait for its turn did
};

/// Values of TarnStitcher::stitcher_status.
enum live_state : int {
    live_new = 0,          ///< no frame yet
    live_registering = 1,  ///< a frame is inside
    live_busy = 2,         ///< never set by the library; a reset waits for it as for a frame inside
    live_finished = 3,     ///< the newest frame is done with
};

/// Why a frame was not taken, a key frame could not be joined, or a panorama could not be had. The live path's
/// reasons come first, in the order of its tests.
enum class reason : int {
    none = 0,

    busy = 1,               ///< another call was inside
    pipeline_failed = 2,    ///< the panorama had failed before
    too_few_corners = 3,    ///< the frame shows fewer corners than matches_thresh
    too_few_tracked = 4,    ///< fewer of the reference's corners were found again
    implausible_shape = 5,  ///< the frame, mapped, is no plausible view (is_good_homo)
    too_few_inliers = 6,    ///< too small a share of the points agrees on one motion (inline_thresh)
    against_the_hint = 7,   ///< the camera goes the other way
    not_convex = 8,         ///< the frame, mapped into the preview, is no convex quadrilateral
    out_of_scale = 9,       ///< a side of it is shorter than 2 px or longer than 4000 px
    unusable_frame = 10,    ///< no pixels, a type that is not read, or an error of OpenCV

    too_few_matches = 11,  ///< a key frame has fewer than 20 matches with the one before
    no_homography = 12,    ///< its matches agree on no motion
    shape_refused = 13,    ///< mapped into the panorama, it is no convex quadrilateral
    too_large = 14,        ///< the panorama would exceed 10000 px
    timed_out = 15,        ///< a turn did not come within max_wait_seconds
    no_memory = 16,
    no_thread = 17,  ///< no thread could be started
    disk = 18,       ///< a file or directory could not be written
    cancelled = 19,
    process_ends = 20,  ///< or it was forked off, or another copy of the library in it has the sweep
    no_frames = 21,     ///< nothing was handed over that a panorama could be made of
};

/// A name in lower case, as "few details"; "unknown" for a value that has none. Static storage, any thread; so are the
/// other texts.
const char* name_of(answer_code code);
const char* name_of(direction_code direction);  ///< as "to the right"; "undecided"
const char* name_of(pipeline_state state);      ///< as "busy"
const char* name_of(reason why);                ///< a short clause, as "too few matches"

/// What to tell the user, as "hold the device level"; "" where there is nothing to do.
const char* advice_for(answer_code code);

/// What would help against it, as "more texture, more light"; "" where nothing does.
const char* advice_for(reason why);

/// What a code alone says about its frame.
frame_fate fate_of(answer_code code);

/// Whether a host may pass the value as a hint: 0 to 4.
constexpr bool is_direction(int value)
{
    return value >= direction_undecided && value <= last_direction_code;
}

/// The opposite one; undecided is its own.
direction_code opposite_of(direction_code direction);

}  // namespace tarn
