// SPDX-License-Identifier: Apache-2.0
#include "library_tracking.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace tarn::test {

std::vector<cv::Point2f> library_corners(const cv::Mat& gray)
{
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(gray, corners, 80, 0.01, 10.0, cv::noArray(), 3, false, 0.04);
    return corners;
}

point_flow library_flow(const cv::Mat& reference, const cv::Mat& gray, const std::vector<cv::Point2f>& from)
{
    point_flow flow;
    std::vector<float> errors;
    cv::calcOpticalFlowPyrLK(reference, gray, from, flow.places, flow.found, errors, cv::Size(21, 21), 3,
                             cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01), 0, 0.0001);
    return flow;
}

}  // namespace tarn::test
