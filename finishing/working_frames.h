// SPDX-License-Identifier: Apache-2.0
//
// What is kept of every key frame while its picture is not in memory: small copies. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "progress.h"
#include "tarn_finishing.h"

namespace tarn::finishing {

/// Coordinates in a frame that do not depend on its resolution: from its centre, in units of its longer side.
inline cv::Matx33d pixel_from_centred(cv::Size size)
{
    const double side = std::max(size.width, size.height);
    return {side, 0, (size.width - 1) / 2.0, 0, side, (size.height - 1) / 2.0, 0, 0, 1};
}

inline cv::Matx33d centred_from_pixel(cv::Size size)
{
    const double side = std::max(size.width, size.height);
    return {1 / side, 0, -(size.width - 1) / 2.0 / side, 0, 1 / side, -(size.height - 1) / 2.0 / side, 0, 0, 1};
}

struct working_frame {
    cv::Size full_size;
    cv::Mat gray;   ///< CV_8UC1, for placing
    cv::Mat small;  ///< CV_8UC3, for exposure and seams
    bool has_placement = false;
    cv::Matx33d placement = cv::Matx33d::eye();  ///< of centred coordinates, into the common frame of reference
    std::vector<cv::Point2f> corners;            ///< px of `gray`, well spread, best first
};

/// A key frame could not be had.
struct unreadable_frame {
    int number;
};

/// The picture of a key frame, CV_8UC3, B,G,R.
/// @throws unreadable_frame
cv::Mat picture_of(const key_frame& frame);

/// Reads every key frame once, in order.
/// @throws unreadable_frame, cancelled_by_host
std::vector<working_frame> read_working_frames(const std::vector<key_frame>& key_frames,
                                               const progress_meter& progress);

}  // namespace tarn::finishing
