// SPDX-License-Identifier: Apache-2.0
//
// The bundled sample sweeps as the tests read them.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "rendered_sweep.h"

namespace tarn::test {

/// All frames of a video in samples/, CV_8UC3, B,G,R. Empty, with a failure of the test, when it cannot be read.
/// The last one read is kept.
const std::vector<cv::Mat>& sample_video(const std::string& file_name);

/// The ground truth of a rendered sample: one homography per frame, frame pixel to pixel of a common plane.
/// Empty, with a failure of the test, when it cannot be read.
std::vector<cv::Matx33d> sample_ground_truth(const std::string& file_name);

}  // namespace tarn::test
