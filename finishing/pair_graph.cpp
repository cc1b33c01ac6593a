// SPDX-License-Identifier: Apache-2.0
#include "pair_graph.h"

#include <algorithm>
#include <set>

#include <opencv2/imgproc.hpp>

namespace tarn::finishing {

namespace {

std::vector<cv::Point2f> centred_corners(cv::Size size)
{
    const auto side = static_cast<float>(std::max(size.width, size.height));
    const float x = static_cast<float>(size.width) / side / 2.0f;
    const float y = static_cast<float>(size.height) / side / 2.0f;
    return {{-x, -y}, {x, -y}, {x, y}, {-x, y}};
}

bool lies_ahead(const cv::Matx33d& homography, const std::vector<cv::Point2f>& points)
{
    return std::all_of(points.begin(), points.end(), [&](const cv::Point2f& p) {
        return homography(2, 0) * p.x + homography(2, 1) * p.y + homography(2, 2) > 1e-3;
    });
}

}  // namespace

double shared_part(const cv::Matx33d& j_from_i, cv::Size size_i, cv::Size size_j)
{
    const std::vector<cv::Point2f> frame_i = centred_corners(size_i);
    const std::vector<cv::Point2f> frame_j = centred_corners(size_j);
    cv::Matx33d homography = j_from_i;
    if (homography(2, 2) < 0) {
        homography *= -1.0;
    }
    if (!lies_ahead(homography, frame_i)) {
        return 0.0;
    }
    std::vector<cv::Point2f> mapped;
    cv::perspectiveTransform(frame_i, mapped, homography);
    if (!cv::checkRange(mapped) || !cv::isContourConvex(mapped) || cv::contourArea(mapped, true) <= 0.0) {
        return 0.0;
    }
    std::vector<cv::Point2f> common;
    const double shared = cv::intersectConvexConvex(mapped, frame_j, common);
    // In parts of the larger one, so that a frame that is seen as a dot is not called covered.
    return shared / std::max(cv::contourArea(mapped), cv::contourArea(frame_j));
}

std::vector<index_pair> pairs_of_neighbours(const std::vector<working_frame>& frames)
{
    constexpr double enough_shared = 0.3;
    std::vector<index_pair> pairs;
    const int count = static_cast<int>(frames.size());
    const auto frame = [&](int i) -> const working_frame& { return frames[static_cast<std::size_t>(i)]; };
    for (int i = 0; i < count; ++i) {
        for (int j = i + 1; j < count && j <= i + 2; ++j) {
            const bool both_placed = frame(i).has_placement && frame(j).has_placement;
            if (j == i + 1
                || (both_placed
                    && shared_part(frame(j).placement.inv() * frame(i).placement, frame(i).full_size,
                                   frame(j).full_size)
                           > enough_shared)) {
                pairs.emplace_back(i, j);
            }
        }
    }
    return pairs;
}

std::vector<index_pair> pairs_that_overlap(const std::vector<working_frame>& frames,
                                           const std::vector<index_pair>& known,
                                           const std::function<std::optional<cv::Matx33d>(int i, int j)>& j_from_i)
{
    constexpr double enough_shared = 0.35;
    constexpr std::size_t most_for_each = 2;
    constexpr int farther_than = 5;  // nearer ones hang together by those between them
    const std::set<index_pair> before(known.begin(), known.end());
    std::set<index_pair> found;
    const int count = static_cast<int>(frames.size());
    for (int i = 0; i < count; ++i) {
        std::vector<std::pair<double, int>> partners;
        for (int j = i + farther_than + 1; j < count; ++j) {
            const std::optional<cv::Matx33d> homography = j_from_i(i, j);
            if (!homography || before.count({i, j}) != 0) {
                continue;
            }
            const double shared = shared_part(*homography, frames[static_cast<std::size_t>(i)].full_size,
                                              frames[static_cast<std::size_t>(j)].full_size);
            if (shared > enough_shared) {
                partners.emplace_back(-shared, j);
            }
        }
        std::sort(partners.begin(), partners.end());
        partners.resize(std::min(partners.size(), most_for_each));
        for (const auto& [shared, j] : partners) {
            found.emplace(i, j);
        }
    }
    return {found.begin(), found.end()};
}

}  // namespace tarn::finishing
