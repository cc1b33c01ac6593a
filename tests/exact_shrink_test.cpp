// SPDX-License-Identifier: Apache-2.0
//
// Shrinking a frame: OpenCV's own result to the last byte, whatever the sizes.
#include <cstddef>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"
#include "support/random_input.h"
#include "support/stitcher_fixture.h"
#include "support/thread_count.h"

namespace {

using tarn::test::random_input;

constexpr int working_width = 300;  // px

cv::Mat library_result(const cv::Mat& image, float scale)
{
    cv::Mat shrunk;
    cv::resize(image, shrunk, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
    return shrunk;
}

::testing::AssertionResult agrees_with_library(const cv::Mat& image, float scale)
{
    const cv::Mat expected = library_result(image, scale);
    cv::Mat shrunk;
    tarn::shrink(image, shrunk, scale);
    if (shrunk.size() != expected.size() || shrunk.type() != expected.type())
        return ::testing::AssertionFailure() << "other size or type";
    const double difference = cv::norm(expected, shrunk, cv::NORM_INF);
    if (difference != 0.0)
        return ::testing::AssertionFailure() << "a byte differs by " << difference;
    return ::testing::AssertionSuccess();
}

float working_scale(int width)
{
    return static_cast<float>(working_width) / static_cast<float>(width);
}

TEST(Shrink, AgreesWithTheLibraryForEveryWidth)
{
    random_input random;
    for (int width = working_width + 1; width < 1300; ++width) {
        const cv::Mat image = random.noise(cv::Size(width, random.integer(7, 40)), CV_8UC3);
        ASSERT_TRUE(agrees_with_library(image, working_scale(width))) << image.size();
    }
}

TEST(Shrink, AgreesWithTheLibraryForTheSizesOfCameras)
{
    random_input random;
    for (const cv::Size size :
         {cv::Size(320, 240), cv::Size(480, 640), cv::Size(640, 480), cv::Size(720, 1280), cv::Size(854, 480),
          cv::Size(1080, 1920), cv::Size(1280, 720), cv::Size(1440, 1080), cv::Size(1920, 1080), cv::Size(2160, 3840),
          cv::Size(3840, 2160), cv::Size(4000, 3000)}) {
        const cv::Mat image = random.noise(size, CV_8UC3);
        for (const int threads : {1, 2, 3}) {
            const tarn::test::thread_count only(threads);
            ASSERT_TRUE(agrees_with_library(image, working_scale(size.width))) << size;
        }
    }
}

TEST(Shrink, AgreesWithTheLibraryForAnySizeAndScale)
{
    random_input random;
    for (int i = 0; i < tarn::test::scaled_count(1500, 200); ++i) {
        const cv::Size size(random.integer(1, 90), random.integer(1, 90));
        const float scale = random.real(0.02f, random.one_in(4) ? 2.0f : 1.0f);
        if (cvRound(static_cast<double>(size.width) * static_cast<double>(scale)) == 0
            || cvRound(static_cast<double>(size.height) * static_cast<double>(scale)) == 0)
            continue;
        ASSERT_TRUE(agrees_with_library(random.noise(size, CV_8UC3), scale)) << size << " by " << scale;
    }
}

// The library averages blocks of four there, and rounds a block that the border cuts to the even.
TEST(Shrink, AgreesWithTheLibraryAtExactlyAHalf)
{
    random_input random;
    for (int height = 1; height < 40; ++height) {
        if (cvRound(height * 0.5) == 0)
            continue;
        for (const int width : {600, 601, 23, 24, 25})
            ASSERT_TRUE(agrees_with_library(random.noise(cv::Size(width, height), CV_8UC3), 0.5f))
                << width << " x " << height;
    }
}

TEST(Shrink, AgreesWithTheLibraryAtTheEndsOfTheRangeOfBytes)
{
    for (const int value : {0, 1, 127, 128, 254, 255}) {
        const cv::Mat image(1083, 1917, CV_8UC3, cv::Scalar::all(value));
        ASSERT_TRUE(agrees_with_library(image, working_scale(image.cols))) << value;
    }
    cv::Mat checkered(301, 977, CV_8UC3, cv::Scalar::all(0));
    for (int y = 0; y < checkered.rows; ++y) {
        for (int x = y % 2; x < checkered.cols; x += 2)
            checkered.at<cv::Vec3b>(y, x) = cv::Vec3b::all(255);
    }
    EXPECT_TRUE(agrees_with_library(checkered, working_scale(checkered.cols)));
}

TEST(Shrink, LeavesOtherTypesToTheLibrary)
{
    random_input random;
    for (const int type : {CV_8UC1, CV_8UC2, CV_8UC4, CV_16UC3, CV_16SC3})
        EXPECT_TRUE(agrees_with_library(random.noise(cv::Size(640, 48), type), working_scale(640))) << type;
}

TEST(Shrink, ReadsAViewAsAnImageOfItsOwn)
{
    random_input random;
    for (int i = 0; i < 20; ++i) {
        const cv::Mat around = random.noise(cv::Size(700, 90), CV_8UC3);
        const cv::Size size(random.integer(301, 600), random.integer(20, 80));
        cv::Mat view = around(cv::Rect(cv::Point(random.integer(0, 100), random.integer(0, 10)), size));
        cv::Mat of_view;
        tarn::shrink(view, of_view, working_scale(size.width));
        ASSERT_EQ(cv::norm(of_view, library_result(view.clone(), working_scale(size.width)), cv::NORM_INF), 0.0)
            << size;
    }
}

/// Memory whose last byte is followed by a page that nobody may touch.
class guarded_end {
public:
    guarded_end()
    {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_ = 32 * page;
        begin_ = mmap(nullptr, size_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (begin_ == MAP_FAILED || mprotect(end(), page, PROT_NONE) != 0)
            throw std::bad_alloc();
    }

    ~guarded_end()
    {
        munmap(begin_, size_ + static_cast<size_t>(sysconf(_SC_PAGESIZE)));
    }

    guarded_end(const guarded_end&) = delete;
    guarded_end& operator=(const guarded_end&) = delete;

    /// An image that ends where the memory does.
    cv::Mat image(cv::Size size)
    {
        return {size, CV_8UC3, end() - static_cast<std::ptrdiff_t>(size.area()) * 3};
    }

private:
    uchar* end() const
    {
        return static_cast<uchar*>(begin_) + size_;
    }

    void* begin_;
    size_t size_;
};

TEST(Shrink, NeitherReadsNorWritesBehindTheLastPixel)
{
    random_input random;
    guarded_end source_memory;
    guarded_end target_memory;
    for (int i = 0; i < tarn::test::scaled_count(2000, 200); ++i) {
        const cv::Size size(random.integer(1, 700), random.integer(1, 50));
        const float scale = random.real(0.3f, 0.99f);
        cv::Mat image = source_memory.image(size);
        random.noise(size, CV_8UC3).copyTo(image);
        const cv::Size target(cvRound(size.width * static_cast<double>(scale)),
                              cvRound(size.height * static_cast<double>(scale)));
        if (target.empty())
            continue;
        cv::Mat shrunk = target_memory.image(target);
        tarn::shrink(image, shrunk, scale);
        ASSERT_EQ(cv::norm(shrunk, library_result(image, scale), cv::NORM_INF), 0.0) << size << " by " << scale;
    }
}

TEST(Shrink, RaisesWhereTheLibraryDoes)
{
    cv::Mat shrunk;
    EXPECT_THROW(tarn::shrink(cv::Mat(), shrunk, 0.5f), cv::Exception);
    EXPECT_THROW(tarn::shrink(cv::Mat(1, 3000, CV_8UC3, cv::Scalar()), shrunk, working_scale(3000)), cv::Exception);
    EXPECT_THROW(tarn::shrink(cv::Mat(4, 400, CV_8UC3, cv::Scalar()), shrunk, 0.0f), cv::Exception);
    EXPECT_THROW(tarn::shrink(cv::Mat(4, 400, CV_32SC3, cv::Scalar()), shrunk, 0.5f), cv::Exception);
}

}  // namespace
