// SPDX-License-Identifier: Apache-2.0
//
// An image as packed 32-bit pixels.
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "reference/pixels.h"
#include "support/random_input.h"
#include "support/thread_count.h"
#include "tarn_stitch_jni.h"

namespace {

using tarn::test::guarded_image;
using tarn::test::random_input;

// The whole array, n + 2 ints.
std::vector<int> exported(const cv::Mat& image)
{
    const std::unique_ptr<int[]> pixels(matToBitmapArray(image));
    return std::vector<int>(pixels.get(), pixels.get() + image.total() + 2);
}

int word(unsigned value)
{
    return static_cast<int>(value);
}

TEST(PixelExport, EmptyImageYieldsTwoZeros)
{
    EXPECT_EQ(exported(cv::Mat()), (std::vector<int>{0, 0}));
    EXPECT_EQ(exported(cv::Mat(0, 0, CV_8UC3)), (std::vector<int>{0, 0}));
}

TEST(PixelExport, ImageWithoutRowsKeepsItsWidth)
{
    EXPECT_EQ(exported(cv::Mat(0, 5, CV_8UC3)), (std::vector<int>{5, 0}));
}

TEST(PixelExport, TwoRowsOfThreePixelsYieldSixPixelsThenThreeThenTwo)
{
    cv::Mat image(2, 3, CV_8UC3);
    for (int i = 0; i < 6; ++i) {
        image.at<cv::Vec3b>(i / 3, i % 3) = cv::Vec3b(static_cast<uchar>(i), 0, 0);
    }
    EXPECT_EQ(exported(image), (std::vector<int>{word(0xFF000000), word(0xFF000001), word(0xFF000002), word(0xFF000003),
                                                 word(0xFF000004), word(0xFF000005), 3, 2}));
}

TEST(PixelExport, Bytes10And20And30YieldFF1E140A)
{
    EXPECT_EQ(exported(cv::Mat(1, 1, CV_8UC3, cv::Scalar(10, 20, 30))), (std::vector<int>{word(0xFF1E140A), 1, 1}));
}

TEST(PixelExport, AlphaIs255ForBlackAndWhite)
{
    EXPECT_EQ(exported(cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(0)))[0], word(0xFF000000));
    EXPECT_EQ(exported(cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(255)))[0], word(0xFFFFFFFF));
}

TEST(PixelExport, RowsGoFromTopToBottomAndColumnsFromLeftToRight)
{
    cv::Mat image(2, 2, CV_8UC3);
    image.at<cv::Vec3b>(0, 0) = cv::Vec3b(1, 0, 0);
    image.at<cv::Vec3b>(0, 1) = cv::Vec3b(0, 2, 0);
    image.at<cv::Vec3b>(1, 0) = cv::Vec3b(0, 0, 3);
    image.at<cv::Vec3b>(1, 1) = cv::Vec3b(4, 0, 0);
    EXPECT_EQ(exported(image),
              (std::vector<int>{word(0xFF000001), word(0xFF000200), word(0xFF030000), word(0xFF000004), 2, 2}));
}

TEST(PixelExport, EqualsReferenceOnImagesAndViewsOfAllSmallSizes)
{
    random_input random;
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            const cv::Mat image = random.noise(cv::Size(width, height), CV_8UC3);
            const std::vector<int> expected = reference::matToBitmapArray(image);
            ASSERT_EQ(exported(image), expected) << width << " x " << height;
            guarded_image guarded(image, random);
            ASSERT_EQ(exported(guarded.view()), expected) << "a view, " << width << " x " << height;
            ASSERT_TRUE(guarded.guards_are_untouched());
        }
    }
}

TEST(PixelExport, EqualsReferenceOnLargeImagesWhateverTheNumberOfThreads)
{
    random_input random;
    for (const int threads : {1, 2}) {
        const tarn::test::thread_count used(threads);
        const cv::Mat image = random.noise(cv::Size(random.integer(900, 1300), random.integer(500, 700)), CV_8UC3);
        ASSERT_EQ(exported(image), reference::matToBitmapArray(image)) << image.size() << ", " << threads;
    }
}

TEST(PixelExport, ImageIsOnlyRead)
{
    random_input random;
    const cv::Mat image = random.noise(cv::Size(7, 5), CV_8UC3);
    const cv::Mat before = image.clone();
    exported(image);
    EXPECT_TRUE(tarn::test::same_pixels(before, image));
}

TEST(PixelExport, ImageOfAnotherTypeYieldsBlackPixelsAndIsNotReadBeyondItsEnd)
{
    for (const int type : {CV_8UC1, CV_8UC2, CV_8UC4, CV_16UC3, CV_32FC3}) {
        const std::vector<int> pixels = exported(cv::Mat(2, 3, type, cv::Scalar::all(77)));
        EXPECT_EQ(pixels, (std::vector<int>{word(0xFF000000), word(0xFF000000), word(0xFF000000), word(0xFF000000),
                                            word(0xFF000000), word(0xFF000000), 3, 2}))
            << "type " << type;
    }
}

TEST(PixelExport, EachCallYieldsAnArrayOfItsOwn)
{
    const cv::Mat image(1, 1, CV_8UC3, cv::Scalar::all(9));
    const std::unique_ptr<int[]> first(matToBitmapArray(image));
    const std::unique_ptr<int[]> second(matToBitmapArray(image));
    EXPECT_NE(first.get(), second.get());
}

}  // namespace
