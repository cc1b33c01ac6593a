// SPDX-License-Identifier: Apache-2.0
//
// Comparing two key frames: where points of one are found in the other. This header is the library's own.
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "working_frames.h"

namespace tarn::finishing {

/// What joins two key frames.
struct frame_link {
    int i = 0;
    int j = 0;
    placed_by source = placed_by::nothing;
    std::vector<cv::Point2d> in_i;  ///< centred coordinates, pair by pair
    std::vector<cv::Point2d> in_j;
    cv::Matx33d j_from_i = cv::Matx33d::eye();  ///< of centred coordinates
    double weight = 1.0;                        ///< of each of its points
};

/// Points of frame i found in frame j. With a prediction they are followed from where it says, to parts of a pixel;
/// without one, or when that fails, frames are compared by the descriptions of their features first.
/// @param predicted  j_from_i of centred coordinates
/// @returns nothing when the two have too little in common
std::optional<frame_link> match_frames(const working_frame& frame_i, const working_frame& frame_j,
                                       const std::optional<cv::Matx33d>& predicted);

/// The same where no features are: the prediction, made more exact pixel by pixel if that helps, as a few points of
/// little weight. Always finds something.
frame_link align_frames(const working_frame& frame_i, const working_frame& frame_j, const cv::Matx33d& predicted);

}  // namespace tarn::finishing
