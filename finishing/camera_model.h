// SPDX-License-Identifier: Apache-2.0
//
// How a camera may move, as numbers that can be adjusted. Pure. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "frame_matching.h"
#include "tarn_finishing.h"

namespace tarn::finishing {

/// The cameras of a sweep: one frame of reference, one motion.
struct camera_set {
    camera_motion motion = camera_motion::none;
    double focal = 1.0;               ///< of a turning camera, in units of the longer side; 1 for others
    std::vector<cv::Matx33d> places;  ///< world_from_camera rotations, or plane_from_frame, of centred coordinates
    std::vector<bool> placed;         ///< those that have a place

    /// World or plane coordinates from centred ones, up to a factor.
    cv::Matx33d reference_from_centred(int index) const;
    /// A homography of centred coordinates.
    cv::Matx33d j_from_i(int i, int j) const;
};

/// Numbers that describe a small change of one camera.
int parameters_of_camera(camera_motion motion);

/// Numbers that describe a small change of what all cameras share: the focal length.
int shared_parameters(camera_motion motion);

/// A camera's place after a small change: exact where the change is a rotation.
cv::Matx33d changed_place(camera_motion motion, const cv::Matx33d& place, const double* change);

/// The rotation nearest to a matrix.
cv::Matx33d nearest_rotation(const cv::Matx33d& matrix);

/// For each frame the number of the part that it belongs to: those that links join, and those that they join, and so
/// on. A part has the number of its first frame.
std::vector<int> joined_parts(const std::vector<frame_link>& links, int count);

/// Places the cameras along the links, from one in the middle of the largest part that hangs together: the best links
/// first. Cameras beyond that part have no place.
camera_set chained_cameras(const std::vector<frame_link>& links, int count, camera_motion motion, double focal);

}  // namespace tarn::finishing
