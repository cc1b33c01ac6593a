// SPDX-License-Identifier: Apache-2.0
//
// Descriptor matching once more, as the plainest transcription of its definition.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace reference {

/// On a thread of its own, whose random generator is in the state in which every thread's starts.
void single_match(const cv::Mat& query_des, const cv::Mat& train_des, std::vector<cv::DMatch>& good_matches,
                  float check_match_conf);

}  // namespace reference
