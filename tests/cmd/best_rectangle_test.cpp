// SPDX-License-Identifier: Apache-2.0
//
// The largest rectangle without empty pixels, beside a search through all rectangles.
#include <random>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "best_rectangle.h"

using tarn::host::largest_full_rectangle;

namespace {

const cv::Vec3b empty(0, 0, 0);

bool is_full(const cv::Mat& image, const cv::Rect& part)
{
    for (int y = part.y; y < part.br().y; ++y) {
        for (int x = part.x; x < part.br().x; ++x) {
            if (image.at<cv::Vec3b>(y, x) == empty) {
                return false;
            }
        }
    }
    return true;
}

/// Tries every rectangle; of equals the one whose last row is the topmost, then the leftmost.
cv::Rect by_search(const cv::Mat& image)
{
    cv::Rect best;
    for (int bottom = 1; bottom <= image.rows; ++bottom) {
        for (int left = 0; left < image.cols; ++left) {
            for (int top = 0; top < bottom; ++top) {
                for (int right = left + 1; right <= image.cols; ++right) {
                    const cv::Rect part(left, top, right - left, bottom - top);
                    if (part.area() > best.area() && is_full(image, part)) {
                        best = part;
                    }
                }
            }
        }
    }
    return best;
}

}  // namespace

TEST(BestRectangle, IsTheOneThatASearchFinds)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 600; ++round) {
        cv::Mat image(1 + static_cast<int>(random() % 7), 1 + static_cast<int>(random() % 8), CV_8UC3,
                      cv::Scalar::all(9));
        const auto share = 1 + random() % 6;
        for (int y = 0; y < image.rows; ++y) {
            for (int x = 0; x < image.cols; ++x) {
                if (random() % share == 0) {
                    image.at<cv::Vec3b>(y, x) = empty;
                }
            }
        }
        const cv::Rect found = largest_full_rectangle(image);
        const cv::Rect expected = by_search(image);
        // Rectangles as large with the same last row and left column differ in shape only if they are of one area.
        EXPECT_EQ(found.area(), expected.area()) << round;
        EXPECT_TRUE(is_full(image, found)) << round;
        if (!expected.empty()) {
            EXPECT_EQ(found.br().y, expected.br().y) << round;
            EXPECT_EQ(found.x, expected.x) << round;
        }
    }
}

TEST(BestRectangle, PixelWithOneByteThatIsNotZeroIsFull)
{
    for (int channel = 0; channel < 3; ++channel) {
        cv::Mat image(2, 3, CV_8UC3, cv::Scalar::all(0));
        image.at<cv::Vec3b>(1, 2)[channel] = 1;
        EXPECT_EQ(largest_full_rectangle(image), cv::Rect(2, 1, 1, 1));
    }
}

TEST(BestRectangle, EmptyAndFullImages)
{
    EXPECT_TRUE(largest_full_rectangle(cv::Mat()).empty());
    EXPECT_TRUE(largest_full_rectangle(cv::Mat(3, 4, CV_8UC3, cv::Scalar::all(0))).empty());
    EXPECT_EQ(largest_full_rectangle(cv::Mat(3, 4, CV_8UC3, cv::Scalar::all(1))), cv::Rect(0, 0, 4, 3));
}

TEST(BestRectangle, PartOfALargerImageIsReadRowByRow)
{
    cv::Mat large(20, 30, CV_8UC3, cv::Scalar::all(7));
    cv::Mat part = large(cv::Rect(5, 5, 10, 8));
    cv::rectangle(part, cv::Rect(0, 0, 10, 2), cv::Scalar::all(0), cv::FILLED);
    EXPECT_EQ(largest_full_rectangle(part), cv::Rect(0, 2, 10, 6));
}

TEST(BestRectangle, PanoramaOfTensOfMegapixelsTakesOnePass)
{
    // A tilted band, whose best rectangle a search could not find in a lifetime.
    cv::Mat image(4000, 10000, CV_8UC3, cv::Scalar::all(0));
    for (int y = 0; y < image.rows; ++y) {
        const int left = y / 4;
        image.row(y).colRange(left, left + 9000).setTo(cv::Scalar::all(1));
    }
    // Of height h the widest has 9000 - (h - 1) / 4 columns, so the whole height is best.
    const cv::Rect found = largest_full_rectangle(image);
    EXPECT_EQ(found, cv::Rect(3999 / 4, 0, 9000 - 3999 / 4, 4000));
}
