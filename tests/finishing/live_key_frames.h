// SPDX-License-Identifier: Apache-2.0
//
// Key frames as the live path finds them, with their places in its preview: what the finishing library works on.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "tarn_finishing.h"

namespace tarn::test {

/// What a sweep gave.
struct live_sweep {
    /// Their pictures are headers of the frames that were handed in.
    std::vector<finishing::key_frame> key_frames;
    bool reached_the_end = false;  ///< whether the live path has taken one of the last frames
};

/// Hands the frames, CV_8UC3, B,G,R, to the live path, one after the other, and takes down which of them become key
/// frames and where it places them. Their placements are all in the preview as it was at the first. The last frame that
/// was taken is the last key frame. Starts a task of its own and ends it; the workers are of no interest and may fail.
live_sweep live_key_frames(const std::vector<cv::Mat>& frames);

}  // namespace tarn::test
