// SPDX-License-Identifier: Apache-2.0
//
// One high-resolution frame joined to the panorama: registered against the frame composed last, then merged. Pure
// functions; any thread.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "high_res_composition.h"
#include "high_res_frame.h"
#include "vocabulary.h"

namespace tarn {

/// The panorama and the frame composed last into it.
struct neighbour_record {
    cv::Mat panorama;                     ///< CV_8UC3
    cv::Mat homo;                         ///< the frame into the panorama, 3 x 3, CV_64F
    std::vector<cv::KeyPoint> keypoints;  ///< in pixels of its detection copy
    cv::Mat descriptors;                  ///< CV_32F; bytes are refused by the matcher, which raises
};

/// A frame that was to join the panorama: merged, or the reason why it was not.
struct joined_frame {
    std::optional<merged_frame> merged;
    reason why = reason::none;  ///< too_few_matches, no_homography, shape_refused or too_large
};

/// Finds the frame's place in the panorama by way of the frame composed last, and merges it there.
///
/// @param neighbour   read only
/// @param frame       the prepared frame, CV_8UC3
/// @param described   its features; all frames of a sweep have one size, so its scale is the neighbour's, too
/// @param registered  called when the place is found or refused, before anything is merged; what it throws leaves
/// @throws cv::Exception for descriptors of different types, and as merge_frame does
joined_frame join_frame(const neighbour_record& neighbour, const cv::Mat& frame, const described_frame& described,
                        const std::function<void()>& registered = nullptr);

}  // namespace tarn
