// SPDX-License-Identifier: Apache-2.0
//
// What a stitched picture adds to the frames that it was made of and should not: ghosts, joints, steps in brightness.
// Whoever made the picture, and by whatever cameras and seams, is not asked.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tarn::bench {

/// Each is measured against the frame that explains a place best, so that what one of the frames shows costs nothing.
struct picture_quality {
    bool known = false;          ///< whether the picture's pixels could be found in the frames
    double seen = 0.0;           ///< part of the picture that is found again in a frame
    double ghosting = 0.0;       ///< mean difference of detail, gray levels: ghosts, doubled edges, blur
    double gradient_jump = 0.0;  ///< 99th percentile of gradients that no frame has, gray levels per px
    double exposure_step = 0.0;  ///< 99th percentile of changes of brightness over 16 px that no frame has, %
    cv::Mat jumps;               ///< CV_32F, of the picture's size: gradients that no frame has; huge where not known
};

/// Finds each frame in the picture, by features and then pixel by pixel, and compares. Frames are made as bright as the
/// picture first, and neither noise nor what drawing between pixels costs of sharpness counts: a picture made of one
/// frame, however drawn, has next to no faults.
/// @param picture  CV_8UC3
/// @param frames   CV_8UC3
picture_quality quality_of(const cv::Mat& picture, const std::vector<cv::Mat>& frames);

}  // namespace tarn::bench
