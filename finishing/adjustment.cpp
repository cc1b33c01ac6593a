// SPDX-License-Identifier: Apache-2.0
//
// Levenberg's and Marquardt's method. A residual depends on two cameras and what all share, so a link adds to few
// blocks of the normal equations, and the rest of the matrix of derivatives, which is nought, is never touched.
#include "adjustment.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace tarn::finishing {

namespace {

/// Residuals are counted in thousandths of the longer side: about the pixels of a working copy.
constexpr double per_side = 1000.0;
/// Where a residual begins to count less than its square.
constexpr double robust_limit = 1.5;
constexpr std::size_t most_points_of_link = 100;
constexpr int most_parameters = 2 * 8 + 1;

/// A frame's point as seen in another, from centred coordinates; false behind the camera.
bool seen(const cv::Matx33d& homography, const cv::Point2f& p, cv::Point2d& place)
{
    const double w = homography(2, 0) * p.x + homography(2, 1) * p.y + homography(2, 2);
    if (w < 1e-6) {
        return false;
    }
    place.x = (homography(0, 0) * p.x + homography(0, 1) * p.y + homography(0, 2)) / w;
    place.y = (homography(1, 0) * p.x + homography(1, 1) * p.y + homography(1, 2)) / w;
    return true;
}

/// Of a link with many points every second, third, ... one.
std::size_t stride_of(const frame_link& link)
{
    return std::max<std::size_t>(1, link.in_i.size() / most_points_of_link);
}

double robust_cost(double distance)
{
    return distance <= robust_limit ? distance * distance : 2.0 * robust_limit * distance - robust_limit * robust_limit;
}

double cost_of(const camera_set& cameras, const std::vector<frame_link>& links)
{
    constexpr double behind = 1000.0;  // as a distance
    double sum = 0.0;
    for (const frame_link& link : links) {
        const cv::Matx33d homography = cameras.j_from_i(link.i, link.j);
        for (std::size_t k = 0; k < link.in_i.size(); k += stride_of(link)) {
            cv::Point2d place;
            const double distance =
                seen(homography, link.in_i[k], place) ? per_side * cv::norm(place - cv::Point2d(link.in_j[k])) : behind;
            sum += link.weight * robust_cost(distance);
        }
    }
    return sum;
}

/// The normal equations of all parameters: the shared ones first, then camera by camera.
struct normal_equations {
    cv::Mat matrix;
    cv::Mat right_side;
};

class parameter_layout {
public:
    parameter_layout(const camera_set& cameras, int fixed)
        : motion_(cameras.motion), shared_(shared_parameters(cameras.motion)),
          per_camera_(parameters_of_camera(cameras.motion)), size_(shared_)
    {
        for (std::size_t i = 0; i < cameras.places.size(); ++i) {
            const bool moves = cameras.placed[i] && static_cast<int>(i) != fixed;
            first_.push_back(moves ? size_ : -1);
            size_ += moves ? per_camera_ : 0;
        }
    }

    int size() const
    {
        return size_;
    }

    /// Where the parameters of the two cameras of a link and the shared ones stand.
    std::vector<int> parameters_of(const frame_link& link) const
    {
        std::vector<int> result(static_cast<std::size_t>(shared_));
        std::iota(result.begin(), result.end(), 0);
        for (const int index : {link.i, link.j}) {
            for (int p = 0; p < per_camera_; ++p) {
                const int first = first_[static_cast<std::size_t>(index)];
                result.push_back(first < 0 ? -1 : first + p);
            }
        }
        return result;
    }

    /// The homography of a link after the change of one of its parameters, counted as parameters_of does.
    cv::Matx33d changed_homography(const camera_set& cameras, const frame_link& link, int which, double by) const
    {
        camera_set two;
        two.motion = motion_;
        two.focal = cameras.focal;
        two.places = {cameras.places[static_cast<std::size_t>(link.i)],
                      cameras.places[static_cast<std::size_t>(link.j)]};
        if (which < shared_) {
            two.focal *= std::exp(by);
        } else {
            std::array<double, 8> change{};
            const int of_camera = which - shared_;
            change[static_cast<std::size_t>(of_camera % per_camera_)] = by;
            cv::Matx33d& place = two.places[static_cast<std::size_t>(of_camera / per_camera_)];
            place = changed_place(motion_, place, change.data());
        }
        return two.j_from_i(0, 1);
    }

    camera_set changed(const camera_set& cameras, const cv::Mat& by) const
    {
        camera_set result = cameras;
        if (shared_ > 0) {
            constexpr double greatest_step = 0.3;
            result.focal *= std::exp(std::clamp(by.at<double>(0), -greatest_step, greatest_step));
        }
        for (std::size_t i = 0; i < first_.size(); ++i) {
            if (first_[i] >= 0) {
                result.places[i] = changed_place(motion_, cameras.places[i], by.ptr<double>(first_[i]));
            }
        }
        return result;
    }

private:
    camera_motion motion_;
    int shared_;
    int per_camera_;
    int size_;
    std::vector<int> first_;
};

void add_link(const camera_set& cameras, const frame_link& link, const parameter_layout& layout,
              normal_equations& equations)
{
    constexpr double small = 1e-6;
    const std::vector<int> parameters = layout.parameters_of(link);
    const auto count = parameters.size();
    const cv::Matx33d homography = cameras.j_from_i(link.i, link.j);
    std::vector<cv::Matx33d> changed(count);
    for (std::size_t p = 0; p < count; ++p) {
        if (parameters[p] >= 0) {
            changed[p] = layout.changed_homography(cameras, link, static_cast<int>(p), small);
        }
    }
    std::array<std::array<double, most_parameters>, most_parameters> block{};
    std::array<double, most_parameters> right{};
    std::array<cv::Point2d, most_parameters> derivative{};
    for (std::size_t k = 0; k < link.in_i.size(); k += stride_of(link)) {
        cv::Point2d place;
        if (!seen(homography, link.in_i[k], place)) {
            continue;
        }
        const cv::Point2d residual = per_side * (place - cv::Point2d(link.in_j[k]));
        const double distance = cv::norm(residual);
        const double weight = link.weight * (distance <= robust_limit ? 1.0 : robust_limit / distance);
        for (std::size_t p = 0; p < count; ++p) {
            cv::Point2d moved = place;
            if (parameters[p] >= 0) {
                seen(changed[p], link.in_i[k], moved);
            }
            derivative[p] = (per_side / small) * (moved - place);
        }
        for (std::size_t p = 0; p < count; ++p) {
            right[p] -= weight * derivative[p].dot(residual);
            for (std::size_t q = 0; q <= p; ++q) {
                block[p][q] += weight * derivative[p].dot(derivative[q]);
            }
        }
    }
    for (std::size_t p = 0; p < count; ++p) {
        if (parameters[p] < 0) {
            continue;
        }
        equations.right_side.at<double>(parameters[p]) += right[p];
        for (std::size_t q = 0; q <= p; ++q) {
            if (parameters[q] >= 0) {
                equations.matrix.at<double>(parameters[p], parameters[q]) += block[p][q];
                if (p != q) {
                    equations.matrix.at<double>(parameters[q], parameters[p]) += block[p][q];
                }
            }
        }
    }
}

}  // namespace

std::vector<double> residuals_of(const camera_set& cameras, const frame_link& link)
{
    std::vector<double> result;
    const cv::Matx33d homography = cameras.j_from_i(link.i, link.j);
    for (std::size_t k = 0; k < link.in_i.size(); ++k) {
        cv::Point2d place;
        result.push_back(seen(homography, link.in_i[k], place) ? cv::norm(place - cv::Point2d(link.in_j[k])) : 1.0);
    }
    return result;
}

double median_residual(const camera_set& cameras, const std::vector<frame_link>& links)
{
    std::vector<double> all;
    for (const bool of_features : {true, false}) {
        for (const frame_link& link : links) {
            if (cameras.placed[static_cast<std::size_t>(link.i)] && cameras.placed[static_cast<std::size_t>(link.j)]
                && (link.source == placed_by::features) == of_features) {
                const std::vector<double> own = residuals_of(cameras, link);
                all.insert(all.end(), own.begin(), own.end());
            }
        }
        if (!all.empty()) {
            const auto middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
            std::nth_element(all.begin(), middle, all.end());
            return *middle;
        }
    }
    return 0.0;
}

double adjust_cameras(camera_set& cameras, const std::vector<frame_link>& links, int fixed, int most_steps,
                      const std::function<void()>& each_step)
{
    constexpr double enough_gained = 1e-5;  // of the cost
    constexpr double most_damping = 1e8;
    const parameter_layout layout(cameras, fixed);
    double cost = cost_of(cameras, links);
    double damping = 1e-3;
    for (int step = 0; step < most_steps && layout.size() > 0; ++step) {
        each_step();
        normal_equations equations{cv::Mat::zeros(layout.size(), layout.size(), CV_64F),
                                   cv::Mat::zeros(layout.size(), 1, CV_64F)};
        for (const frame_link& link : links) {
            add_link(cameras, link, layout, equations);
        }
        bool is_better = false;
        double before = cost;
        while (!is_better && damping < most_damping) {
            cv::Mat damped = equations.matrix.clone();
            for (int p = 0; p < layout.size(); ++p) {
                damped.at<double>(p, p) += damping * damped.at<double>(p, p) + 1e-6;
            }
            cv::Mat by;
            if (cv::solve(damped, equations.right_side, by, cv::DECOMP_CHOLESKY) && cv::checkRange(by)) {
                const camera_set candidate = layout.changed(cameras, by);
                const double candidate_cost = cost_of(candidate, links);
                if (candidate_cost < cost) {
                    cameras = candidate;
                    cost = candidate_cost;
                    is_better = true;
                }
            }
            damping *= is_better ? 0.2 : 8.0;
        }
        damping = std::max(damping, 1e-9);
        if (!is_better || before - cost < enough_gained * before) {
            break;
        }
    }
    return cost;
}

}  // namespace tarn::finishing
