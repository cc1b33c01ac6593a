// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"
#include "internal/parallel_loop.h"

namespace tarn {

namespace {

// The two source pixels of a row, or the two rows, between which a target pixel's centre lies, and their weights in
// units of 1/256. Without a second one it has the weight 0.
struct neighbours {
    int first;
    int second;
    short first_weight;
    short second_weight;
};

constexpr int weight_bits = 8;
constexpr int weight_sum = 1 << weight_bits;

// Places are rounded where cv::resize rounds them, in double precision, and weights to the nearest, to even at a tie.
std::vector<neighbours> neighbours_along(int source_side, int target_side, double scale)
{
    std::vector<neighbours> result;
    result.reserve(static_cast<size_t>(target_side));
    const double step = 1.0 / scale;
    for (int i = 0; i < target_side; ++i) {
        const double place = step * (i + 0.5) - 0.5;
        const int first = cvFloor(place);
        if (first >= source_side - 1) {
            result.push_back({source_side - 1, source_side - 1, weight_sum, 0});
        } else {
            const int second_weight = cvRound((place - first) * weight_sum);
            result.push_back(
                {first, first + 1, static_cast<short>(weight_sum - second_weight), static_cast<short>(second_weight)});
        }
    }
    return result;
}

// How many target columns can be made in vectors: a pixel and the one to its right are 6 bytes of the 8 that are
// loaded, and with its 3 bytes a target pixel stores one that belongs to the next.
int columns_in_vectors(const std::vector<neighbours>& columns, int source_width)
{
    const auto leaves_room = [source_width](const neighbours& column) {
        return 3 * column.first + cv::v_uint16x8::nlanes <= 3 * source_width;
    };
    const auto end = std::find_if_not(columns.begin(), columns.end() - 1, leaves_room);
    return static_cast<int>(end - columns.begin());
}

// The weights of each column's two pixels, once per pair of bytes.
std::vector<short> repeated_weights(const std::vector<neighbours>& columns)
{
    std::vector<short> weights;
    weights.reserve(columns.size() * cv::v_int16x8::nlanes);
    for (const neighbours& column : columns) {
        for (int i = 0; i < cv::v_int16x8::nlanes; i += 2) {
            weights.push_back(column.first_weight);
            weights.push_back(column.second_weight);
        }
    }
    return weights;
}

// Each byte is the sum of four, weighted by column and row: at most 255 * 2^16, so that nothing is rounded before the
// end, and the order of the additions does not matter.
class bilinear_shrink {
public:
    bilinear_shrink(const cv::Mat& image, cv::Mat& shrunk, double scale)
        : image_(image), shrunk_(shrunk), columns_(neighbours_along(image.cols, shrunk.cols, scale)),
          rows_(neighbours_along(image.rows, shrunk.rows, scale)),
          columns_in_vectors_(columns_in_vectors(columns_, image.cols)), column_weights_(repeated_weights(columns_))
    {
    }

    void make_row(int y) const
    {
        const neighbours& row = rows_[static_cast<size_t>(y)];
        const uchar* const upper = image_.ptr(row.first);
        const uchar* const lower = image_.ptr(row.second);
        uchar* const target = shrunk_.ptr(y);
        const auto upper_weight = cv::v_setall_u16(static_cast<ushort>(row.first_weight));
        const auto lower_weight = cv::v_setall_u16(static_cast<ushort>(row.second_weight));
        // Sums of two bytes fill 16 bits. The products are those of signed numbers, so half the range is taken from
        // each sum, and given back where all is 32 bits wide.
        constexpr int half_range = 1 << 15;
        const auto taken = cv::v_setall_u16(half_range);
        const auto given_back = cv::v_setall_s32(half_range * weight_sum + half_of_unit);

        int x = 0;
        for (; x < columns_in_vectors_; ++x) {
            const int from = 3 * columns_[static_cast<size_t>(x)].first;
            const cv::v_uint16x8 sums = cv::v_mul_wrap(cv::v_load_expand(upper + from), upper_weight)
                                        + cv::v_mul_wrap(cv::v_load_expand(lower + from), lower_weight);
            const cv::v_int16x8 left_and_right = cv::v_reinterpret_as_s16(sums ^ taken);
            cv::v_int16x8 pairs;  // blue of the left and of the right pixel, green of both, red of both
            cv::v_int16x8 unused;
            cv::v_zip(left_and_right, cv::v_rotate_right<3>(left_and_right), pairs, unused);
            const cv::v_int16x8 weights = cv::v_load(&column_weights_[static_cast<size_t>(x) * cv::v_int16x8::nlanes]);
            const cv::v_int32x4 pixel = (cv::v_dotprod(pairs, weights) + given_back) >> unit_bits;
            const cv::v_int16x8 narrower = cv::v_pack(pixel, pixel);
            const std::uint32_t bytes = cv::v_reinterpret_as_u32(cv::v_pack_u(narrower, narrower)).get0();
            std::memcpy(target + 3 * x, &bytes, sizeof bytes);
        }
        for (; x < shrunk_.cols; ++x) {
            const neighbours& column = columns_[static_cast<size_t>(x)];
            for (int channel = 0; channel < 3; ++channel) {
                const int left = 3 * column.first + channel;
                const int right = 3 * column.second + channel;
                const int left_sum = upper[left] * row.first_weight + lower[left] * row.second_weight;
                const int right_sum = upper[right] * row.first_weight + lower[right] * row.second_weight;
                const int sum = left_sum * column.first_weight + right_sum * column.second_weight;
                target[3 * x + channel] = static_cast<uchar>((sum + half_of_unit) >> unit_bits);
            }
        }
    }

private:
    static constexpr int unit_bits = 2 * weight_bits;
    static constexpr int half_of_unit = 1 << (unit_bits - 1);

    const cv::Mat& image_;
    cv::Mat& shrunk_;
    std::vector<neighbours> columns_;
    std::vector<neighbours> rows_;
    int columns_in_vectors_;
    std::vector<short> column_weights_;
};

}  // namespace

void shrink(const cv::Mat& image, cv::Mat& shrunk, float scale)
{
    const double side_scale = scale;
    const cv::Size size(cv::saturate_cast<int>(image.cols * side_scale),
                        cv::saturate_cast<int>(image.rows * side_scale));
    // At exactly a half OpenCV averages blocks of four, which differs where a block is cut.
    const bool is_bilinear = scale > 0.0f && scale < 1.0f && scale != 0.5f && size != image.size();
    if (image.type() != CV_8UC3 || image.dims != 2 || size.empty() || !is_bilinear) {
        cv::resize(image, shrunk, cv::Size(), side_scale, side_scale, cv::INTER_LINEAR_EXACT);
        return;
    }
    shrunk.create(size, CV_8UC3);
    const bilinear_shrink work(image, shrunk, side_scale);
    for_side_by_side(cv::Range(0, size.height), [&work](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            work.make_row(y);
        }
    });
}

}  // namespace tarn
