// SPDX-License-Identifier: Apache-2.0
//
// Each geometric helper against its plain transcription, on any floats: the results must agree to the last bit.
#include "reference/geometry.h"

#include <vector>

#include <opencv2/imgproc.hpp>

#include "input_bytes.h"
#include "internal/exact_routines.h"
#include "internal/numeric.h"
#include "motion.h"
#include "quadrilateral.h"
#include "target.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers

namespace {

using corners_t = std::vector<cv::Point2f>;

constexpr int greatest_side = 64;    // px
constexpr int rows_above = -100000;  // px; the plain transcription walks all rows from the topmost corner

bool same_point(const cv::Point2f& one, const cv::Point2f& other)
{
    return same_float(one.x, other.x) && same_float(one.y, other.y);
}

bool can_be_walked(const corners_t& corners)
{
    for (const cv::Point2f& corner : corners) {
        if (tarn::truncate_to_int(corner.y) < rows_above) {
            return false;
        }
    }
    return true;
}

void check_quadrilateral(input_bytes& input)
{
    const cv::Size size(input.integer(0, greatest_side), input.integer(0, greatest_side));
    corners_t p = input.any_quadrilateral(size);
    const corners_t q = input.any_quadrilateral(size);
    const float area_thresh = static_cast<float>(input.byte()) / 128.0f;
    const float angle_thresh = input.any_float(90);
    const cv::Mat frame = cv::Mat::zeros(size, CV_8UC3);
    const bool good = is_good_homo(p, frame, area_thresh, angle_thresh);
    if (can_be_walked(p)) {
        check(good == reference::is_good_homo(p, frame, area_thresh, angle_thresh), "is_good_homo");
    }
    check(is_convex(p) == reference::is_convex(p), "is_convex");
    check(same_float(calc_hangle(p), reference::calc_hangle(p)), "calc_hangle");
    check(same_float(calc_vangle(p), reference::calc_vangle(p)), "calc_vangle");
    check(same_float(calc_angle(p), reference::calc_angle(p)), "calc_angle");
    check(same_float(single_box_iou(p, q), reference::single_box_iou(p, q)), "single_box_iou");
    check(same_float(angle_of_two_vector(p[0], p[1], p[2]), reference::angle_of_two_vector(p[0], p[1], p[2])),
          "angle_of_two_vector");
    check(same_float(cross(p[0], p[1], p[2]), reference::cross(p[0], p[1], p[2])), "cross");
    check(same_point(get_intersection_point(p[0], p[1], p[2], p[3]),
                     reference::get_intersection_point(p[0], p[1], p[2], p[3])),
          "get_intersection_point");
}

void check_motion(input_bytes& input)
{
    const cv::Size size(input.integer(0, greatest_side), input.integer(0, greatest_side));
    corners_t p = input.any_quadrilateral(size);
    corners_t q = input.any_quadrilateral(size);
    check(get_direction(p, q) == reference::get_direction(p, q), "get_direction");
    check(same_float(get_move_distance(p, q), reference::get_move_distance(p, q)), "get_move_distance");
    LinePara line{};
    getLinePara(p[0].x, p[0].y, p[1].x, p[1].y, line);
    const LinePara expected = reference::getLinePara(p[0].x, p[0].y, p[1].x, p[1].y);
    check(same_float(line.k, expected.k) && same_float(line.b, expected.b), "getLinePara");
    check(same_float(point_2_line(line.k, line.b, q[0].x, q[1].x, q[1].y),
                     reference::point_2_line(line.k, line.b, q[0].x, q[1].x, q[1].y)),
          "point_2_line");
}

void check_extremes(input_bytes& input)
{
    std::vector<float> list(static_cast<std::size_t>(input.integer(1, 9)));
    for (float& value : list) {
        value = input.any_float(greatest_side);
    }
    check(same_float(min_axis(list), reference::min_axis(list)), "min_axis");
    check(same_float(max_axis(list), reference::max_axis(list)), "max_axis");
}

// Any number of corners, the convexity of which nobody has checked.
void check_polygon(input_bytes& input)
{
    const cv::Size size(input.integer(0, greatest_side), input.integer(0, greatest_side));
    corners_t corners(static_cast<std::size_t>(input.integer(0, 9)));
    std::vector<cv::Point> polygon;
    for (cv::Point2f& corner : corners) {
        corner.x = input.any_float(size.width);
        corner.y = input.any_float(size.height);
        polygon.emplace_back(tarn::truncate_to_int(corner.x), tarn::truncate_to_int(corner.y));
    }
    check(is_convex(corners) == reference::is_convex(corners), "is_convex of any polygon");
    const int covered = tarn::polygon_coverage(size, polygon);
    check(covered >= 0 && covered <= size.area(), "polygon_coverage is a number of pixels");
    if (!polygon.empty() && size.area() > 0 && can_be_walked(corners)) {
        cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{polygon}, cv::Scalar(1), cv::LINE_8, 0);
        check(covered == cv::countNonZero(mask), "polygon_coverage");
    }
}

void check_conversion(input_bytes& input)
{
    const float value = input.any_float(greatest_side);
    const int truncated = tarn::truncate_to_int(value);
    // Undefined outside of this range, so asked for inside only.
    if (value > -2147483648.0f && value < 2147483648.0f) {
        check(truncated == static_cast<int>(value), "truncate_to_int");
    } else {
        check(truncated == -2147483647 - 1, "truncate_to_int out of range");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    input_bytes input(data, size);
    do {
        run_one_of({check_quadrilateral, check_motion, check_extremes, check_polygon, check_conversion}, input);
    } while (!input.at_end());
    return 0;
}
