// SPDX-License-Identifier: Apache-2.0
//
// Reading of the bundled sample sweeps and their ground truth.
#include "sample_video.h"

#include <fstream>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>
#include <opencv2/videoio.hpp>

namespace tarn::test {

namespace {

std::string sample_path(const std::string& file_name)
{
    return std::string(TARN_SAMPLES_DIR) + "/" + file_name;
}

}  // namespace

const std::vector<cv::Mat>& sample_video(const std::string& file_name)
{
    static std::pair<std::string, std::vector<cv::Mat>> kept;
    if (kept.first != file_name) {
        kept = {file_name, {}};
        cv::VideoCapture video(sample_path(file_name));
        for (cv::Mat frame; video.read(frame);)
            kept.second.push_back(frame.clone());
        EXPECT_FALSE(kept.second.empty()) << sample_path(file_name);
    }
    return kept.second;
}

std::vector<cv::Matx33d> sample_ground_truth(const std::string& file_name)
{
    std::vector<cv::Matx33d> homographies;
    std::ifstream file(sample_path(file_name));
    std::string line;
    std::getline(file, line);  // names of the columns: frame, h00 … h22, gain
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string field;
        std::getline(fields, field, ',');  // number of the frame
        cv::Matx33d homography;
        for (double& value : homography.val) {
            std::getline(fields, field, ',');
            value = std::stod(field);
        }
        homographies.push_back(homography);
    }
    EXPECT_FALSE(homographies.empty()) << sample_path(file_name);
    return homographies;
}

}  // namespace tarn::test
