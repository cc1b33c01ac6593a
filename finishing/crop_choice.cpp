// SPDX-License-Identifier: Apache-2.0
#include "crop_choice.h"

#include <algorithm>
#include <array>
#include <utility>

#include <opencv2/imgproc.hpp>

namespace tarn::finishing {

namespace {

/// The four sides of a rectangle.
enum class side { left, top, right, bottom };
constexpr std::array all_sides = {side::left, side::top, side::right, side::bottom};

cv::Rect grown(cv::Rect r, side which, int by)
{
    switch (which) {
    case side::left:
        return {r.x - by, r.y, r.width + by, r.height};
    case side::top:
        return {r.x, r.y - by, r.width, r.height + by};
    case side::right:
        return {r.x, r.y, r.width + by, r.height};
    case side::bottom:
        break;
    }
    return {r.x, r.y, r.width, r.height + by};
}

/// The outermost row or column.
cv::Rect edge(cv::Rect r, side which)
{
    switch (which) {
    case side::left:
        return {r.x, r.y, 1, r.height};
    case side::top:
        return {r.x, r.y, r.width, 1};
    case side::right:
        return {r.br().x - 1, r.y, 1, r.height};
    case side::bottom:
        break;
    }
    return {r.x, r.br().y - 1, r.width, 1};
}

class coverage_at_full_size {
public:
    coverage_at_full_size(const drawing_surface& surface, const std::vector<int>& frames,
                          const std::vector<cv::Size>& sizes)
        : surface_(surface), frames_(frames), sizes_(sizes)
    {
        for (const int index : frames) {
            outlines_.push_back(surface.outline(index, size_of(index)));
        }
    }

    int empty_pixels(cv::Rect area) const
    {
        cv::Mat covered = cv::Mat::zeros(area.size(), CV_8UC1);
        cv::Mat pixels;
        for (std::size_t k = 0; k < frames_.size(); ++k) {
            const cv::Rect part = outlines_[k] & area;
            if (!part.empty()) {
                surface_.pixels_of_frame(frames_[k], size_of(frames_[k]), part, pixels);
                covered(part - area.tl()).setTo(255, shown_part(pixels, size_of(frames_[k])));
            }
        }
        return static_cast<int>(covered.total()) - cv::countNonZero(covered);
    }

private:
    cv::Size size_of(int index) const
    {
        return sizes_[static_cast<std::size_t>(index)];
    }

    const drawing_surface& surface_;
    const std::vector<int>& frames_;
    const std::vector<cv::Size>& sizes_;
    std::vector<cv::Rect> outlines_;
};

/// Moves the sides in, one after the other the emptiest, until all are full.
template <typename Count>
cv::Rect moved_in(cv::Rect rectangle, const Count& empty_pixels)
{
    while (!rectangle.empty()) {
        double most = 0.0;
        side worst = side::left;
        for (const side which : all_sides) {
            const cv::Rect line = edge(rectangle, which);
            const double share = static_cast<double>(empty_pixels(line)) / line.area();
            if (share > most) {
                most = share;
                worst = which;
            }
        }
        if (most == 0.0) {
            break;
        }
        rectangle = grown(rectangle, worst, -1);
    }
    return rectangle;
}

}  // namespace

cv::Rect largest_full_rectangle(const cv::Mat& mask)
{
    // Row by row, the columns of full pixels that end there are bars, and the largest rectangle under bars is found
    // with a stack of those that still grow.
    cv::Rect best;
    std::vector<int> heights(static_cast<std::size_t>(mask.cols) + 1);
    std::vector<std::pair<int, int>> growing;  // first column and height
    for (int y = 0; y < mask.rows; ++y) {
        const auto* const row = mask.ptr<uchar>(y);
        growing.clear();
        for (int x = 0; x <= mask.cols; ++x) {
            int& height = heights[static_cast<std::size_t>(x)];
            height = x < mask.cols && row[x] != 0 ? height + 1 : 0;
            int first = x;
            while (!growing.empty() && growing.back().second > height) {
                const auto [begin, tall] = growing.back();
                growing.pop_back();
                if (static_cast<std::int64_t>(tall) * (x - begin)
                    > static_cast<std::int64_t>(best.width) * best.height) {
                    best = cv::Rect(begin, y - tall + 1, x - begin, tall);
                }
                first = begin;
            }
            if (height > 0 && (growing.empty() || growing.back().second < height)) {
                growing.emplace_back(first, height);
            }
        }
    }
    return best;
}

cv::Rect nearly_full_rectangle(const cv::Mat& mask, cv::Rect full)
{
    constexpr double most_empty = 0.01;         // of the picture
    constexpr double most_empty_of_edge = 0.4;  // of a row or column
    constexpr double worth_it = 1.02;           // times the area
    if (full.empty()) {
        return full;
    }
    const cv::Rect bounds(cv::Point(), mask.size());
    cv::Rect result = full;
    int empty = 0;
    for (bool grows = true; grows;) {
        // The side whose next row or column is the fullest.
        grows = false;
        double least = most_empty_of_edge;
        cv::Rect next;
        int next_empty = 0;
        for (const side which : all_sides) {
            const cv::Rect candidate = grown(result, which, 1);
            if ((candidate & bounds) != candidate) {
                continue;
            }
            const cv::Rect added = edge(candidate, which);
            const int own = added.area() - cv::countNonZero(mask(added));
            const double share = static_cast<double>(own) / added.area();
            if (share < least && empty + own <= most_empty * candidate.area()) {
                least = share;
                next = candidate;
                next_empty = empty + own;
                grows = true;
            }
        }
        if (grows) {
            result = next;
            empty = next_empty;
        }
    }
    return result.area() > worth_it * full.area() ? result : full;
}

cv::Rect exact_full_rectangle(cv::Rect rectangle, const drawing_surface& surface, const std::vector<int>& frames,
                              const std::vector<cv::Size>& sizes, int reach, const std::function<void()>& each_line)
{
    const coverage_at_full_size coverage(surface, frames, sizes);
    const auto empty_pixels = [&](cv::Rect line) {
        if (each_line) {
            each_line();
        }
        return coverage.empty_pixels(line);
    };
    rectangle = moved_in(rectangle, empty_pixels);
    for (const side which : all_sides) {
        for (int k = 0; k < reach && !rectangle.empty(); ++k) {
            const cv::Rect candidate = grown(rectangle, which, 1);
            if (empty_pixels(edge(candidate, which)) > 0) {
                break;
            }
            rectangle = candidate;
        }
    }
    return rectangle;
}

cv::Rect sides_moved_in(const cv::Mat& mask)
{
    return moved_in(cv::Rect(cv::Point(), mask.size()),
                    [&](cv::Rect line) { return line.area() - cv::countNonZero(mask(line)); });
}

}  // namespace tarn::finishing
