// SPDX-License-Identifier: Apache-2.0
//
// OpenCV's routines with the library's numbers.
#include "found_matches.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "descriptor_matching.h"
#include "projection.h"

namespace tarn::host {

namespace {

constexpr double reprojection_threshold = 3.0;  // px

/// A picture's features, found on a copy of at most 800 px in height.
struct features {
    float scale = 1.0f;  ///< of the copy
    std::vector<cv::KeyPoint> points;
    cv::Mat descriptors;  ///< CV_32F, 0 to 1
};

features features_of(const cv::Mat& picture)
{
    constexpr int greatest_height = 800;
    constexpr float least_response = 0.001f;
    constexpr int channels = 3;
    constexpr int octaves = 4;
    features found;
    if (picture.rows > greatest_height) {
        found.scale = static_cast<float>(greatest_height) / static_cast<float>(picture.rows);
    }
    cv::Mat copy;
    cv::resize(picture, copy, cv::Size(), found.scale, found.scale, cv::INTER_LINEAR_EXACT);
    const auto finder = cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB, 0, channels, least_response, octaves, octaves,
                                          cv::KAZE::DIFF_PM_G2);
    cv::Mat bytes;
    finder->detectAndCompute(copy, cv::noArray(), found.points, bytes);
    bytes.convertTo(found.descriptors, CV_32F, 1.0 / 255.0);
    return found;
}

/// Marks those that agree on one motion from the picture after into the one before.
void mark_agreeing(std::vector<found_match>& matches)
{
    constexpr std::size_t least = 4;
    if (matches.size() < least) {
        return;
    }
    std::vector<cv::Point2f> before;
    std::vector<cv::Point2f> after;
    for (const found_match& match : matches) {
        before.push_back(match.before);
        after.push_back(match.after);
    }
    constexpr int most_tries = 2000;
    constexpr double confidence = 0.995;
    std::vector<std::uint8_t> agreeing;
    if (cv::findHomography(after, before, cv::RANSAC, reprojection_threshold, agreeing, most_tries, confidence)
            .empty()) {
        return;
    }
    for (std::size_t i = 0; i < matches.size(); ++i) {
        matches[i].agrees = agreeing[i] != 0;
    }
}

cv::Mat gray_of(const cv::Mat& picture)
{
    cv::Mat gray;
    cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
    return gray;
}

}  // namespace

cv::Mat as_worker_takes_it(const cv::Mat& frame)
{
    constexpr int greatest_width = 1000;  // px
    const double scale = frame.cols > greatest_width
                             ? static_cast<double>(static_cast<float>(greatest_width) / static_cast<float>(frame.cols))
                             : 1.0;
    cv::Mat turned;
    cv::resize(frame, turned, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
    cv::rotate(turned, turned, cv::ROTATE_90_CLOCKWISE);
    return turned;
}

cv::Mat bent(const cv::Mat& picture, bending way, float angle)
{
    cv::Mat own = picture;
    cv::Mat result = picture;
    if (way == bending::cylinder) {
        cylindrical_projection(own, result, angle);
    } else if (way == bending::sphere) {
        SphericalProjection(own, result, angle);
    }
    return result;
}

matched_pictures matches_of_workers(const cv::Mat& before, const cv::Mat& after)
{
    constexpr float clearly_nearer = 0.2f;
    matched_pictures result{before, after};
    const features first = features_of(before);
    const features second = features_of(after);
    result.found_before = static_cast<int>(first.points.size());
    result.found_after = static_cast<int>(second.points.size());
    std::vector<cv::DMatch> pairs;
    if (first.descriptors.rows > 0 && second.descriptors.rows > 1) {
        single_match(first.descriptors, second.descriptors, pairs, clearly_nearer);
    }
    for (const cv::DMatch& pair : pairs) {
        const cv::Point2f& there = first.points[static_cast<std::size_t>(pair.queryIdx)].pt;
        const cv::Point2f& here = second.points[static_cast<std::size_t>(pair.trainIdx)].pt;
        result.matches.push_back({there / first.scale, here / second.scale});
    }
    mark_agreeing(result.matches);
    return result;
}

matched_pictures matches_of_live_path(const cv::Mat& before, const cv::Mat& after)
{
    constexpr int most_corners = 80;
    constexpr double quality = 0.01;
    constexpr double apart = 10.0;  // px
    constexpr int window = 21;      // px
    constexpr int levels = 3;
    matched_pictures result{before, after};
    result.found_after = -1;
    const cv::Mat reference = gray_of(before);
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(reference, corners, most_corners, quality, apart);
    result.found_before = static_cast<int>(corners.size());
    if (corners.empty()) {
        return result;
    }
    std::vector<cv::Point2f> places;
    std::vector<std::uint8_t> found;
    cv::calcOpticalFlowPyrLK(reference, gray_of(after), corners, places, found, cv::noArray(), cv::Size(window, window),
                             levels);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        if (found[i] != 0) {
            result.matches.push_back({corners[i], places[i]});
        }
    }
    mark_agreeing(result.matches);
    return result;
}

}  // namespace tarn::host
