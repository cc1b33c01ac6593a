// SPDX-License-Identifier: Apache-2.0
//
// Each row in turn is taken for the last row of the rectangle. The full pixels that stand above it, column by
// column, are a histogram, and the largest rectangle in a histogram is found with a stack of the bars that are
// still open: a lower bar closes the higher ones before it, each bar is opened and closed once.
#include "best_rectangle.h"

#include <cstdint>
#include <vector>

namespace tarn::host {

namespace {

struct open_bar {
    int left;    ///< first column that is at least so high
    int height;  ///< px
};

}  // namespace

cv::Rect largest_full_rectangle(const cv::Mat& image)
{
    CV_Assert(image.empty() || image.type() == CV_8UC3);
    cv::Rect best;
    std::int64_t best_area = 0;
    std::vector<int> heights(static_cast<std::size_t>(image.cols), 0);
    std::vector<open_bar> stack;
    for (int y = 0; y < image.rows; ++y) {
        const auto* const row = image.ptr<cv::Vec3b>(y);
        stack.clear();
        for (int x = 0; x <= image.cols; ++x) {
            int height = 0;  // beyond the last column, which closes all bars
            if (x < image.cols) {
                int& column = heights[static_cast<std::size_t>(x)];
                column = row[x] == cv::Vec3b(0, 0, 0) ? 0 : column + 1;
                height = column;
            }
            int left = x;
            while (!stack.empty() && stack.back().height >= height) {
                const open_bar bar = stack.back();
                stack.pop_back();
                left = bar.left;
                const std::int64_t area = static_cast<std::int64_t>(bar.height) * (x - bar.left);
                const bool better =
                    area > best_area || (area == best_area && area > 0 && y + 1 == best.br().y && bar.left < best.x);
                if (better) {
                    best_area = area;
                    best = cv::Rect(bar.left, y + 1 - bar.height, x - bar.left, bar.height);
                }
            }
            stack.push_back({left, height});
        }
    }
    return best;
}

}  // namespace tarn::host
