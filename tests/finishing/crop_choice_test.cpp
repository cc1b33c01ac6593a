// SPDX-License-Identifier: Apache-2.0
#include <random>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "finishing/crop_choice.h"
#include "support/stitcher_fixture.h"

namespace {

using namespace tarn::finishing;

/// By looking at all of them.
int largest_area(const cv::Mat& mask)
{
    cv::Mat sums;
    cv::integral(mask / 255, sums, CV_32S);
    int best = 0;
    for (int top = 0; top < mask.rows; ++top) {
        for (int left = 0; left < mask.cols; ++left) {
            for (int bottom = top + 1; bottom <= mask.rows; ++bottom) {
                for (int right = left + 1; right <= mask.cols; ++right) {
                    const int full = sums.at<int>(bottom, right) - sums.at<int>(top, right) - sums.at<int>(bottom, left)
                                     + sums.at<int>(top, left);
                    if (full == (bottom - top) * (right - left)) {
                        best = std::max(best, full);
                    }
                }
            }
        }
    }
    return best;
}

TEST(FinishingCrop, TheLargestFullRectangleIsAsLargeAsAnyAndFull)
{
    std::mt19937 random(3);
    const int rounds = tarn::test::scaled_count(60, 10);
    for (int round = 0; round < rounds; ++round) {
        cv::Mat mask(1 + static_cast<int>(random() % 12), 1 + static_cast<int>(random() % 14), CV_8UC1);
        const auto empty_of_ten = random() % 6;
        for (auto pixel = mask.begin<uchar>(); pixel != mask.end<uchar>(); ++pixel) {
            *pixel = random() % 10 < empty_of_ten ? 0 : 255;
        }
        const cv::Rect found = largest_full_rectangle(mask);
        EXPECT_EQ(found.area(), largest_area(mask));
        if (!found.empty()) {
            EXPECT_EQ(cv::countNonZero(mask(found)), found.area());
        }
    }
}

TEST(FinishingCrop, NothingIsFullInAnEmptyMask)
{
    EXPECT_TRUE(largest_full_rectangle(cv::Mat::zeros(5, 7, CV_8UC1)).empty());
    EXPECT_TRUE(largest_full_rectangle(cv::Mat()).empty());
}

TEST(FinishingCrop, AThinCornerIsGivenUp)
{
    cv::Mat mask(100, 300, CV_8UC1, cv::Scalar(255));
    cv::fillConvexPoly(mask, std::vector<cv::Point>{{0, 0}, {90, 0}, {0, 6}}, cv::Scalar(0));
    const cv::Rect full = largest_full_rectangle(mask);
    ASSERT_LT(full.area(), 100 * 300);
    const cv::Rect nearly = nearly_full_rectangle(mask, full);
    EXPECT_GT(nearly.area(), full.area());
    EXPECT_EQ(nearly & full, full);
    EXPECT_LE(nearly.area() - cv::countNonZero(mask(nearly)), 0.01 * nearly.area());
}

TEST(FinishingCrop, AWideGapIsNot)
{
    cv::Mat mask(100, 300, CV_8UC1, cv::Scalar(255));
    mask(cv::Rect(0, 0, 150, 50)) = 0;
    const cv::Rect full = largest_full_rectangle(mask);
    EXPECT_EQ(nearly_full_rectangle(mask, full), full);
}

TEST(FinishingCrop, SidesMoveInPastEmptyPixels)
{
    cv::Mat mask(40, 60, CV_8UC1, cv::Scalar(255));
    mask.at<uchar>(20, 0) = 0;
    mask.at<uchar>(39, 30) = 0;
    mask.at<uchar>(38, 31) = 0;
    EXPECT_EQ(sides_moved_in(mask), cv::Rect(1, 0, 59, 38));
}

}  // namespace
