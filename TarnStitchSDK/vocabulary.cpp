// SPDX-License-Identifier: Apache-2.0
//
// The words themselves. A switch without a default lets the compiler say where a value has none; behind it stands what
// an unnamed value gets.
#include "vocabulary.h"

namespace tarn {

namespace {

constexpr const char* unknown = "unknown";

}  // namespace

const char* name_of(answer_code code)
{
    switch (code) {
    case code_pipeline_failed:
        return "pipeline failed";
    case code_lost:
        return "lost";
    case code_normal:
        return "normal";
    case code_few_details:
        return "few details";
    case code_very_few_details:
        return "very few details";
    case code_wrong_way:
        return "wrong way";
    case code_too_fast:
        return "too fast";
    case code_skewed:
        return "skewed";
    }
    return unknown;
}

const char* name_of(direction_code direction)
{
    switch (direction) {
    case direction_undecided:
        return "undecided";
    case direction_down:
        return "down";
    case direction_up:
        return "up";
    case direction_right:
        return "to the right";
    case direction_left:
        return "to the left";
    }
    return unknown;
}

const char* name_of(pipeline_state state)
{
    switch (state) {
    case pipeline_empty:
        return "empty";
    case pipeline_busy:
        return "busy";
    case pipeline_ready:
        return "ready";
    case pipeline_failed:
        return "failed";
    }
    return unknown;
}

const char* name_of(reason why)
{
    switch (why) {
    case reason::none:
        return "nothing is wrong";
    case reason::busy:
        return "another call was inside";
    case reason::pipeline_failed:
        return "the panorama had failed before";
    case reason::too_few_corners:
        return "too few corners";
    case reason::too_few_tracked:
        return "too few corners were found again";
    case reason::implausible_shape:
        return "the motion is no plausible one";
    case reason::too_few_inliers:
        return "too few points agree on one motion";
    case reason::against_the_hint:
        return "the camera moves against the hint";
    case reason::not_convex:
        return "the frame does not lie flat in the preview";
    case reason::out_of_scale:
        return "the frame would be too small or too large in the preview";
    case reason::unusable_frame:
        return "the frame cannot be used";
    case reason::too_few_matches:
        return "too few matches";
    case reason::no_homography:
        return "the matches agree on no motion";
    case reason::shape_refused:
        return "the frame does not lie flat in the panorama";
    case reason::too_large:
        return "the panorama would be too large";
    case reason::timed_out:
        return "the wait for the workers was too long";
    case reason::no_memory:
        return "too little memory";
    case reason::no_thread:
        return "no thread could be started";
    case reason::disk:
        return "a file could not be written";
    case reason::cancelled:
        return "cancelled";
    case reason::process_ends:
        return "the process ends";
    case reason::no_frames:
        return "no frame that a panorama could be made of";
    }
    return unknown;
}

const char* advice_for(answer_code code)
{
    switch (code) {
    case code_pipeline_failed:
        return "start again";
    case code_lost:
        return "go back to where the panorama ends";
    case code_normal:
        return "";
    case code_few_details:
        return "few details here";
    case code_very_few_details:
        return "very few details here";
    case code_wrong_way:
        return "wrong way";
    case code_too_fast:
        return "slower";
    case code_skewed:
        return "hold the device level";
    }
    return "";
}

const char* advice_for(reason why)
{
    constexpr const char* more_to_see = "more texture, more light";
    constexpr const char* more_overlap = "overlap more, come back to where the panorama ends";
    constexpr const char* steadier = "hold the camera level, turn it about one axis only";
    switch (why) {
    case reason::none:
    case reason::busy:
    case reason::unusable_frame:
    case reason::cancelled:
    case reason::process_ends:
        return "";
    case reason::pipeline_failed:
        return "start again";
    case reason::too_few_corners:
    case reason::no_frames:
        return more_to_see;
    case reason::too_few_tracked:
    case reason::too_few_inliers:
    case reason::no_homography:
        return more_overlap;
    case reason::too_few_matches:
        return "more texture, more light, smaller steps";
    case reason::implausible_shape:
    case reason::not_convex:
    case reason::shape_refused:
        return steadier;
    case reason::against_the_hint:
        return "the other direction, or no hint";
    case reason::out_of_scale:
    case reason::too_large:
        return "a shorter sweep";
    case reason::timed_out:
        return "a slower sweep, or fewer frames at once";
    case reason::no_memory:
        return "smaller frames, or fewer at once";
    case reason::no_thread:
        return "fewer threads in the application";
    case reason::disk:
        return "more room on the disk";
    }
    return "";
}

frame_fate fate_of(answer_code code)
{
    switch (code) {
    case code_few_details:
    case code_very_few_details:
    case code_too_fast:
    case code_skewed:
        return frame_fate::taken;
    case code_pipeline_failed:
    case code_lost:
    case code_wrong_way:
        return frame_fate::rejected;
    case code_normal:
        break;
    }
    return frame_fate::either;
}

direction_code opposite_of(direction_code direction)
{
    switch (direction) {
    case direction_down:
        return direction_up;
    case direction_up:
        return direction_down;
    case direction_right:
        return direction_left;
    case direction_left:
        return direction_right;
    case direction_undecided:
        break;
    }
    return direction;
}

}  // namespace tarn
