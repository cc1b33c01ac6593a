// SPDX-License-Identifier: Apache-2.0
#include "descriptor_matching.h"

#include <algorithm>
#include <cstdint>
#include <random>

#include <opencv2/features2d.hpp>
#include <opencv2/flann.hpp>

namespace {

// Gives the thread's random generator the state of a new thread's, and gives it its own state back at the end.
class fresh_random_generator {
public:
    fresh_random_generator() : kept_(cv::theRNG())
    {
        cv::theRNG() = cv::RNG();
    }

    ~fresh_random_generator()
    {
        cv::theRNG() = kept_;
    }

    fresh_random_generator(const fresh_random_generator&) = delete;
    fresh_random_generator& operator=(const fresh_random_generator&) = delete;

private:
    cv::RNG kept_;
};

}  // namespace

void single_match(const cv::Mat& query_des, const cv::Mat& train_des, std::vector<cv::DMatch>& good_matches,
                  float check_match_conf)
{
    constexpr int trees = 4;
    constexpr int checks = 32;
    constexpr float eps = 0.0f;
    constexpr bool sorted = true;
    constexpr int neighbours = 2;

    const fresh_random_generator same_trees_in_every_call;
    cv::FlannBasedMatcher matcher(cv::makePtr<cv::flann::KDTreeIndexParams>(trees),
                                  cv::makePtr<cv::flann::SearchParams>(checks, eps, sorted));
    std::vector<std::vector<cv::DMatch>> matches;
    matcher.knnMatch(query_des, train_des, matches, neighbours, cv::noArray(), false);
    for (const std::vector<cv::DMatch>& candidates : matches) {
        if (candidates.size() < neighbours) {
            continue;
        }
        if (candidates[0].distance < (1.0f - check_match_conf) * candidates[1].distance) {
            good_matches.push_back(candidates[0]);
        }
    }
}

void randomSelectKeyPoints(std::vector<cv::KeyPoint> kpts, std::vector<cv::Point2f>& pts, int max_num)
{
    std::random_device rd;
    std::mt19937 rng(rd());
    std::shuffle(kpts.begin(), kpts.end(), rng);
    for (size_t i = 0; i < kpts.size(); ++i) {
        if (static_cast<std::int64_t>(i) < max_num) {
            pts.push_back(kpts[i].pt);
        }
    }
}
