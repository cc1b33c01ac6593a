// SPDX-License-Identifier: Apache-2.0
//
// Frames that no camera delivers, at the beginning, in the midst and at the end of a sweep.
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "support/live_fixture.h"
#include "support/plain_live_path.h"

namespace {

using namespace tarn::test;

/// Frames that no camera delivers, in the midst of a sweep.
class HostileFrame : public LiveRegistration {
protected:
    void SetUp() override
    {
        LiveRegistration::SetUp();
        ASSERT_EQ(hand_in(view(0, 0)), 1);
        ASSERT_EQ(hand_in(view(3, 0)), 1);
    }

    static int hand_in(const cv::Mat& bgr)
    {
        return videoStitch(tarn::test::host_frame_from(bgr), 0, 0)[0];
    }

    /// Hands it in, expects the sweep's state to be what it was, and that the sweep goes on.
    void expect_dropped(const cv::Mat& frame)
    {
        const plain_live_path before(tarn_stitcher);
        const int* const result = videoStitch(frame, 0, 0);
        EXPECT_EQ(result[0], 1);
        EXPECT_EQ(result[1], 0);
        EXPECT_EQ(before.differences(tarn_stitcher), "");
        expect_the_sweep_to_go_on();
    }

    void expect_the_sweep_to_go_on()
    {
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
        EXPECT_EQ(hand_in(view(5, 1)), 1);
        EXPECT_EQ(tarn_stitcher.failed_count, 0);
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    }
};

TEST_F(HostileFrame, WithoutPixels)
{
    expect_dropped(cv::Mat());
    expect_dropped(cv::Mat(0, 0, CV_8UC4));
    expect_dropped(cv::Mat(0, 100, CV_8UC4));
    expect_dropped(cv::Mat(100, 0, CV_8UC4));
}

TEST_F(HostileFrame, OfTwoOrFiveChannels)
{
    expect_dropped(cv::Mat(usual_size, CV_8UC2, cv::Scalar(1, 2)));
    expect_dropped(cv::Mat::zeros(usual_size, CV_8UC(5)));
}

TEST_F(HostileFrame, OfOneChannelIsRegisteredLikeAGrayScene)
{
    cv::Mat gray;
    cv::cvtColor(view(4, 0), gray, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(videoStitch(gray, 0, 0)[0], 1);
    EXPECT_NEAR(tarn_stitcher.last_move_distances.back(), 1.0f, 0.2f);
    expect_the_sweep_to_go_on();
}

TEST_F(HostileFrame, OfOtherDepths)
{
    for (const int depth : {CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F, CV_16F}) {
        const cv::Mat frame(usual_size, CV_MAKETYPE(depth, 4), cv::Scalar::all(1));
        const plain_live_path before(tarn_stitcher);
        EXPECT_EQ(videoStitch(frame, 0, 0)[1], 0) << depth;
        EXPECT_EQ(before.last_stitch_image.size(), tarn_stitcher.last_stitch_image.size());
        EXPECT_EQ(before.big_frame_index, tarn_stitcher.big_frame_index);
        EXPECT_EQ(tarn_stitcher.last_stitch_image.type(), CV_8UC3);
        expect_the_sweep_to_go_on();
    }
}

TEST_F(HostileFrame, WithoutAGrayImageIsRejectedBeforeAnythingIsTracked)
{
    for (const int type : {CV_8UC4, CV_8UC2}) {
        cv::Mat frame(usual_size, type, cv::Scalar::all(7));
        const int failures = tarn_stitcher.failed_count;
        EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, 0, 0)[0], 1);
        EXPECT_EQ(tarn_stitcher.failed_count, failures + 1);
        expect_the_sweep_to_go_on();
    }
}

TEST_F(HostileFrame, OfSixteenBitsWithAllDetail)
{
    cv::Mat frame;
    tarn::test::host_frame_from(view(4, 0)).convertTo(frame, CV_16U, 257.0);
    expect_dropped(frame);
}

/// What a camera sees, as floats; with numbers that are none, or too great, among them.
std::vector<cv::Mat> frames_of_floats()
{
    cv::Mat plain;
    tarn::test::host_frame_from(view(4, 0)).convertTo(plain, CV_32F, 1.0 / 255);
    std::vector<cv::Mat> frames = {plain};
    for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e30f}) {
        frames.push_back(plain.clone());
        frames.back().row(3).setTo(value);
    }
    return frames;
}

TEST_F(HostileFrame, OfFloats)
{
    for (const cv::Mat& frame : frames_of_floats()) {
        expect_dropped(frame);
    }
}

TEST_F(HostileFrame, OfFloatsAsTheLastOne)
{
    const int key_frames = tarn_stitcher.big_frame_index;
    for (const cv::Mat& frame : frames_of_floats()) {
        EXPECT_EQ(videoStitch(frame, 0, 1)[0], 1);
        EXPECT_EQ(tarn_stitcher.big_frame_index, key_frames);
        EXPECT_STREQ(getCurrentPanoramaShow(), "");
        expect_the_sweep_to_go_on();
    }
}

TEST_F(LiveRegistration, FirstFrameOfFloatsBeginsNoPanorama)
{
    for (const cv::Mat& frame : frames_of_floats()) {
        videoStitch(frame, 0, 0);
        EXPECT_EQ(tarn_stitcher.frame_index, 0);
        EXPECT_EQ(tarn_stitcher.big_frame_index, 0);
        EXPECT_TRUE(tarn_stitcher.last_stitch_image.empty());
    }
}

TEST_F(HostileFrame, OfOnePixel)
{
    const int failures = tarn_stitcher.failed_count;
    EXPECT_EQ(videoStitch(cv::Mat(1, 1, CV_8UC4, cv::Scalar(1, 2, 3, 4)), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.failed_count, failures + 1) << "no corners";
    expect_the_sweep_to_go_on();
}

TEST_F(HostileFrame, OfEverySmallSize)
{
    for (int rows = 1; rows <= 9; ++rows) {
        for (int cols = 1; cols <= 9; ++cols) {
            const cv::Mat frame = tarn::test::host_frame_from(view(0, 0, cv::Size(cols, rows)));
            EXPECT_EQ(videoStitch(frame, 0, 0)[1], 0);
            ASSERT_EQ(tarn_stitcher.stitcher_status, 3);
        }
    }
    expect_the_sweep_to_go_on();
}

TEST_F(HostileFrame, VeryWide)
{
    expect_dropped(cv::Mat(1, 100000, CV_8UC4, cv::Scalar::all(9)));  // a working copy without rows
    for (const cv::Size size : {cv::Size(20000, 10), cv::Size(5000, 100)}) {
        cv::Mat frame(size, CV_8UC4);
        cv::randu(frame, 0, 256);
        EXPECT_EQ(videoStitch(frame, 0, 0)[1], 0);
        expect_the_sweep_to_go_on();
    }
}

TEST_F(HostileFrame, VeryTall)
{
    for (const cv::Size size : {cv::Size(1, 100000), cv::Size(10, 20000), cv::Size(100, 5000)}) {
        cv::Mat frame(size, CV_8UC4);
        cv::randu(frame, 0, 256);
        EXPECT_EQ(videoStitch(frame, 0, 0)[1], 0);
        EXPECT_EQ(tarn_stitcher.last_stitch_image.size(), usual_size);
        expect_the_sweep_to_go_on();
    }
}

TEST_F(HostileFrame, OfAnotherSizeInMidSweepIsDropped)
{
    for (const cv::Size size : {cv::Size(180, 240), cv::Size(241, 180), cv::Size(600, 400), cv::Size(120, 90)}) {
        const plain_live_path before(tarn_stitcher);
        EXPECT_EQ(hand_in(view(3, 0, size)), 1);
        EXPECT_EQ(tarn_stitcher.failed_count, before.failed_count);
        EXPECT_EQ(tarn_stitcher.frame_index, before.frame_index + 1);
        EXPECT_EQ(tarn_stitcher.last_frame.size(), size);
        EXPECT_EQ(tarn_stitcher.last_check_data.scaled_gray_frame.size(), usual_size);
        EXPECT_EQ(tarn_stitcher.big_frame_index, before.big_frame_index);
        expect_the_sweep_to_go_on();
    }
    EXPECT_NE(take_output().find("encounter an error"), std::string::npos);
}

TEST_F(HostileFrame, OfAnotherSizeWithAWorkingCopyOfTheSameIsRegistered)
{
    resetStitch(directory().c_str());
    ASSERT_EQ(hand_in(view(0, 0, cv::Size(300, 200))), 1);
    cv::Mat doubled;
    cv::resize(view(3, 0, cv::Size(300, 200)), doubled, cv::Size(600, 400));
    EXPECT_EQ(hand_in(doubled), 1);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    EXPECT_NEAR(tarn_stitcher.last_move_distances.back(), 3.0f, 0.3f);
}

TEST_F(HostileFrame, ThatIsAViewOfALargerImageIsReadWithinItsBounds)
{
    const cv::Mat rgba = tarn::test::host_frame_from(view(4, 0));
    for (const int fill : {0, 255}) {
        cv::Mat around(usual_size.height + 14, usual_size.width + 26, CV_8UC4, cv::Scalar::all(fill));
        cv::Mat inside = around(cv::Rect(cv::Point(13, 7), usual_size));
        rgba.copyTo(inside);
        ASSERT_FALSE(inside.isContinuous());
        const cv::Mat copy = around.clone();
        plain_live_path expected(tarn_stitcher);
        EXPECT_EQ(videoStitch(inside, 0, 0)[0], expected.feed(view(4, 0), 0));
        EXPECT_EQ(expected.differences(tarn_stitcher), "");
        EXPECT_EQ(cv::norm(around, copy, cv::NORM_INF), 0.0);
    }
}

TEST_F(HostileFrame, OfNoise)
{
    cv::RNG random(7);
    for (int i = 0; i < 15; ++i) {
        cv::Mat frame(usual_size, CV_8UC4);
        random.fill(frame, cv::RNG::UNIFORM, 0, 256);
        EXPECT_EQ(videoStitch(frame, 0, 0)[1], 0);
        ASSERT_EQ(tarn_stitcher.stitcher_status, 3);
    }
}

TEST_F(HostileFrame, AsTheFirstOfASweepAndAsItsLast)
{
    release_workers();
    std::vector<cv::Mat> frames = {cv::Mat(),
                                   cv::Mat(1, 1, CV_8UC4, cv::Scalar::all(1)),
                                   cv::Mat(1, 100000, CV_8UC4, cv::Scalar::all(9)),
                                   cv::Mat(5000, 1, CV_8UC4, cv::Scalar::all(9)),
                                   cv::Mat(usual_size, CV_16UC4, cv::Scalar::all(9)),
                                   cv::Mat(usual_size, CV_32FC4, cv::Scalar::all(0.5)),
                                   cv::Mat(usual_size, CV_8UC1, cv::Scalar::all(9)),
                                   tarn::test::blank_host_frame(usual_size)};
    for (const int depth : {CV_16U, CV_32F}) {
        frames.emplace_back();
        tarn::test::host_frame_from(view(0, 0)).convertTo(frames.back(), depth);
    }
    for (const cv::Mat& frame : frames) {
        for (const int is_last_one : {0, 1}) {
            resetStitch(directory().c_str());
            EXPECT_EQ(videoStitch(frame, 0, is_last_one)[1], 0);
            EXPECT_NE(tarn_stitcher.stitcher_status, 1);
            EXPECT_EQ(videoStitch(tarn::test::host_frame_from(view(0, 0)), 0, 0)[1], 0);
            EXPECT_NE(tarn_stitcher.stitcher_status, 1);
            getCurrentPanoramsShowMat();
            delete[] nativeCarrier_getCurrentPanoramaShow();
            resetStitch(directory().c_str());
            EXPECT_EQ(hand_in(view(0, 0)), 1);
        }
    }
}

}  // namespace
