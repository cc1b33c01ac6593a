// SPDX-License-Identifier: Apache-2.0
//
// The routines of OpenCV's that are made again against the OpenCV at hand: whether this version is one that they equal.
// exact_shrink_test.cpp, live_tracking_test.cpp and exact_coverage_test.cpp look closely.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core/version.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"

namespace {

const std::string differs =
    "OpenCV " CV_VERSION " gives other results than the versions that the library's own routine equals: ";

cv::Mat view(int i, cv::Size size)
{
    return tarn::test::textured_plane(cv::Size(1024, 1024))(cv::Rect(cv::Point(11 * i, 7 * i), size)).clone();
}

TEST(ExactRoutines, ShrinkEqualsResize)
{
    for (int i = 0; i < 20; ++i) {
        const cv::Mat image = view(i, cv::Size(310 + 20 * i, 240 + 13 * i));
        const float scale = 300.0f / static_cast<float>(image.cols);
        cv::Mat expected;
        cv::Mat actual;
        cv::resize(image, expected, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
        tarn::shrink(image, actual, scale);
        ASSERT_TRUE(tarn::test::same_pixels(expected, actual)) << differs << "cv::resize with INTER_LINEAR_EXACT";
    }
}

TEST(ExactRoutines, CornersEqualGoodFeaturesToTrack)
{
    for (int i = 0; i < 20; ++i) {
        cv::Mat gray;
        cv::cvtColor(view(i, cv::Size(300, 200)), gray, cv::COLOR_BGR2GRAY);
        std::vector<cv::Point2f> expected;
        cv::goodFeaturesToTrack(gray, expected, 80, 0.01, 10.0, cv::noArray(), 3, false, 0.04);
        ASSERT_EQ(expected, tarn::find_corners(gray)) << differs << "cv::goodFeaturesToTrack";
    }
}

TEST(ExactRoutines, CoverageEqualsFillPoly)
{
    cv::RNG random(5);
    for (int i = 0; i < 200; ++i) {
        // Far above the image, so that the routine's own way is taken.
        std::vector<cv::Point> polygon = {{random.uniform(-300, 600), -(1 << 17) - random.uniform(0, 1000)}};
        for (int corner = 0; corner < 3; ++corner) {
            polygon.emplace_back(random.uniform(-300, 600), random.uniform(-200, 400));
        }
        cv::Mat mask(180, 240, CV_8UC1, cv::Scalar());
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{polygon}, cv::Scalar(1));
        ASSERT_EQ(tarn::polygon_coverage(mask.size(), polygon), cv::countNonZero(mask)) << differs << "cv::fillPoly";
    }
}

}  // namespace
