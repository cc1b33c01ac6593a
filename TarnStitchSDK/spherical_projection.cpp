// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/core/hal/intrin.hpp>

#include "numeric.h"
#include "parallel_loop.h"
#include "projection.h"

namespace {

// Where the pixels of the sphere come from; what depends on the target column alone is made once.
struct sphere {
    cv::Size source_size;
    double r;
    cv::Size size;
    std::vector<double> column_sine;
    std::vector<double> column_rest;  // r² - ddx²

    sphere(const cv::Size& image_size, float angle)
        : source_size(image_size), r(std::cos(tarn::radians_from_degrees(angle)) * (2 * image_size.width)),
          size(tarn::truncate_to_int(2 * std::atan2(image_size.width / 2, r) * r),
               tarn::truncate_to_int(r * 2 * std::atan2(image_size.height / 2, r)))
    {
    }

    void make_columns()
    {
        column_sine.resize(static_cast<size_t>(size.width));
        column_rest.resize(column_sine.size());
        for (size_t x = 0; x < column_sine.size(); ++x) {
            const float ddx = static_cast<float>(x) - static_cast<float>(size.width / 2);
            const float ddx_squared = ddx * ddx;
            column_sine[x] = std::sin(ddx / r);
            column_rest[x] = r * r - ddx_squared;
        }
    }
};

// The source points of one target row, column by column.
struct source_points {
    std::vector<double> length;
    std::vector<float> x;
    std::vector<float> y;

    explicit source_points(int width) : length(static_cast<size_t>(width)), x(length.size()), y(length.size())
    {
    }

    // The lengths of the rows at a distance from the middle one. Columns as far to the left and right of the
    // middle one share theirs.
    void measure(const sphere& map, int distance)
    {
        const auto ddy = static_cast<float>(distance);
        const float ddy_squared = ddy * ddy;
        const size_t middle = length.size() / 2;
        for (size_t i = 0; i <= middle && i < length.size(); ++i) {
            length[i] = map.r * map.r / std::sqrt(map.column_rest[i] - ddy_squared);
        }
        for (size_t i = middle + 1; i < length.size(); ++i) {
            length[i] = length[2 * middle - i];
        }
    }

    // The points of one of those rows.
    void locate(const sphere& map, int row)
    {
        const double half_cols = map.source_size.width / 2;
        const double half_rows = map.source_size.height / 2;
        const float ddy = static_cast<float>(row) - static_cast<float>(map.size.height / 2);
        const double row_sine = std::sin(ddy / map.r);
        for (size_t i = 0; i < length.size(); ++i) {
            x[i] = static_cast<float>(map.column_sine[i] * length[i] + half_cols);
            y[i] = static_cast<float>(row_sine * length[i] + half_rows);
        }
    }
};

// One pixel by itself: the weighted mean of a source pixel and its right, lower and lower right neighbours. The
// products of the weights are made in double precision, except the last; the sum is made in single precision
// and truncated. False, and nothing written, where the source does not reach.
bool sample(const cv::Mat& source, float point_x, float point_y, cv::Vec3b& target)
{
    const int left = tarn::truncate_to_int(point_x);
    const int top = tarn::truncate_to_int(point_y);
    if (left < 0 || left > source.cols - 2 || top < 0 || top > source.rows - 2) {
        return false;
    }
    const auto* upper = source.ptr<cv::Vec3b>(top) + left;
    const auto* lower = source.ptr<cv::Vec3b>(top + 1) + left;
    const float dx = point_x - static_cast<float>(left);
    const float dy = point_y - static_cast<float>(top);
    const auto weight_tl = static_cast<float>((1.0 - dx) * (1.0 - dy));
    const auto weight_tr = static_cast<float>(dx * (1.0 - dy));
    const auto weight_bl = static_cast<float>((1.0 - dx) * dy);
    const float weight_br = dx * dy;
    for (int c = 0; c < 3; ++c) {
        const float value =
            weight_tl * static_cast<float>(upper[0][c]) + weight_tr * static_cast<float>(upper[1][c])
            + weight_bl * static_cast<float>(lower[0][c]) + weight_br * static_cast<float>(lower[1][c]);
        target[c] = static_cast<uchar>(static_cast<int>(value));
    }
    return true;
}

constexpr int lanes = cv::v_float32x4::nlanes;
using words = std::array<std::uint32_t, lanes>;  // a pixel each, in the three low bytes

// Channel c of four pixels.
template <int c>
cv::v_float32x4 channel(const words& pixels)
{
    const cv::v_uint32x4 bytes = cv::v_shr<8 * c>(cv::v_load(pixels.data())) & cv::v_setall_u32(255);
    return cv::v_cvt_f32(cv::v_reinterpret_as_s32(bytes));
}

// The same for four pixels side by side, and a zero byte behind them. False, and nothing written, unless all of
// them come from at least one pixel inside the source. There the weights can be made in single precision:
// 1 - dx and 1 - dy are floats, and the double product of two floats, narrowed, is their product in single
// precision.
bool sample_four(const cv::Mat& source, const float* point_x, const float* point_y, uchar* target)
{
    const cv::v_float32x4 x = cv::v_load(point_x);
    const cv::v_float32x4 y = cv::v_load(point_y);
    const cv::v_int32x4 left = cv::v_trunc(x);
    const cv::v_int32x4 top = cv::v_trunc(y);
    // A coordinate that is no int becomes, depending on the processor, 0 or an end of the range: outside.
    if (!cv::v_check_all((left > cv::v_setzero_s32()) & (left < cv::v_setall_s32(source.cols - 2))
                         & (top > cv::v_setzero_s32()) & (top < cv::v_setall_s32(source.rows - 1)))) {
        return false;
    }
    std::array<int, lanes> lefts;
    std::array<int, lanes> tops;
    cv::v_store(lefts.data(), left);
    cv::v_store(tops.data(), top);
    words tl;
    words tr;
    words bl;
    words br;
    for (size_t i = 0; i < lanes; ++i) {
        const uchar* upper = source.ptr(tops[i], lefts[i]);
        const uchar* lower = upper + source.step[0];
        std::memcpy(&tl[i], upper, sizeof tl[i]);
        std::memcpy(&tr[i], upper + 3, sizeof tr[i]);
        std::memcpy(&bl[i], lower, sizeof bl[i]);
        std::memcpy(&br[i], lower + 3, sizeof br[i]);
    }

    const cv::v_float32x4 one = cv::v_setall_f32(1.0f);
    const cv::v_float32x4 dx = x - cv::v_cvt_f32(left);
    const cv::v_float32x4 dy = y - cv::v_cvt_f32(top);
    const cv::v_float32x4 weight_tl = (one - dx) * (one - dy);
    const cv::v_float32x4 weight_tr = dx * (one - dy);
    const cv::v_float32x4 weight_bl = (one - dx) * dy;
    const cv::v_float32x4 weight_br = dx * dy;
    const auto mean = [&](auto channel_of) {
        return cv::v_trunc(weight_tl * channel_of(tl) + weight_tr * channel_of(tr) + weight_bl * channel_of(bl)
                           + weight_br * channel_of(br));
    };
    const cv::v_int32x4 blue = mean(channel<0>);
    const cv::v_int32x4 green = mean(channel<1>);
    const cv::v_int32x4 red = mean(channel<2>);
    words result;
    cv::v_store(result.data(), cv::v_reinterpret_as_u32(blue | cv::v_shl<8>(green) | cv::v_shl<16>(red)));
    for (size_t i = 0; i < lanes; ++i) {
        std::memcpy(target + 3 * i, &result[i], sizeof result[i]);
    }
    return true;
}

// Fills one target row. Returns the first and the last column written; with none, the last is -1.
cv::Range project_row(const cv::Mat& source, const source_points& points, cv::Vec3b* target)
{
    const int width = static_cast<int>(points.x.size());
    const float* x = points.x.data();
    const float* y = points.y.data();
    cv::Range written(width, -1);
    const auto note = [&written](int first, int last) {
        written.start = std::min(written.start, first);
        written.end = std::max(written.end, last);
    };
    int i = 0;
    while (i < width) {
        if (i + lanes < width && sample_four(source, x + i, y + i, target[i].val)) {
            note(i, i + lanes - 1);
            i += lanes;
        } else {
            if (sample(source, x[i], y[i], target[i])) {
                note(i, i);
            }
            ++i;
        }
    }
    return written;
}

}  // namespace

void SphericalProjection(cv::Mat& imgMat, cv::Mat& output, float angle)
{
    CV_Assert(imgMat.empty() || imgMat.type() == CV_8UC3);
    sphere map(imgMat.size(), angle);
    cv::Mat destImgMat = cv::Mat::zeros(map.size, CV_8UC3);
    map.make_columns();

    // Rows as far above and below the middle one share their lengths.
    const int middle = map.size.height / 2;
    std::vector<cv::Range> written(static_cast<size_t>(map.size.height));
    const auto project_pairs = [&](const cv::Range& distances) {
        source_points points(map.size.width);
        for (int distance = distances.start; distance < distances.end; ++distance) {
            points.measure(map, distance);
            for (const int y : {middle - distance, middle + distance}) {
                if (y < map.size.height) {
                    points.locate(map, y);
                    written[static_cast<size_t>(y)] = project_row(imgMat, points, destImgMat.ptr<cv::Vec3b>(y));
                }
            }
        }
    };
    constexpr double pairs_per_task = 16.0;
    tarn::for_side_by_side(cv::Range(0, middle + 1), project_pairs, (middle + 1) / pairs_per_task);

    int xmin = map.size.width;
    int xmax = 0;
    int ymin = map.size.height;
    int ymax = 0;
    for (int y = 0; y < map.size.height; ++y) {
        const cv::Range& columns = written[static_cast<size_t>(y)];
        if (columns.start <= columns.end) {
            xmin = std::min(xmin, columns.start);
            xmax = std::max(xmax, columns.end);
            ymin = std::min(ymin, y);
            ymax = y;
        }
    }
    // The last column and row written fall outside the region. This is meant.
    output = destImgMat(cv::Rect(xmin, ymin, xmax - xmin, ymax - ymin));
}
