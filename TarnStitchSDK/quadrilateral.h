// SPDX-License-Identifier: Apache-2.0
//
// Tests on the quadrilateral that a frame becomes when its corners are mapped through a homography: is it a
// plausible view of the next frame, and how much does it overlap another one. Pure functions; any thread.
//
// A quadrilateral is a list of corners in the order top-left, top-right, bottom-right, bottom-left, in pixels;
// only corners 0 to 3 are read unless a function says otherwise. Edges 0-1 and 2-3 are the horizontal ones,
// 0-3 and 1-2 the vertical ones. Coordinates may be any float, infinities and NaN included.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

/// Whether a mapped frame is plausible: convex in whole pixels, its edges not tilted by more than
/// `angle_thresh` degrees, and covering at least the fraction `area_thresh` of the frame's own rectangle.
///
/// @param corners       the mapped frame; fewer than four corners give false. Convexity and area are those of
///                      the polygon through all of them, the tilts those of the first four.
/// @param frame         the frame itself; only its size is used. A frame without pixels passes the area test.
/// @param area_thresh   0 to 1
/// @param angle_thresh  degrees; both comparisons with it are strict, and a NaN tilt passes
/// @throws cv::Exception when the mask of the frame's size cannot be allocated
bool is_good_homo(const std::vector<cv::Point2f>& corners, const cv::Mat& frame, float area_thresh, float angle_thresh);

/// Convexity of the polygon through all of `corners`, in float coordinates; false for an empty list.
bool is_convex(const std::vector<cv::Point2f>& corners);

/// Signed angle at `c` from the ray towards `pt1` to the ray towards `pt2`, in degrees, -180 to 180, positive
/// from +x towards +y. 0 where pt1 and pt2 coincide; a ray without length counts as one towards +y. Reads only.
float angle_of_two_vector(cv::Point2f& pt1, cv::Point2f& pt2, cv::Point2f& c);

/// Tilt of the less level of the two horizontal edges, in degrees, 0 (level) to 90 (upright). NaN when edge 0-1
/// has no length; an edge 2-3 without length is ignored.
float calc_hangle(const std::vector<cv::Point2f>& conners);

/// Deviation from upright of the more upright of the two vertical edges, in degrees, 0 to 90: the lenient
/// counterpart of calc_hangle. NaN when edge 0-3 has no length; an edge 1-2 without length is ignored.
float calc_vangle(const std::vector<cv::Point2f>& conners);

/// The same as calc_hangle.
float calc_angle(const std::vector<cv::Point2f>& conners);

/// A placeholder of the interface; does nothing.
void calc_angles();

/// Intersection over union of the axis-aligned bounding boxes of two quadrilaterals, in whole pixels.
///
/// The extents of the intersection are not clamped at zero: boxes apart in one axis give a negative ratio,
/// boxes apart in both give a positive one. 0 when the union is empty.
float single_box_iou(std::vector<cv::Point2f> pts1, std::vector<cv::Point2f> pts2);

/// The smallest element of a list that is not empty. A NaN in front stays the result, a later one is ignored.
float min_axis(std::vector<float> input_list);

/// The largest element of a list that is not empty. A NaN in front stays the result, a later one is ignored.
float max_axis(std::vector<float> input_list);

/// Twice the signed area of the triangle c, a, b; positive when the turn from a to b about c leads from +x
/// towards +y.
float cross(cv::Point2f a, cv::Point2f b, cv::Point2f c);

/// The point in which the line a-b meets the line c-d. Parallel lines give infinite or NaN coordinates.
cv::Point2f get_intersection_point(cv::Point2f a, cv::Point2f b, cv::Point2f c, cv::Point2f d);
