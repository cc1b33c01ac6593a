// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/core/hal/intrin.hpp>

#include "internal/numeric.h"
#include "internal/parallel_loop.h"
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

    // Rounded up to whole vectors. The columns behind the last are not used.
    void make_columns()
    {
        column_sine.resize(cv::alignSize(static_cast<size_t>(size.width), cv::v_float32x4::nlanes));
        column_rest.resize(column_sine.size());
        for (size_t x = 0; x < column_sine.size(); ++x) {
            const float ddx = static_cast<float>(x) - static_cast<float>(size.width / 2);
            const float ddx_squared = ddx * ddx;
            column_sine[x] = std::sin(ddx / r);
            column_rest[x] = r * r - ddx_squared;
        }
    }
};

constexpr int lanes = cv::v_float32x4::nlanes;

// The source's pixels. Held by value, so that no byte written can change it.
struct source_pixels {
    const uchar* first;
    size_t step;
    cv::Size size;

    explicit source_pixels(const cv::Mat& image) : first(image.data), step(image.step[0]), size(image.size())
    {
    }

    const uchar* at(int row, int column) const
    {
        return first + static_cast<size_t>(row) * step + 3 * static_cast<size_t>(column);
    }
};

// One coordinate of source points: the pixels they lie on, and how far behind the beginnings of those.
struct places {
    const int* pixels;
    const float* rests;

    places from(int column) const
    {
        return {pixels + column, rests + column};
    }
};

// One coordinate of the source points of a target row, column by column, rounded up to whole vectors.
struct coordinates {
    std::vector<float> points;
    std::vector<int> pixels;
    std::vector<float> rests;

    explicit coordinates(size_t width) : points(width), pixels(width), rests(width)
    {
    }

    // sine(column) * length + centre. A coordinate that is no int becomes, depending on the processor, pixel 0 or
    // an end of the range: not inside in either case.
    template <typename Sine>
    void locate(const std::vector<double>& length, double centre, Sine sine)
    {
        constexpr size_t half = cv::v_float64x2::nlanes;
        const auto locate_half = [&](size_t i) { return sine(i) * cv::v_load(&length[i]) + cv::v_setall_f64(centre); };
        for (size_t i = 0; i < length.size(); i += lanes) {
            const cv::v_float32x4 point = cv::v_cvt_f32(locate_half(i), locate_half(i + half));
            const cv::v_int32x4 pixel = cv::v_trunc(point);
            cv::v_store(&points[i], point);
            cv::v_store(&pixels[i], pixel);
            cv::v_store(&rests[i], point - cv::v_cvt_f32(pixel));
        }
    }

    places all() const
    {
        return {pixels.data(), rests.data()};
    }

    // Those of some columns, by fours, that lie around the middle one and have their pixels after 0 and before
    // an end. All that are kept have been tested; behind one that fails, good ones may be left out.
    cv::Range inside(cv::Range columns, int end) const
    {
        const int middle = static_cast<int>(pixels.size() / 2);
        for (int i = columns.start; i < columns.end; i += lanes) {
            const cv::v_int32x4 pixel = cv::v_load(&pixels[static_cast<size_t>(i)]);
            if (cv::v_check_all((pixel > cv::v_setzero_s32()) & (pixel < cv::v_setall_s32(end)))) {
                continue;
            }
            if (i < middle) {
                columns.start = i + lanes;
            } else {
                columns.end = i;
            }
        }
        return columns;
    }
};

// The source points of one target row.
struct source_points {
    std::vector<double> length;
    coordinates x;
    coordinates y;
    cv::Range inside_columns;  // by fours, those whose points' columns are at least one pixel inside the source
    cv::Range inside;          // of these, those whose points' rows are as well

    explicit source_points(size_t width) : length(width), x(width), y(width)
    {
    }

    // The columns of the rows at a distance from the middle one. Columns as far to the left and right of the
    // middle one share their length.
    void locate_columns(const sphere& map, int distance)
    {
        const auto ddy = static_cast<float>(distance);
        const cv::v_float64x2 ddy_squared = cv::v_setall_f64(ddy * ddy);
        const cv::v_float64x2 r_squared = cv::v_setall_f64(map.r * map.r);
        const auto middle = static_cast<size_t>(map.size.width / 2);
        size_t i = 0;
        for (; i <= middle && i < length.size(); i += cv::v_float64x2::nlanes) {
            cv::v_store(&length[i], r_squared / cv::v_sqrt(cv::v_load(&map.column_rest[i]) - ddy_squared));
        }
        for (; i <= 2 * middle && i < length.size(); ++i) {
            length[i] = length[2 * middle - i];
        }
        x.locate(length, map.source_size.width / 2,
                 [&](size_t column) { return cv::v_load(&map.column_sine[column]); });
        // Four pixels are written with a byte of the one behind them.
        inside_columns = x.inside({0, (map.size.width - 1) / lanes * lanes}, map.source_size.width - 2);
    }

    // The rows, for one of those rows.
    void locate_rows(const sphere& map, int row)
    {
        const float ddy = static_cast<float>(row) - static_cast<float>(map.size.height / 2);
        const cv::v_float64x2 row_sine = cv::v_setall_f64(std::sin(ddy / map.r));
        y.locate(length, map.source_size.height / 2, [&](size_t) { return row_sine; });
        inside = y.inside(inside_columns, map.source_size.height - 1);
    }
};

// One pixel by itself: the weighted mean of a source pixel and its right, lower and lower right neighbours. The
// products of the weights are made in double precision, except the last; the sum is made in single precision
// and truncated. False, and a black pixel, where the source does not reach.
bool sample(const source_pixels& source, float point_x, float point_y, uchar* target)
{
    const int left = tarn::truncate_to_int(point_x);
    const int top = tarn::truncate_to_int(point_y);
    if (left < 0 || left > source.size.width - 2 || top < 0 || top > source.size.height - 2) {
        std::fill_n(target, 3, uchar{0});
        return false;
    }
    const uchar* upper = source.at(top, left);
    const uchar* lower = upper + source.step;
    const float dx = point_x - static_cast<float>(left);
    const float dy = point_y - static_cast<float>(top);
    const auto weight_tl = static_cast<float>((1.0 - dx) * (1.0 - dy));
    const auto weight_tr = static_cast<float>(dx * (1.0 - dy));
    const auto weight_bl = static_cast<float>((1.0 - dx) * dy);
    const float weight_br = dx * dy;
    for (int c = 0; c < 3; ++c) {
        const float value = weight_tl * static_cast<float>(upper[c]) + weight_tr * static_cast<float>(upper[c + 3])
                            + weight_bl * static_cast<float>(lower[c]) + weight_br * static_cast<float>(lower[c + 3]);
        target[c] = static_cast<uchar>(static_cast<int>(value));
    }
    return true;
}

// Four pixels of the source and their right neighbours. A word of the first kind has a pixel and the first byte of
// its neighbour, one of the second kind the neighbour's other two; its upper half means nothing.
struct pixel_pairs {
    cv::v_uint32x4 first;
    cv::v_uint32x4 second;

    // From the addresses of the four pixels. Reads eight bytes at each.
    template <typename Address>
    explicit pixel_pairs(Address address)
    {
        const auto load = [&](int i) { return cv::v_reinterpret_as_u32(cv::v_load_low(address(i))); };
        cv::v_uint32x4 front;
        cv::v_uint32x4 back;
        cv::v_uint32x4 unused;
        cv::v_zip(load(0), load(1), front, unused);
        cv::v_zip(load(2), load(3), back, unused);
        cv::v_recombine(front, back, first, second);
    }
};

cv::v_float32x4 to_float(const cv::v_uint32x4& words)
{
    return cv::v_cvt_f32(cv::v_reinterpret_as_s32(words));
}

// The same for four pixels side by side, and a zero byte behind them, all of which come from at least one pixel
// inside the source. There the weights can be made in single precision: 1 - dx and 1 - dy are floats, and the
// double product of two floats, narrowed, is their product in single precision.
void sample_four(const source_pixels& source, const places& x, const places& y, uchar* target)
{
    const auto upper_left = [&](int i) { return source.at(y.pixels[i], x.pixels[i]); };
    const pixel_pairs upper(upper_left);
    const pixel_pairs lower([&](int i) { return upper_left(i) + source.step; });

    const cv::v_float32x4 one = cv::v_setall_f32(1.0f);
    const cv::v_float32x4 dx = cv::v_load(x.rests);
    const cv::v_float32x4 dy = cv::v_load(y.rests);
    const cv::v_float32x4 weight_tl = (one - dx) * (one - dy);
    const cv::v_float32x4 weight_tr = dx * (one - dy);
    const cv::v_float32x4 weight_bl = (one - dx) * dy;
    const cv::v_float32x4 weight_br = dx * dy;
    // Bytes stay where they are in their words: a mean that is 256 or 65536 times as large is rounded alike, and its
    // fraction lies below the bits that count. Green and red of the right pixels lie 8 bits lower than those of the
    // left ones, in words of their own, and are lifted by their weights.
    const cv::v_float32x4 lift = cv::v_setall_f32(256.0f);
    const cv::v_float32x4 lifted_tr = weight_tr * lift;
    const cv::v_float32x4 lifted_br = weight_br * lift;
    const cv::v_uint32x4 low_byte = cv::v_setall_u32(0xff);
    const cv::v_uint32x4 second_byte = cv::v_setall_u32(0xff00);
    const cv::v_uint32x4 third_byte = cv::v_setall_u32(0xff0000);
    const auto mean = [](const cv::v_float32x4& sum, const cv::v_uint32x4& byte) {
        return cv::v_reinterpret_as_u32(cv::v_trunc(sum)) & byte;
    };
    const cv::v_uint32x4 blue =
        mean(weight_tl * to_float(upper.first & low_byte) + weight_tr * to_float(cv::v_shr<24>(upper.first))
                 + weight_bl * to_float(lower.first & low_byte) + weight_br * to_float(cv::v_shr<24>(lower.first)),
             low_byte);
    const cv::v_uint32x4 green =
        mean(weight_tl * to_float(upper.first & second_byte) + lifted_tr * to_float(upper.second & low_byte)
                 + weight_bl * to_float(lower.first & second_byte) + lifted_br * to_float(lower.second & low_byte),
             second_byte);
    const cv::v_uint32x4 red =
        mean(weight_tl * to_float(upper.first & third_byte) + lifted_tr * to_float(upper.second & second_byte)
                 + weight_bl * to_float(lower.first & third_byte) + lifted_br * to_float(lower.second & second_byte),
             third_byte);
    std::array<std::uint32_t, lanes> result;
    cv::v_store(result.data(), blue | green | red);
    for (size_t i = 0; i < lanes; ++i) {
        std::memcpy(target + 3 * i, &result[i], sizeof result[i]);
    }
}

// Fills one target row. Returns the first and the last column that the source reaches; with none, the last is -1.
// Begins to load what a row reads that is some source rows ahead: away from the middle row, where no row read
// before has been. The source's rows are crossed aslant, so that no processor guesses by itself what is needed.
cv::Range project_row(const source_pixels source, const source_points& points, int width, int ahead, uchar* target)
{
    const cv::Range inside = points.inside;
    const places x = points.x.all();
    const places y = points.y.all();
    constexpr int columns_together = 16;
    for (int i = inside.start; i < inside.end; i += columns_together) {
        const int row = std::clamp(y.pixels[i] + ahead, 0, source.size.height - 1);
        __builtin_prefetch(source.at(row, x.pixels[i]));
    }

    cv::Range reached(width, -1);
    const auto project_singly = [&](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            const auto column = static_cast<size_t>(i);
            if (sample(source, points.x.points[column], points.y.points[column], target + 3 * i)) {
                reached.start = std::min(reached.start, i);
                reached.end = i;
            }
        }
    };
    project_singly(0, inside.start);
    for (int i = inside.start; i < inside.end; i += lanes) {
        sample_four(source, x.from(i), y.from(i), target + 3 * i);
    }
    if (inside.start < inside.end) {
        reached = {std::min(reached.start, inside.start), inside.end - 1};
    }
    project_singly(inside.end, width);
    return reached;
}

}  // namespace

void SphericalProjection(cv::Mat& imgMat, cv::Mat& output, float angle)
{
    CV_Assert(imgMat.empty() || imgMat.type() == CV_8UC3);
    sphere map(imgMat.size(), angle);
    cv::Mat destImgMat(map.size, CV_8UC3);
    map.make_columns();
    const source_pixels source(imgMat);

    // Rows as far above and below the middle one share their lengths.
    const int middle = map.size.height / 2;
    std::vector<cv::Range> written(static_cast<size_t>(map.size.height));
    constexpr int source_rows_ahead = 4;
    const auto project_pairs = [&](const cv::Range& distances) {
        source_points points(map.column_sine.size());
        for (int distance = distances.start; distance < distances.end; ++distance) {
            points.locate_columns(map, distance);
            for (const int y : {middle - distance, middle + distance}) {
                if (y < map.size.height) {
                    points.locate_rows(map, y);
                    written[static_cast<size_t>(y)] =
                        project_row(source, points, map.size.width, y < middle ? -source_rows_ahead : source_rows_ahead,
                                    destImgMat.ptr(y));
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
    // The last column and row written fall outside the region. By design.
    output = destImgMat(cv::Rect(xmin, ymin, xmax - xmin, ymax - ymin));
}
