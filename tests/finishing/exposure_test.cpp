// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "finishing/exposure.h"
#include "support/rendered_sweep.h"

namespace {

using namespace tarn::finishing;

/// Drawings that show a plane side by side, each with its own brightness.
std::vector<small_drawing> drawings_of(const std::vector<double>& brightness)
{
    const cv::Mat& plane = tarn::test::textured_plane({1200, 400}, 3);
    std::vector<small_drawing> drawings;
    for (std::size_t k = 0; k < brightness.size(); ++k) {
        small_drawing drawing;
        drawing.index = static_cast<int>(k);
        drawing.place = cv::Rect(static_cast<int>(k) * 100 - 50, 20, 240, 180);
        drawing.image = plane(drawing.place + cv::Point(50, 0)) * 0.7 * brightness[k];
        drawing.mask = cv::Mat(drawing.place.size(), CV_8UC1, cv::Scalar(255));
        drawings.push_back(drawing);
    }
    return drawings;
}

const std::function<bool(stage, double)> silent;

TEST(FinishingExposure, OverlapsBecomeEquallyBright)
{
    const std::vector<double> brightness = {1.0, 0.8, 1.1, 0.9};
    const std::vector<small_drawing> drawings = drawings_of(brightness);
    const auto gains = balance_exposure(drawings, progress_meter(silent));
    ASSERT_EQ(gains.size(), drawings.size());
    for (std::size_t k = 1; k < drawings.size(); ++k) {
        EXPECT_NEAR(gains[k].mean() * brightness[k] / (gains[k - 1].mean() * brightness[k - 1]), 1.0, 0.03) << k;
    }
}

TEST(FinishingExposure, EqualFramesStayAsTheyAre)
{
    const auto gains = balance_exposure(drawings_of({1.0, 1.0, 1.0}), progress_meter(silent));
    for (const block_gains& own : gains) {
        EXPECT_NEAR(own.mean(), 1.0, 0.005);
    }
}

TEST(FinishingExposure, AFrameThatIsDarkerAtOneSideIsMendedThere)
{
    std::vector<small_drawing> drawings = drawings_of({1.0, 1.0, 1.0});
    cv::Mat& image = drawings[1].image;
    for (int x = 0; x < image.cols; ++x) {
        image.col(x) *= 1.0 - 0.3 * x / image.cols;
    }
    const auto gains = balance_exposure(drawings, progress_meter(silent));
    const cv::Mat grid = gains[1].grid;
    EXPECT_GT(cv::mean(grid.col(grid.cols - 2))[1] / cv::mean(grid.col(1))[1], 1.12);
}

TEST(FinishingExposure, WhatMovesHasLittleSay)
{
    std::vector<small_drawing> drawings = drawings_of({1.0, 1.0});
    drawings[1].image(cv::Rect(20, 20, 60, 120)).setTo(cv::Scalar(20, 20, 20));
    const auto gains = balance_exposure(drawings, progress_meter(silent));
    EXPECT_NEAR(gains[0].mean() / gains[1].mean(), 1.0, 0.12);
}

TEST(FinishingExposure, GainsHoldAtTheMiddlesOfTheirCells)
{
    block_gains gains;
    gains.grid = cv::Mat(1, 3, CV_32FC3, cv::Scalar::all(1.0));
    gains.grid.at<cv::Vec3f>(0, 2) = {2.0f, 2.0f, 2.0f};
    cv::Mat image(4, 96, CV_8UC3, cv::Scalar::all(100));
    apply_gains(gains, image, {0, 0}, 1.0);
    EXPECT_EQ(image.at<cv::Vec3b>(0, 20)[0], 100);
    EXPECT_EQ(image.at<cv::Vec3b>(0, 80)[0], 200);
    EXPECT_EQ(image.at<cv::Vec3b>(0, 64)[0], 150);
    EXPECT_EQ(image.at<cv::Vec3b>(3, 95)[0], 200);
    // An image of another resolution, that begins elsewhere.
    cv::Mat part(4, 10, CV_8UC3, cv::Scalar::all(100));
    apply_gains(gains, part, {80, 0}, 0.1);
    EXPECT_EQ(part.at<cv::Vec3b>(0, 0)[0], 200);
}

TEST(FinishingExposure, HighlightsThatAreBrightenedKeepTheirDetail)
{
    block_gains gains;
    gains.grid = cv::Mat(1, 1, CV_32FC3, cv::Scalar::all(1.6));
    cv::Mat image(1, 256, CV_8UC3);
    for (int value = 0; value < image.cols; ++value) {
        image.col(value).setTo(cv::Scalar::all(value));
    }
    apply_gains(gains, image, {0, 0}, 1.0);
    const auto shown = [&](int value) { return static_cast<int>(image.at<cv::Vec3b>(0, value)[0]); };
    EXPECT_EQ(shown(100), 160);
    EXPECT_EQ(shown(255), 255);
    EXPECT_LT(shown(240), 250);
    for (int value = 1; value < image.cols; ++value) {
        EXPECT_GE(shown(value), shown(value - 1)) << value;
        EXPECT_GE(shown(value), value);
    }
}

}  // namespace
