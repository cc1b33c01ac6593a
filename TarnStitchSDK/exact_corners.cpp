// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>

#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"

namespace tarn {

namespace {

constexpr size_t max_corners = 80;
constexpr double quality_level = 0.01;
constexpr int min_distance = 10;  // px
constexpr int block_size = 3;

// A local maximum of the corner strength.
struct candidate {
    float strength;
    int x, y;
};

// Of two as strong the lower one, then the one further right, comes first.
bool comes_after(const candidate& a, const candidate& b)
{
    if (a.strength != b.strength) {
        return a.strength < b.strength;
    }
    return a.y != b.y ? a.y < b.y : a.x < b.x;
}

std::vector<candidate> local_maxima(const cv::Mat& gray)
{
    cv::Mat strengths;
    cv::Mat greatest_near;
    double greatest = 0.0;
    cv::cornerMinEigenVal(gray, strengths, block_size);
    cv::minMaxLoc(strengths, nullptr, &greatest);
    cv::threshold(strengths, strengths, greatest * quality_level, 0.0, cv::THRESH_TOZERO);
    cv::dilate(strengths, greatest_near, cv::Mat());
    std::vector<candidate> result;
    std::vector<int> columns(static_cast<size_t>(gray.cols));
    for (int y = 1; y < gray.rows - 1; ++y) {
        const auto* const strength = strengths.ptr<float>(y);
        const auto* const near = greatest_near.ptr<float>(y);
        // Without a branch, which would be a guess at each pixel.
        size_t count = 0;
        for (int x = 1; x < gray.cols - 1; ++x) {
            columns[count] = x;
            count += static_cast<size_t>(strength[x] != 0.0f) & static_cast<size_t>(strength[x] == near[x]);
        }
        std::for_each(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(count), [&](int x) {
            result.push_back({strength[x], x, y});
        });
    }
    return result;
}

}  // namespace

std::vector<cv::Point2f> find_corners(const cv::Mat& gray)
{
    std::vector<cv::Point2f> corners;
    if (gray.type() != CV_8UC1 || gray.empty()) {
        cv::goodFeaturesToTrack(gray, corners, max_corners, quality_level, min_distance, cv::noArray(), block_size,
                                false, 0.04);
        return corners;
    }
    // OpenCV sorts all candidates, of which there are thousands; the heap orders only those looked at.
    std::vector<candidate> heap = local_maxima(gray);
    std::make_heap(heap.begin(), heap.end(), comes_after);
    std::vector<cv::Point> taken;
    while (!heap.empty() && taken.size() < max_corners) {
        std::pop_heap(heap.begin(), heap.end(), comes_after);
        const cv::Point place(heap.back().x, heap.back().y);
        heap.pop_back();
        const auto is_near = [&place](const cv::Point& other) {
            const cv::Point d = place - other;
            return d.dot(d) < min_distance * min_distance;
        };
        if (std::none_of(taken.begin(), taken.end(), is_near)) {
            taken.push_back(place);
        }
    }
    corners.assign(taken.begin(), taken.end());
    return corners;
}

}  // namespace tarn
