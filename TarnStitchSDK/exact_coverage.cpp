// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"
#include "internal/numeric.h"

namespace {

// Polygons that start higher above the image than this are filled here, all others by cv::fillPoly itself. It
// walks so many rows in about a tenth of a millisecond.
constexpr int rows_worth_walking = 1 << 16;

// Abscissas between pixels have 16 fractional bits, as in cv::fillPoly.
constexpr int fraction_bits = 16;
constexpr std::int64_t one_pixel = std::int64_t{1} << fraction_bits;

// An edge that is not level. It crosses the rows from y_top to the one before y_end, at x_top + n * x_step in
// row y_top + n. The step is truncated, so that a long edge misses its lower end by a little: this is what
// cv::fillPoly does, and why an edge cannot simply be cut off above the image.
struct polygon_edge {
    int y_top, y_end;
    std::int64_t x_top, x_step;

    polygon_edge(const cv::Point& upper, const cv::Point& lower)
        : y_top(upper.y), y_end(lower.y), x_top(upper.x * one_pixel),
          x_step((lower.x * one_pixel - x_top) / (std::int64_t{y_end} - y_top))
    {
    }

    bool crosses(int y) const
    {
        return y_top <= y && y < y_end;
    }

    std::int64_t x_at(int y) const
    {
        return x_top + (std::int64_t{y} - y_top) * x_step;
    }

    // Where the edge ends, by a number of rows that wraps around at 2^31. It wraps for edges from the smallest
    // int (a NaN corner) into the image.
    std::int64_t x_end() const
    {
        return x_top + tarn::wrapping_difference(y_end, y_top) * x_step;
    }
};

// Whether the whole polygon lies to the left or right of the image, judged by the ends of its edges. This
// decides for more than speed: with an end that wrapped around, cv::fillPoly leaves polygons unfilled that do
// reach into the image.
bool is_beside(const std::vector<polygon_edge>& edges, cv::Size size)
{
    std::int64_t x_min = std::numeric_limits<std::int64_t>::max();
    std::int64_t x_max = std::numeric_limits<std::int64_t>::min();
    for (const polygon_edge& edge : edges) {
        x_min = std::min({x_min, edge.x_top, edge.x_end()});
        x_max = std::max({x_max, edge.x_top, edge.x_end()});
    }
    return x_max < 0 || x_min >= size.width * one_pixel;
}

// Sets the pixels of a row between two abscissas, both ends included where they meet a pixel's centre.
void fill_span(cv::Mat& mask, int y, std::int64_t x_from, std::int64_t x_to)
{
    const std::int64_t first = std::max((x_from + one_pixel - 1) >> fraction_bits, std::int64_t{0});
    const std::int64_t last = std::min(x_to >> fraction_bits, std::int64_t{mask.cols} - 1);
    if (first <= last) {
        uchar* row = mask.ptr(y);
        std::fill(row + first, row + last + 1, uchar{1});
    }
}

// cv::fillPoly, begun at the image's first row.
void fill_polygon(cv::Mat& mask, const std::vector<cv::Point>& polygon)
{
    std::vector<polygon_edge> edges;
    cv::Point from = polygon.back();
    for (const cv::Point& to : polygon) {
        cv::line(mask, from, to, cv::Scalar(1), 1, cv::LINE_8, 0);
        if (from.y != to.y) {
            edges.emplace_back(from.y < to.y ? from : to, from.y < to.y ? to : from);
        }
        from = to;
    }
    if (edges.empty() || is_beside(edges, mask.size())) {
        return;
    }
    std::vector<std::int64_t> crossings;
    for (int y = 0; y < mask.rows; ++y) {
        crossings.clear();
        for (const polygon_edge& edge : edges) {
            if (edge.crosses(y)) {
                crossings.push_back(edge.x_at(y));
            }
        }
        std::sort(crossings.begin(), crossings.end());
        for (std::size_t i = 1; i < crossings.size(); i += 2) {  // a closed outline crosses a row in pairs
            fill_span(mask, y, crossings[i - 1], crossings[i]);
        }
    }
}

}  // namespace

int tarn::polygon_coverage(cv::Size size, const std::vector<cv::Point>& polygon)
{
    if (polygon.empty() || size.empty()) {
        return 0;
    }
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    const auto topmost = std::min_element(polygon.begin(), polygon.end(),
                                          [](const cv::Point& a, const cv::Point& b) { return a.y < b.y; });
    if (topmost->y >= -rows_worth_walking) {
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{polygon}, cv::Scalar(1), cv::LINE_8, 0, cv::Point());
    } else {
        fill_polygon(mask, polygon);
    }
    return cv::countNonZero(mask);
}
