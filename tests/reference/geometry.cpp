// SPDX-License-Identifier: Apache-2.0
#include "geometry.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

#include "internal/numeric.h"

namespace reference {

float min_axis(const std::vector<float>& input_list)
{
    float min_value = input_list[0];
    for (size_t i = 1; i < input_list.size(); ++i) {
        if (min_value > input_list[i]) {
            min_value = input_list[i];
        }
    }
    return min_value;
}

float max_axis(const std::vector<float>& input_list)
{
    float max_value = input_list[0];
    for (size_t i = 1; i < input_list.size(); ++i) {
        if (max_value < input_list[i]) {
            max_value = input_list[i];
        }
    }
    return max_value;
}

float calc_hangle(const std::vector<cv::Point2f>& conners)
{
    const float r1 = (conners[0].y - conners[1].y) / (conners[0].x - conners[1].x);
    const float a1 = std::fabs(std::atan(r1));
    const auto angle1 = static_cast<float>(static_cast<double>(a1) * 180.0 / pi);
    const float r2 = (conners[2].y - conners[3].y) / (conners[2].x - conners[3].x);
    const float a2 = std::fabs(std::atan(r2));
    const auto angle2 = static_cast<float>(static_cast<double>(a2) * 180.0 / pi);
    float result = angle1;
    if (angle2 > angle1) {
        result = angle2;
    }
    return result;
}

float calc_vangle(const std::vector<cv::Point2f>& conners)
{
    const float r1 = (conners[0].y - conners[3].y) / (conners[0].x - conners[3].x);
    const float a1 = std::fabs(std::atan(r1));
    const auto angle1 = static_cast<float>(static_cast<double>(a1) * 180.0 / pi);
    const float r2 = (conners[1].y - conners[2].y) / (conners[1].x - conners[2].x);
    const float a2 = std::fabs(std::atan(r2));
    const auto angle2 = static_cast<float>(static_cast<double>(a2) * 180.0 / pi);
    float angle = angle1;
    if (angle2 > angle1) {
        angle = angle2;
    }
    return 90.0f - angle;
}

float calc_angle(const std::vector<cv::Point2f>& conners)
{
    return calc_hangle(conners);
}

bool is_convex(const std::vector<cv::Point2f>& corners)
{
    if (corners.empty()) {
        return false;  // OpenCV's own answer to an empty contour is an exception
    }
    std::vector<cv::Point2f> contour;
    for (size_t i = 0; i < corners.size(); ++i) {
        contour.push_back(corners[i]);
    }
    return cv::isContourConvex(contour);
}

bool is_good_homo(const std::vector<cv::Point2f>& corners, const cv::Mat& frame, float area_thresh, float angle_thresh)
{
    if (corners.empty()) {
        return false;
    }
    std::vector<cv::Point> contour;
    for (size_t i = 0; i < corners.size(); ++i) {
        contour.push_back(cv::Point(tarn::truncate_to_int(corners[i].x), tarn::truncate_to_int(corners[i].y)));
    }
    if (!cv::isContourConvex(contour)) {
        return false;
    }
    const float angle = calc_hangle(corners);
    const float angle2 = calc_vangle(corners);
    if (angle > angle_thresh || angle2 > angle_thresh) {
        return false;
    }
    const auto frame_area = static_cast<float>(static_cast<double>(frame.cols) * static_cast<double>(frame.rows));
    cv::Mat mask = cv::Mat::zeros(frame.rows, frame.cols, CV_8UC1);
    const std::vector<std::vector<cv::Point>> contours = {contour};
    cv::fillPoly(mask, contours, cv::Scalar(1), 8, 0, cv::Point(0, 0));
    const auto green_box_area = static_cast<float>(cv::countNonZero(mask));
    const float area_p = green_box_area / frame_area;
    if (area_p < area_thresh) {
        return false;
    }
    return true;
}

float angle_of_two_vector(const cv::Point2f& pt1, const cv::Point2f& pt2, const cv::Point2f& c)
{
    float theta = std::atan2(pt1.x - c.x, pt1.y - c.y) - std::atan2(pt2.x - c.x, pt2.y - c.y);
    if (static_cast<double>(theta) > 3.141592653589793) {
        theta = static_cast<float>(static_cast<double>(theta) + -6.283185307179586);
    }
    if (static_cast<double>(theta) < -3.141592653589793) {
        theta = static_cast<float>(static_cast<double>(theta) + 6.283185307179586);
    }
    return static_cast<float>(static_cast<double>(theta) * 180.0 / pi);
}

float single_box_iou(const std::vector<cv::Point2f>& pts1, const std::vector<cv::Point2f>& pts2)
{
    using tarn::truncate_to_int;
    using tarn::wrapping_difference;

    const int xmin1 = truncate_to_int(min_axis({pts1[0].x, pts1[1].x, pts1[2].x, pts1[3].x}));
    const int xmax1 = truncate_to_int(max_axis({pts1[0].x, pts1[1].x, pts1[2].x, pts1[3].x}));
    const int ymax1 = truncate_to_int(max_axis({pts1[0].y, pts1[1].y, pts1[2].y, pts1[3].y}));
    const int ymin1 = truncate_to_int(min_axis({pts1[0].y, pts1[1].y, pts1[2].y, pts1[3].y}));
    const float area1 =
        static_cast<float>(wrapping_difference(xmax1, xmin1)) * static_cast<float>(wrapping_difference(ymax1, ymin1));

    const int xmin2 = truncate_to_int(min_axis({pts2[0].x, pts2[1].x, pts2[2].x, pts2[3].x}));
    const int xmax2 = truncate_to_int(max_axis({pts2[0].x, pts2[1].x, pts2[2].x, pts2[3].x}));
    const int ymax2 = truncate_to_int(max_axis({pts2[0].y, pts2[1].y, pts2[2].y, pts2[3].y}));
    const int ymin2 = truncate_to_int(min_axis({pts2[0].y, pts2[1].y, pts2[2].y, pts2[3].y}));
    const float area2 =
        static_cast<float>(wrapping_difference(xmax2, xmin2)) * static_cast<float>(wrapping_difference(ymax2, ymin2));

    const int inter_xmin = xmin1 > xmin2 ? xmin1 : xmin2;
    const int inter_xmax = xmax1 < xmax2 ? xmax1 : xmax2;
    const int inter_ymin = ymin1 > ymin2 ? ymin1 : ymin2;
    const int inter_ymax = ymax1 < ymax2 ? ymax1 : ymax2;
    const float inter_area = static_cast<float>(wrapping_difference(inter_xmax, inter_xmin))
                             * static_cast<float>(wrapping_difference(inter_ymax, inter_ymin));

    float union_area = area1 + area2;
    union_area = union_area - inter_area;
    float iou = 0.0f;
    if (static_cast<double>(union_area) < 1e-14) {
        iou = 0.0f;
    } else {
        iou = inter_area / union_area;
    }
    return iou;
}

float cross(const cv::Point2f& a, const cv::Point2f& b, const cv::Point2f& c)
{
    return (a.x - c.x) * (b.y - c.y) - (a.y - c.y) * (b.x - c.x);
}

cv::Point2f get_intersection_point(const cv::Point2f& a, const cv::Point2f& b, const cv::Point2f& c,
                                   const cv::Point2f& d)
{
    const float above = (a.x - c.x) * (c.y - d.y) - (a.y - c.y) * (c.x - d.x);
    const float below = (a.x - b.x) * (c.y - d.y) - (a.y - b.y) * (c.x - d.x);
    const float t = above / below;
    cv::Point2f p;
    p.x = a.x + t * (b.x - a.x);
    p.y = a.y + t * (b.y - a.y);
    return p;
}

int get_direction(const std::vector<cv::Point2f>& f, const std::vector<cv::Point2f>& t)
{
    const float dx = ((t[0].x - f[0].x) + (t[1].x - f[1].x) + (t[2].x - f[2].x) + (t[3].x - f[3].x)) * 0.25f;
    const float dy = ((t[0].y - f[0].y) + (t[1].y - f[1].y) + (t[2].y - f[2].y) + (t[3].y - f[3].y)) * 0.25f;
    int direction = 0;
    if (std::fabs(dx) > std::fabs(dy)) {
        if (dx > 0) {
            direction = 3;
        } else {
            direction = 4;
        }
    } else {
        if (dy > 0) {
            direction = 1;
        } else {
            direction = 2;
        }
    }
    if (std::fabs(std::fabs(dx) - std::fabs(dy)) < 2.0f) {
        direction = 0;
    }
    return direction;
}

float get_move_distance(const std::vector<cv::Point2f>& frame_center, const std::vector<cv::Point2f>& transpose_center)
{
    const float dx = frame_center[0].x - transpose_center[0].x;
    const float dy = frame_center[0].y - transpose_center[0].y;
    const double square_x = static_cast<double>(dx) * static_cast<double>(dx);
    const double square_y = static_cast<double>(dy) * static_cast<double>(dy);
    return static_cast<float>(std::sqrt(square_x + square_y));
}

LinePara getLinePara(float x1, float y1, float x2, float y2)
{
    LinePara LP{};
    const float m = x2 - x1;
    if (m == 0) {
        LP.k = 10000.0f;
    } else {
        LP.k = (y2 - y1) / m;
    }
    LP.b = y1 - LP.k * x1;
    return LP;
}

float point_2_line(float k, float b, float k2, float x, float y)
{
    const float offset = k * x + b - y;
    return std::fabs(offset) / k2;
}

}  // namespace reference
