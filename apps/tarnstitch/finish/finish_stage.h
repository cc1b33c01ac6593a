// SPDX-License-Identifier: Apache-2.0
//
// --finish: the finished picture of a sweep's key frames.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "finished_verdict.h"
#include "host_error.h"
#include "key_frame_collector.h"
#include "options.h"
#include "panorama_view.h"

namespace tarn::host {

/// What has come of it.
struct finished_picture {
    cv::Mat picture;                           ///< CV_8UC3, as the input's viewer sees it; empty when there is none
    std::string error;                         ///< why there is none, or "" when the user wanted none any more
    exit_code code = exit_code::not_stitched;  ///< with an error: what it makes of the program's end
    bool stopped = false;                      ///< whether the user wanted none any more

    std::string motion;                     ///< of the camera: "turning"
    std::string projection;                 ///< that it is drawn on: "cylinder"
    double horizontal_field_of_view = 0.0;  ///< degrees; 0 where the camera did not turn
    double vertical_field_of_view = 0.0;
    double focal_length = 0.0;  ///< in frames' longer sides; 0 where the camera did not turn
    double scale = 1.0;         ///< px of the picture for one of a frame's
    double residual = -1.0;  ///< median distance of what key frames share, % of a frame's longer side; negative: none
    panorama_view view;      ///< what viewers are told

    /// Whether it reaches from the sweep's first key frame to the last one; others on the way may be missing.
    bool reaches_the_end = false;
    int key_frames = 0;
    int pieces = 1;               ///< that the library had to be begun for
    int shown = 0;                ///< key frames in the picture; others add nothing to it
    int placed_by_alignment = 0;  ///< by their pixels, beginning at their live motion
    int placed_by_live_motion = 0;
    std::vector<int> left_out;  ///< numbers of the frames that nothing joins with the others
    crop_effect cropped;
    double seconds = 0.0;
};

/// @throws host_error (usage) where the program is built without it
void check_finishing();

/// Whether the program is built with it.
bool can_finish();

/// Whether a finished picture shows more than one frame does, which may be cut to a part of its height.
/// @param size   of the picture
/// @param frame  size of a frame, px
bool shows_more_than_a_frame(const finished_picture& finished, cv::Size size, cv::Size frame);

/// Makes the picture, with progress on the screen. A stop that the user asks for meanwhile ends it.
finished_picture finish_sweep(const key_frame_collector& collected, const options& asked);

/// What is to be said about it, beside its error.
std::vector<std::string> notes_on(const finished_picture& finished);

}  // namespace tarn::host
