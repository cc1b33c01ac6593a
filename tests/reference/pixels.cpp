// SPDX-License-Identifier: Apache-2.0
#include "pixels.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include <opencv2/imgproc.hpp>

#include "geometry.h"
#include "internal/numeric.h"

namespace reference {

namespace {

// The benchmarks do without: a race against checks that a user's code would not make is easily won.
void check_inside(const cv::Mat& image, int y, int x)
{
#ifndef TARN_REFERENCE_WITHOUT_CHECKS
    CV_Assert(y >= 0 && y < image.rows && x >= 0 && x < image.cols);
#else
    static_cast<void>(image), static_cast<void>(y), static_cast<void>(x);
#endif
}

uchar* pixel(cv::Mat& image, int y, int x)
{
    check_inside(image, y, x);
    return image.data + static_cast<size_t>(y) * image.step[0] + static_cast<size_t>(x) * image.elemSize();
}

const uchar* pixel(const cv::Mat& image, int y, int x)
{
    check_inside(image, y, x);
    return image.data + static_cast<size_t>(y) * image.step[0] + static_cast<size_t>(x) * image.elemSize();
}

bool is_empty(const uchar* bytes)
{
    return bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0;
}

void copy_pixel(const uchar* from, uchar* to)
{
    to[0] = from[0];
    to[1] = from[1];
    to[2] = from[2];
}

}  // namespace

std::vector<int> matToBitmapArray(const cv::Mat& image)
{
    std::vector<int> result;
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const uchar* bytes = pixel(image, y, x);
            const std::uint32_t word = (std::uint32_t{255} << 24) | (std::uint32_t{bytes[2]} << 16)
                                       | (std::uint32_t{bytes[1]} << 8) | std::uint32_t{bytes[0]};
            result.push_back(static_cast<int>(word));
        }
    }
    result.push_back(image.cols);
    result.push_back(image.rows);
    return result;
}

void optimizeSeam(const cv::Mat& last_img, cv::Mat& stitched_image, const std::vector<cv::Point2f>& transpose_corners)
{
    const float thresh = 10;
    const auto& p = transpose_corners;
    const int left_x = tarn::truncate_to_int(min_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
    const int right_x = tarn::truncate_to_int(max_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
    const int bottom_y = tarn::truncate_to_int(max_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
    const int top_y = tarn::truncate_to_int(min_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
    const LinePara lp0 = getLinePara(p[0].x, p[0].y, p[1].x, p[1].y);
    const LinePara lp1 = getLinePara(p[1].x, p[1].y, p[2].x, p[2].y);
    const LinePara lp2 = getLinePara(p[2].x, p[2].y, p[3].x, p[3].y);
    const LinePara lp3 = getLinePara(p[3].x, p[3].y, p[0].x, p[0].y);
    const float k20 = std::sqrt(lp0.k * lp0.k + 1.0f);
    const float k21 = std::sqrt(lp1.k * lp1.k + 1.0f);
    const float k22 = std::sqrt(lp2.k * lp2.k + 1.0f);
    const float k23 = std::sqrt(lp3.k * lp3.k + 1.0f);
    for (int i = top_y; i < bottom_y; ++i) {
        for (int j = left_x; j < right_x; ++j) {
            const uchar* source = pixel(last_img, i, j);
            uchar* destination = pixel(stitched_image, i, j);
            if (is_empty(source)) {
                continue;
            }
            if (is_empty(destination)) {
                copy_pixel(source, destination);
                continue;
            }
            const auto x = static_cast<float>(j);
            const auto y = static_cast<float>(i);
            if (point_2_line(lp0.k, lp0.b, k20, x, y) < thresh) {
                copy_pixel(source, destination);
            } else if (point_2_line(lp1.k, lp1.b, k21, x, y) < thresh) {
                copy_pixel(source, destination);
            } else if (point_2_line(lp2.k, lp2.b, k22, x, y) < thresh) {
                copy_pixel(source, destination);
            } else if (point_2_line(lp3.k, lp3.b, k23, x, y) < thresh) {
                copy_pixel(source, destination);
            }
        }
    }
}

void fill_contours(const std::vector<std::vector<cv::Point>>& target_contours, const cv::Mat& source_image,
                   cv::Mat& target_image)
{
    const int h = source_image.rows;
    const int w = source_image.cols;
    const int range = 50;
    cv::Mat source_gray;
    cv::Mat target_gray;
    cv::cvtColor(source_image, source_gray, cv::COLOR_BGR2GRAY);
    cv::cvtColor(target_image, target_gray, cv::COLOR_BGR2GRAY);
    cv::Mat tmp_binary;
    cv::threshold(source_gray, tmp_binary, 1.0, 255.0, cv::THRESH_BINARY);
    std::vector<std::vector<cv::Point>> source_contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(tmp_binary, source_contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, cv::Point(0, 0));
    size_t max_count = 0;
    size_t max_index = 0;
    for (size_t i = 0; i < source_contours.size(); ++i) {
        if (source_contours[i].size() > max_count) {
            max_count = source_contours[i].size();
            max_index = i;
        }
    }
    cv::Mat mask = cv::Mat::zeros(h, w, CV_8UC1);
    if (!source_contours.empty()) {
        const std::vector<std::vector<cv::Point>> largest = {source_contours[max_index]};
        cv::fillPoly(mask, largest, cv::Scalar(1), 8, 0, cv::Point(0, 0));
    }

    if (target_contours.empty()) {
        return;
    }
    const std::vector<cv::Point> contour = target_contours[0];
    const int n = static_cast<int>(contour.size());
    const auto point = [&contour](int index) { return contour.at(static_cast<size_t>(index)); };
    const auto gray_difference = [&](int at_y, int at_x) {
        return std::abs(int{*pixel(source_gray, at_y, at_x)} - int{*pixel(target_gray, at_y, at_x)});
    };
    int line_direction = 0;
    int direction = 0;
    for (int j = 0; j < n; ++j) {
        const int x = point(j).x;
        const int y = point(j).y;
        if (y == h - 1 || x == w - 1 || x == 0 || y == 0) {
            continue;
        }
        if (*pixel(mask, y, x) == 0) {
            continue;
        }
        copy_pixel(pixel(source_image, y, x), pixel(target_image, y, x));

        int sum_dx = 0;
        int sum_dy = 0;
        for (int k = 1; k <= 2; ++k) {
            if (j - k >= 0) {
                sum_dx += std::abs(x - point(j - k).x);
                sum_dy += std::abs(y - point(j - k).y);
            }
            if (j + k < n) {
                sum_dx += std::abs(x - point(j + k).x);
                sum_dy += std::abs(y - point(j + k).y);
            }
        }
        if (sum_dx > sum_dy) {
            line_direction = 1;
        } else if (sum_dx < sum_dy) {
            line_direction = 0;
        }

        int d1 = 0;
        int d2 = 0;
        int d3 = 0;
        int d4 = 0;
        if (line_direction == 1) {
            for (int k = 1; k <= 2; ++k) {
                if (y + k < h) {
                    d3 += gray_difference(y + k, x);
                }
                if (y - k >= 0) {
                    d4 += gray_difference(y - k, x);
                }
            }
        }
        if (line_direction == 0) {
            for (int k = 1; k <= 2; ++k) {
                if (x + k < w) {
                    d1 += gray_difference(y, x + k);
                }
                if (x - k >= 0) {
                    d2 += gray_difference(y, x - k);
                }
            }
        }
        if (d1 > d2 && d1 > d3 && d1 > d4) {
            direction = 1;
        } else if (d2 > d1 && d2 > d3 && d2 > d4) {
            direction = 2;
        } else if (d3 > d1 && d3 > d2 && d3 > d4) {
            direction = 3;
        } else if (d4 > d1 && d4 > d2 && d4 > d3) {
            direction = 4;
        }
        if (direction == 0) {
            continue;
        }

        for (int i = 1; i < range; ++i) {
            const auto a = static_cast<float>(i / 50.0);
            int px = x;
            int py = y;
            if (direction == 1) {
                px = x + i;
            }
            if (direction == 2) {
                px = x - i;
            }
            if (direction == 3) {
                py = y + i;
            }
            if (direction == 4) {
                py = y - i;
            }
            if (px >= w || px < 0 || py >= h || py < 0) {
                continue;
            }
            if (*pixel(source_gray, py, px) < 2) {
                continue;
            }
            for (int c = 0; c < 3; ++c) {
                const auto source_byte = static_cast<float>(pixel(source_image, py, px)[c]);
                const auto target_byte = static_cast<float>(pixel(target_image, py, px)[c]);
                const float value = (1.0f - a) * source_byte + a * target_byte;
                pixel(target_image, py, px)[c] = static_cast<uchar>(tarn::truncate_to_int(value));
            }
        }
    }
}

cv::Mat cylindrical_projection(const cv::Mat& img, float angle)
{
    const auto w = static_cast<float>(img.cols);
    const auto h = static_cast<float>(img.rows);
    cv::Mat map_img = cv::Mat::zeros(img.rows, img.cols, CV_8UC3);
    const auto f = static_cast<float>(std::cos(static_cast<double>(angle) * pi / 180) * static_cast<double>(w + w));
    const float cx = 0.5f * w;
    const float cy = 0.5f * h;
    int max_col = 0;
    for (int i = 0; i < img.rows; ++i) {
        // The same in the whole row.
        const float left = f * std::atan(cx / f);
        const float below = f * (static_cast<float>(i) - cy);
        for (int j = 0; j < img.cols; ++j) {
            const auto x = static_cast<float>(j);
            const float x1 = f * std::atan((x - cx) / f) + left;
            const float y1 = cy + below / std::sqrt((x - cx) * (x - cx) + f * f);
            const int X = tarn::truncate_to_int(static_cast<double>(x1) + 0.5);
            const int Y = tarn::truncate_to_int(static_cast<double>(y1) + 0.5);
            if (X > max_col) {
                max_col = X;
            }
            if (Y < img.rows && X < img.cols) {
                copy_pixel(pixel(img, i, j), pixel(map_img, Y, X));
            }
        }
    }
    return map_img(cv::Rect(0, 0, max_col, tarn::truncate_to_int(h)));
}

cv::Mat SphericalProjection(const cv::Mat& imgMat, float angle)
{
    const double r = std::cos(static_cast<double>(angle) * pi / 180) * static_cast<double>(2 * imgMat.cols);
    const int w = tarn::truncate_to_int(2 * std::atan2(static_cast<double>(imgMat.cols / 2), r) * r);
    const int h = tarn::truncate_to_int(r * 2 * std::atan2(static_cast<double>(imgMat.rows / 2), r));
    cv::Mat destImgMat = cv::Mat::zeros(h, w, CV_8UC3);
    int xmin = w;
    int xmax = 0;
    int ymin = h;
    int ymax = 0;
    for (int y = 0; y < destImgMat.rows; ++y) {
        // The same in the whole row.
        const float ddy = static_cast<float>(y) - static_cast<float>(h / 2);
        const float ddy2 = ddy * ddy;
        const double sine_y = std::sin(static_cast<double>(ddy) / r);
        for (int x = 0; x < destImgMat.cols; ++x) {
            const float ddx = static_cast<float>(x) - static_cast<float>(w / 2);
            const float ddx2 = ddx * ddx;
            const double length = r * r / std::sqrt(r * r - static_cast<double>(ddx2) - static_cast<double>(ddy2));
            const auto point_x = static_cast<float>(std::sin(static_cast<double>(ddx) / r) * length + imgMat.cols / 2);
            const auto point_y = static_cast<float>(sine_y * length + imgMat.rows / 2);
            const int tx = tarn::truncate_to_int(point_x);
            const int ty = tarn::truncate_to_int(point_y);
            if (!(0 <= tx && tx <= imgMat.cols - 2 && 0 <= ty && ty <= imgMat.rows - 2)) {
                continue;
            }
            const float dx = point_x - static_cast<float>(tx);
            const float dy = point_y - static_cast<float>(ty);
            const double wide_dx = dx;
            const double wide_dy = dy;
            const auto weight_tl = static_cast<float>((1 - wide_dx) * (1 - wide_dy));
            const auto weight_tr = static_cast<float>(wide_dx * (1 - wide_dy));
            const auto weight_bl = static_cast<float>((1 - wide_dx) * wide_dy);
            const float weight_br = dx * dy;
            for (int c = 0; c < 3; ++c) {
                float value = weight_tl * static_cast<float>(pixel(imgMat, ty, tx)[c]);
                value = value + weight_tr * static_cast<float>(pixel(imgMat, ty, tx + 1)[c]);
                value = value + weight_bl * static_cast<float>(pixel(imgMat, ty + 1, tx)[c]);
                value = value + weight_br * static_cast<float>(pixel(imgMat, ty + 1, tx + 1)[c]);
                pixel(destImgMat, y, x)[c] = static_cast<uchar>(tarn::truncate_to_int(value));
            }
            if (x < xmin) {
                xmin = x;
            }
            if (x > xmax) {
                xmax = x;
            }
            if (y < ymin) {
                ymin = y;
            }
            if (y > ymax) {
                ymax = y;
            }
        }
    }
    return destImgMat(cv::Rect(xmin, ymin, xmax - xmin, ymax - ymin));
}

}  // namespace reference
