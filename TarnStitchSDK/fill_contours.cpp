// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include <opencv2/imgproc.hpp>

#include "seam.h"

namespace {

// Gray values above this one count as content.
constexpr double content_above = 1.0;

// A gray value below this one is never blended.
constexpr int least_blended_gray = 2;

// Length of the cross-fade. The last step is one short of it, which is meant.
constexpr int fade_range = 50;  // px

using contour_t = std::vector<cv::Point>;

// 1 inside the largest outer contour of the image's content, 0 elsewhere; all 0 for an image without content.
cv::Mat content_mask(const cv::Mat& gray)
{
    cv::Mat binary;
    cv::threshold(gray, binary, content_above, 255.0, cv::THRESH_BINARY);
    std::vector<contour_t> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(binary, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);

    cv::Mat mask = cv::Mat::zeros(gray.size(), CV_8UC1);
    // The first of contours with equally many points wins.
    const auto largest =
        std::max_element(contours.begin(), contours.end(),
                         [](const contour_t& a, const contour_t& b) { return a.size() < b.size(); });
    if (largest != contours.end()) {
        cv::fillPoly(mask, std::vector<contour_t>{*largest}, cv::Scalar(1), cv::LINE_8, 0);
    }
    return mask;
}

// Where the fade at an outline point leads, decided from point to point: the outline's orientation and the
// side of the greater difference keep their values where the next point does not decide them.
class fade_walk {
public:
    fade_walk(const cv::Mat& source_gray, const cv::Mat& target_gray)
        : source_gray_(source_gray), target_gray_(target_gray)
    {
    }

    // Direction of the fade at contour[j]: 1 towards +x, 2 -x, 3 +y, 4 -y; 0 before any point has decided it.
    int direction_at(const contour_t& contour, int j)
    {
        update_orientation(contour, j);
        update_direction(contour[static_cast<size_t>(j)]);
        return direction_;
    }

private:
    void update_orientation(const contour_t& contour, int j)
    {
        const int n = static_cast<int>(contour.size());
        const auto at = [&contour](int index) { return contour[static_cast<size_t>(index)]; };
        const cv::Point here = at(j);
        std::int64_t sum_dx = 0;  // neighbours may lie anywhere outside the image
        std::int64_t sum_dy = 0;
        const auto add_distance = [&](const cv::Point& neighbour) {
            sum_dx += std::abs(std::int64_t{here.x} - neighbour.x);
            sum_dy += std::abs(std::int64_t{here.y} - neighbour.y);
        };
        for (int k = 1; k <= 2; ++k) {
            if (j - k >= 0) {
                add_distance(at(j - k));
            }
            if (j + k < n) {
                add_distance(at(j + k));
            }
        }
        if (sum_dx > sum_dy) {
            runs_horizontally_ = true;
        } else if (sum_dx < sum_dy) {
            runs_horizontally_ = false;
        }
    }

    void update_direction(const cv::Point& here)
    {
        int d1 = 0;
        int d2 = 0;
        int d3 = 0;
        int d4 = 0;
        for (int k = 1; k <= 2; ++k) {
            if (runs_horizontally_) {
                d3 += difference(here.y + k, here.x);
                d4 += difference(here.y - k, here.x);
            } else {
                d1 += difference(here.y, here.x + k);
                d2 += difference(here.y, here.x - k);
            }
        }
        // All four are compared each time although two of them are 0: when the live two are equal the
        // direction stays what it was.
        if (d1 > d2 && d1 > d3 && d1 > d4) {
            direction_ = 1;
        } else if (d2 > d1 && d2 > d3 && d2 > d4) {
            direction_ = 2;
        } else if (d3 > d1 && d3 > d2 && d3 > d4) {
            direction_ = 3;
        } else if (d4 > d1 && d4 > d2 && d4 > d3) {
            direction_ = 4;
        }
    }

    // Difference of the two gray images at a pixel; 0 outside.
    int difference(int y, int x) const
    {
        if (y < 0 || y >= source_gray_.rows || x < 0 || x >= source_gray_.cols) {
            return 0;
        }
        return std::abs(source_gray_.at<uchar>(y, x) - target_gray_.at<uchar>(y, x));
    }

    const cv::Mat& source_gray_;
    const cv::Mat& target_gray_;
    bool runs_horizontally_ = false;
    int direction_ = 0;
};

// One step of the fade: (1 - a) source + a target, in single precision, truncated.
cv::Vec3b blend(const cv::Vec3b& source, const cv::Vec3b& target, float a)
{
    cv::Vec3b result;
    for (int c = 0; c < 3; ++c) {
        const float value = (1.0f - a) * static_cast<float>(source[c]) + a * static_cast<float>(target[c]);
        result[c] = static_cast<uchar>(value);
    }
    return result;
}

// Fades from the source at `start` to the target along a direction.
void fade(const cv::Mat& source, const cv::Mat& source_gray, cv::Mat& target, const cv::Point& start,
          int direction)
{
    constexpr std::array<int, 5> step_x = {0, 1, -1, 0, 0};
    constexpr std::array<int, 5> step_y = {0, 0, 0, 1, -1};
    const auto d = static_cast<size_t>(direction);
    for (int i = 1; i < fade_range; ++i) {
        const int x = start.x + i * step_x.at(d);
        const int y = start.y + i * step_y.at(d);
        if (x < 0 || x >= source.cols || y < 0 || y >= source.rows) {
            break;  // and so would every later step
        }
        if (source_gray.at<uchar>(y, x) < least_blended_gray) {
            continue;
        }
        const auto a = static_cast<float>(i / static_cast<double>(fade_range));
        auto& pixel = target.at<cv::Vec3b>(y, x);
        pixel = blend(source.at<cv::Vec3b>(y, x), pixel, a);
    }
}

}  // namespace

void fill_contours(std::vector<std::vector<cv::Point>> target_contours, cv::Mat& source_image,
                   cv::Mat& target_image)
{
    CV_Assert(source_image.type() == CV_8UC3 && target_image.type() == CV_8UC3);
    CV_Assert(source_image.size() == target_image.size());
    cv::Mat source_gray;
    cv::Mat target_gray;
    cv::cvtColor(source_image, source_gray, cv::COLOR_BGR2GRAY);
    cv::cvtColor(target_image, target_gray, cv::COLOR_BGR2GRAY);
    const cv::Mat mask = content_mask(source_gray);
    if (target_contours.empty()) {
        return;
    }

    const int h = source_image.rows;
    const int w = source_image.cols;
    const contour_t& contour = target_contours[0];
    fade_walk walk(source_gray, target_gray);
    for (int j = 0; j < static_cast<int>(contour.size()); ++j) {
        const cv::Point here = contour[static_cast<size_t>(j)];
        if (here.y <= 0 || here.y >= h - 1 || here.x <= 0 || here.x >= w - 1 || mask.at<uchar>(here) == 0) {
            continue;
        }
        target_image.at<cv::Vec3b>(here) = source_image.at<cv::Vec3b>(here);
        const int direction = walk.direction_at(contour, j);
        if (direction != 0) {
            fade(source_image, source_gray, target_image, here, direction);
        }
    }
}
