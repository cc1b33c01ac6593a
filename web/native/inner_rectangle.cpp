// SPDX-License-Identifier: Apache-2.0
#include "inner_rectangle.h"

#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int longest_mask_side = 800;  // cells: more do not show on a screen, and take time

// One cell for each square of `step` pixels: 255 if all of its pixels are filled. Cells that would reach beyond the
// image are left out.
cv::Mat filled_cells(const cv::Mat& image, int step)
{
    cv::Mat cells(image.rows / step, image.cols / step, CV_8UC1, cv::Scalar(255));
    for (int y = 0; y < cells.rows * step; ++y) {
        const auto* pixel = image.ptr<cv::Vec3b>(y);
        auto* cell = cells.ptr<unsigned char>(y / step);
        for (int x = 0; x < cells.cols * step; ++x) {
            if (pixel[x] == cv::Vec3b(0, 0, 0)) {
                cell[x / step] = 0;
            }
        }
    }
    return cells;
}

// Empty cells that the outside does not reach become filled.
void fill_holes(cv::Mat& cells)
{
    cv::Mat framed;
    cv::copyMakeBorder(cells, framed, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    constexpr int outside = 128;
    cv::floodFill(framed, cv::Point(0, 0), cv::Scalar(outside));
    cells = framed(cv::Rect(1, 1, cells.cols, cells.rows)) != outside;
}

// The largest rectangle of cells that are not 0: under each row's skyline, the largest block, by a stack of the
// columns whose height still counts.
cv::Rect largest_rectangle(const cv::Mat& cells)
{
    cv::Rect best;
    std::vector<int> heights(static_cast<std::size_t>(cells.cols) + 1, 0);  // the last one stays 0
    std::vector<int> rising;
    for (int y = 0; y < cells.rows; ++y) {
        const auto* row = cells.ptr<unsigned char>(y);
        rising.clear();
        for (int x = 0; x <= cells.cols; ++x) {
            const auto column = static_cast<std::size_t>(x);
            if (x < cells.cols) {
                heights[column] = row[x] != 0 ? heights[column] + 1 : 0;
            }
            while (!rising.empty() && heights[static_cast<std::size_t>(rising.back())] >= heights[column]) {
                const int height = heights[static_cast<std::size_t>(rising.back())];
                rising.pop_back();
                const int left = rising.empty() ? 0 : rising.back() + 1;
                if (height * (x - left) > best.area()) {
                    best = cv::Rect(left, y + 1 - height, x - left, height);
                }
            }
            rising.push_back(x);
        }
    }
    return best;
}

}  // namespace

cv::Rect inner_rectangle(const cv::Mat& image)
{
    if (image.empty()) {
        return {};
    }
    const int step = 1 + (std::max(image.rows, image.cols) - 1) / longest_mask_side;
    cv::Mat cells = filled_cells(image, step);
    if (cells.empty()) {
        return {};
    }
    fill_holes(cells);
    const cv::Rect found = largest_rectangle(cells);
    return {found.x * step, found.y * step, found.width * step, found.height * step};
}
