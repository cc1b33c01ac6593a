// SPDX-License-Identifier: Apache-2.0
//
// Frames and where they lie: corners, homographies that move, boxes, and what is around an image that has grown.
// Pure, but for clear_around; any thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "numeric.h"
#include "quadrilateral.h"

namespace tarn {

using points = std::vector<cv::Point2f>;

/// Top-left, top-right, bottom-right, bottom-left of a frame of that size.
inline points corners_of(cv::Size size)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    return {{0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}};
}

/// @throws cv::Exception for an empty list or homography
inline points mapped(const points& places, const cv::Mat& homography)
{
    points result;
    cv::perspectiveTransform(places, result, homography);
    return result;
}

/// 3 x 3, CV_64F.
inline cv::Mat translation(double x, double y)
{
    return (cv::Mat_<double>(3, 3) << 1, 0, x, 0, 1, y, 0, 0, 1);
}

inline cv::Mat identity()
{
    return translation(0.0, 0.0);
}

/// How far the origin must move so that nothing lies left of or above it: no component is below 0.
inline cv::Point2f shift_into_view(float leftmost, float topmost)
{
    return {leftmost < 0.0f ? -leftmost : 0.0f, topmost < 0.0f ? -topmost : 0.0f};
}

/// Bounding box of a quadrilateral. A NaN counts only in the first corner.
struct bounds {
    float left_x, right_x, bottom_y, top_y;

    explicit bounds(const points& p)
        : left_x(min_axis({p[0].x, p[1].x, p[2].x, p[3].x})), right_x(max_axis({p[0].x, p[1].x, p[2].x, p[3].x})),
          bottom_y(max_axis({p[0].y, p[1].y, p[2].y, p[3].y})), top_y(min_axis({p[0].y, p[1].y, p[2].y, p[3].y}))
    {
    }
};

/// The same in whole pixels, each limit truncated toward zero.
struct pixel_bounds {
    int left_x, right_x, bottom_y, top_y;

    explicit pixel_bounds(const points& p) : pixel_bounds(bounds(p))
    {
    }

    explicit pixel_bounds(const bounds& box)
        : left_x(truncate_to_int(box.left_x)), right_x(truncate_to_int(box.right_x)),
          bottom_y(truncate_to_int(box.bottom_y)), top_y(truncate_to_int(box.top_y))
    {
    }
};

/// Makes everything in an image black but a place inside it.
inline void clear_around(cv::Mat& image, const cv::Rect& place)
{
    const cv::Range rows(place.y, place.br().y);
    image.rowRange(0, rows.start).setTo(cv::Scalar());
    image.rowRange(rows.end, image.rows).setTo(cv::Scalar());
    image(rows, cv::Range(0, place.x)).setTo(cv::Scalar());
    image(rows, cv::Range(place.br().x, image.cols)).setTo(cv::Scalar());
}

}  // namespace tarn
