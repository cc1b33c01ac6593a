// SPDX-License-Identifier: Apache-2.0
//
// Matching of descriptor sets, and random choice of keypoints. Any thread; nothing is shared between calls.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

/// Pairs each query descriptor with its nearest train descriptor where that is clearly nearer than the second
/// nearest: best < (1 - check_match_conf) * second, strictly (the ratio test of Lowe, Distinctive Image
/// Features from Scale-Invariant Keypoints, section 7.1). The neighbours come from four randomised k-d trees.
///
/// The trees draw random numbers; each call draws the same ones and leaves the thread's own generator as it
/// was, so that equal descriptors give equal matches in every call on every thread.
///
/// @param query_des         one descriptor per row, CV_32F
/// @param train_des         one descriptor per row, CV_32F, of the same width
/// @param good_matches      matches are appended in the order of the query rows; what it holds stays
/// @param check_match_conf  0 to 1; 0.2 gives the ratio 0.8
/// @throws cv::Exception for mismatched types or widths, or a train set of fewer than two rows
void single_match(const cv::Mat& query_des, const cv::Mat& train_des, std::vector<cv::DMatch>& good_matches,
                  float check_match_conf);

/// Appends the positions of min(max_num, kpts.size()) keypoints to `pts`, chosen at random from the platform's
/// entropy source, in random order; none when `max_num` is not positive.
void randomSelectKeyPoints(std::vector<cv::KeyPoint> kpts, std::vector<cv::Point2f>& pts, int max_num);
