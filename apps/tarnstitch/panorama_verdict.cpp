// SPDX-License-Identifier: Apache-2.0
//
// Measuring and judging.
#include "panorama_verdict.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace tarn::host {

namespace {

using quadrilateral = std::array<cv::Point2d, 4>;  ///< in order around it

constexpr double degrees = 180.0 / CV_PI;
constexpr double right_angle = 90.0;  // degrees

/// From which value on a number is a fault, and from which on a panorama is bad for it.
struct limits {
    double flawed;
    double bad;
};

constexpr limits stretch_limits = {1.7, 2.2};
constexpr limits shear_limits = {25.0, 33.0};  // degrees
constexpr limits filled_limits = {0.6, 0.4};   // or less
constexpr limits taken_limits = {0.75, 0.5};   // or less
constexpr double least_gain = 1.05;            // of a frame's side: what a hand shakes, and joints add, is less

cv::Point2d mapped(const cv::Matx33d& homography, double x, double y)
{
    const cv::Vec3d point = homography * cv::Vec3d(x, y, 1.0);
    return {point[0] / point[2], point[1] / point[2]};
}

quadrilateral outline_of(const composed_key_frame& one)
{
    const double width = one.frame.width;
    const double height = one.frame.height;
    const cv::Matx33d& place = one.panorama_from_frame;
    return {mapped(place, 0, 0), mapped(place, width, 0), mapped(place, width, height), mapped(place, 0, height)};
}

double area_of(const quadrilateral& outline)
{
    double twice = 0.0;
    for (std::size_t i = 0; i < outline.size(); ++i) {
        twice += outline[i].cross(outline[(i + 1) % outline.size()]);
    }
    return std::abs(twice) / 2.0;
}

/// Greatest deviation of a corner from a right angle, degrees.
double slant_of(const quadrilateral& outline)
{
    double greatest = 0.0;
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const cv::Point2d one = outline[(i + 1) % outline.size()] - outline[i];
        const cv::Point2d other = outline[(i + outline.size() - 1) % outline.size()] - outline[i];
        const double angle = std::atan2(std::abs(one.cross(other)), one.dot(other)) * degrees;
        greatest = std::max(greatest, std::abs(angle - right_angle));
    }
    return greatest;
}

/// The motion from one key frame into another, about their centres and in units of a frame's longer side.
cv::Matx33d about_centres(const key_frame_place& one, const key_frame_place& other)
{
    const double unit = std::max(one.copy.width, one.copy.height);
    const cv::Matx33d pixels(unit, 0, one.copy.width / 2.0, 0, unit, one.copy.height / 2.0, 0, 0, 1);
    const cv::Matx33d motion = pixels.inv() * one.plane_from_frame.inv() * other.plane_from_frame * pixels;
    return motion * (1.0 / motion(2, 2));
}

/// What the motions from key frame to key frame have in common.
struct motion_sums {
    double roll = 0.0;          ///< greatest turn of the horizon against the first key frame, degrees
    double products = 0.0;      ///< of shift and perspective
    double shifts = 0.0;        ///< squares
    double perspectives = 0.0;  ///< squares
};

motion_sums sums_of(const std::vector<key_frame_place>& places)
{
    motion_sums sums;
    double roll = 0.0;
    for (std::size_t i = 1; i < places.size(); ++i) {
        const cv::Matx33d motion = about_centres(places[i - 1], places[i]);
        const cv::Vec2d shift(motion(0, 2), motion(1, 2));
        const cv::Vec2d perspective(motion(2, 0), motion(2, 1));
        sums.products += shift.dot(perspective);
        sums.shifts += shift.dot(shift);
        sums.perspectives += perspective.dot(perspective);
        roll += std::atan2(motion(1, 0) - motion(0, 1), motion(0, 0) + motion(1, 1)) * degrees;
        sums.roll = std::max(sums.roll, std::abs(roll));
    }
    return sums;
}

/// A camera that turns by an angle t has a shift of f tan t and a perspective of -tan t / f: opposite, and in a ratio of
/// f squared, f being 0.7 to 4 of a frame's longer side for lenses that people sweep with. One that slides along
/// something flat before it has none. What lies at different distances gives some, which goes with the shift, across it,
/// or against it as it comes, and far more than a turn would.
///
///                                        perspective over shift   their cosine
///     hand-held turns                    0.14 to 0.42             -0.98 to -0.70
///     slides of a plane                  0.01 to 0.10             any
///     a walk past a house                1.8 to 2.4               0.1 to 0.4
camera_path path_of(const motion_sums& sums)
{
    constexpr double least_of_turns = 0.06;
    constexpr double most_of_slides = 0.2;
    constexpr double least_of_walks = 0.5;
    constexpr double greatest_cosine_of_turns = -0.6;
    constexpr double noticed_roll = 15.0;  // degrees
    if (!(sums.shifts > 0.0)) {
        return camera_path::unknown;
    }
    const double ratio = std::sqrt(sums.perspectives / sums.shifts);
    const double cosine = sums.products / std::sqrt(sums.perspectives * sums.shifts);
    if (ratio >= least_of_turns && cosine <= greatest_cosine_of_turns) {
        return camera_path::turning;
    }
    if (ratio >= least_of_walks) {
        return camera_path::walking;
    }
    if (sums.roll >= noticed_roll) {
        return camera_path::tilting;
    }
    return ratio <= most_of_slides ? camera_path::sliding : camera_path::unknown;
}

/// Part of an image that is not wholly black, the way in which the library tells what is empty.
double filled_part(const cv::Mat& panorama)
{
    cv::Mat full;
    cv::inRange(panorama, cv::Scalar(0, 0, 0), cv::Scalar(0, 0, 0), full);
    return 1.0 - static_cast<double>(cv::countNonZero(full)) / static_cast<double>(panorama.total());
}

measured_result measured(const sweep_result& result)
{
    measured_result numbers;
    double smallest = 1.0;  // the first key frame's
    double largest = 1.0;
    for (const composed_key_frame& one : result.composed) {
        const quadrilateral outline = outline_of(one);
        const double size = std::sqrt(area_of(outline) / one.frame.area());
        smallest = std::min(smallest, size);
        largest = std::max(largest, size);
        numbers.shear = std::max(numbers.shear, slant_of(outline));
    }
    numbers.stretch = largest / smallest;
    const motion_sums sums = sums_of(result.places);
    numbers.roll = sums.roll;
    numbers.path = path_of(sums);
    if (!result.panorama.empty() && !result.frame.empty()) {
        numbers.length = std::max(static_cast<double>(result.panorama.cols) / result.frame.width,
                                  static_cast<double>(result.panorama.rows) / result.frame.height);
        numbers.filled = filled_part(result.panorama);
    }
    numbers.taken = result.frames > 0 ? static_cast<double>(result.taken) / result.frames : 0.0;
    return numbers;
}

/// How bad a number is that should be small.
grade grade_of(double number, const limits& from)
{
    if (number >= from.bad) {
        return grade::bad;
    }
    return number >= from.flawed ? grade::flawed : grade::good;
}

/// The same for a part that should be large.
grade grade_of_part(double part, const limits& below)
{
    return grade_of(-part, {-below.flawed, -below.bad});
}

}  // namespace

verdict judge(const sweep_result& result)
{
    verdict judged;
    judged.numbers = measured(result);
    const measured_result& numbers = judged.numbers;
    if (result.panorama.empty() || numbers.length < least_gain) {
        judged.how_good = grade::nothing;
        judged.faults = {fault::nothing_gained};
        return judged;
    }
    const std::array<std::pair<fault, grade>, 4> met = {
        {{fault::stretched, grade_of(numbers.stretch, stretch_limits)},
         {fault::sheared, grade_of(numbers.shear, shear_limits)},
         {fault::mostly_empty, grade_of_part(numbers.filled, filled_limits)},
         {fault::frames_missing, grade_of_part(numbers.taken, taken_limits)}}};
    judged.how_good = grade::good;
    for (const grade level : {grade::bad, grade::flawed}) {  // the worst first
        for (const auto& [what, how_good] : met) {
            if (how_good == level) {
                judged.faults.push_back(what);
                judged.how_good = std::max(judged.how_good, level);
            }
        }
    }
    return judged;
}

bool is_better_picture(const verdict& one, const verdict& other)
{
    if (one.how_good != other.how_good) {
        return one.how_good < other.how_good;
    }
    return one.numbers.stretch < other.numbers.stretch && one.numbers.taken >= other.numbers.taken;
}

const char* key_of(grade how_good)
{
    constexpr std::array keys = {"good", "flawed", "bad", "nothing"};
    return keys.at(static_cast<std::size_t>(how_good));
}

const char* key_of(fault what)
{
    constexpr std::array keys = {"nothing_gained", "stretched", "sheared", "mostly_empty", "frames_missing"};
    return keys.at(static_cast<std::size_t>(what));
}

const char* key_of(camera_path path)
{
    constexpr std::array keys = {"unknown", "turning", "sliding", "walking", "tilting"};
    return keys.at(static_cast<std::size_t>(path));
}

}  // namespace tarn::host
