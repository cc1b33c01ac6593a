// SPDX-License-Identifier: Apache-2.0
#include "camera_model.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numeric>
#include <queue>
#include <tuple>

#include <opencv2/calib3d.hpp>

namespace tarn::finishing {

namespace {

cv::Matx33d centred_from_ray(double focal)
{
    return {focal, 0, 0, 0, focal, 0, 0, 0, 1};
}

cv::Matx33d ray_from_centred(double focal)
{
    return {1 / focal, 0, 0, 0, 1 / focal, 0, 0, 0, 1};
}

/// The similarity that maps a link's points of i best to those of j.
cv::Matx33d best_similarity(const frame_link& link)
{
    using complex = std::complex<double>;
    complex mean_i;
    complex mean_j;
    const auto count = static_cast<double>(link.in_i.size());
    const auto as_complex = [](const cv::Point2f& p) { return complex(p.x, p.y); };
    for (std::size_t k = 0; k < link.in_i.size(); ++k) {
        mean_i += as_complex(link.in_i[k]) / count;
        mean_j += as_complex(link.in_j[k]) / count;
    }
    complex product;
    double square = 0.0;
    for (std::size_t k = 0; k < link.in_i.size(); ++k) {
        const complex p = as_complex(link.in_i[k]) - mean_i;
        product += (as_complex(link.in_j[k]) - mean_j) * std::conj(p);
        square += std::norm(p);
    }
    const complex turn = square > 0.0 && std::abs(product) > 0.0 ? product / square : complex(1.0);
    const complex shift = mean_j - turn * mean_i;
    return {turn.real(), -turn.imag(), shift.real(), turn.imag(), turn.real(), shift.imag(), 0, 0, 1};
}

/// place_j^-1 * place_i as the link has it, of the kind that the motion allows.
cv::Matx33d relative_place(const frame_link& link, camera_motion motion, double focal)
{
    if (motion == camera_motion::turning) {
        return nearest_rotation(ray_from_centred(focal) * link.j_from_i * centred_from_ray(focal));
    }
    // The others begin with the similarity and are adjusted to what they are: it does not get lost on the way.
    return best_similarity(link);
}

/// The members of the part that has most of them.
std::vector<bool> largest_part(const std::vector<frame_link>& links, int count)
{
    const std::vector<int> parts = joined_parts(links, count);
    std::vector<int> sizes(static_cast<std::size_t>(count));
    for (const int part : parts) {
        ++sizes[static_cast<std::size_t>(part)];
    }
    const auto largest = static_cast<int>(std::max_element(sizes.begin(), sizes.end()) - sizes.begin());
    std::vector<bool> members(parts.size());
    std::transform(parts.begin(), parts.end(), members.begin(), [&](int part) { return part == largest; });
    return members;
}

/// The member with as many before it as after it.
int middle_of(const std::vector<bool>& members)
{
    std::vector<int> indices;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (members[i]) {
            indices.push_back(static_cast<int>(i));
        }
    }
    return indices[indices.size() / 2];
}

}  // namespace

cv::Matx33d camera_set::reference_from_centred(int index) const
{
    return places[static_cast<std::size_t>(index)] * ray_from_centred(focal);
}

cv::Matx33d camera_set::j_from_i(int i, int j) const
{
    return reference_from_centred(j).inv() * reference_from_centred(i);
}

int parameters_of_camera(camera_motion motion)
{
    switch (motion) {
    case camera_motion::turning:
        return 3;
    case camera_motion::sliding:
        return 4;
    case camera_motion::tilting:
        return 6;
    case camera_motion::projective:
        return 8;
    case camera_motion::none:
        break;
    }
    return 0;
}

int shared_parameters(camera_motion motion)
{
    return motion == camera_motion::turning ? 1 : 0;
}

cv::Matx33d changed_place(camera_motion motion, const cv::Matx33d& place, const double* change)
{
    switch (motion) {
    case camera_motion::turning: {
        cv::Matx33d rotation;
        cv::Rodrigues(cv::Vec3d(change[0], change[1], change[2]), rotation);
        return place * rotation;
    }
    case camera_motion::sliding:
        return place * cv::Matx33d(1 + change[2], -change[3], change[0], change[3], 1 + change[2], change[1], 0, 0, 1);
    case camera_motion::tilting:
        return place * cv::Matx33d(1 + change[2], change[3], change[0], change[4], 1 + change[5], change[1], 0, 0, 1);
    case camera_motion::projective:
        return place
               * cv::Matx33d(1 + change[2], change[3], change[0], change[4], 1 + change[5], change[1], change[6],
                             change[7], 1);
    case camera_motion::none:
        break;
    }
    return place;
}

cv::Matx33d nearest_rotation(const cv::Matx33d& matrix)
{
    const double determinant = cv::determinant(matrix);
    cv::Vec3d w;
    cv::Matx33d u;
    cv::Matx33d vt;
    cv::SVD::compute(determinant < 0 ? matrix * -1.0 : matrix, w, u, vt);
    cv::Matx33d rotation = u * vt;
    if (cv::determinant(rotation) < 0) {
        rotation = u * cv::Matx33d::diag({1, 1, -1}) * vt;
    }
    return rotation;
}

std::vector<int> joined_parts(const std::vector<frame_link>& links, int count)
{
    std::vector<int> before(static_cast<std::size_t>(count));
    std::iota(before.begin(), before.end(), 0);
    const auto first_of = [&](int i) {
        while (before[static_cast<std::size_t>(i)] != i) {
            i = before[static_cast<std::size_t>(i)];
        }
        return i;
    };
    for (const frame_link& link : links) {
        const int a = first_of(link.i);
        const int b = first_of(link.j);
        before[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
    }
    std::vector<int> result(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        result[static_cast<std::size_t>(i)] = first_of(i);
    }
    return result;
}

camera_set chained_cameras(const std::vector<frame_link>& links, int count, camera_motion motion, double focal)
{
    camera_set cameras;
    cameras.motion = motion;
    cameras.focal = motion == camera_motion::turning ? focal : 1.0;
    cameras.places.assign(static_cast<std::size_t>(count), cv::Matx33d::eye());
    cameras.placed.assign(static_cast<std::size_t>(count), false);

    std::vector<std::vector<const frame_link*>> links_of(static_cast<std::size_t>(count));
    for (const frame_link& link : links) {
        links_of[static_cast<std::size_t>(link.i)].push_back(&link);
        links_of[static_cast<std::size_t>(link.j)].push_back(&link);
    }
    // The strongest link out of what is placed already, and of equals the first one.
    using candidate = std::tuple<double, int, int, const frame_link*>;
    const auto is_weaker = [](const candidate& a, const candidate& b) {
        return std::make_tuple(std::get<0>(a), -std::get<1>(a), -std::get<2>(a))
               < std::make_tuple(std::get<0>(b), -std::get<1>(b), -std::get<2>(b));
    };
    std::priority_queue<candidate, std::vector<candidate>, decltype(is_weaker)> open(is_weaker);
    const auto take = [&](int index) {
        cameras.placed[static_cast<std::size_t>(index)] = true;
        for (const frame_link* const link : links_of[static_cast<std::size_t>(index)]) {
            open.emplace(link->weight * static_cast<double>(link->in_i.size()), link->i, link->j, link);
        }
    };
    take(middle_of(largest_part(links, count)));
    while (!open.empty()) {
        const frame_link& link = *std::get<3>(open.top());
        open.pop();
        const auto i = static_cast<std::size_t>(link.i);
        const auto j = static_cast<std::size_t>(link.j);
        if (cameras.placed[i] && cameras.placed[j]) {
            continue;
        }
        const cv::Matx33d relative = relative_place(link, motion, cameras.focal);
        if (cameras.placed[j]) {
            cameras.places[i] = cameras.places[j] * relative;
            take(link.i);
        } else {
            cameras.places[j] = cameras.places[i] * relative.inv();
            take(link.j);
        }
    }
    return cameras;
}

}  // namespace tarn::finishing
