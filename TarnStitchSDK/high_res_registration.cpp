// SPDX-License-Identifier: Apache-2.0
#include "internal/high_res_registration.h"

#include <opencv2/calib3d.hpp>

#include "descriptor_matching.h"
#include "internal/frame_geometry.h"

namespace tarn {

namespace {

// Matched keypoints in pixels of the full frames, pair by pair.
struct matched_points {
    points frame_points;
    points neighbour_points;
};

matched_points points_of(const std::vector<cv::DMatch>& matches, const neighbour_record& neighbour,
                         const described_frame& described)
{
    // Both frames' points are divided by the current frame's scale: all frames of a sweep have one size.
    const float scale = described.work_scale;
    matched_points result;
    for (const cv::DMatch& m : matches) {
        const cv::Point2f& here = described.keypoints[static_cast<size_t>(m.trainIdx)].pt;
        const cv::Point2f& there = neighbour.keypoints[static_cast<size_t>(m.queryIdx)].pt;
        result.frame_points.emplace_back(here.x / scale, here.y / scale);
        result.neighbour_points.emplace_back(there.x / scale, there.y / scale);
    }
    return result;
}

// The frame into the panorama. Says why that is refused, if it is.
cv::Mat register_frame(const neighbour_record& neighbour, cv::Size frame_size, const described_frame& described,
                       reason& refused)
{
    constexpr float check_match_conf = 0.2f;
    constexpr size_t least_matches = 20;
    constexpr double reprojection_threshold = 3.0;  // px
    constexpr int max_iterations = 2000;
    constexpr double confidence = 0.995;

    std::vector<cv::DMatch> good_matches;
    single_match(neighbour.descriptors, described.descriptors, good_matches, check_match_conf);
    if (good_matches.size() < least_matches) {
        refused = reason::too_few_matches;
        return {};
    }
    const matched_points matched = points_of(good_matches, neighbour, described);
    const cv::Mat neighbour_from_frame =
        cv::findHomography(matched.frame_points, matched.neighbour_points, cv::RANSAC, reprojection_threshold,
                           cv::noArray(), max_iterations, confidence);
    if (neighbour_from_frame.empty()) {
        refused = reason::no_homography;
        return {};
    }
    cv::Mat panorama_from_frame = neighbour.homo * neighbour_from_frame;
    if (!is_convex(mapped(corners_of(frame_size), panorama_from_frame))) {
        refused = reason::shape_refused;
    }
    return panorama_from_frame;
}

}  // namespace

joined_frame join_frame(const neighbour_record& neighbour, const cv::Mat& frame, const described_frame& described,
                        const std::function<void()>& registered)
{
    joined_frame result;
    const cv::Mat panorama_from_frame = register_frame(neighbour, frame.size(), described, result.why);
    if (registered) {
        registered();
    }
    if (result.why == reason::none) {
        result.merged = merge_frame(neighbour.panorama, frame, panorama_from_frame);
        result.why = result.merged ? reason::none : reason::too_large;
    }
    return result;
}

}  // namespace tarn
