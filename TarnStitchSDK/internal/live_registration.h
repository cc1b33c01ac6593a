// SPDX-License-Identifier: Apache-2.0
//
// The last frame of a sweep, for whoever waits for the workers in another way than ofcheck_stitch.
#pragma once

#include <opencv2/core.hpp>

#include "vocabulary.h"

class TarnStitcher;

namespace tarn {

/// The first half of what ofcheck_stitch does with a last frame: gives it to a worker. Leaves the waiting and the
/// writing (finish_panorama) to the caller. The account of this thread tells of it.
/// @param frame  as that of ofcheck_stitch
/// @returns code_normal, or code_pipeline_failed when the pipeline has failed, and the frame was dropped
/// @throws as ofcheck_stitch
answer_code hand_over_last_frame(TarnStitcher& task, const cv::Mat& frame, direction_code direction);

}  // namespace tarn
