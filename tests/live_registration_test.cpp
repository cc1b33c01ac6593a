// SPDX-License-Identifier: Apache-2.0
//
// The live path, step by step: intake and tracking, what becomes of the task when a frame is rejected or taken, the
// preview. Workers are held at their start, so that only this thread acts. What is decided about a frame is the
// subject of frame_judgement_test.cpp.
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/live_fixture.h"
#include "support/plain_live_path.h"

namespace {

using namespace tarn::test;

// ---------------------------------------------------------------------------------------------------- intake

using FrameIntake = LiveRegistration;

TEST_F(FrameIntake, LogLineHasTheRowsTwiceAndNoLineEnd)
{
    feed(view(0, 0, cv::Size(320, 240)));
    EXPECT_EQ(take_output(), "input_frame shape is 240*240, type is 16");
    cv::Mat gray(7, 9, CV_8UC1, cv::Scalar(0));
    tarn_stitcher.ofcheck_stitch(gray, 0, 0);
    EXPECT_EQ(take_output(), "input_frame shape is 7*7, type is 0");
}

TEST_F(FrameIntake, LogLineIsWrittenForRefusedFramesToo)
{
    big_stitch_status = 4;
    feed(view(0, 0));
    EXPECT_EQ(take_output(), "input_frame shape is 180*180, type is 16");
}

TEST_F(FrameIntake, SecondSlotIs0OnEveryPath)
{
    cv::Mat good = view(0, 0);
    cv::Mat flat = blank();
    int* const result = tarn_stitcher.ofcheck_stitch(good, 0, 0);
    EXPECT_EQ(result[1], 0);
    result[1] = 77;
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(flat, 0, 0), result);
    EXPECT_EQ(result[1], 0);
    result[1] = 77;
    tarn_stitcher.stitcher_status = 1;
    tarn_stitcher.ofcheck_stitch(good, 0, 0);
    EXPECT_EQ(result[1], 0);
    result[1] = 77;
    big_stitch_status = 4;
    tarn_stitcher.ofcheck_stitch(good, 0, 0);
    EXPECT_EQ(result[1], 0);
}

TEST_F(FrameIntake, FailedPipelineAnswersMinus1AndTouchesNothing)
{
    start();
    for (const int status : {0, 1, 3, 7}) {
        tarn_stitcher.stitcher_status = status;
        big_stitch_status = 4;
        const plain_live_path before(tarn_stitcher);
        EXPECT_EQ(feed(view(3, 0)), -1);
        EXPECT_EQ(before.differences(tarn_stitcher), "");
        EXPECT_EQ(tarn_stitcher.stitcher_status, status);
    }
    EXPECT_EQ(take_launches(), std::vector<int>({1}));
}

TEST_F(FrameIntake, FailedPipelineComesBeforeTheLastFrame)
{
    start();
    big_stitch_status = 4;
    cv::Mat frame = view(3, 0);
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, 0, 1)[0], -1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);
    EXPECT_EQ(take_launches(), std::vector<int>({1}));
}

TEST_F(FrameIntake, OtherPipelineStatesAreNoFailure)
{
    start();
    for (const int status : {0, 2, 3}) {
        big_stitch_status = status;
        EXPECT_EQ(feed(view(0, 0)), 1) << status;
    }
}

TEST_F(FrameIntake, BusyTaskAnswers0WithItsMessageAndTouchesNothing)
{
    start();
    take_output();
    tarn_stitcher.stitcher_status = 1;
    const plain_live_path before(tarn_stitcher);
    EXPECT_EQ(feed(view(3, 0)), 0);
    EXPECT_EQ(take_output(), "input_frame shape is 180*180, type is 16"
                             "check: The stitcher is still running other function!1\n");
    EXPECT_EQ(before.differences(tarn_stitcher), "");
    EXPECT_EQ(tarn_stitcher.stitcher_status, 1);
    EXPECT_EQ(feed(view(3, 0)), 0) << "and so on";
}

TEST_F(FrameIntake, OnlyStatus1IsBusy)
{
    start();
    for (const int status : {0, 2, 3, 4, -1}) {
        tarn_stitcher.stitcher_status = status;
        EXPECT_EQ(feed(view(0, 0)), 1) << status;
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3) << status;
    }
}

TEST_F(FrameIntake, FrameOf300PixelsKeepsItsScale)
{
    const cv::Mat frame = view(0, 0, cv::Size(300, 200));
    feed(frame);
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, frame));
    EXPECT_EQ(reference().work_scale, 1.0f);
}

TEST_F(FrameIntake, FrameOf301PixelsIsScaledTo300)
{
    const cv::Mat frame = view(0, 0, cv::Size(301, 201));
    feed(frame);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.size(), cv::Size(300, 200));
    cv::Mat scaled;
    cv::resize(frame, scaled, cv::Size(), 300.0f / 301.0f, 300.0f / 301.0f, cv::INTER_LINEAR_EXACT);
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, scaled));
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_frame, frame)) << "the frame itself is kept in full";
}

TEST_F(FrameIntake, ScaleIsRoundedToSinglePrecision)
{
    // With 300 / 700 in double precision some pixels would differ.
    const cv::Mat frame = view(0, 0, cv::Size(700, 700));
    feed(frame);
    cv::Mat scaled;
    const float scale = 300.0f / 700.0f;
    cv::resize(frame, scaled, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, scaled));
}

TEST_F(FrameIntake, OnlyTheWidthDecidesOnTheScale)
{
    feed(view(0, 0, cv::Size(200, 600)));
    EXPECT_EQ(tarn_stitcher.last_stitch_image.size(), cv::Size(200, 600));
}

TEST_F(FrameIntake, ReferenceIsTheGrayWorkingCopy)
{
    const cv::Mat frame = view(0, 0, cv::Size(600, 400));
    feed(frame);
    cv::Mat gray;
    cv::cvtColor(tarn_stitcher.last_stitch_image, gray, cv::COLOR_BGR2GRAY);
    EXPECT_TRUE(same_pixels(reference().scaled_gray_frame, gray));
}

TEST_F(FrameIntake, FrameOfOneChannelIsItsOwnGrayImage)
{
    cv::Mat gray;
    cv::cvtColor(view(0, 0), gray, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(feed(gray), 1);
    EXPECT_TRUE(same_pixels(reference().scaled_gray_frame, gray));
    EXPECT_EQ(tarn_stitcher.last_stitch_image.type(), CV_8UC1);
}

TEST_F(FrameIntake, GrayFramesRaiseWhereThePreviewIsToGrowAndLeaveItAlone)
{
    const auto gray_view = [](int x) {
        cv::Mat gray;
        cv::cvtColor(view(x, 0), gray, cv::COLOR_BGR2GRAY);
        return gray;
    };
    EXPECT_EQ(feed(gray_view(60)), 1);
    const cv::Mat preview = tarn_stitcher.last_stitch_image;
    tarn_stitcher.iou_thresh = 2.0f;
    EXPECT_THROW(feed(gray_view(40)), cv::Exception);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.data, preview.data);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.type(), CV_8UC1);
    EXPECT_GT(tarn_stitcher.total_shift_x, 10.0f) << "reset only once the old preview has its place";
}

TEST_F(FrameIntake, FrameOfFourOrTwoChannelsHasNoGrayImageAndThusNoCorners)
{
    cv::Mat rgba = tarn::test::host_frame_from(view(0, 0));
    cv::Mat two(180, 240, CV_8UC2, cv::Scalar(1, 2));
    EXPECT_EQ(feed(rgba), 1);
    EXPECT_EQ(feed(two), 1);
    EXPECT_EQ(tarn_stitcher.failed_count, 2);
    EXPECT_EQ(tarn_stitcher.frame_index, 0);

    tarn_stitcher.matches_thresh = 0;
    EXPECT_EQ(feed(rgba), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_TRUE(reference().scaled_gray_frame.empty());
    EXPECT_EQ(reference().work_scale, 0.0f) << "rows of an image without any";
}

TEST_F(FrameIntake, FrameThatRaisesLeavesTheTaskBusy)
{
    start();
    cv::Mat other_size = view(0, 0, cv::Size(200, 200));
    EXPECT_THROW(tarn_stitcher.ofcheck_stitch(other_size, 0, 0), cv::Exception);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 1);
    EXPECT_EQ(feed(view(0, 0)), 0) << "busy from now on";
    EXPECT_EQ(feed(view(0, 0)), 0);
}

TEST_F(FrameIntake, AtMost80CornersAtLeast10PixelsApart)
{
    start(cv::Size(300, 300));
    const auto& corners = reference().good_keypoints;
    EXPECT_EQ(corners.size(), 80U);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_GE(cv::norm(corners[i] - corners[j]), 10.0);
    }
    std::vector<cv::Point2f> expected;
    cv::goodFeaturesToTrack(reference().scaled_gray_frame, expected, 80, 0.01, 10.0);
    EXPECT_EQ(corners, expected);
}

TEST_F(FrameIntake, AsManyCornersAsTheLimitPassAndOneLessFails)
{
    EXPECT_EQ(feed(dots(9)), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 0);
    EXPECT_EQ(tarn_stitcher.failed_count, 1);
    EXPECT_EQ(feed(dots(10)), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_EQ(reference().good_keypoints.size(), 10U);
}

TEST_F(FrameIntake, NegativeLimitOfMatchesRejectsEveryFrameForItsCorners)
{
    for (const int limit : {-1, std::numeric_limits<int>::min()}) {
        tarn_stitcher.matches_thresh = limit;
        tarn_stitcher.failed_count = 0;
        EXPECT_EQ(feed(view(0, 0)), 1);
        EXPECT_EQ(tarn_stitcher.frame_index, 0);
        EXPECT_EQ(tarn_stitcher.failed_count, 1);
        EXPECT_TRUE(tarn_stitcher.last_frame.empty());
    }
}

TEST_F(FrameIntake, NoCornersPassALimitOf0)
{
    tarn_stitcher.matches_thresh = 0;
    EXPECT_EQ(feed(blank()), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    EXPECT_TRUE(reference().good_keypoints.empty());
    EXPECT_EQ(take_launches(), std::vector<int>({1}));
}

TEST_F(FrameIntake, FailureLeavesEverythingButStatusAndCount)
{
    start();
    plain_live_path expected(tarn_stitcher);
    EXPECT_EQ(feed(blank()), 1);
    expected.stitcher_status = 3;
    expected.failed_count = 1;
    EXPECT_EQ(expected.differences(tarn_stitcher), "");
}

TEST_F(FrameIntake, TenthFailureInARowAndEveryLaterOneAnswers0)
{
    start();
    for (int i = 1; i <= 14; ++i) {
        EXPECT_EQ(feed(blank()), i < 10 ? 1 : 0) << i;
        EXPECT_EQ(tarn_stitcher.failed_count, i);
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    }
}

TEST_F(FrameIntake, AcceptedFrameStartsTheCountAnew)
{
    start();
    for (int i = 0; i < 12; ++i)
        feed(blank());
    EXPECT_EQ(feed(view(2, 1)), 1);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    for (int i = 1; i <= 10; ++i)
        EXPECT_EQ(feed(blank()), i < 10 ? 1 : 0) << i;
}

TEST_F(FrameIntake, LimitOfFailuresIsTheTasks)
{
    start();
    tarn_stitcher.failed_thresh = 3;
    EXPECT_EQ(feed(blank()), 1);
    EXPECT_EQ(feed(blank()), 1);
    EXPECT_EQ(feed(blank()), 0);
    tarn_stitcher.failed_count = 0;
    tarn_stitcher.failed_thresh = 0;
    EXPECT_EQ(feed(blank()), 0);
    tarn_stitcher.failed_count = 0;
    tarn_stitcher.failed_thresh = -5;
    EXPECT_EQ(feed(blank()), 0);
}

TEST_F(FrameIntake, FirstFrameBecomesPanoramaAndReference)
{
    const cv::Mat frame = view(0, 0);
    tarn_stitcher.failed_count = 0;
    EXPECT_EQ(feed(frame, moving_left), 1);

    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_EQ(tarn_stitcher.last_frame.data, frame.data) << "shared, not copied";
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, frame));
    EXPECT_EQ(tarn_stitcher.last_warp_points,
              std::vector<cv::Point2f>({{0.0f, 0.0f}, {240.0f, 0.0f}, {240.0f, 180.0f}, {0.0f, 180.0f}}));
    EXPECT_EQ(reference().work_scale, 1.0f);
    EXPECT_TRUE(same_pixels(reference().homo, cv::Mat::eye(3, 3, CV_64F)));
    EXPECT_TRUE(same_pixels(reference().base_homo, cv::Mat::eye(3, 3, CV_64F)));
    EXPECT_NE(reference().homo.data, reference().base_homo.data);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);
    EXPECT_EQ(take_launches(), std::vector<int>({1}));
    EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    EXPECT_EQ(tarn_stitcher.last_direction, 0) << "the hint is not taken over";
    EXPECT_TRUE(tarn_stitcher.last_move_distances.empty());
}

TEST_F(FrameIntake, FirstFrameReplacesHomographiesAndKeepsOldOnesIntact)
{
    const cv::Mat old_homo = moved_by(5, 6);
    const cv::Mat old_base = moved_by(7, 8);
    reference().homo = old_homo;
    reference().base_homo = old_base;
    start();
    EXPECT_TRUE(same_pixels(reference().homo, cv::Mat::eye(3, 3, CV_64F)));
    EXPECT_TRUE(same_pixels(reference().base_homo, cv::Mat::eye(3, 3, CV_64F)));
    EXPECT_TRUE(same_pixels(old_homo, moved_by(5, 6)));
    EXPECT_TRUE(same_pixels(old_base, moved_by(7, 8)));
}

TEST_F(FrameIntake, FirstFrameDoesNotResetTheCountOfFailures)
{
    feed(blank());
    feed(blank());
    start();
    EXPECT_EQ(tarn_stitcher.failed_count, 2);
}

TEST_F(FrameIntake, FirstFrameWithEnoughCornersIsTheBaseEvenAfterFailures)
{
    for (int i = 1; i <= 11; ++i)
        EXPECT_EQ(feed(blank()), i < 10 ? 1 : 0);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 0);
    EXPECT_EQ(feed(view(0, 0)), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_TRUE(same_pixels(tarn_stitcher.last_stitch_image, view(0, 0)));
    EXPECT_EQ(take_launches(), std::vector<int>({1}));
}

TEST_F(FrameIntake, FrameIndexCountsFramesWithEnoughCornersNotAcceptedOnes)
{
    start();
    tarn_stitcher.angle_thresh = -1.0f;  // rejects every quadrilateral
    const cv::Mat rejected = view(1, 0);
    feed(rejected);
    EXPECT_EQ(tarn_stitcher.frame_index, 2);
    EXPECT_EQ(tarn_stitcher.failed_count, 1);
    EXPECT_EQ(tarn_stitcher.last_frame.data, rejected.data);
    feed(blank());
    EXPECT_EQ(tarn_stitcher.frame_index, 2);
    EXPECT_EQ(tarn_stitcher.last_frame.data, rejected.data);
}

TEST_F(FrameIntake, TooFewTrackedPointsFailAfterTheFrameIsCounted)
{
    // Points outside the reference frame cannot be tracked.
    start();
    reference().good_keypoints.resize(12);
    for (int i = 0; i < 5; ++i)
        reference().good_keypoints.emplace_back(-500.0f, 60.0f + static_cast<float>(i));
    const cv::Mat next = view(2, 0);

    tarn_stitcher.matches_thresh = 13;
    plain_live_path expected(tarn_stitcher);
    EXPECT_EQ(feed(next), 1);
    expected.stitcher_status = 3;
    expected.failed_count = 1;
    expected.frame_index = 2;
    expected.last_frame = next;
    EXPECT_EQ(expected.differences(tarn_stitcher), "");

    tarn_stitcher.matches_thresh = 12;
    EXPECT_EQ(feed(next), 3) << "accepted with 12 inliers at most";
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
}

TEST_F(FrameIntake, UntrackedPointsAreLeftOutOfThePairs)
{
    // The first points are lost; what follows must still be paired with its own counterpart.
    start();
    reference().good_keypoints.insert(reference().good_keypoints.begin(), 20, cv::Point2f(-500.0f, -500.0f));
    EXPECT_EQ(feed(view(5, 2)), 1);
    EXPECT_NEAR(tarn_stitcher.last_move_distances.back(), std::hypot(5.0, 2.0), 0.1);
}

TEST_F(FrameIntake, PointsAreTrackedFromTheLastAcceptedFrame)
{
    start();
    const uchar* const gray = reference().scaled_gray_frame.data;
    const auto corners = reference().good_keypoints;
    tarn_stitcher.angle_thresh = -1.0f;
    feed(view(2, 0));
    EXPECT_EQ(reference().scaled_gray_frame.data, gray);
    EXPECT_EQ(reference().good_keypoints, corners);

    tarn_stitcher.angle_thresh = 10.0f;
    feed(view(4, 0));
    ASSERT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
    EXPECT_NEAR(tarn_stitcher.last_move_distances[0], 4.0, 0.1) << "not 2 px from the rejected frame";
}

TEST_F(FrameIntake, AcceptedFramesOwnCornersBecomeTheReference)
{
    start();
    feed(view(5, 2));
    cv::Mat gray;
    cv::cvtColor(view(5, 2), gray, cv::COLOR_BGR2GRAY);
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(gray, corners, 80, 0.01, 10.0);
    EXPECT_TRUE(same_pixels(reference().scaled_gray_frame, gray));
    EXPECT_EQ(reference().good_keypoints, corners);
}

TEST_F(FrameIntake, WorkScaleOfTheReferenceDividesNothingOnceReplaced)
{
    start();
    reference().work_scale = 17.0f;  // the current frame's is used
    feed(view(4, 0));
    EXPECT_NEAR(tarn_stitcher.last_move_distances.back(), 4.0, 0.1);
    EXPECT_EQ(reference().work_scale, 1.0f);
}

// ------------------------------------------------------------------------------------------------ last frame

TEST_F(FrameIntake, LastFrameIsNotRegisteredAndLooksAtNoStatus)
{
    const cv::Size size(480, 360);
    start(size);
    release_workers();
    ASSERT_TRUE(wait_for_turns(1));
    for (const int status : {1, 3, 0}) {
        tarn_stitcher.stitcher_status = status;
        plain_live_path expected(tarn_stitcher);
        cv::Mat frame = view(10, 0, size);
        EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, moving_left, 7)[0], 1);
        ++expected.big_frame_index;
        EXPECT_EQ(expected.differences(tarn_stitcher), "");
        EXPECT_EQ(getCurrentPanoramaShow(), directory() + "big_stitch.jpg");
        EXPECT_EQ(tarn_stitcher.stitcher_status, status);
        tarn_stitcher.big_stitch_image_path.clear();
    }
    EXPECT_EQ(take_launches(), std::vector<int>({1, 2, 3, 4}));
}

TEST_F(FrameIntake, LastFrameMayBeTheOnlyOne)
{
    release_workers();
    cv::Mat frame = view(0, 0);
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, 0, 1)[0], 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 0);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);
    EXPECT_TRUE(tarn_stitcher.last_stitch_image.empty());
    EXPECT_EQ(getCurrentPanoramaShow(), directory() + "big_stitch.jpg");
    EXPECT_EQ(cv::imread(directory() + "big_stitch.jpg").size(), cv::Size(180, 240));
}

TEST_F(FrameIntake, LastFrameAnswersMinus1WhenThePipelineHasFailedBeforeTheWait)
{
    start();
    on_worker_stage([](tarn::worker_stage stage, int index) {
        if (stage == tarn::worker_stage::launching && index == 2)
            tarn::store_release(big_stitch_status, 4);
    });
    cv::Mat frame = view(10, 0);
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, 0, 1)[0], -1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    EXPECT_EQ(take_launches(), std::vector<int>({1, 2})) << "handed over all the same";
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
}

TEST_F(FrameIntake, LastFrameAnswers1AfterATimeOutButLeavesNoPath)
{
    start();
    max_wait_seconds = 0;  // and the workers are held
    cv::Mat frame = view(10, 0);
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(frame, 0, 1)[0], 1);
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>());
}

// ---------------------------------------------------------------------------------------------------- motion

using Motion = LiveRegistration;

TEST_F(Motion, PureTranslationMovesTheFrameAndLeavesItsShape)
{
    start();
    EXPECT_EQ(feed(view(6, 3)), 1);
    const cv::Matx33d homo = reference().homo;
    EXPECT_LT(tarn::test::mean_corner_error(homo, tarn::test::translation(6, 3), usual_size), 0.3);
    for (const float angle : tarn_stitcher.last_angles)
        EXPECT_NEAR(angle, 90.0f, 0.2f);
    for (const float scale : tarn_stitcher.last_scales)
        EXPECT_NEAR(scale, 1.0f, 0.004f);
    ASSERT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
    EXPECT_NEAR(tarn_stitcher.last_move_distances[0], std::hypot(6.0, 3.0), 0.1);
}

TEST_F(Motion, ImplausibleQuadrilateralFailsAndLeavesEverythingElse)
{
    const std::vector<std::function<void()>> spoil = {
        [] { tarn_stitcher.angle_thresh = -1.0f; },
        [] { tarn_stitcher.area_thresh = 1.1f; },
    };
    for (const auto& spoiled : spoil) {
        resetStitch(directory().c_str());
        start();
        spoiled();
        plain_live_path expected(tarn_stitcher);
        const cv::Mat frame = view(-6, -3);
        EXPECT_EQ(feed(frame), 1);
        expected.stitcher_status = 3;
        expected.failed_count = 1;
        expected.frame_index = 2;
        expected.last_frame = frame;
        EXPECT_EQ(expected.differences(tarn_stitcher), "") << "no direction, shift, angle or scale is taken over";
    }
}

TEST_F(Motion, FewerThanFourPointsRaiseNothingBeyondTheFrame)
{
    tarn_stitcher.matches_thresh = 0;
    ASSERT_EQ(videoStitch(tarn::test::host_frame_from(dots(3)), 0, 0)[0], 1);
    plain_live_path expected(tarn_stitcher);
    expected.frame_index = 2;
    EXPECT_EQ(videoStitch(tarn::test::host_frame_from(dots(3, {2, 0})), 0, 0)[0], 1);
    expected.last_frame = tarn_stitcher.last_frame;
    EXPECT_EQ(expected.differences(tarn_stitcher), "");
    EXPECT_NE(take_output().find("stitch: When checkimage encounter an error"), std::string::npos);
}

TEST_F(Motion, OppositeOfTheHintAnswers4WithoutEverReaching0)
{
    for (const int hint : {moving_down, moving_up, moving_right, moving_left}) {
        resetStitch(directory().c_str());
        start();
        const int motion = tarn::test::opposite_direction(hint);
        for (int i = 1; i <= 25; ++i) {
            EXPECT_EQ(feed(view(step(motion, 3 + i % 4)), hint), 4) << i;
            EXPECT_EQ(tarn_stitcher.failed_count, 0);
            EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
        }
    }
}

TEST_F(Motion, WrongWayLeavesOnlyTheDirectionBehind)
{
    start();
    tarn_stitcher.failed_count = 4;
    plain_live_path expected(tarn_stitcher);
    const cv::Mat frame = view(-6, 0);
    EXPECT_EQ(feed(frame, moving_right), 4);
    expected.stitcher_status = 3;
    expected.frame_index = 2;
    expected.last_frame = frame;
    expected.last_direction = moving_left;  // the first direction seen is remembered, even of a rejected frame
    EXPECT_EQ(expected.differences(tarn_stitcher), "");
    EXPECT_EQ(tarn_stitcher.failed_count, 4);
}

TEST_F(Motion, NonConvexFrameFailsButItsShiftAnglesAndDirectionStay)
{
    start();
    // The horizon x = 120 cuts the frame: its right half is thrown to the left of everything.
    reference().homo = matrix({1, 0, 0, 0, 1, 0, -1.0 / 120, 0, 1});
    reference().base_homo = leaning(0.02);
    const cv::Mat frame = view(0, 5);
    plain_live_path expected = measured(frame);
    const cv::Mat homo = reference().homo.clone();
    const uchar* const preview = tarn_stitcher.last_stitch_image.data;

    EXPECT_EQ(feed(frame), 1);

    EXPECT_EQ(expected.differences(tarn_stitcher), "");
    EXPECT_EQ(tarn_stitcher.failed_count, 1);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    EXPECT_EQ(tarn_stitcher.last_direction, moving_down);
    EXPECT_NEAR(tarn_stitcher.last_angles[0], 90.0 - std::atan(0.02) * 180 / CV_PI, 0.3);
    EXPECT_NEAR(tarn_stitcher.total_shift_x, 240.0f, 8.0f);
    EXPECT_NEAR(tarn_stitcher.total_shift_y, 185.0f, 8.0f);
    EXPECT_EQ(tarn_stitcher.last_warp_points[0], cv::Point2f(tarn_stitcher.total_shift_x, tarn_stitcher.total_shift_y));
    EXPECT_TRUE(same_pixels(reference().homo, homo));
    EXPECT_EQ(tarn_stitcher.last_stitch_image.data, preview);
    EXPECT_TRUE(tarn_stitcher.last_move_distances.empty());
}

TEST_F(Motion, TenthFailureForItsShapeAnswers0)
{
    start();
    reference().homo = matrix({20, 0, 0, 0, 1, 0, 0, 0, 1});
    for (int i = 1; i <= 11; ++i)
        EXPECT_EQ(feed(view(0, 0)), i < 10 ? 1 : 0) << i;
}

// ------------------------------------------------------------------------------------------------ key frames

using KeyFrame = LiveRegistration;

TEST_F(KeyFrame, BothRulesMakeTheSameStateBehindThem)
{
    for (const float limit : {0.7f, 2.0f}) {  // a change of direction; the overlap
        resetStitch(directory().c_str());
        start();
        tarn_stitcher.last_direction = moving_up;
        tarn_stitcher.iou_thresh = limit;
        reference().base_homo = moved_by(20.5, 0);
        reference().homo = moved_by(20.5, 0);
        EXPECT_EQ(feed(view(5, 0)), 1);

        EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
        EXPECT_EQ(take_launches().back(), 2);
        const auto corners = tarn::test::mapped_corners(cv::Matx33d(reference().homo), usual_size);
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(tarn_stitcher.last_warp_points[i].x, corners[i].x, 1e-4);
            EXPECT_NEAR(tarn_stitcher.last_warp_points[i].y, corners[i].y, 1e-4);
        }
        EXPECT_TRUE(same_pixels(reference().base_homo, cv::Mat::eye(3, 3, CV_64F))) << "the new base";
        EXPECT_EQ(tarn_stitcher.last_direction, moving_right);
        EXPECT_EQ(tarn_stitcher.last_stitch_image.cols, 265);
    }
}

TEST_F(KeyFrame, OrdinaryFrameChangesNeitherPreviewNorBase)
{
    start();
    const uchar* const preview = tarn_stitcher.last_stitch_image.data;
    EXPECT_EQ(feed(view(5, 4)), 1);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.data, preview);
    EXPECT_EQ(tarn_stitcher.last_warp_points[1], cv::Point2f(240, 0));
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);
    EXPECT_LT(
        tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(5, 4), usual_size),
        0.3);
    EXPECT_EQ(feed(view(10, 8)), 1);
    EXPECT_LT(
        tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(10, 8), usual_size),
        0.5)
        << "chained from frame to frame";
}

TEST_F(KeyFrame, BaseIsTheLastKeyFrame)
{
    start();
    tarn_stitcher.iou_thresh = 2.0f;
    feed(view(5, 0));
    tarn_stitcher.iou_thresh = 0.7f;
    feed(view(9, 0));
    EXPECT_LT(
        tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(4, 0), usual_size),
        0.3);
    EXPECT_LT(tarn::test::mean_corner_error(cv::Matx33d(reference().homo), tarn::test::translation(9, 0), usual_size),
              0.5);
}

TEST_F(KeyFrame, PreviewGrowsAndShowsTheScene)
{
    // Four key frames around the first one: the preview becomes what a wider camera would see.
    start();
    tarn_stitcher.iou_thresh = 2.0f;
    for (const cv::Point at :
         {cv::Point(10, 0), cv::Point(10, 12), cv::Point(0, 12), cv::Point(-12, 4), cv::Point(-12, -8)})
        ASSERT_EQ(feed(view(at)), 1);
    const cv::Mat& preview = tarn_stitcher.last_stitch_image;
    EXPECT_NEAR(preview.cols, 240 + 22, 2);
    EXPECT_NEAR(preview.rows, 180 + 20, 2);

    // Where the first frame and a margin lie, the scene is seen without a visible shift.
    const cv::Mat scene = view(-12, -8, cv::Size(240 + 20, 180 + 18));
    const cv::Rect inside(14, 10, 220, 150);
    cv::Mat difference;
    cv::absdiff(scene(inside), preview(inside), difference);
    EXPECT_LT(cv::mean(difference)[1], 12.0);
}

TEST_F(KeyFrame, GatheredShiftIsAppliedAndStartsAnew)
{
    start();
    const cv::Mat first = tarn_stitcher.last_stitch_image.clone();
    ASSERT_EQ(feed(view(-12, 0)), 1);
    ASSERT_EQ(feed(view(-24, -5)), 1);
    const float shift_x = tarn_stitcher.total_shift_x;
    const float shift_y = tarn_stitcher.total_shift_y;
    EXPECT_NEAR(shift_x, 24.0f, 0.5f);
    EXPECT_NEAR(shift_y, 5.0f, 0.5f);

    tarn_stitcher.iou_thresh = 2.0f;
    ASSERT_EQ(feed(view(-36, -5)), 1);
    EXPECT_EQ(tarn_stitcher.total_shift_x, 0.0f);
    EXPECT_EQ(tarn_stitcher.total_shift_y, 0.0f);
    const cv::Mat& preview = tarn_stitcher.last_stitch_image;
    EXPECT_EQ(preview.cols, 240 + 36);
    EXPECT_EQ(preview.rows, 180 + 5);
    // The part of the first frame that the new one does not cover stands at the truncated shift.
    const cv::Rect uncovered(240 - 20, 20, 20, 100);
    EXPECT_TRUE(same_pixels(preview(uncovered + cv::Point(36, 5)), first(uncovered)));
}

TEST_F(KeyFrame, RestoresThePanoramaWhereTheFramesBoxIsBlack)
{
    // A frame turned by 8 degrees covers its box only partly: the box's corners keep the panorama.
    start();
    const double c = std::cos(8 * CV_PI / 180);
    const double s = std::sin(8 * CV_PI / 180);
    tarn_stitcher.iou_thresh = 2.0f;
    reference().homo = matrix(tarn::test::translation(120, 90) * cv::Matx33d(c, -s, 0, s, c, 0, 0, 0, 1)
                              * cv::Matx33d(0.5, 0, 0, 0, 0.5, 0, 0, 0, 1) * tarn::test::translation(-120, -90));
    const cv::Mat before = tarn_stitcher.last_stitch_image.clone();
    ASSERT_EQ(feed(view(0, 0)), 1);
    const cv::Mat& preview = tarn_stitcher.last_stitch_image;
    ASSERT_EQ(preview.size(), before.size());
    cv::Mat empty;
    cv::inRange(preview, cv::Scalar::all(0), cv::Scalar::all(0), empty);
    EXPECT_EQ(cv::countNonZero(empty), 0);
    std::vector<cv::Point> corners;
    for (const cv::Point2f& corner : tarn_stitcher.last_warp_points)
        corners.emplace_back(corner);
    const cv::Rect box = cv::boundingRect(corners);
    EXPECT_TRUE(
        same_pixels(preview(cv::Rect(box.x + 1, box.y + 1, 4, 4)), before(cv::Rect(box.x + 1, box.y + 1, 4, 4))));
    const cv::Rect middle(110, 80, 20, 20);
    EXPECT_FALSE(same_pixels(preview(middle), before(middle))) << "the new frame itself";
}

TEST_F(KeyFrame, WorkerThatCannotBeStartedIsAnErrorOfTheFrame)
{
    const cv::Mat first = tarn::test::host_frame_from(view(0, 0));
    ASSERT_EQ(videoStitch(first, 0, 0)[0], 1);
    tarn_stitcher.iou_thresh = 2.0f;
    on_worker_stage([](tarn::worker_stage stage, int) {
        if (stage == tarn::worker_stage::launching)
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no thread");
    });
    const cv::Mat preview = tarn_stitcher.last_stitch_image;
    EXPECT_EQ(videoStitch(tarn::test::host_frame_from(view(5, 0)), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.data, preview.data);
    EXPECT_NE(take_output().find("encounter an errorno thread"), std::string::npos);

    on_worker_stage(nullptr);
    EXPECT_EQ(videoStitch(tarn::test::host_frame_from(view(6, 0)), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 3);
}

// ---------------------------------------------------------------------------------------------------- grades

using Grade = LiveRegistration;

TEST_F(Grade, SpeedWindowIsTenFramesByDefault)
{
    start();
    for (int i = 1; i <= 12; ++i)
        EXPECT_EQ(feed(view(12 * i, 0)), i <= 10 ? 1 : 5) << i;
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 10U);
}

TEST_F(Grade, RejectedFramesDoNotEnterTheWindow)
{
    start();
    feed(view(3, 0));
    feed(blank());
    feed(view(-9, 0), moving_right);
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
}

}  // namespace
