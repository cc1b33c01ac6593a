// SPDX-License-Identifier: Apache-2.0
//
// Every surface is a product of what a column and what a row contribute to the three coordinates of a ray, so that all
// of them share one loop.
#include "surface.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace tarn::finishing {

namespace {

constexpr double pi = CV_PI;
constexpr double nowhere = std::numeric_limits<double>::quiet_NaN();
constexpr double least_depth = 0.05;  // of a ray of length 1, ahead of a plane or a cylinder's middle
constexpr int samples_of_side = 24;

double wrapped(double angle)
{
    return angle - 2 * pi * std::round(angle / (2 * pi));
}

struct three {
    double x;
    double y;
    double z;
};

/// What a column contributes to a ray.
three of_column(projection kind, double u)
{
    switch (kind) {
    case projection::cylinder:
    case projection::sphere:
        return {std::sin(u), 1.0, std::cos(u)};
    case projection::plane:
    case projection::turned_cylinder:
        break;
    }
    return {u, 1.0, 1.0};
}

/// What a row contributes to it.
three of_row(projection kind, double v)
{
    switch (kind) {
    case projection::turned_cylinder:
        return {1.0, std::sin(v), std::cos(v)};
    case projection::sphere:
        return {std::cos(v), std::sin(v), std::cos(v)};
    case projection::plane:
    case projection::cylinder:
        break;
    }
    return {1.0, v, 1.0};
}

std::vector<cv::Point2d> border_of(cv::Size size)
{
    const double side = std::max(size.width, size.height);
    const double x = size.width / side / 2;
    const double y = size.height / side / 2;
    std::vector<cv::Point2d> result;
    for (int k = 0; k < samples_of_side; ++k) {
        const double t = 2.0 * k / samples_of_side - 1.0;
        result.insert(result.end(), {{t * x, -y}, {x, t * y}, {-t * x, y}, {-x, -t * y}});
    }
    return result;
}

bool sees(const camera_set& cameras, int index, cv::Size size, const cv::Vec3d& ray)
{
    const cv::Vec3d p = cameras.reference_from_centred(index).inv() * ray;
    const double side = std::max(size.width, size.height);
    return p[2] > 0 && std::abs(p[0]) <= size.width / side / 2 * p[2]
           && std::abs(p[1]) <= size.height / side / 2 * p[2];
}

}  // namespace

cv::Point2d drawing_surface::from_frame(int index, cv::Point2d centred) const
{
    const cv::Vec3d p = cameras.reference_from_centred(index) * cv::Vec3d(centred.x, centred.y, 1.0);
    const double heading = headings[static_cast<std::size_t>(index)];
    const double length = cv::norm(p);
    const auto around = [&](double angle) { return heading + wrapped(angle - heading); };
    switch (kind) {
    case projection::plane:
        if (p[2] < least_depth * (cameras.motion == camera_motion::turning ? length : 1.0)) {
            return {nowhere, nowhere};
        }
        return {scale * p[0] / p[2], scale * p[1] / p[2]};
    case projection::cylinder: {
        const double depth = std::hypot(p[0], p[2]);
        if (depth < least_depth * length) {
            return {nowhere, nowhere};
        }
        return {scale * around(std::atan2(p[0], p[2])), scale * p[1] / depth};
    }
    case projection::turned_cylinder: {
        const double depth = std::hypot(p[1], p[2]);
        if (depth < least_depth * length) {
            return {nowhere, nowhere};
        }
        return {scale * p[0] / depth, scale * around(std::atan2(p[1], p[2]))};
    }
    case projection::sphere:
        return {scale * around(std::atan2(p[0], p[2])), scale * std::atan2(p[1], std::hypot(p[0], p[2]))};
    }
    return {nowhere, nowhere};
}

cv::Rect drawing_surface::outline(int index, cv::Size frame_size) const
{
    constexpr double greatest = 1e6;  // px from the origin
    cv::Point2d least(greatest, greatest);
    cv::Point2d most(-greatest, -greatest);
    for (const cv::Point2d& p : border_of(frame_size)) {
        const cv::Point2d place = from_frame(index, p);
        if (!(std::abs(place.x) < greatest && std::abs(place.y) < greatest)) {
            return {};
        }
        least = {std::min(least.x, place.x), std::min(least.y, place.y)};
        most = {std::max(most.x, place.x), std::max(most.y, place.y)};
    }
    if (kind == projection::sphere) {
        // Around a pole a frame covers all headings.
        for (const double side : {-1.0, 1.0}) {
            if (sees(cameras, index, frame_size, {0, side, 0})) {
                const double heading = headings[static_cast<std::size_t>(index)];
                least.x = scale * (heading - pi);
                most.x = scale * (heading + pi);
                (side < 0 ? least.y : most.y) = side * scale * pi / 2;
            }
        }
    }
    const cv::Point first(cvFloor(least.x), cvFloor(least.y));
    return {first, cv::Point(cvCeil(most.x) + 1, cvCeil(most.y) + 1)};
}

void drawing_surface::pixels_of_frame(int index, cv::Size image_size, cv::Rect area, cv::Mat& pixels) const
{
    constexpr float outside = -10000.0f;
    constexpr double largest = 20000.0;  // px: maps are single numbers, and what is far outside is outside
    const cv::Matx33d m = pixel_from_centred(image_size) * cameras.reference_from_centred(index).inv();
    const double heading = headings[static_cast<std::size_t>(index)];
    const bool around_columns = kind == projection::cylinder || kind == projection::sphere;
    const bool around_rows = kind == projection::turned_cylinder;
    std::vector<three> columns;
    columns.reserve(static_cast<std::size_t>(area.width));
    for (int x = 0; x < area.width; ++x) {
        columns.push_back(of_column(kind, (area.x + x) / scale));
    }
    pixels.create(area.size(), CV_32FC2);
    cv::parallel_for_(cv::Range(0, area.height), [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            const double v = (area.y + y) / scale;
            const three row = of_row(kind, v);
            const bool row_behind = around_rows && std::abs(v - heading) > pi;
            auto* const to = pixels.ptr<cv::Vec2f>(y);
            // What does not change along the row.
            const std::array<double, 3> of_x = {m(0, 0) * row.x, m(1, 0) * row.x, m(2, 0) * row.x};
            const std::array<double, 3> of_y = {m(0, 1) * row.y, m(1, 1) * row.y, m(2, 1) * row.y};
            const std::array<double, 3> of_z = {m(0, 2) * row.z, m(1, 2) * row.z, m(2, 2) * row.z};
            for (int x = 0; x < area.width; ++x) {
                const three& column = columns[static_cast<std::size_t>(x)];
                const double w = of_x[2] * column.x + of_y[2] * column.y + of_z[2] * column.z;
                const double px = (of_x[0] * column.x + of_y[0] * column.y + of_z[0] * column.z) / w;
                const double py = (of_x[1] * column.x + of_y[1] * column.y + of_z[1] * column.z) / w;
                const bool is_seen = w > 0.0 && std::abs(px) < largest && std::abs(py) < largest;
                to[x] =
                    is_seen ? cv::Vec2f(static_cast<float>(px), static_cast<float>(py)) : cv::Vec2f(outside, outside);
            }
            if (row_behind) {
                std::fill(to, to + area.width, cv::Vec2f(outside, outside));
            }
        }
    });
    if (around_columns) {
        for (int x = 0; x < area.width; ++x) {
            if (std::abs((area.x + x) / scale - heading) > pi) {
                pixels.col(x).setTo(cv::Scalar::all(outside));
            }
        }
    }
}

drawing_surface drawing_surface::scaled(double factor) const
{
    drawing_surface result = *this;
    result.scale *= factor;
    return result;
}

cv::Mat shown_part(const cv::Mat& pixels, cv::Size image_size)
{
    cv::Mat shown;
    // Half a pixel around is still the image's border pixel.
    cv::inRange(pixels, cv::Scalar(-0.5, -0.5), cv::Scalar(image_size.width - 0.5, image_size.height - 0.5), shown);
    return shown;
}

}  // namespace tarn::finishing
