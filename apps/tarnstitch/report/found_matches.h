// SPDX-License-Identifier: Apache-2.0
//
// What the library finds two frames to share, found once more on two pictures, to be looked at. Pure functions.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tarn::host {

/// A point of the one picture and the one that was found for it in the other, in their pixels.
struct found_match {
    cv::Point2f before;
    cv::Point2f after;
    bool agrees = false;  ///< whether it is one of those that agree on one motion
};

/// Two pictures and what they share.
struct matched_pictures {
    cv::Mat before;  ///< CV_8UC3, B,G,R
    cv::Mat after;
    int found_before = 0;  ///< features or corners of the picture before
    int found_after = 0;   ///< features of the picture after; negative where they are not looked for
    std::vector<found_match> matches = {};
};

/// How a key frame is bent before it is described.
enum class bending { none, cylinder, sphere };

/// A key frame as a worker makes it of one.
/// @param frame  CV_8UC3, B,G,R, as the library gets it; only read
/// @returns at most 1,000 px wide, then turned by 90 degrees clockwise
cv::Mat as_worker_takes_it(const cv::Mat& frame);

/// The worker's picture bent, by an angle in degrees.
cv::Mat bent(const cv::Mat& picture, bending way, float angle);

/// Features of both, paired, as a worker registers a key frame against the one before.
/// @param before, after  as_worker_takes_it
matched_pictures matches_of_workers(const cv::Mat& before, const cv::Mat& after);

/// Corners of the one found again in the other, as the live path follows the camera from frame to frame.
/// @param before, after  CV_8UC3, B,G,R, at most 300 px wide
matched_pictures matches_of_live_path(const cv::Mat& before, const cv::Mat& after);

}  // namespace tarn::host
