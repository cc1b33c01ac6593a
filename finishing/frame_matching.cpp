// SPDX-License-Identifier: Apache-2.0
//
// A sweep knows roughly where its frames lie, so points are not searched for, they are followed: one frame is bent to
// where the other is thought to see it, and what is left is a small motion. That takes a fraction of the time of
// descriptions, and is exact to parts of a pixel. Descriptions are for frames of which nothing is known; what they
// find is a prediction, too.
#include "frame_matching.h"

#include <algorithm>
#include <cmath>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "refused_memory.h"

namespace tarn::finishing {

namespace {

constexpr double outlier_distance = 3.0;  // px of the working copy
constexpr int fewest_points = 15;
constexpr double least_part_that_agrees = 0.3;

using points = std::vector<cv::Point2f>;

/// Whether a homography between pixels of two frames may come from a camera in a sweep: nothing mirrored, folded, or
/// many times larger or smaller.
bool is_plausible(const cv::Mat& homography, cv::Size size)
{
    constexpr double greatest_change_of_area = 4.0;
    if (homography.empty() || !cv::checkRange(homography)) {
        return false;
    }
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    const points frame = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    points mapped;
    cv::perspectiveTransform(frame, mapped, homography);
    if (!cv::checkRange(mapped) || !cv::isContourConvex(mapped)) {
        return false;
    }
    const double change = cv::contourArea(mapped, true) / cv::contourArea(frame, true);
    return change > 1.0 / greatest_change_of_area && change < greatest_change_of_area;
}

/// Frame j as frame i would see it, as bright and with as much contrast where both show something.
cv::Mat as_seen_by(const working_frame& frame_i, const working_frame& frame_j, const cv::Matx33d& j_from_i)
{
    cv::Mat seen;
    cv::warpPerspective(frame_j.gray, seen, j_from_i, frame_i.gray.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    cv::Mat shown;
    cv::warpPerspective(cv::Mat(frame_j.gray.size(), CV_8UC1, cv::Scalar(255)), shown, j_from_i, frame_i.gray.size(),
                        cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
    cv::Scalar mean_i;
    cv::Scalar mean_j;
    cv::Scalar spread_i;
    cv::Scalar spread_j;
    cv::meanStdDev(frame_i.gray, mean_i, spread_i, shown);
    cv::meanStdDev(seen, mean_j, spread_j, shown);
    constexpr double least_spread = 1.0;
    constexpr double greatest_factor = 4.0;
    const double factor = std::clamp(std::max(spread_i[0], least_spread) / std::max(spread_j[0], least_spread),
                                     1.0 / greatest_factor, greatest_factor);
    seen.convertTo(seen, CV_8U, factor, mean_i[0] - factor * mean_j[0]);
    return seen;
}

struct pixel_pairs {
    points in_i;
    points in_j;
};

/// Points of i followed into j from where the prediction says, there and back again.
pixel_pairs follow(const working_frame& frame_i, const working_frame& frame_j, const cv::Matx33d& j_from_i)
{
    constexpr int levels = 3;
    constexpr float greatest_way_back = 0.7f;  // px between a point and where it comes back to
    constexpr float border = 2.0f;             // px
    const cv::Size window(21, 21);
    const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 20, 0.01);

    // Only what both can show.
    pixel_pairs result;
    if (frame_i.corners.empty()) {
        return result;
    }
    const auto lies_inside = [&](const cv::Point2f& p, cv::Size size) {
        return p.x >= border && p.y >= border && p.x < static_cast<float>(size.width) - 1.0f - border
               && p.y < static_cast<float>(size.height) - 1.0f - border;
    };
    points predicted;
    cv::perspectiveTransform(frame_i.corners, predicted, j_from_i);
    points from;
    for (std::size_t k = 0; k < predicted.size(); ++k) {
        if (lies_inside(predicted[k], frame_j.gray.size())) {
            from.push_back(frame_i.corners[k]);
        }
    }
    if (from.empty()) {
        return result;
    }
    const cv::Mat seen = as_seen_by(frame_i, frame_j, j_from_i);
    std::vector<cv::Mat> pyramid_i;
    std::vector<cv::Mat> pyramid_j;
    cv::buildOpticalFlowPyramid(frame_i.gray, pyramid_i, window, levels);
    cv::buildOpticalFlowPyramid(seen, pyramid_j, window, levels);
    points to;
    points back = from;
    std::vector<uchar> found;
    std::vector<uchar> found_back;
    cv::calcOpticalFlowPyrLK(pyramid_i, pyramid_j, from, to, found, cv::noArray(), window, levels, criteria);
    cv::calcOpticalFlowPyrLK(pyramid_j, pyramid_i, to, back, found_back, cv::noArray(), window, levels, criteria,
                             cv::OPTFLOW_USE_INITIAL_FLOW);
    points in_j;
    cv::perspectiveTransform(to, in_j, j_from_i);
    for (std::size_t k = 0; k < from.size(); ++k) {
        if (found[k] != 0 && found_back[k] != 0 && cv::norm(back[k] - from[k]) < greatest_way_back
            && lies_inside(to[k], frame_i.gray.size()) && lies_inside(in_j[k], frame_j.gray.size())) {
            result.in_i.push_back(from[k]);
            result.in_j.push_back(in_j[k]);
        }
    }
    return result;
}

/// Points with like descriptions.
pixel_pairs compare_descriptions(const working_frame& frame_i, const working_frame& frame_j)
{
    constexpr int most_features = 1500;
    constexpr float clearly_nearer = 0.8f;
    const cv::Ptr<cv::ORB> orb = cv::ORB::create(most_features);
    std::vector<cv::KeyPoint> keypoints_i;
    std::vector<cv::KeyPoint> keypoints_j;
    cv::Mat descriptors_i;
    cv::Mat descriptors_j;
    orb->detectAndCompute(frame_i.gray, cv::noArray(), keypoints_i, descriptors_i);
    orb->detectAndCompute(frame_j.gray, cv::noArray(), keypoints_j, descriptors_j);
    pixel_pairs result;
    if (descriptors_i.rows < 2 || descriptors_j.rows < 2) {
        return result;
    }
    std::vector<std::vector<cv::DMatch>> nearest;
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(descriptors_i, descriptors_j, nearest, 2);
    for (const std::vector<cv::DMatch>& two : nearest) {
        if (two.size() == 2 && two[0].distance < clearly_nearer * two[1].distance) {
            result.in_i.push_back(keypoints_i[static_cast<std::size_t>(two[0].queryIdx)].pt);
            result.in_j.push_back(keypoints_j[static_cast<std::size_t>(two[0].trainIdx)].pt);
        }
    }
    return result;
}

/// Keeps the pairs that one homography explains.
/// @returns it; empty when there are too few
cv::Mat keep_what_agrees(pixel_pairs& pairs, cv::Size size)
{
    if (pairs.in_i.size() < static_cast<std::size_t>(fewest_points)) {
        return {};
    }
    std::vector<uchar> agrees;
    cv::Mat homography = cv::findHomography(pairs.in_i, pairs.in_j, cv::RANSAC, outlier_distance, agrees);
    const int count = cv::countNonZero(agrees);
    if (count < fewest_points || count < least_part_that_agrees * static_cast<double>(agrees.size())
        || !is_plausible(homography, size)) {
        return {};
    }
    pixel_pairs kept;
    for (std::size_t k = 0; k < agrees.size(); ++k) {
        if (agrees[k] != 0) {
            kept.in_i.push_back(pairs.in_i[k]);
            kept.in_j.push_back(pairs.in_j[k]);
        }
    }
    pairs = kept;
    return homography;
}

cv::Point2d centred(const cv::Point2d& pixel, cv::Size size)
{
    const cv::Matx33d from_pixel = centred_from_pixel(size);
    return {from_pixel(0, 0) * pixel.x + from_pixel(0, 2), from_pixel(1, 1) * pixel.y + from_pixel(1, 2)};
}

cv::Matx33d pixels_from_pixels(const working_frame& frame_i, const working_frame& frame_j, const cv::Matx33d& j_from_i)
{
    return pixel_from_centred(frame_j.gray.size()) * j_from_i * centred_from_pixel(frame_i.gray.size());
}

cv::Matx33d centred_from_centred(const working_frame& frame_i, const working_frame& frame_j,
                                 const cv::Matx33d& j_from_i)
{
    return centred_from_pixel(frame_j.gray.size()) * j_from_i * pixel_from_centred(frame_i.gray.size());
}

}  // namespace

std::optional<frame_link> match_frames(const working_frame& frame_i, const working_frame& frame_j,
                                       const std::optional<cv::Matx33d>& predicted)
{
    pixel_pairs pairs;
    cv::Mat homography;
    if (predicted) {
        pairs = follow(frame_i, frame_j, pixels_from_pixels(frame_i, frame_j, *predicted));
        homography = keep_what_agrees(pairs, frame_i.gray.size());
    }
    if (homography.empty()) {
        pairs = compare_descriptions(frame_i, frame_j);
        homography = keep_what_agrees(pairs, frame_i.gray.size());
        if (homography.empty()) {
            return std::nullopt;
        }
        pixel_pairs followed = follow(frame_i, frame_j, cv::Matx33d(homography));
        const cv::Mat more_exact = keep_what_agrees(followed, frame_i.gray.size());
        if (!more_exact.empty()) {
            pairs = followed;
            homography = more_exact;
        }
    }
    frame_link link;
    link.source = placed_by::features;
    for (std::size_t k = 0; k < pairs.in_i.size(); ++k) {
        link.in_i.push_back(centred(pairs.in_i[k], frame_i.gray.size()));
        link.in_j.push_back(centred(pairs.in_j[k], frame_j.gray.size()));
    }
    link.j_from_i = centred_from_centred(frame_i, frame_j, cv::Matx33d(homography));
    return link;
}

frame_link align_frames(const working_frame& frame_i, const working_frame& frame_j, const cv::Matx33d& predicted)
{
    constexpr double least_likeness = 0.6;  // correlation
    constexpr double weight_of_aligned = 0.3;
    constexpr double weight_of_live = 0.05;
    frame_link link;
    link.source = placed_by::live_motion;
    link.j_from_i = predicted;
    link.weight = weight_of_live;

    const cv::Matx33d in_pixels = pixels_from_pixels(frame_i, frame_j, predicted);
    if (is_plausible(cv::Mat(in_pixels), frame_i.gray.size())) {
        const cv::Mat seen = as_seen_by(frame_i, frame_j, in_pixels);
        cv::Mat shown;
        cv::warpPerspective(cv::Mat(frame_j.gray.size(), CV_8UC1, cv::Scalar(255)), shown, in_pixels,
                            frame_i.gray.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
        try {
            const double before = cv::computeECC(frame_i.gray, seen, shown);
            cv::Mat rest = cv::Mat::eye(2, 3, CV_32F);
            constexpr int smoothing = 5;  // px
            const cv::TermCriteria criteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 1e-4);
            // `shown` is of frame i's pixels, the function asks for what may be used of the other one; they are the
            // same but for the small motion that is looked for.
            const double after =
                cv::findTransformECC(frame_i.gray, seen, rest, cv::MOTION_EUCLIDEAN, criteria, shown, smoothing);
            cv::Matx33d more_exact = cv::Matx33d::eye();
            for (int row = 0; row < 2; ++row) {
                for (int column = 0; column < 3; ++column) {
                    more_exact(row, column) = rest.at<float>(row, column);
                }
            }
            const cv::Matx33d refined = in_pixels * more_exact;
            if (after > least_likeness && after > before && is_plausible(cv::Mat(refined), frame_i.gray.size())) {
                link.source = placed_by::alignment;
                link.j_from_i = centred_from_centred(frame_i, frame_j, refined);
                link.weight = weight_of_aligned;
            }
        } catch (const cv::Exception& error) {
            if (is_about_memory(error)) {
                throw;
            }
            // It does not converge where there is nothing to compare.
        }
    }
    constexpr int columns = 5;
    constexpr int rows = 4;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const cv::Point2d pixel((column + 0.5) * frame_i.gray.cols / columns,
                                    (row + 0.5) * frame_i.gray.rows / rows);
            const cv::Point2d place = centred(pixel, frame_i.gray.size());
            const cv::Vec3d seen = link.j_from_i * cv::Vec3d(place.x, place.y, 1.0);
            if (seen[2] * link.j_from_i(2, 2) > 0.0) {
                link.in_i.push_back(place);
                link.in_j.emplace_back(seen[0] / seen[2], seen[1] / seen[2]);
            }
        }
    }
    return link;
}

}  // namespace tarn::finishing
