// SPDX-License-Identifier: Apache-2.0
#include "high_res_composition.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "numeric.h"
#include "quadrilateral.h"
#include "seam.h"

namespace tarn {

namespace {

constexpr float greatest_side = 10000.0f;  // px
constexpr double content_above = 1.0;      // gray value

using points = std::vector<cv::Point2f>;
using contour_t = std::vector<cv::Point>;

cv::Mat translation(double x, double y)
{
    return (cv::Mat_<double>(3, 3) << 1, 0, x, 0, 1, y, 0, 0, 1);
}

points mapped_corners(const cv::Mat& frame, const cv::Mat& homography)
{
    const auto width = static_cast<float>(frame.cols);
    const auto height = static_cast<float>(frame.rows);
    const points corners = {{0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}};
    points result;
    cv::perspectiveTransform(corners, result, homography);
    return result;
}

// Bounding box of a quadrilateral, not rounded.
struct bounds {
    float left_x, right_x, bottom_y, top_y;

    explicit bounds(const points& p)
        : left_x(min_axis({p[0].x, p[1].x, p[2].x, p[3].x})),
          right_x(max_axis({p[0].x, p[1].x, p[2].x, p[3].x})),
          bottom_y(max_axis({p[0].y, p[1].y, p[2].y, p[3].y})),
          top_y(min_axis({p[0].y, p[1].y, p[2].y, p[3].y}))
    {
    }
};

// The outer contour with most points, the first of equals, of what the image shows; none for an empty image.
std::vector<contour_t> largest_contour(const cv::Mat& image)
{
    cv::Mat tmp_gray;
    cv::Mat tmp_binary;
    cv::cvtColor(image, tmp_gray, cv::COLOR_BGR2GRAY);
    cv::threshold(tmp_gray, tmp_binary, content_above, 255.0, cv::THRESH_BINARY);
    std::vector<contour_t> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(tmp_binary, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    const auto largest =
        std::max_element(contours.begin(), contours.end(),
                         [](const contour_t& a, const contour_t& b) { return a.size() < b.size(); });
    return largest == contours.end() ? std::vector<contour_t>() : std::vector<contour_t>{std::move(*largest)};
}

// Merges a warped frame into the region of the canvas under its bounding box.
void merge(cv::Mat& region, cv::Mat& shift_frame_warp)
{
    const std::vector<contour_t> content = largest_contour(region);
    if (content.empty()) {
        // Nothing lies under the frame, so there is nothing to keep and no joint to hide.
        shift_frame_warp.copyTo(region);
        return;
    }
    cv::Mat tmp_shifted_frame_warp = shift_frame_warp.clone();
    cv::fillPoly(shift_frame_warp, content, cv::Scalar(), cv::LINE_8, 0);
    // The two overlap on the contour only, and where the panorama has content outside of its largest contour.
    cv::add(region, shift_frame_warp, region);
    fill_contours(content, tmp_shifted_frame_warp, region);
}

}  // namespace

std::optional<grown_panorama> compose(const cv::Mat& panorama, const cv::Mat& frame,
                                      const cv::Mat& panorama_from_frame)
{
    CV_Assert(panorama.type() == CV_8UC3 && frame.type() == CV_8UC3);
    const bounds reach(mapped_corners(frame, panorama_from_frame));
    const float base_shift_x = reach.left_x < 0.0f ? -reach.left_x : 0.0f;
    const float base_shift_y = reach.top_y < 0.0f ? -reach.top_y : 0.0f;
    const cv::Mat H = translation(base_shift_x, base_shift_y) * panorama_from_frame;

    const bounds box(mapped_corners(frame, H));
    const float stitch_width = std::max(box.right_x, base_shift_x + static_cast<float>(panorama.cols));
    const float stitch_height = std::max(box.bottom_y, base_shift_y + static_cast<float>(panorama.rows));
    if (stitch_width > greatest_side || stitch_height > greatest_side) {
        return std::nullopt;
    }

    cv::Mat stitch_image =
        cv::Mat::zeros(truncate_to_int(stitch_height), truncate_to_int(stitch_width), CV_8UC3);
    panorama.copyTo(stitch_image(
        cv::Rect(truncate_to_int(base_shift_x), truncate_to_int(base_shift_y), panorama.cols, panorama.rows)));

    const cv::Rect frame_place(truncate_to_int(box.left_x), truncate_to_int(box.top_y),
                               truncate_to_int(box.right_x - box.left_x),
                               truncate_to_int(box.bottom_y - box.top_y));
    cv::Mat shift_stitch_image = stitch_image(frame_place);
    const cv::Mat warpH = translation(-box.left_x, -box.top_y) * H;
    cv::Mat shift_frame_warp;
    cv::warpPerspective(frame, shift_frame_warp, warpH, frame_place.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar());
    merge(shift_stitch_image, shift_frame_warp);
    return grown_panorama{stitch_image, H};
}

}  // namespace tarn
