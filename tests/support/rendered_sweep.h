// SPDX-License-Identifier: Apache-2.0
//
// Sweeps rendered from a textured plane, frame by frame, with the exact homography of each frame; and the
// geometry by which the library's results are compared with them.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::test {

/// A sweep over a plane. Nothing is rendered before it is asked for.
struct rendered_sweep {
    cv::Mat plane;                              ///< CV_8UC3, B,G,R
    cv::Size frame_size;                        ///< px
    std::vector<cv::Matx33d> plane_from_frame;  ///< the truth, one per frame: frame pixel to plane pixel

    int length() const
    {
        return static_cast<int>(plane_from_frame.size());
    }

    /// Frame `index` as a camera sees it, CV_8UC3, B,G,R.
    cv::Mat frame(int index) const;

    /// The same as a host hands it over: CV_8UC4, R,G,B,A.
    cv::Mat host_frame(int index) const;
};

/// Directions of motion of the camera over the plane, with the codes of the library.
constexpr int no_direction = 0;
constexpr int moving_down = 1;
constexpr int moving_up = 2;
constexpr int moving_right = 3;
constexpr int moving_left = 4;

/// The direction from which a camera moving in `direction` comes.
int opposite_direction(int direction);

/// "Down", "Up", "Right" or "Left"; for names of tests.
std::string direction_name(int direction);

/// A plane of that size with detail at every scale and no pixel darker than 30 in any channel. The same for the
/// same arguments; made once.
const cv::Mat& textured_plane(cv::Size size, unsigned seed = 1);

/// A camera that slides over the plane, `step` pixels per frame in one of the four directions, image axes and
/// plane axes parallel.
rendered_sweep slide(cv::Size frame_size, int direction, double step, int length);

/// A slide that turns back after `there` frames and comes back for `back` frames.
rendered_sweep slide_there_and_back(cv::Size frame_size, int direction, double step, int there, int back);

/// A camera with the focal length `focal` (px) that stands still and turns by `degrees` per frame, about its
/// upright axis (directions 3 and 4) or its level one (1 and 2), from `-degrees * (length - 1) / 2` to the
/// opposite angle: it faces the plane in mid-sweep.
rendered_sweep turn(cv::Size frame_size, int direction, double focal, double degrees, int length);

/// A slide in which the image is sheared ever more, by `shear` per frame along the motion's own axis, so that
/// corners of 90 degrees deviate by atan(shear * frames) after so many frames.
rendered_sweep sheared_slide(cv::Size frame_size, int direction, double step, double shear, int length);

/// R,G,B,A as a host hands it over, from B,G,R.
cv::Mat host_frame_from(const cv::Mat& bgr);

/// A frame without any detail, as a host hands it over.
cv::Mat blank_host_frame(cv::Size size);

/// A pixel of the full frame from one of the copy, at most 300 px wide, that the live path works on.
cv::Matx33d frame_from_working_copy(cv::Size frame_size);

/// Size of that copy.
cv::Size working_copy_size(cv::Size frame_size);

/// A pixel of the full frame from one of the prepared high-resolution frame: at most 1000 px wide, then turned
/// clockwise by 90 degrees.
cv::Matx33d frame_from_prepared(cv::Size frame_size);

/// Size of the prepared frame.
cv::Size prepared_size(cv::Size frame_size);

/// The four corners of an image of that size, mapped: top-left, top-right, bottom-right, bottom-left.
std::vector<cv::Point2d> mapped_corners(const cv::Matx33d& homography, cv::Size size);

/// Mean distance between the four corners as two homographies map them.
double mean_corner_error(const cv::Matx33d& estimate, const cv::Matx33d& truth, cv::Size size);

/// The translation by (x, y).
cv::Matx33d translation(double x, double y);

/// The shift by which a panorama has grown to the left and upwards after frames were placed in it, given where
/// each of them lies relative to the first.
cv::Matx33d canvas_shift(const std::vector<cv::Matx33d>& first_from_frame, cv::Size size);

}  // namespace tarn::test
