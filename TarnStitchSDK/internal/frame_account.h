// SPDX-License-Identifier: Apache-2.0
//
// What the live path tells of a frame beside the two ints of its answer.
#pragma once

#include <opencv2/core.hpp>

#include "frame_answer.h"

namespace tarn {

/// Of the frame that this thread handed to ofcheck_stitch last; complete when that call has returned, and as far as it got
/// when it threw.
struct frame_account {
    frame_answer answer;
    cv::Matx33d plane_from_frame = cv::Matx33d::eye();  ///< see key_frame; of a frame that is placed
    cv::Size working_size;
};

/// The calling thread's own. ofcheck_stitch begins by making it anew.
frame_account& account_of_this_thread();

}  // namespace tarn
