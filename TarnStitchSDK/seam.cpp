// SPDX-License-Identifier: Apache-2.0
#include "seam.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "internal/frame_geometry.h"
#include "internal/pixel_block.h"
#include "motion.h"

namespace {

using tarn::all_pixels;
using tarn::bytes_per_block;
using tarn::empty_pixels;
using tarn::is_empty;
using tarn::pixel_set;

constexpr float seam_band_half_width = 10.0f;  // px

// The first column of a range at which a condition fails that holds up to some column and nowhere behind it.
// The guess is tried before the search: a good one saves time, a bad one or NaN changes nothing else.
template <typename Condition>
int first_failing(cv::Range range, double guess, Condition condition)
{
    const int tried = guess > range.start ? static_cast<int>(std::min<double>(guess, range.end)) : range.start;
    if (tried > range.start && !condition(tried - 1)) {
        range.end = tried - 1;
    } else if (tried < range.end && condition(tried)) {
        range.start = tried + 1;
    } else {
        return tried;
    }
    while (range.start < range.end) {
        const int middle = range.start + (range.end - range.start) / 2;
        if (condition(middle)) {
            range.start = middle + 1;
        } else {
            range.end = middle;
        }
    }
    return range.start;
}

// The band along the line through an edge: the pixels whose point_2_line is less than seam_band_half_width. The
// whole line counts, not the edge's segment.
class seam_band {
public:
    seam_band(const cv::Point2f& from, const cv::Point2f& to)
    {
        LinePara line{};
        getLinePara(from.x, from.y, to.x, to.y, line);
        k_ = line.k;
        b_ = line.b;
        // The quotient grows with its numerator, so that one comparison with the right float stands for it.
        const float k2 = std::sqrt(k_ * k_ + 1.0f);
        limit_ = seam_band_half_width * k2;
        while (limit_ / k2 < seam_band_half_width) {
            limit_ = std::nextafter(limit_, infinity);
        }
        while (std::nextafter(limit_, 0.0f) / k2 >= seam_band_half_width) {
            limit_ = std::nextafter(limit_, 0.0f);
        }
    }

    // The columns of a row that are near, all of them neighbours: k x + b - y rises or falls along a row, and
    // rounding keeps an order. Where k or b is infinite or NaN, so is every distance, and there are none.
    cv::Range columns(cv::Range range, int row) const
    {
        const auto y = static_cast<float>(row);
        const float rising = k_ < 0.0f ? -1.0f : 1.0f;
        const auto rising_offset = [&](int column) { return rising * (k_ * static_cast<float>(column) + b_ - y); };
        const double centre = (static_cast<double>(y) - b_) / k_;
        const double reach = std::fabs(static_cast<double>(limit_) / k_);
        const int begin = first_failing(range, std::ceil(centre - reach),
                                        [&](int column) { return rising_offset(column) <= -limit_; });
        const int end = first_failing({begin, range.end}, std::ceil(centre + reach),
                                      [&](int column) { return rising_offset(column) < limit_; });
        return {begin, end};
    }

private:
    static constexpr float infinity = std::numeric_limits<float>::infinity();

    float k_;
    float b_;
    float limit_;  // the least |k x + b - y| that is not near
};

void copy_pixels(const uchar* source, uchar* destination, pixel_set which)
{
    if (which == all_pixels) {
        std::copy_n(source, bytes_per_block, destination);
        return;
    }
    for (; which != 0; which &= which - 1) {
        const int i = __builtin_ctzll(which);
        std::copy_n(source + i, 3, destination + i);
    }
}

enum class where { everywhere, where_empty };

// Takes the pixels of some columns from the source unless they are empty: everywhere, or where the destination
// is empty. Begins to load the same columns of `soon`, a row that will be needed.
template <where place>
void take(const uchar* source, uchar* destination, cv::Range columns, const uchar* soon)
{
    const int end = 3 * columns.end;
    int i = 3 * columns.start;
    for (; i + bytes_per_block <= end; i += bytes_per_block) {
        __builtin_prefetch(soon + i);
        const pixel_set wanted = place == where::everywhere ? all_pixels : empty_pixels(destination + i);
        if (wanted != 0) {
            copy_pixels(source + i, destination + i, wanted & ~empty_pixels(source + i));
        }
    }
    __builtin_prefetch(soon + i);
    for (; i < end; i += 3) {
        if ((place == where::everywhere || is_empty(destination + i)) && !is_empty(source + i)) {
            std::copy_n(source + i, 3, destination + i);
        }
    }
}

}  // namespace

void optimizeSeam(cv::Mat& last_img, cv::Mat& stitched_image, std::vector<cv::Point2f>& transpose_corners)
{
    if (last_img.type() != CV_8UC3 || stitched_image.type() != CV_8UC3) {
        return;
    }
    const auto& p = transpose_corners;
    const tarn::pixel_bounds box(p);
    const std::array<seam_band, 4> bands = {seam_band(p[0], p[1]), seam_band(p[1], p[2]), seam_band(p[2], p[3]),
                                            seam_band(p[3], p[0])};

    // The frame that was just pasted lies inside both images; anything else is kept from reaching outside.
    const cv::Range rows(std::max(box.top_y, 0), std::min({box.bottom_y, last_img.rows, stitched_image.rows}));
    const cv::Range columns(std::max(box.left_x, 0), std::min({box.right_x, last_img.cols, stitched_image.cols}));
    if (columns.start >= columns.end) {
        return;
    }
    // A row is too short for the processor to see where the next one begins. A few rows ahead, the bands are about
    // where they are in this one.
    constexpr int rows_ahead = 2;
    for (int i = rows.start; i < rows.end; ++i) {
        const int ahead = std::min(i + rows_ahead, rows.end - 1);
        const uchar* source = last_img.ptr(i);
        uchar* destination = stitched_image.ptr(i);
        take<where::where_empty>(source, destination, columns, stitched_image.ptr(ahead));
        for (const seam_band& band : bands) {
            take<where::everywhere>(source, destination, band.columns(columns, i), last_img.ptr(ahead));
        }
    }
}
