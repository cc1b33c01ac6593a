// SPDX-License-Identifier: Apache-2.0
#include "projection.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "numeric.h"

void cylindrical_projection(cv::Mat& img, cv::Mat& output, float angle)
{
    CV_Assert(img.empty() || img.type() == CV_8UC3);
    const auto w = static_cast<float>(img.cols);
    const auto h = static_cast<float>(img.rows);
    cv::Mat map_img = cv::Mat::zeros(img.rows, img.cols, CV_8UC3);

    const auto f = static_cast<float>(std::cos(tarn::radians_from_degrees(angle)) * (w + w));
    const float cx = 0.5f * w;
    const float cy = 0.5f * h;

    // The target column and the distance from the axis depend on the source column alone.
    std::vector<int> target_column(static_cast<size_t>(img.cols));
    std::vector<float> axis_distance(target_column.size());
    const float left_edge = f * std::atan(cx / f);
    int max_col = 0;
    for (int j = 0; j < img.cols; ++j) {
        const auto x = static_cast<float>(j);
        const float x1 = f * std::atan((x - cx) / f) + left_edge;
        target_column[static_cast<size_t>(j)] = tarn::truncate_to_int(x1 + 0.5);
        axis_distance[static_cast<size_t>(j)] = std::sqrt((x - cx) * (x - cx) + f * f);
    }
    if (img.rows > 0) {  // without a row no pixel is projected and no column reached
        for (const int column : target_column) {
            max_col = std::max(max_col, column);
        }
    }

    for (int i = 0; i < img.rows; ++i) {
        const auto* source = img.ptr<cv::Vec3b>(i);
        const float row_term = f * (static_cast<float>(i) - cy);
        for (int j = 0; j < img.cols; ++j) {
            const float y1 = cy + row_term / axis_distance[static_cast<size_t>(j)];
            const int column = target_column[static_cast<size_t>(j)];
            const int row = tarn::truncate_to_int(y1 + 0.5);
            // Negative targets come up for degenerate angles only.
            if (row >= 0 && row < img.rows && column >= 0 && column < img.cols) {
                map_img.at<cv::Vec3b>(row, column) = source[j];
            }
        }
    }
    // The width is max_col, not max_col + 1: the last column reached is cut off. This is meant.
    output = map_img(cv::Rect(0, 0, max_col, tarn::truncate_to_int(h)));
}

namespace {

// Weighted mean of a pixel and its right, lower and lower right neighbours, dx and dy away from the first. The
// products of the weights are made in double precision, except the last; the sum is made in single precision
// and truncated.
cv::Vec3b interpolate(const cv::Vec3b* upper, const cv::Vec3b* lower, float dx, float dy)
{
    const auto weight_tl = static_cast<float>((1.0 - dx) * (1.0 - dy));
    const auto weight_tr = static_cast<float>(dx * (1.0 - dy));
    const auto weight_bl = static_cast<float>((1.0 - dx) * dy);
    const float weight_br = dx * dy;
    cv::Vec3b result;
    for (int c = 0; c < 3; ++c) {
        const float value =
            weight_tl * static_cast<float>(upper[0][c]) + weight_tr * static_cast<float>(upper[1][c])
            + weight_bl * static_cast<float>(lower[0][c]) + weight_br * static_cast<float>(lower[1][c]);
        result[c] = static_cast<uchar>(static_cast<int>(value));
    }
    return result;
}

}  // namespace

void SphericalProjection(cv::Mat& imgMat, cv::Mat& output, float angle)
{
    CV_Assert(imgMat.empty() || imgMat.type() == CV_8UC3);
    const int cols = imgMat.cols;
    const int rows = imgMat.rows;
    const int half_cols = cols / 2;
    const int half_rows = rows / 2;
    const double r = std::cos(tarn::radians_from_degrees(angle)) * (2 * cols);
    const int w = tarn::truncate_to_int(2 * std::atan2(half_cols, r) * r);
    const int h = tarn::truncate_to_int(r * 2 * std::atan2(half_rows, r));
    cv::Mat destImgMat = cv::Mat::zeros(h, w, CV_8UC3);

    // What depends on the target column alone.
    std::vector<double> column_sine(static_cast<size_t>(w));
    std::vector<double> column_rest(static_cast<size_t>(w));  // r² - ddx²
    for (int x = 0; x < w; ++x) {
        const float ddx = static_cast<float>(x) - static_cast<float>(w / 2);
        const float ddx_squared = ddx * ddx;
        column_sine[static_cast<size_t>(x)] = std::sin(ddx / r);
        column_rest[static_cast<size_t>(x)] = r * r - ddx_squared;
    }

    int xmin = w;
    int xmax = 0;
    int ymin = h;
    int ymax = 0;
    for (int y = 0; y < h; ++y) {
        const float ddy = static_cast<float>(y) - static_cast<float>(h / 2);
        const float ddy_squared = ddy * ddy;
        const double row_sine = std::sin(ddy / r);
        auto* destination = destImgMat.ptr<cv::Vec3b>(y);
        for (int x = 0; x < w; ++x) {
            const auto column = static_cast<size_t>(x);
            const double length = r * r / std::sqrt(column_rest[column] - ddy_squared);
            const auto point_x = static_cast<float>(column_sine[column] * length + half_cols);
            const auto point_y = static_cast<float>(row_sine * length + half_rows);
            const int left = tarn::truncate_to_int(point_x);
            const int top = tarn::truncate_to_int(point_y);
            if (left < 0 || left > cols - 2 || top < 0 || top > rows - 2) {
                continue;
            }
            destination[x] =
                interpolate(imgMat.ptr<cv::Vec3b>(top) + left, imgMat.ptr<cv::Vec3b>(top + 1) + left,
                            point_x - static_cast<float>(left), point_y - static_cast<float>(top));
            xmin = std::min(xmin, x);
            xmax = std::max(xmax, x);
            ymin = std::min(ymin, y);
            ymax = std::max(ymax, y);
        }
    }
    // The last column and row written fall outside the region. This is meant.
    output = destImgMat(cv::Rect(xmin, ymin, xmax - xmin, ymax - ymin));
}
