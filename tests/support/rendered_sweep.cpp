// SPDX-License-Identifier: Apache-2.0
//
// Rendering of sweeps with known homographies.
#include "rendered_sweep.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <tuple>

#include <opencv2/imgproc.hpp>

namespace tarn::test {

namespace {

constexpr double degree = CV_PI / 180.0;
constexpr int margin = 40;  // px of plane around everything that a slide sees

cv::Mat make_plane(cv::Size size, unsigned seed)
{
    cv::RNG random(0x7a12d00dULL + seed);
    cv::Mat sum = cv::Mat::zeros(size, CV_32FC3);
    float amplitude = 0.18f;
    for (int cell = 3; cell <= 96; cell *= 2) {
        cv::Mat coarse(size.height / cell + 4, size.width / cell + 4, CV_32FC3);
        random.fill(coarse, cv::RNG::UNIFORM, -1.0, 1.0);
        cv::Mat fine;
        cv::resize(coarse, fine, cv::Size(coarse.cols * cell, coarse.rows * cell), 0, 0, cv::INTER_CUBIC);
        cv::scaleAdd(fine(cv::Rect(cv::Point(cell, cell), size)), amplitude, sum, sum);
        amplitude *= 1.15f;
    }
    cv::Mat plane;
    sum.convertTo(plane, CV_8UC3, 110.0, 128.0);

    // Things with edges, as walls and shelves have them: a few hundred per megapixel.
    const int things = size.area() / 2500;
    for (int i = 0; i < things; ++i) {
        // One draw per statement: the arguments of a call are evaluated in an order of the compiler's choice, and
        // the same seed is to give the same plane everywhere.
        cv::Point corner;
        corner.y = random.uniform(0, size.height);
        corner.x = random.uniform(0, size.width);
        cv::Size extent;
        extent.height = random.uniform(6, 40);
        extent.width = random.uniform(6, 40);
        cv::Scalar colour;
        for (int channel = 2; channel >= 0; --channel) {
            colour[channel] = random.uniform(40, 245);
        }
        if (i % 3 == 0)
            cv::circle(plane, corner, extent.width / 3, colour, cv::FILLED, cv::LINE_AA);
        else
            cv::rectangle(plane, cv::Rect(corner, extent), colour, cv::FILLED);
    }
    cv::GaussianBlur(plane, plane, cv::Size(3, 3), 0.7);  // what a lens would leave of it
    cv::max(plane, cv::Scalar::all(30), plane);
    return plane;
}

cv::Point2d step_of(int direction, double length)
{
    switch (direction) {
    case moving_down:
        return {0, length};
    case moving_up:
        return {0, -length};
    case moving_right:
        return {length, 0};
    case moving_left:
        return {-length, 0};
    default:
        return {0, 0};
    }
}

/// A sweep whose frames stand at `offsets`, on a plane just large enough, with the offsets made positive.
rendered_sweep at_offsets(cv::Size frame_size, const std::vector<cv::Point2d>& offsets)
{
    cv::Point2d least = offsets.front();
    cv::Point2d most = offsets.front();
    for (const cv::Point2d& offset : offsets) {
        least = {std::min(least.x, offset.x), std::min(least.y, offset.y)};
        most = {std::max(most.x, offset.x), std::max(most.y, offset.y)};
    }
    const cv::Point2d origin = cv::Point2d(margin, margin) - least;
    // Rounded up, so that sweeps of much the same extent share one plane.
    const auto extent = [](double inside) { return (static_cast<int>(inside) + 2 * margin + 255) / 256 * 256; };

    rendered_sweep sweep;
    sweep.plane = textured_plane(
        cv::Size(extent(most.x - least.x + frame_size.width), extent(most.y - least.y + frame_size.height)));
    sweep.frame_size = frame_size;
    for (const cv::Point2d& offset : offsets)
        sweep.plane_from_frame.push_back(translation(offset.x + origin.x, offset.y + origin.y));
    return sweep;
}

cv::Matx33d scaling_about_pixel_centres(double scale)
{
    // Pixel (x + 0.5) of the larger image is `scale` times that of the smaller one: edges meet, not centres.
    return {scale, 0, 0.5 * scale - 0.5, 0, scale, 0.5 * scale - 0.5, 0, 0, 1};
}

}  // namespace

cv::Mat rendered_sweep::frame(int index) const
{
    cv::Mat image;
    cv::warpPerspective(plane, image, plane_from_frame[static_cast<std::size_t>(index)], frame_size,
                        cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT_101);
    return image;
}

cv::Mat rendered_sweep::host_frame(int index) const
{
    return host_frame_from(frame(index));
}

int opposite_direction(int direction)
{
    switch (direction) {
    case moving_down:
        return moving_up;
    case moving_up:
        return moving_down;
    case moving_right:
        return moving_left;
    case moving_left:
        return moving_right;
    default:
        return no_direction;
    }
}

std::string direction_name(int direction)
{
    switch (direction) {
    case moving_down:
        return "Down";
    case moving_up:
        return "Up";
    case moving_right:
        return "Right";
    case moving_left:
        return "Left";
    default:
        return "None";
    }
}

const cv::Mat& textured_plane(cv::Size size, unsigned seed)
{
    static std::mutex mutex;
    static std::map<std::tuple<int, int, unsigned>, cv::Mat> planes;
    const std::lock_guard<std::mutex> lock(mutex);
    cv::Mat& plane = planes[{size.width, size.height, seed}];
    if (plane.empty())
        plane = make_plane(size, seed);
    return plane;
}

rendered_sweep slide(cv::Size frame_size, int direction, double step, int length)
{
    return slide_there_and_back(frame_size, direction, step, length, 0);
}

rendered_sweep slide_there_and_back(cv::Size frame_size, int direction, double step, int there, int back)
{
    std::vector<cv::Point2d> offsets;
    for (int i = 0; i < there; ++i)
        offsets.push_back(step_of(direction, step * i));
    for (int i = 1; i <= back; ++i)
        offsets.push_back(step_of(direction, step * (there - 1 - i)));
    return at_offsets(frame_size, offsets);
}

rendered_sweep turn(cv::Size frame_size, int direction, double focal, double degrees, int length)
{
    const double half_turn = degrees * degree * (length - 1) / 2.0;
    const double half_view =
        std::atan(std::hypot(frame_size.width, frame_size.height) / 2.0 / focal);  // of the frame's diagonal
    const int reach = static_cast<int>(focal * std::tan(half_turn + half_view)) + margin;
    const bool level = direction == moving_left || direction == moving_right;
    // Across the motion the frames spread by their keystone only.
    const int spread = static_cast<int>(frame_size.height / std::cos(half_turn + half_view)) + margin;
    const auto round_up = [](int value) { return (value + 255) / 256 * 256; };

    rendered_sweep sweep;
    sweep.plane = textured_plane(level ? cv::Size(round_up(2 * reach), round_up(2 * spread))
                                       : cv::Size(round_up(2 * spread), round_up(2 * reach)));
    sweep.frame_size = frame_size;
    const cv::Matx33d frame_from_rays(focal, 0, frame_size.width / 2.0, 0, focal, frame_size.height / 2.0, 0, 0, 1);
    const cv::Matx33d plane_from_rays(focal, 0, sweep.plane.cols / 2.0, 0, focal, sweep.plane.rows / 2.0, 0, 0, 1);
    const double sense = direction == moving_right || direction == moving_down ? 1.0 : -1.0;
    for (int i = 0; i < length; ++i) {
        const double angle = sense * (i * degrees * degree - half_turn);
        const double c = std::cos(angle);
        const double s = std::sin(angle);
        const cv::Matx33d rotation =
            level ? cv::Matx33d(c, 0, s, 0, 1, 0, -s, 0, c) : cv::Matx33d(1, 0, 0, 0, c, s, 0, -s, c);
        sweep.plane_from_frame.push_back(plane_from_rays * rotation * frame_from_rays.inv());
    }
    return sweep;
}

rendered_sweep sheared_slide(cv::Size frame_size, int direction, double step, double shear, int length)
{
    // A wider and higher frame leaves room for what the shear brings into view.
    rendered_sweep sweep = slide(frame_size * 2, direction, step, length);
    sweep.frame_size = frame_size;
    const bool level = direction == moving_left || direction == moving_right;
    for (int i = 0; i < length; ++i) {
        const double k = shear * i;
        const cv::Matx33d sheared =
            level ? cv::Matx33d(1, k, 0, 0, 1, 0, 0, 0, 1) : cv::Matx33d(1, 0, 0, k, 1, 0, 0, 0, 1);
        cv::Matx33d& truth = sweep.plane_from_frame[static_cast<std::size_t>(i)];
        const double x = frame_size.width / 2.0;
        const double y = frame_size.height / 2.0;
        truth = truth * translation(x, y) * translation(x, y) * sheared * translation(-x, -y);
    }
    return sweep;
}

cv::Mat host_frame_from(const cv::Mat& bgr)
{
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    return rgba;
}

cv::Mat blank_host_frame(cv::Size size)
{
    return {size, CV_8UC4, cv::Scalar(180, 170, 160, 255)};
}

cv::Size working_copy_size(cv::Size frame_size)
{
    if (frame_size.width <= 300)
        return frame_size;
    const float scale = 300.0f / static_cast<float>(frame_size.width);
    return {cvRound(static_cast<double>(frame_size.width) * scale),
            cvRound(static_cast<double>(frame_size.height) * scale)};
}

cv::Matx33d frame_from_working_copy(cv::Size frame_size)
{
    return scaling_about_pixel_centres(frame_size.width <= 300 ? 1.0 : frame_size.width / 300.0);
}

cv::Size prepared_size(cv::Size frame_size)
{
    if (frame_size.width <= 1000)
        return {frame_size.height, frame_size.width};
    const float scale = 1000.0f / static_cast<float>(frame_size.width);
    return {cvRound(static_cast<double>(frame_size.height) * scale),
            cvRound(static_cast<double>(frame_size.width) * scale)};
}

cv::Matx33d frame_from_prepared(cv::Size frame_size)
{
    // Turned clockwise, the column of the turned image counts rows of the upright one from below.
    const cv::Size turned = prepared_size(frame_size);
    const cv::Matx33d upright_from_turned(0, 1, 0, -1, 0, turned.width - 1.0, 0, 0, 1);
    return scaling_about_pixel_centres(frame_size.width <= 1000 ? 1.0 : frame_size.width / 1000.0)
           * upright_from_turned;
}

std::vector<cv::Point2d> mapped_corners(const cv::Matx33d& homography, cv::Size size)
{
    const double w = size.width;
    const double h = size.height;
    std::vector<cv::Point2d> corners = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    cv::perspectiveTransform(corners, corners, homography);
    return corners;
}

double mean_corner_error(const cv::Matx33d& estimate, const cv::Matx33d& truth, cv::Size size)
{
    const std::vector<cv::Point2d> estimated = mapped_corners(estimate, size);
    const std::vector<cv::Point2d> exact = mapped_corners(truth, size);
    double sum = 0.0;
    for (std::size_t i = 0; i < exact.size(); ++i)
        sum += cv::norm(estimated[i] - exact[i]);
    return sum / static_cast<double>(exact.size());
}

cv::Matx33d translation(double x, double y)
{
    return {1, 0, x, 0, 1, y, 0, 0, 1};
}

cv::Matx33d canvas_shift(const std::vector<cv::Matx33d>& first_from_frame, cv::Size size)
{
    double left = 0.0;
    double top = 0.0;
    for (const cv::Matx33d& homography : first_from_frame) {
        for (const cv::Point2d& corner : mapped_corners(homography, size)) {
            left = std::min(left, corner.x);
            top = std::min(top, corner.y);
        }
    }
    return translation(-left, -top);
}

}  // namespace tarn::test
