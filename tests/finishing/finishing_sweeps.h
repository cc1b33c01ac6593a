// SPDX-License-Identifier: Apache-2.0
//
// Key frames of rendered sweeps, with the places that a live path would have found for them.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "support/rendered_sweep.h"
#include "tarn_finishing.h"

namespace tarn::test {

/// Every `step`th frame of a rendered sweep. The placements are the true ones, moved by at most `error` px of the live
/// path's working copy.
std::vector<finishing::key_frame> key_frames_of(const rendered_sweep& sweep, int step, double error = 0.0);

/// A camera that turns about its upright axis inside of a painted sphere.
struct panorama_room {
    cv::Mat sphere;  ///< CV_8UC3, equirectangular, a full turn wide
    cv::Size frame_size = {320, 240};
    double focal = 300.0;  ///< px

    panorama_room();
    /// The camera's rotation, world_from_camera: first tilted down, then turned to the right.
    static cv::Matx33d rotation(double heading, double tilt);
    cv::Mat frame(const cv::Matx33d& world_from_camera) const;
    /// `count` key frames, `degrees` apart, without placements.
    std::vector<finishing::key_frame> sweep(int count, double degrees, double tilt = 0.0) const;
};

/// The mean distance between where the picture shows points of key frames and where, up to one similarity of the whole
/// picture, they belong, px of a key frame.
double mean_error(const finishing::finishing_result& result, const rendered_sweep& sweep,
                  const std::vector<finishing::key_frame>& key_frames);

}  // namespace tarn::test
