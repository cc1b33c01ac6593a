// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "internal/numeric.h"
#include "projection.h"

namespace {

constexpr int exact_as_float = 1 << 24;  // integers up to here are floats

// Where the pixels of an image go on the cylinder. The target column depends on the source column alone, the
// target row on the source row and the column's distance from the cylinder's axis.
struct cylinder {
    cv::Size size;
    float f;
    float cy;
    std::vector<int> target_column;
    std::vector<float> axis_distance;

    cylinder(const cv::Size& image_size, float angle)
        : size(image_size), f(0.0f), cy(0.5f * static_cast<float>(image_size.height)),
          target_column(static_cast<size_t>(image_size.width)), axis_distance(target_column.size())
    {
        const auto w = static_cast<float>(size.width);
        const float cx = 0.5f * w;
        f = static_cast<float>(std::cos(tarn::radians_from_degrees(angle)) * (w + w));
        const float left_edge = f * std::atan(cx / f);
        for (size_t j = 0; j < target_column.size(); ++j) {
            const float from_axis = static_cast<float>(j) - cx;
            const float x1 = f * std::atan(from_axis / f) + left_edge;
            target_column[j] = tarn::truncate_to_int(x1 + 0.5);
            axis_distance[j] = std::sqrt(from_axis * from_axis + f * f);
        }
    }

    int target_row(int row, int column) const
    {
        const float row_term = f * (static_cast<float>(row) - cy);
        const float y1 = cy + row_term / axis_distance[static_cast<size_t>(column)];
        return tarn::truncate_to_int(y1 + 0.5);
    }

    // 0 when there is no pixel.
    int rightmost_target_column() const
    {
        return size.empty() ? 0 : std::max(0, *std::max_element(target_column.begin(), target_column.end()));
    }

    // Whether no column leaves the image. Then each row bends evenly, the more, the farther from the axis:
    // rounding keeps an order, so that this holds to the last bit. Degenerate angles may fail.
    bool bends_evenly() const
    {
        return size.width < exact_as_float
               && std::all_of(target_column.begin(), target_column.end(),
                              [this](int column) { return column >= 0 && column < size.width; });
    }
};

// The plain definition: every pixel by itself, in row order.
void push_pixels(const cylinder& map, const cv::Mat& source, cv::Mat& target)
{
    for (int i = 0; i < source.rows; ++i) {
        const auto* pixels = source.ptr<cv::Vec3b>(i);
        for (int j = 0; j < source.cols; ++j) {
            const int column = map.target_column[static_cast<size_t>(j)];
            const int row = map.target_row(i, j);
            if (row >= 0 && row < target.rows && column >= 0 && column < target.cols) {
                target.at<cv::Vec3b>(row, column) = pixels[j];
            }
        }
    }
}

// Columns from the end of the run before up to `end`, column j of which goes to column j + shift.
struct column_run {
    int end;
    int shift;
};

std::vector<column_run> column_runs(const cylinder& map)
{
    std::vector<column_run> runs;
    for (int j = 0; j < map.size.width; ++j) {
        const int shift = map.target_column[static_cast<size_t>(j)] - j;
        if (runs.empty() || runs.back().shift != shift) {
            runs.push_back({j, shift});
        }
        runs.back().end = j + 1;
    }
    return runs;
}

// Pixels of one source row, from the end of the run before up to `end`, that go to one target row.
struct row_run {
    int end;
    int target_row;
};

// Splits source rows, one after the other, into runs. From the axis outwards the target row moves away from the
// axis's own, by steps; each step is looked for where it was in the row before. The image is symmetric: column
// w - j is as far from the axis as column j.
class row_splitter {
public:
    explicit row_splitter(const cylinder& map) : map_(map), axis_(map.size.width / 2)
    {
    }

    const std::vector<row_run>& split(int row)
    {
        const int axis_row = map_.target_row(row, axis_);
        const auto steps_at = [&](int column) { return std::abs(map_.target_row(row, column) - axis_row); };
        int last = -1;
        do {
            ++last;
            if (last == static_cast<int>(first_within_.size())) {
                first_within_.push_back(last == 0 ? axis_ : first_within_.back());
            }
            int& first = first_within_[static_cast<size_t>(last)];
            while (first > 0 && steps_at(first - 1) <= last) {
                --first;
            }
            while (steps_at(first) > last) {
                ++first;
            }
        } while (first_within_[static_cast<size_t>(last)] > 0);

        const int step = map_.target_row(row, 0) > axis_row ? 1 : -1;
        runs_.clear();
        for (int n = last; n > 0; --n) {
            runs_.push_back({first_within_[static_cast<size_t>(n - 1)], axis_row + n * step});
        }
        for (int n = 0; n <= last; ++n) {
            const int mirrored = map_.size.width - first_within_[static_cast<size_t>(n)];
            runs_.push_back({std::min(mirrored + 1, map_.size.width), axis_row + n * step});
        }
        return runs_;
    }

private:
    const cylinder& map_;
    const int axis_;                 // the column nearest to the axis
    std::vector<int> first_within_;  // [n]: first column that is moved by at most n rows more than the axis
    std::vector<row_run> runs_;
};

// The same as push_pixels, in the same order, with neighbours that stay neighbours copied at once.
void push_runs(const cylinder& map, const cv::Mat& source, cv::Mat& target)
{
    const std::vector<column_run> columns = column_runs(map);
    row_splitter rows(map);
    for (int i = 0; i < source.rows; ++i) {
        const uchar* pixels = source.ptr(i);
        auto column = columns.begin();
        int j = 0;
        for (const row_run& run : rows.split(i)) {
            const bool is_inside = run.target_row >= 0 && run.target_row < target.rows;
            uchar* target_pixels = is_inside ? target.ptr(run.target_row) : nullptr;
            while (j < run.end) {
                const int end = std::min(run.end, column->end);
                if (is_inside) {
                    std::copy(pixels + 3 * j, pixels + 3 * end, target_pixels + 3 * (j + column->shift));
                }
                j = end;
                if (j == column->end) {
                    ++column;
                }
            }
        }
    }
}

}  // namespace

void cylindrical_projection(cv::Mat& img, cv::Mat& output, float angle)
{
    CV_Assert(img.empty() || img.type() == CV_8UC3);
    cv::Mat map_img = cv::Mat::zeros(img.rows, img.cols, CV_8UC3);
    const cylinder map(img.size(), angle);
    if (!img.empty()) {
        (map.bends_evenly() ? push_runs : push_pixels)(map, img, map_img);
    }
    // The width is that column, not one more: the last column reached is cut off. By design.
    output = map_img(cv::Rect(0, 0, map.rightmost_target_column(), img.rows));
}
