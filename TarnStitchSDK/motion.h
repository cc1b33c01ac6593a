// SPDX-License-Identifier: Apache-2.0
//
// Motion of a frame between two positions (direction, distance), and straight lines. Pure functions; any
// thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

/// The line y = k x + b in pixel coordinates.
struct LinePara {
    float k;  ///< slope; 10000 stands for an upright line
    float b;  ///< intercept at x = 0
};

/// Direction of the mean shift of a frame's four corners:
///
/// | code | motion                                                                       |
/// |------|------------------------------------------------------------------------------|
/// | 0    | undecided: the two mean shifts differ in magnitude by less than 2 pixels      |
/// | 1, 2 | vertical: mean y shift positive (down), or zero or negative (up)             |
/// | 3, 4 | horizontal: mean x shift positive (right), or zero or negative (left)        |
///
/// Both lists hold four corners at least, in the same order, in pixels. Reads only. A NaN in the mean shifts
/// leads to the vertical codes, mostly 2.
int get_direction(std::vector<cv::Point2f>& frame_corners, std::vector<cv::Point2f>& transpose_corners);

/// Euclidean distance in pixels between the first points of two lists, which must not be empty. Reads only.
float get_move_distance(std::vector<cv::Point2f>& frame_center, std::vector<cv::Point2f>& transpose_center);

/// Fills `LP` with the line through (x1, y1) and (x2, y2); an upright line gets the slope 10000.
void getLinePara(float x1, float y1, float x2, float y2, LinePara& LP);

/// Distance in pixels of (x, y) from the line y = k x + b, where `k2` is sqrt(k² + 1): |k x + b - y| / k2.
float point_2_line(float k, float b, float k2, float x, float y);
