// SPDX-License-Identifier: Apache-2.0
//
// What the live path gives its workers: which frame, which shape, which direction.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/live_fixture.h"
#include "support/plain_live_path.h"

namespace {

using namespace tarn::test;

/// Workers run here.
class HandOff : public stitcher_fixture {
protected:
    static int feed(cv::Mat frame, int direction = no_direction, int is_last_one = 0)
    {
        return tarn_stitcher.ofcheck_stitch(frame, direction, is_last_one)[0];
    }

    static cv::Mat turned(const cv::Mat& frame)
    {
        cv::Mat result;
        cv::rotate(frame, result, cv::ROTATE_90_CLOCKWISE);
        return result;
    }

    static cv::Mat bent(const cv::Mat& frame, float angle)
    {
        cv::Mat image = turned(frame);
        cylindrical_projection(image, image, angle);
        return image;
    }

    /// Whether a worker's frame file holds that image.
    bool file_holds(int big_frame_index, const cv::Mat& image) const
    {
        std::vector<uchar> expected;
        cv::imencode(".jpg", image, expected);
        std::ifstream file(directory() + "big_frame" + std::to_string(big_frame_index) + ".jpg", std::ios::binary);
        const std::vector<uchar> found((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        return found == expected;
    }

    /// A base frame against which a keystone of some 3 degrees is measured, without much change of scale, moved
    /// so far that the overlap is about `overlap`.
    static cv::Mat keystone(double shift)
    {
        return matrix(tarn::test::translation(0, -shift) * cv::Matx33d(1.06, 0, 0, 0, 1.06, 0, 0, 0, 1)
                      * cv::Matx33d(1, 0, 0, 0, 1, 0, 0, 0.0005, 1));
    }
};

TEST_F(HandOff, FirstFrameGoesWithTheAnglesAndScalesOfTheTask)
{
    const cv::Mat frame = view(0, 0);
    tarn_stitcher.last_angles = {95.0f, 88.0f, 86.0f, 96.0f};  // left side: 5.5; right side: 3
    ASSERT_EQ(feed(frame), 1);
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_TRUE(same_pixels(big_stitch_image, bent(frame, 5.5f)));
    EXPECT_TRUE(file_holds(1, bent(frame, 5.5f)));

    resetStitch(directory().c_str());
    tarn_stitcher.last_angles = {95.0f, 88.0f, 86.0f, 96.0f};
    tarn_stitcher.last_scales = {1.0f, 0.9f, 0.9f, 0.9f};  // too small on the whole to be bent
    ASSERT_EQ(feed(frame), 1);
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_TRUE(same_pixels(big_stitch_image, turned(frame)));
}

TEST_F(HandOff, FirstFrameGoesWithTheHostsDirection)
{
    for (const int hint : {moving_up, moving_down}) {
        resetStitch(directory().c_str());
        // As if a worker had made the base already: with the index 2 and the direction 2 the sphere is chosen.
        big_stitch_image = turned(view(0, 0));
        big_frame_num = 1;
        big_stitch_status = 3;
        tarn_stitcher.big_frame_index = 1;
        tarn_stitcher.last_angles = {93.0f, 93.0f, 87.0f, 87.0f};
        ASSERT_EQ(feed(view(0, 0), hint), 1);
        ASSERT_TRUE(wait_for_turns(2));
        EXPECT_EQ(SP, hint == moving_up);
    }
}

TEST_F(HandOff, KeyFrameGoesWithItsOwnShape)
{
    ASSERT_EQ(feed(view(0, 0)), 1);
    tarn_stitcher.last_angles = {120.0f, 120.0f, 120.0f, 120.0f};
    tarn_stitcher.last_scales = {0.5f, 0.5f, 0.5f, 0.5f};
    // A keystone to the side: the left edge is the longer one, its angles are below 90 degrees.
    const std::vector<cv::Point2f> from = {{0, 0}, {240, 0}, {240, 180}, {0, 180}};
    const std::vector<cv::Point2f> to = {{100, -14}, {340, 0}, {340, 180}, {100, 194}};
    tarn_stitcher.last_check_data.base_homo = cv::getPerspectiveTransform(from, to);
    const cv::Mat frame = view(4, 0);
    feed(frame);
    ASSERT_EQ(tarn_stitcher.big_frame_index, 2);
    ASSERT_TRUE(wait_for_turns(2));
    const auto& angles = tarn_stitcher.last_angles;
    const float left = std::fabs(90.0f - (angles[0] + angles[3]) / 2.0f);
    const float right = std::fabs(90.0f - (angles[1] + angles[2]) / 2.0f);
    EXPECT_NEAR(left, std::atan2(14, 240) * 180 / CV_PI, 0.2);
    EXPECT_TRUE(file_holds(2, bent(frame, std::max(left, right))));
}

TEST_F(HandOff, KeyFrameOfLittleOverlapGoesWithItsDirectionOfMotion)
{
    for (const int motion : {moving_up, moving_down}) {
        resetStitch(directory().c_str());
        ASSERT_EQ(feed(view(0, 0)), 1);
        tarn_stitcher.last_direction = motion == moving_up ? moving_down : moving_up;
        tarn_stitcher.last_check_data.base_homo = keystone(60);
        feed(view(step(motion, 4)));
        ASSERT_EQ(tarn_stitcher.big_frame_index, 2);
        ASSERT_TRUE(wait_for_turns(2));
        EXPECT_EQ(SP, motion == moving_up);
    }
}

TEST_F(HandOff, KeyFrameOfAChangeOfDirectionGoesWithTheDirectionBefore)
{
    for (const int before : {moving_up, moving_down}) {
        const int motion = before == moving_up ? moving_down : moving_up;
        resetStitch(directory().c_str());
        ASSERT_EQ(feed(view(0, 0)), 1);
        tarn_stitcher.last_direction = before;
        tarn_stitcher.last_check_data.base_homo = keystone(14);
        const cv::Mat frame = view(step(motion, 4));
        plain_live_path steps(tarn_stitcher);
        steps.feed(frame, no_direction);
        ASSERT_GT(steps.iou, 0.7f);
        ASSERT_LT(steps.iou, 0.9f);
        ASSERT_EQ(steps.hand_offs.size(), 1U);
        feed(frame);
        ASSERT_EQ(tarn_stitcher.big_frame_index, 2);
        ASSERT_TRUE(wait_for_turns(2));
        EXPECT_EQ(SP, before == moving_up);
        EXPECT_EQ(tarn_stitcher.last_direction, motion);
    }
}

TEST_F(HandOff, KeyFrameOfEitherRuleIsTheCurrentFrame)
{
    for (const float limit : {0.0f, 2.0f}) {
        resetStitch(directory().c_str());
        ASSERT_EQ(feed(view(0, 0)), 1);
        tarn_stitcher.iou_thresh = limit;
        tarn_stitcher.last_direction = moving_up;
        tarn_stitcher.last_check_data.base_homo = moved_by(40.5, 0);
        const cv::Mat frame = view(4, 0);
        ASSERT_EQ(feed(frame), 1);
        ASSERT_EQ(tarn_stitcher.big_frame_index, 2);
        ASSERT_TRUE(wait_for_turns(2));
        EXPECT_TRUE(file_holds(2, turned(frame)));
    }
}

TEST_F(HandOff, LastFrameGoesWithTheLastShapeAndTheHostsDirection)
{
    ASSERT_EQ(feed(view(0, 0)), 1);
    tarn_stitcher.last_angles = {95.0f, 88.0f, 86.0f, 96.0f};
    const cv::Mat frame = view(10, 0);
    feed(frame, no_direction, 1);
    ASSERT_TRUE(wait_for_turns(2));
    EXPECT_TRUE(file_holds(2, bent(frame, 5.5f)));

    for (const int hint : {moving_up, moving_down}) {
        resetStitch(directory().c_str());
        ASSERT_EQ(feed(view(0, 0)), 1);
        tarn_stitcher.last_angles = {93.0f, 93.0f, 87.0f, 87.0f};
        tarn_stitcher.last_direction = tarn::test::opposite_direction(hint);
        feed(view(10, 0), hint, 1);
        ASSERT_TRUE(wait_for_turns(2));
        EXPECT_EQ(SP, hint == moving_up);
    }
}

TEST_F(HandOff, HostMayReuseItsPixelsAtOnce)
{
    cv::Mat host = tarn::test::host_frame_from(view(0, 0));
    hold_workers();
    videoStitch(host, 0, 0);
    host = cv::Scalar::all(0);
    release_workers();
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_TRUE(same_pixels(big_stitch_image, turned(view(0, 0))));
}

TEST_F(HandOff, WorkersOfSquareFramesLeaveTheLivePathsPixels)
{
    const cv::Size square(200, 200);
    const cv::Mat frame = view(0, 0, square);
    ASSERT_EQ(feed(frame), 1);
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_frame, view(0, 0, square)));
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, view(0, 0, square)));
    EXPECT_TRUE(same_pixels(big_stitch_image, turned(view(0, 0, square))));
}

}  // namespace
