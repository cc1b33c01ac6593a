// SPDX-License-Identifier: Apache-2.0
//
// Full-size images that are used again, and those that must not be: whoever holds one keeps its pixels.
#include <vector>

#include <gtest/gtest.h>

#include "support/live_fixture.h"

namespace {

using namespace tarn::test;

class SpareFrames : public LiveRegistration {
protected:
    static int hand_in(int x, cv::Size size = usual_size)
    {
        return videoStitch(tarn::test::host_frame_from(view(x, 0, size)), 0, 0)[0];
    }
};

TEST_F(SpareFrames, ImageOfTheFrameBeforeTheLastIsUsedAgain)
{
    ASSERT_EQ(hand_in(0), 1);
    release_workers();
    ASSERT_TRUE(wait_for_workers());
    hand_in(1);
    const uchar* const second = tarn_stitcher.last_frame.data;
    hand_in(2);
    EXPECT_NE(tarn_stitcher.last_frame.data, second);
    hand_in(3);
    EXPECT_EQ(tarn_stitcher.last_frame.data, second);
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_frame, view(3, 0)));
}

TEST_F(SpareFrames, FramesThatAnyoneHoldsAreNeverWritten)
{
    std::vector<cv::Mat> held;
    for (int x = 0; x < 12; ++x) {
        hand_in(x);
        held.push_back(x % 3 == 2 ? tarn_stitcher.last_frame(cv::Rect(5, 5, 50, 50)) : tarn_stitcher.last_frame);
    }
    for (int x = 0; x < 12; ++x) {
        const cv::Mat frame = view(x, 0);
        EXPECT_TRUE(same_pixels(held[static_cast<std::size_t>(x)], x % 3 == 2 ? frame(cv::Rect(5, 5, 50, 50)) : frame))
            << x;
    }
}

TEST_F(SpareFrames, FrameOfAHeldWorkerStaysWhatItWas)
{
    ASSERT_EQ(hand_in(0), 1);  // its worker is held at its start
    const cv::Mat first = tarn_stitcher.last_frame;
    const uchar* const pixels = first.data;
    for (int x = 1; x < 8; ++x) {
        hand_in(x);
        EXPECT_NE(tarn_stitcher.last_frame.data, pixels);
    }
    EXPECT_TRUE(same_pixels(first, view(0, 0)));
}

TEST_F(SpareFrames, SizesMayChangeFromFrameToFrame)
{
    for (int i = 0; i < 12; ++i) {
        const cv::Size size = i % 3 == 0 ? cv::Size(300, 200) : cv::Size(240, 180 + i % 2);
        hand_in(i, size);
        EXPECT_TRUE(same_pixels(tarn_stitcher.last_frame, view(i, 0, size))) << i;
    }
}

TEST_F(SpareFrames, RejectedFrameLeavesTheLastOnesPixels)
{
    ASSERT_EQ(hand_in(0), 1);
    hand_in(1);
    const cv::Mat copy = tarn_stitcher.last_frame.clone();
    for (int i = 0; i < 5; ++i) {
        videoStitch(tarn::test::blank_host_frame(usual_size), 0, 0);
        EXPECT_TRUE(same_pixels(tarn_stitcher.last_frame, copy));
    }
}

TEST_F(SpareFrames, NewTaskLetsGoOfThem)
{
    hand_in(0);
    const cv::Mat frame = tarn_stitcher.last_frame;
    release_workers();
    ASSERT_TRUE(wait_for_workers());
    EXPECT_GT(frame.u->refcount, 2);  // this header, the task's, the spare one
    resetStitch(directory().c_str());
    EXPECT_EQ(frame.u->refcount, 1);
}

}  // namespace
