// SPDX-License-Identifier: Apache-2.0
//
// What OpenCV computes for a sweep, stage by stage, on frames of a sample.
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "descriptor_matching.h"
#include "internal/high_res_composition.h"
#include "internal/high_res_frame.h"
#include "record.h"
#include "support/sample_video.h"
#include "tarn_stitch_jni.h"

namespace tarn::test {

namespace {

// The size of an image, and the mean of each cell of a grid laid over it.
std::vector<double> image_values(const cv::Mat& image)
{
    std::vector<double> values = {static_cast<double>(image.cols), static_cast<double>(image.rows)};
    constexpr int cells = 16;  // in each direction
    for (int y = 0; y < cells; ++y) {
        for (int x = 0; x < cells; ++x) {
            const cv::Range rows(image.rows * y / cells, image.rows * (y + 1) / cells);
            const cv::Range cols(image.cols * x / cells, image.cols * (x + 1) / cells);
            values.push_back(cv::sum(cv::mean(image(rows, cols)))[0]);
        }
    }
    return values;
}

std::vector<double> point_values(const std::vector<cv::Point2f>& points)
{
    std::vector<double> values;
    for (const cv::Point2f& point : points) {
        values.push_back(static_cast<double>(point.x));
        values.push_back(static_cast<double>(point.y));
    }
    return values;
}

std::vector<double> matrix_values(const cv::Mat& matrix)
{
    std::vector<double> values;
    for (int i = 0; i < static_cast<int>(matrix.total()); ++i) {
        values.push_back(matrix.at<double>(i / matrix.cols, i % matrix.cols));
    }
    return values;
}

// The live path's stages, with its own parameters.
void write_live_stages(const cv::Mat& first, const cv::Mat& second)
{
    const double scale = 300.0 / first.cols;
    cv::Mat small[2];
    cv::Mat gray[2];
    const cv::Mat frames[2] = {first, second};
    for (int i = 0; i < 2; ++i) {
        cv::resize(frames[i], small[i], cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
        cv::cvtColor(small[i], gray[i], cv::COLOR_BGR2GRAY);
    }
    write_library("frame", image_values(first));
    write_library("resize", image_values(small[0]));
    write_library("gray", image_values(gray[0]));

    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(gray[0], corners, 80, 0.01, 10.0, cv::noArray(), 3, false, 0.04);
    write_library("corners", point_values(corners));

    std::vector<cv::Point2f> tracked;
    std::vector<unsigned char> status;
    std::vector<float> errors;
    cv::calcOpticalFlowPyrLK(gray[0], gray[1], corners, tracked, status, errors);
    write_library("optical_flow", point_values(tracked));

    const cv::Mat homography = cv::findHomography(tracked, corners, cv::RANSAC, 3.0);
    write_library("homography", matrix_values(homography));

    const cv::Matx33d plane(1.02, 0.01, 3.3, -0.02, 0.98, 4.7, 1e-5, 2e-5, 1.0);
    cv::Mat warped;
    cv::warpPerspective(small[1], warped, plane, small[1].size());
    write_library("warped_frame", image_values(warped));
}

// A worker's stages.
void write_worker_stages(const cv::Mat& first, const cv::Mat& second)
{
    const cv::Mat prepared = shrink_and_turn(first);
    write_library("shrunk_and_turned", image_values(prepared));
    const described_frame one = describe(prepared, stitch_feature_finder);
    const described_frame other = describe(shrink_and_turn(second), stitch_feature_finder);
    std::vector<cv::Point2f> positions;
    cv::KeyPoint::convert(one.keypoints, positions);
    write_library("keypoints", point_values(positions));
    write_library("number_of_keypoints", {static_cast<double>(one.keypoints.size())});
    std::vector<cv::DMatch> matches;
    single_match(other.descriptors, one.descriptors, matches, 0.2f);
    write_library("number_of_matches", {static_cast<double>(matches.size())});

    const cv::Mat shifted = (cv::Mat_<double>(3, 3) << 1.0, 0.01, 100.5, -0.01, 1.0, 20.25, 1e-6, 0.0, 1.0);
    const auto merged = merge_frame(prepared, shrink_and_turn(second), shifted);
    write_library("composed", merged ? image_values(grow_in_new_storage(prepared, *merged)) : std::vector<double>());
}

}  // namespace

bool write_frames(const std::string& directory)
{
    const std::vector<cv::Mat>& frames = sample_video("parking_pan.mp4");
    bool written = !frames.empty();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        std::string name = directory + "/frame";
        name += std::to_string(1000 + i) + ".png";
        written = cv::imwrite(name, frames[i]) && written;
    }
    return written;
}

bool write_library_stages(const std::string& directory)
{
    const cv::Mat first = cv::imread(directory + "/frame1000.png");
    const cv::Mat next_but_one = cv::imread(directory + "/frame1002.png");
    const cv::Mat next_key_frame = cv::imread(directory + "/frame1011.png");
    if (first.empty() || next_but_one.empty() || next_key_frame.empty()) {
        return false;
    }
    write_live_stages(first, next_but_one);
    write_worker_stages(first, next_key_frame);
    return true;
}

}  // namespace tarn::test
