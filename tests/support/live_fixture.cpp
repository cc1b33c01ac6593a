// SPDX-License-Identifier: Apache-2.0
#include "live_fixture.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

namespace tarn::test {

cv::Mat view(int x, int y, cv::Size size)
{
    const cv::Mat& plane = textured_plane(cv::Size(1024, 1024));
    return plane(cv::Rect(cv::Point(300 + x, 300 + y), size)).clone();
}

cv::Point step(int direction, int length)
{
    switch (direction) {
    case moving_down:
        return {0, length};
    case moving_up:
        return {0, -length};
    case moving_right:
        return {length, 0};
    default:
        return {-length, 0};
    }
}

cv::Mat view(cv::Point at, cv::Size size)
{
    return view(at.x, at.y, size);
}

cv::Mat blank(cv::Size size)
{
    return {size, CV_8UC3, cv::Scalar(120, 130, 140)};
}

cv::Mat dots(int count, cv::Point shift)
{
    cv::Mat gray(220, 300, CV_8UC1, cv::Scalar(40));
    for (int i = 0; i < count; ++i) {
        const int place = i * 37 % 77;  // every place once, far from the one before
        const cv::Point centre = cv::Point(26 + place % 11 * 24, 34 + place / 11 * 25) + shift;
        const double height = 130 + i * 7 % 60;
        for (int y = -7; y <= 7; ++y) {
            for (int x = -7; x <= 7; ++x)
                gray.at<uchar>(centre.y + y, centre.x + x) =
                    cv::saturate_cast<uchar>(40 + height * std::exp(-(x * x + y * y) / 4.5));
        }
    }
    cv::Mat frame;
    cv::cvtColor(gray, frame, cv::COLOR_GRAY2BGR);
    return frame;
}

cv::Mat matrix(const cv::Matx33d& values)
{
    return cv::Mat(values).clone();
}

cv::Mat moved_by(double x, double y)
{
    return matrix(translation(x, y));
}

cv::Mat leaning(double k)
{
    return matrix({1, k, 0, 0, 1, 0, 0, 0, 1});
}

}  // namespace tarn::test
