// SPDX-License-Identifier: Apache-2.0
#include "matching.h"

#include <exception>
#include <thread>

#include <opencv2/features2d.hpp>
#include <opencv2/flann.hpp>

namespace reference {

namespace {

void match_here(const cv::Mat& query_des, const cv::Mat& train_des, std::vector<cv::DMatch>& good_matches,
                float check_match_conf)
{
    cv::FlannBasedMatcher matcher(cv::makePtr<cv::flann::KDTreeIndexParams>(4),
                                  cv::makePtr<cv::flann::SearchParams>(32, 0.0f, true));
    std::vector<std::vector<cv::DMatch>> matches;
    matcher.knnMatch(query_des, train_des, matches, 2, cv::noArray(), false);
    for (size_t i = 0; i < matches.size(); ++i) {
        if (matches[i].size() < 2) {
            continue;
        }
        const cv::DMatch best = matches[i][0];
        const cv::DMatch second = matches[i][1];
        const float factor = 1.0f - check_match_conf;
        if (best.distance < factor * second.distance) {
            good_matches.push_back(best);
        }
    }
}

}  // namespace

void single_match(const cv::Mat& query_des, const cv::Mat& train_des, std::vector<cv::DMatch>& good_matches,
                  float check_match_conf)
{
    std::exception_ptr raised;
    std::thread thread([&] {
        try {
            match_here(query_des, train_des, good_matches, check_match_conf);
        } catch (...) {
            raised = std::current_exception();
        }
    });
    thread.join();
    if (raised) {
        std::rethrow_exception(raised);
    }
}

}  // namespace reference
