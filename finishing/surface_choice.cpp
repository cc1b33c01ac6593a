// SPDX-License-Identifier: Apache-2.0
//
// Setting the cameras upright, and choosing what they are drawn on.
#include <algorithm>
#include <cmath>

#include <opencv2/stitching/detail/motion_estimators.hpp>

#include "surface.h"

namespace tarn::finishing {

namespace {

constexpr double degree = CV_PI / 180.0;
constexpr double widest_on_plane = 35 * degree;      // from its middle: beyond, things grow too wide
constexpr double highest_on_cylinder = 48 * degree;  // from its middle: beyond, they grow too tall
/// A turn by less does not tell where upright is; the frames' own edges do.
constexpr double least_turn_for_horizon = 25 * degree;

/// x for y and y for x.
const cv::Matx33d exchanged_axes(0, 1, 0, 1, 0, 0, 0, 0, 1);

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<int> indices_of_placed(const camera_set& cameras)
{
    std::vector<int> result;
    for (std::size_t i = 0; i < cameras.placed.size(); ++i) {
        if (cameras.placed[i]) {
            result.push_back(static_cast<int>(i));
        }
    }
    return result;
}

cv::Matx33d& place(camera_set& cameras, int index)
{
    return cameras.places[static_cast<std::size_t>(index)];
}

void turn_all(camera_set& cameras, const cv::Matx33d& by)
{
    for (cv::Matx33d& own : cameras.places) {
        own = by * own;
    }
}

cv::Matx33d about_upright(double angle)
{
    return {std::cos(angle), 0, std::sin(angle), 0, 1, 0, -std::sin(angle), 0, std::cos(angle)};
}

cv::Matx33d about_level(double angle)
{
    return {1, 0, 0, 0, std::cos(angle), std::sin(angle), 0, -std::sin(angle), std::cos(angle)};
}

/// Whether the camera turns up or down rather than to a side, in its own eyes.
bool turns_upwards(camera_set& cameras, const std::vector<int>& indices)
{
    double sideways = 0.0;
    double upwards = 0.0;
    for (std::size_t k = 1; k < indices.size(); ++k) {
        const cv::Matx33d step = place(cameras, indices[k - 1]).t() * place(cameras, indices[k]);
        sideways += std::abs(std::atan2(step(0, 2), step(2, 2)));
        upwards += std::abs(std::atan2(step(1, 2), step(2, 2)));
    }
    return upwards > sideways;
}

/// The angles of the cameras' axes about an axis of the world, not wrapped: each near that of the one before.
std::vector<double> angles_of(camera_set& cameras, const std::vector<int>& indices, bool upwards)
{
    std::vector<double> result(cameras.places.size());
    double before = 0.0;
    for (const int index : indices) {
        const cv::Matx33d& own = place(cameras, index);
        const double angle = std::atan2(upwards ? own(1, 2) : own(0, 2), own(2, 2));
        before += angle - before - 2 * CV_PI * std::round((angle - before) / (2 * CV_PI));
        result[static_cast<std::size_t>(index)] = before;
    }
    return result;
}

struct extent {
    double least = 1e9;
    double most = -1e9;

    void add(double value)
    {
        least = std::min(least, value);
        most = std::max(most, value);
    }

    double middle() const
    {
        return (least + most) / 2;
    }

    double size() const
    {
        return most - least;
    }
};

/// Turns the world so that upright is up, and the middle of what the cameras see is straight ahead.
/// @returns whether the sweep goes up or down
bool set_upright(camera_set& cameras, const std::vector<int>& indices)
{
    turn_all(cameras, place(cameras, indices[indices.size() / 2]).t());
    const bool upwards = turns_upwards(cameras, indices);
    extent turned;
    for (const double angle : angles_of(cameras, indices, upwards)) {
        turned.add(angle);
    }
    if (turned.size() >= least_turn_for_horizon) {
        std::vector<cv::Mat> rotations;
        // A sweep upwards is one to the side for a head that lies on its shoulder.
        const cv::Matx33d lying = upwards ? exchanged_axes : cv::Matx33d::eye();
        for (const int index : indices) {
            cv::Mat single;
            cv::Mat(lying * place(cameras, index) * lying).convertTo(single, CV_32F);
            rotations.push_back(single);
        }
        cv::detail::waveCorrect(rotations, cv::detail::WAVE_CORRECT_HORIZ);
        cv::Mat first;
        rotations[0].convertTo(first, CV_64F);
        // All of them were turned by the same rotation: by how much is known from any.
        const cv::Matx33d corrected = lying * cv::Matx33d(first) * lying;
        turn_all(cameras, nearest_rotation(corrected * place(cameras, indices[0]).t()));
    } else {
        cv::Matx33d sum = cv::Matx33d::zeros();
        for (const int index : indices) {
            sum += place(cameras, index);
        }
        turn_all(cameras, nearest_rotation(sum).t());
    }
    return upwards;
}

extent angles_seen(const drawing_surface& sphere, const std::vector<int>& indices, const std::vector<cv::Size>& sizes,
                   bool rows)
{
    extent result;
    for (const int index : indices) {
        const cv::Rect seen = sphere.outline(index, sizes[static_cast<std::size_t>(index)]);
        result.add((rows ? seen.y : seen.x) / sphere.scale);
        result.add((rows ? seen.br().y : seen.br().x) / sphere.scale);
    }
    return result;
}

drawing_surface around_turning(const camera_set& cameras, const std::vector<cv::Size>& sizes)
{
    drawing_surface surface;
    surface.cameras = cameras;
    const std::vector<int> indices = indices_of_placed(cameras);
    const bool upwards = set_upright(surface.cameras, indices);
    std::vector<double> sides;
    for (const int index : indices) {
        const cv::Size size = sizes[static_cast<std::size_t>(index)];
        sides.push_back(std::max(size.width, size.height));
    }
    surface.scale = cameras.focal * median(sides);

    // Straight ahead is the middle along the sweep.
    surface.headings = angles_of(surface.cameras, indices, upwards);
    extent along;
    for (const int index : indices) {
        along.add(surface.headings[static_cast<std::size_t>(index)]);
    }
    turn_all(surface.cameras, upwards ? about_level(-along.middle()) : about_upright(-along.middle()));
    for (double& heading : surface.headings) {
        heading -= along.middle();
    }

    if (upwards) {
        // As seen by a sphere with a level axis, which is this one with x and y exchanged.
        drawing_surface lying = surface;
        for (cv::Matx33d& own : lying.cameras.places) {
            own = exchanged_axes * own * exchanged_axes;
        }
        std::vector<cv::Size> turned_sizes;
        turned_sizes.reserve(sizes.size());
        for (const cv::Size& size : sizes) {
            turned_sizes.emplace_back(size.height, size.width);
        }
        lying.kind = projection::sphere;
        const extent high = angles_seen(lying, indices, turned_sizes, false);
        const extent wide = angles_seen(lying, indices, turned_sizes, true);
        if (std::max(high.most, -high.least) > widest_on_plane) {
            if (std::max(wide.most, -wide.least) < highest_on_cylinder) {
                surface.kind = projection::turned_cylinder;
                return surface;
            }
            surface.kind = projection::sphere;
            surface.headings = angles_of(surface.cameras, indices, false);
            return surface;
        }
    } else {
        surface.kind = projection::sphere;
        const extent wide = angles_seen(surface, indices, sizes, false);
        const extent high = angles_seen(surface, indices, sizes, true);
        if (wide.size() > 2 * widest_on_plane || high.size() > 2 * widest_on_plane) {
            if (std::max(high.most, -high.least) < highest_on_cylinder) {
                surface.kind = projection::cylinder;
            }
            return surface;
        }
        turn_all(surface.cameras, about_level(-high.middle()));
    }
    surface.kind = projection::plane;
    std::fill(surface.headings.begin(), surface.headings.end(), 0.0);
    return surface;
}

/// Pixels of a plane that a unit of a frame's centre takes.
double size_on_plane(const cv::Matx33d& plane_from_frame)
{
    const cv::Matx33d& m = plane_from_frame;
    return std::sqrt(std::abs(m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0))) / std::abs(m(2, 2));
}

drawing_surface along_plane(const camera_set& cameras, const std::vector<cv::Size>& sizes)
{
    drawing_surface surface;
    surface.cameras = cameras;
    surface.headings.assign(cameras.places.size(), 0.0);
    const std::vector<int> indices = indices_of_placed(cameras);
    std::vector<double> sides_of_unit;
    double sine = 0.0;
    double cosine = 0.0;
    for (const int index : indices) {
        const cv::Matx33d& own = place(surface.cameras, index);
        const cv::Size size = sizes[static_cast<std::size_t>(index)];
        sides_of_unit.push_back(std::max(size.width, size.height) / size_on_plane(own));
        // How much the frame is turned, of both its axes.
        sine += own(1, 0) - own(0, 1);
        cosine += own(0, 0) + own(1, 1);
    }
    const double turned = std::atan2(sine, cosine);
    turn_all(surface.cameras, {std::cos(turned), std::sin(turned), 0, -std::sin(turned), std::cos(turned), 0, 0, 0, 1});
    surface.scale = median(sides_of_unit);
    return surface;
}

}  // namespace

drawing_surface choose_surface(const camera_set& cameras, const std::vector<cv::Size>& frame_sizes)
{
    return cameras.motion == camera_motion::turning ? around_turning(cameras, frame_sizes)
                                                    : along_plane(cameras, frame_sizes);
}

}  // namespace tarn::finishing
