// SPDX-License-Identifier: Apache-2.0
//
// The live path, step by step: intake and tracking, motion and acceptance, key frames and the preview, result
// codes. Workers are held at their start, so that only this thread acts, except where their input is the subject.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "support/plain_live_path.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "support/watched_allocations.h"
#include "tarn_stitch_jni.h"

namespace {

using tarn::test::moving_down;
using tarn::test::moving_left;
using tarn::test::moving_right;
using tarn::test::moving_up;
using tarn::test::no_direction;
using tarn::test::plain_live_path;

const cv::Size usual_size(240, 180);

/// What a camera sees that stands (x, y) pixels away from the start.
cv::Mat view(int x, int y, cv::Size size = usual_size)
{
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(1024, 1024));
    return plane(cv::Rect(cv::Point(300 + x, 300 + y), size)).clone();
}

/// A step of so many pixels in a direction.
cv::Point step(int direction, int length)
{
    switch (direction) {
    case moving_down:
        return {0, length};
    case moving_up:
        return {0, -length};
    case moving_right:
        return {length, 0};
    default:
        return {-length, 0};
    }
}

cv::Mat view(cv::Point at, cv::Size size = usual_size)
{
    return view(at.x, at.y, size);
}

cv::Mat blank(cv::Size size = usual_size)
{
    return {size, CV_8UC3, cv::Scalar(120, 130, 140)};
}

/// A frame with `count` (up to 77) bright dots, each of which gives one corner. Dots from `split` on are shifted by
/// `other_shift` instead of `shift`.
cv::Mat dots(int count, cv::Point shift = {0, 0}, int split = 1000, cv::Point other_shift = {0, 0})
{
    cv::Mat gray(220, 300, CV_8UC1, cv::Scalar(40));
    for (int i = 0; i < count; ++i) {
        const int place = i * 37 % 77;  // every place once, far from the one before
        const cv::Point centre =
            cv::Point(26 + place % 11 * 24, 34 + place / 11 * 25) + (i < split ? shift : other_shift);
        const double height = 130 + i * 7 % 60;
        for (int y = -7; y <= 7; ++y) {
            for (int x = -7; x <= 7; ++x)
                gray.at<uchar>(centre.y + y, centre.x + x) =
                    cv::saturate_cast<uchar>(40 + height * std::exp(-(x * x + y * y) / 4.5));
        }
    }
    cv::Mat frame;
    cv::cvtColor(gray, frame, cv::COLOR_GRAY2BGR);
    return frame;
}

cv::Mat matrix(const cv::Matx33d& values)
{
    return cv::Mat(values).clone();
}

cv::Mat moved_by(double x, double y)
{
    return matrix(tarn::test::translation(x, y));
}

/// Vertical edges that lean: x' = x + k y.
cv::Mat leaning(double k)
{
    return matrix({1, k, 0, 0, 1, 0, 0, 0, 1});
}

/// One corner of the usual frame pulled outwards along the diagonal, the others in their places: the angle there
/// deviates most from 90 degrees.
cv::Mat stretched(int corner, double outwards)
{
    const std::vector<cv::Point2f> from = {{0, 0}, {240, 0}, {240, 180}, {0, 180}};
    std::vector<cv::Point2f> to = from;
    cv::Point2f& pulled = to[static_cast<std::size_t>(corner)];
    pulled += (pulled - cv::Point2f(120, 90)) * (outwards / 150.0);
    return cv::getPerspectiveTransform(from, to);
}

bool same_pixels(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0.0);
}

class LiveRegistration : public tarn::test::stitcher_fixture {
protected:
    void SetUp() override
    {
        stitcher_fixture::SetUp();
        hold_workers();
    }

    /// One call of the frame step itself: the code.
    static int feed(cv::Mat frame, int direction = no_direction)
    {
        return tarn_stitcher.ofcheck_stitch(frame, direction, 0)[0];
    }

    /// A sweep that has its first frame: what is seen at (0, 0).
    static void start(cv::Size size = usual_size)
    {
        ASSERT_EQ(feed(view(0, 0, size)), 1);
        ASSERT_EQ(tarn_stitcher.frame_index, 1);
    }

    /// What the frame will measure, found by the plain steps from the present state.
    static plain_live_path measured(const cv::Mat& frame, int direction = no_direction)
    {
        plain_live_path steps(tarn_stitcher);
        steps.feed(frame, direction);
        return steps;
    }

    static stitch_data& reference()
    {
        return tarn_stitcher.last_check_data;
    }
};

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

TEST_F(Motion, EachDirectionHasItsCode)
{
    for (const int direction : {moving_down, moving_up, moving_right, moving_left}) {
        resetStitch(directory().c_str());
        start();
        EXPECT_EQ(feed(view(step(direction, 5))), 1);
        EXPECT_EQ(tarn_stitcher.last_direction, direction);
    }
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
        EXPECT_EQ(expected.differences(tarn_stitcher), "")
            << "no direction, shift, angle or scale is taken over";
    }
}

TEST_F(Motion, AreaAndAngleLimitsAreNotMixedUp)
{
    // 30 of 240 columns leave the frame: 0.875 of it are covered, and no edge tilts by as much as half a degree.
    start();
    tarn_stitcher.area_thresh = 0.8f;
    tarn_stitcher.angle_thresh = 0.5f;
    feed(view(15, 0));
    feed(view(45, 0));
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 2U);
}

TEST_F(Motion, ShareOfInliersEqualToTheLimitPassesAndAnyLessFails)
{
    // 30 dots move by one vector, 10 by another, 12 px away: three quarters are inliers.
    ASSERT_EQ(feed(dots(40)), 1);
    const cv::Mat next = dots(40, {3, 0}, 30, {-3, -7});
    const plain_live_path steps = measured(next);
    ASSERT_EQ(steps.in_count, 30);
    ASSERT_EQ(steps.in_ratio, 0.75f);

    tarn_stitcher.inline_thresh = std::nextafter(0.75f, 1.0f);
    plain_live_path expected(tarn_stitcher);
    EXPECT_EQ(feed(next), 1);
    expected.stitcher_status = 3;
    expected.failed_count = 1;
    expected.frame_index = 2;
    expected.last_frame = next;
    EXPECT_EQ(expected.differences(tarn_stitcher), "");

    tarn_stitcher.inline_thresh = 0.75f;
    EXPECT_EQ(feed(next), 2);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
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

TEST_F(Motion, FourPointsAreEnoughAndAllCountAsInliers)
{
    tarn_stitcher.matches_thresh = 4;
    ASSERT_EQ(feed(dots(77)), 1);
    reference().good_keypoints = {{26, 34}, {266, 34}, {266, 184}, {26, 184}};
    EXPECT_EQ(feed(dots(77, {3, 0})), 3);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    EXPECT_NEAR(tarn_stitcher.last_move_distances.back(), 3.0f, 0.5f);
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

TEST_F(Motion, WrongWayKeepsALaterDirection)
{
    start();
    tarn_stitcher.last_direction = moving_right;
    EXPECT_EQ(feed(view(-6, 0), moving_right), 4);
    EXPECT_EQ(tarn_stitcher.last_direction, moving_right);
}

TEST_F(Motion, HintsOfTheOtherAxisOrNoneOrUnknownRejectNothing)
{
    for (const int motion : {moving_down, moving_up, moving_right, moving_left}) {
        for (const int hint : {-1, 0, 1, 2, 3, 4, 5, 6}) {
            if (hint == tarn::test::opposite_direction(motion))
                continue;
            resetStitch(directory().c_str());
            start();
            EXPECT_EQ(feed(view(step(motion, 5)), hint), 1) << motion << " against hint " << hint;
            EXPECT_EQ(tarn_stitcher.last_direction, motion);
        }
    }
}

TEST_F(Motion, UndecidedMotionBeforeAnyDirectionStays0AndMeetsNoHint)
{
    start();
    for (const int hint : {0, 1, 2, 3, 4}) {
        EXPECT_EQ(feed(view(0, 0), hint), 1);
        EXPECT_EQ(tarn_stitcher.last_direction, 0);
    }
}

TEST_F(Motion, UndecidedMotionTakesTheLastDirectionAndMeetsTheHint)
{
    start();
    tarn_stitcher.last_direction = moving_left;
    EXPECT_EQ(feed(view(0, 0)), 1);
    EXPECT_EQ(tarn_stitcher.last_direction, moving_left);
    EXPECT_EQ(feed(view(0, 0), moving_right), 4);
    EXPECT_EQ(feed(view(0, 0), moving_left), 1);
}

TEST_F(Motion, ShapeIsMeasuredAgainstTheLastKeyFrame)
{
    start();
    reference().base_homo = leaning(0.05);
    EXPECT_EQ(feed(view(0, 0)), 1);
    const auto lean = static_cast<float>(std::atan(0.05) * 180.0 / CV_PI);
    // x' = x + k y pushes the lower corners to the right: the angle at the top left closes.
    EXPECT_NEAR(tarn_stitcher.last_angles[0], 90.0f - lean, 1e-3f);
    EXPECT_NEAR(tarn_stitcher.last_angles[1], 90.0f + lean, 1e-3f);
    EXPECT_NEAR(tarn_stitcher.last_angles[2], 90.0f - lean, 1e-3f);
    EXPECT_NEAR(tarn_stitcher.last_angles[3], 90.0f + lean, 1e-3f);

    reference().base_homo = matrix({1.1, 0, 0, 0, 0.8, 0, 0, 0, 1});
    EXPECT_EQ(feed(view(0, 0)), 1);
    EXPECT_NEAR(tarn_stitcher.last_scales[0], 1.1f, 1e-4f);
    EXPECT_NEAR(tarn_stitcher.last_scales[1], 0.8f, 1e-4f);
    EXPECT_NEAR(tarn_stitcher.last_scales[2], 1.1f, 1e-4f);
    EXPECT_NEAR(tarn_stitcher.last_scales[3], 0.8f, 1e-4f);
}

TEST_F(Motion, ScalesOfAKeystoneFollowTheOrderTopRightBottomLeft)
{
    start();
    // A trapezoid: (0, 0), (240, 0), (200, 150), (50, 150).
    const std::vector<cv::Point2f> from = {{0, 0}, {240, 0}, {240, 180}, {0, 180}};
    const std::vector<cv::Point2f> to = {{0, 0}, {240, 0}, {200, 150}, {50, 150}};
    reference().base_homo = cv::getPerspectiveTransform(from, to);
    feed(view(0, 0));
    EXPECT_NEAR(tarn_stitcher.last_scales[0], 1.0, 1e-4);
    EXPECT_NEAR(tarn_stitcher.last_scales[1], std::hypot(40, 150) / 180, 1e-4);
    EXPECT_NEAR(tarn_stitcher.last_scales[2], 150.0 / 240, 1e-4);
    EXPECT_NEAR(tarn_stitcher.last_scales[3], std::hypot(50, 150) / 180, 1e-4);
    const double degree = CV_PI / 180;
    EXPECT_NEAR(tarn_stitcher.last_angles[0], std::atan2(150, 50) / degree, 1e-3);
    EXPECT_NEAR(tarn_stitcher.last_angles[1], std::atan2(150, 40) / degree, 1e-3);
    EXPECT_NEAR(tarn_stitcher.last_angles[2], 180 - std::atan2(150, 40) / degree, 1e-3);
    EXPECT_NEAR(tarn_stitcher.last_angles[3], 180 - std::atan2(150, 50) / degree, 1e-3);
}

TEST_F(Motion, FrameLeftOfAndAboveTheOriginMovesThePanorama)
{
    start();
    ASSERT_EQ(feed(view(-6, -3)), 1);
    EXPECT_NEAR(tarn_stitcher.total_shift_x, 6.0f, 0.2f);
    EXPECT_NEAR(tarn_stitcher.total_shift_y, 3.0f, 0.2f);
    // The key frame's corners move along; the frame itself now touches the origin.
    EXPECT_EQ(tarn_stitcher.last_warp_points[0],
              cv::Point2f(tarn_stitcher.total_shift_x, tarn_stitcher.total_shift_y));
    const auto corners = tarn::test::mapped_corners(cv::Matx33d(reference().homo), usual_size);
    EXPECT_NEAR(std::min(corners[0].x, corners[3].x), 0.0, 1e-4);
    EXPECT_NEAR(std::min(corners[0].y, corners[1].y), 0.0, 1e-4);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.size(), usual_size)
        << "no key frame, so the preview has not grown";

    const float shift_x = tarn_stitcher.total_shift_x;
    ASSERT_EQ(feed(view(-11, -3)), 1);
    EXPECT_NEAR(tarn_stitcher.total_shift_x - shift_x, 5.0f, 0.2f) << "the shift is gathered";
}

TEST_F(Motion, FrameRightOfAndBelowTheOriginMovesNothing)
{
    start();
    ASSERT_EQ(feed(view(6, 3)), 1);
    EXPECT_EQ(tarn_stitcher.total_shift_x, 0.0f);
    EXPECT_EQ(tarn_stitcher.total_shift_y, 0.0f);
    EXPECT_EQ(tarn_stitcher.last_warp_points[2], cv::Point2f(240, 180));
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
    EXPECT_EQ(tarn_stitcher.last_warp_points[0],
              cv::Point2f(tarn_stitcher.total_shift_x, tarn_stitcher.total_shift_y));
    EXPECT_TRUE(same_pixels(reference().homo, homo));
    EXPECT_EQ(tarn_stitcher.last_stitch_image.data, preview);
    EXPECT_TRUE(tarn_stitcher.last_move_distances.empty());
}

TEST_F(Motion, SidesFrom2To4000PixelsPassAndNoOthers)
{
    const cv::Size size(250, 200);
    const auto accepted = [&](double x_scale, double y_scale) {
        resetStitch(directory().c_str());
        start(size);
        reference().homo = matrix({x_scale, 0, 0, 0, y_scale, 0, 0, 0, 1});
        const int code = feed(view(0, 0, size));
        EXPECT_EQ(code, 1);
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
        return tarn_stitcher.failed_count == 0;
    };
    EXPECT_TRUE(accepted(16.0, 1.0)) << "width of 4000";
    EXPECT_FALSE(accepted(16.00001, 1.0));
    EXPECT_TRUE(accepted(1.0, 20.0)) << "height of 4000";
    EXPECT_FALSE(accepted(1.0, 20.00001));
    EXPECT_TRUE(accepted(0.008, 1.0)) << "width of 2";
    EXPECT_FALSE(accepted(0.007999, 1.0));
    EXPECT_TRUE(accepted(1.0, 0.01)) << "height of 2";
    EXPECT_FALSE(accepted(1.0, 0.009999));
}

TEST_F(Motion, FrameOfWrongSizeFailsButItsShiftStays)
{
    start();
    reference().homo = matrix({20, 0, -100, 0, 1, -50, 0, 0, 1});
    feed(view(0, 0));
    EXPECT_EQ(tarn_stitcher.failed_count, 1);
    EXPECT_NEAR(tarn_stitcher.total_shift_x, 100.0f, 1e-3f);
    EXPECT_NEAR(tarn_stitcher.total_shift_y, 50.0f, 1e-3f);
    EXPECT_NEAR(tarn_stitcher.last_warp_points[0].x, 100.0f, 1e-3f);
    EXPECT_EQ(tarn_stitcher.last_stitch_image.size(), usual_size);
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

TEST_F(KeyFrame, OverlapBelowTheLimitMakesAKeyFrameAndOverlapAtItDoesNot)
{
    start();
    reference().base_homo = moved_by(30.5, 0);
    const cv::Mat frame = view(0, 0);
    const float iou = measured(frame).iou;
    EXPECT_NEAR(iou, 210.0f / 270.0f, 1e-6f);

    tarn_stitcher.iou_thresh = iou;
    EXPECT_EQ(feed(frame), 1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);

    reference().base_homo = moved_by(30.5, 0);
    tarn_stitcher.iou_thresh = std::nextafter(iou, 1.0f);
    EXPECT_EQ(feed(frame), 1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    EXPECT_EQ(take_launches(), std::vector<int>({1, 2}));
}

TEST_F(KeyFrame, ChangeOfDirectionMakesOneOnlyBelowAnOverlapOf09)
{
    // Boxes of 190 columns, 10 apart: 180 of 200 columns overlap. As a float 0.9 lies below the double 0.9.
    const cv::Size size(190, 100);
    const auto big_frames = [&](double base_shift, int last_direction) {
        resetStitch(directory().c_str());
        start(size);
        tarn_stitcher.last_direction = last_direction;
        reference().base_homo = moved_by(base_shift, 0.5);
        EXPECT_EQ(feed(view(4, 0, size)), 1);
        EXPECT_EQ(tarn_stitcher.last_direction, moving_right);
        return tarn_stitcher.big_frame_index;
    };
    EXPECT_EQ(big_frames(6.5, moving_down), 2) << "overlap of 0.9f";
    EXPECT_EQ(big_frames(5.5, moving_down), 1) << "overlap of 181 / 199";
    EXPECT_EQ(big_frames(20.5, moving_left), 2) << "overlap of 166 / 214";
    EXPECT_EQ(big_frames(20.5, moving_right), 1) << "no change of direction";
    EXPECT_EQ(big_frames(20.5, no_direction), 1) << "the first direction seen is no change";
}

TEST_F(KeyFrame, UndecidedMotionIsNoChangeOfDirection)
{
    start();
    tarn_stitcher.last_direction = moving_left;
    reference().base_homo = moved_by(20.5, 0);
    EXPECT_EQ(feed(view(0, 0)), 1);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 1);
}

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
    EXPECT_LT(tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(5, 4),
                                            usual_size),
              0.3);
    EXPECT_EQ(feed(view(10, 8)), 1);
    EXPECT_LT(tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(10, 8),
                                            usual_size),
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
    EXPECT_LT(tarn::test::mean_corner_error(cv::Matx33d(reference().base_homo), tarn::test::translation(4, 0),
                                            usual_size),
              0.3);
    EXPECT_LT(
        tarn::test::mean_corner_error(cv::Matx33d(reference().homo), tarn::test::translation(9, 0), usual_size),
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
    reference().homo =
        matrix(tarn::test::translation(120, 90) * cv::Matx33d(c, -s, 0, s, c, 0, 0, 0, 1)
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
    EXPECT_TRUE(same_pixels(preview(cv::Rect(box.x + 1, box.y + 1, 4, 4)),
                            before(cv::Rect(box.x + 1, box.y + 1, 4, 4))));
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
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again),
                                    "no thread");
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

TEST_F(Grade, InliersDecideBetween1And2And3)
{
    const std::vector<std::pair<int, int>> expected = {{12, 3}, {19, 3}, {20, 2}, {49, 2}, {50, 1}, {70, 1}};
    for (const auto& [inliers, code] : expected) {
        resetStitch(directory().c_str());
        ASSERT_EQ(feed(dots(inliers)), 1) << "the first frame is not graded";
        const cv::Mat next = dots(inliers, {3, 0});
        ASSERT_EQ(measured(next).in_count, inliers);
        EXPECT_EQ(feed(next), code) << inliers;
    }
}

TEST_F(Grade, InliersAreGradedOnKeyFramesToo)
{
    feed(dots(30));
    tarn_stitcher.iou_thresh = 2.0f;
    EXPECT_EQ(feed(dots(30, {3, 0})), 2);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
}

TEST_F(Grade, SpeedIsFirstJudgedOnTheSixthAcceptedFrameAfterTheFirstWithAWindowOf5)
{
    tarn_stitcher.failed_thresh = 5;
    start();
    for (int i = 1; i <= 5; ++i) {
        EXPECT_EQ(feed(view(12 * i, 0)), 1) << i;
        EXPECT_EQ(tarn_stitcher.last_move_distances.size(), static_cast<std::size_t>(i));
    }
    for (int i = 6; i <= 9; ++i) {
        EXPECT_EQ(feed(view(12 * i, 0)), 5) << i;
        EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 5U);
    }
}

TEST_F(Grade, SpeedWindowIsTenFramesByDefault)
{
    start();
    for (int i = 1; i <= 12; ++i)
        EXPECT_EQ(feed(view(12 * i, 0)), i <= 10 ? 1 : 5) << i;
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 10U);
}

TEST_F(Grade, MeanSpeedOfExactly10IsNotTooFast)
{
    start();
    tarn_stitcher.failed_thresh = 4;
    // The same view again has moved by nothing. The oldest entry goes before the mean is taken.
    tarn_stitcher.last_move_distances = {1000.0f, 10.0f, 10.0f, 20.0f};
    EXPECT_EQ(feed(view(0, 0)), 1);
    ASSERT_EQ(tarn_stitcher.last_move_distances.size(), 4U);
    EXPECT_NEAR(tarn_stitcher.last_move_distances[3], 0.0f, 1e-4f);

    tarn_stitcher.last_move_distances = {0.0f, 10.0f, 10.0f, 20.01f};
    EXPECT_EQ(feed(view(0, 0)), 5);
}

TEST_F(Grade, OnlyOneEntryLeavesAWindowThatIsTooLong)
{
    start();
    tarn_stitcher.failed_thresh = 2;
    tarn_stitcher.last_move_distances = {30.0f, 30.0f, 30.0f, 30.0f};
    EXPECT_EQ(feed(view(0, 0)), 5) << "mean of 30, 30, 30 and 0";
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 4U);
}

TEST_F(Grade, WindowOf0JudgesNothing)
{
    start();
    tarn_stitcher.failed_thresh = 0;
    EXPECT_EQ(feed(view(12, 0)), 1);
    EXPECT_TRUE(tarn_stitcher.last_move_distances.empty());
}

TEST_F(Grade, NegativeWindowJudgesNothingAndDoesNotGrow)
{
    start();
    tarn_stitcher.failed_thresh = -5;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(feed(view(12 * i, 0)), 1) << i;
        EXPECT_TRUE(tarn_stitcher.last_move_distances.empty()) << i;
    }
}

TEST_F(Grade, RejectedFramesDoNotEnterTheWindow)
{
    start();
    feed(view(3, 0));
    feed(blank());
    feed(view(-9, 0), moving_right);
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
}

TEST_F(Grade, DistanceIsThatOfTheFramesCentreInWholePixels)
{
    // With corners left out of account: a turn about the centre (120, 90) moves it by nothing.
    start(cv::Size(241, 181));
    const double c = std::cos(2 * CV_PI / 180);
    const double s = std::sin(2 * CV_PI / 180);
    const cv::Mat turned_about_centre =
        matrix(tarn::test::translation(120, 90) * cv::Matx33d(c, -s, 0, s, c, 0, 0, 0, 1)
               * tarn::test::translation(-120, -90));
    cv::Mat frame;
    cv::warpPerspective(view(0, 0, cv::Size(241, 181)), frame, turned_about_centre, cv::Size(241, 181),
                        cv::INTER_LINEAR, cv::BORDER_REFLECT_101);
    feed(frame);
    ASSERT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
    EXPECT_LT(tarn_stitcher.last_move_distances[0], 0.15f);
}

/// A direction and the greatest deviation of a corner from 90 degrees that passes in it.
struct skew_case {
    int direction;
    float limit;

    friend std::ostream& operator<<(std::ostream& stream, const skew_case& skew)
    {
        return stream << tarn::test::direction_name(skew.direction) << ", " << skew.limit << " degrees";
    }
};

class GradeSkew : public LiveRegistration, public testing::WithParamInterface<skew_case> {};

TEST_P(GradeSkew, DeviationAtTheLimitPassesAndAnyMoreAnswers6)
{
    const auto [direction, limit] = GetParam();
    start();
    tarn_stitcher.last_direction = direction;
    const cv::Mat frame = view(0, 0);
    const auto deviation = [&](double outwards) {
        reference().base_homo = stretched(0, outwards);
        return measured(frame).maxa;
    };

    // The stretch at which the deviation is the limit to the last bit, then the first one beyond it.
    double below = 0.0;
    double above = 60.0;
    while (above - below > 1e-6)
        (deviation((below + above) / 2) < limit ? below : above) = (below + above) / 2;
    double exact = below;
    while (deviation(exact) < limit)
        exact += 1e-7;
    ASSERT_EQ(deviation(exact), limit);
    EXPECT_EQ(feed(frame), 1);

    double more = exact;
    while (deviation(more) <= limit)
        more += 1e-7;
    EXPECT_NEAR(deviation(more), limit, 1e-4f);
    EXPECT_EQ(feed(frame), 6);
    EXPECT_EQ(tarn_stitcher.failed_count, 0) << "the frame is accepted all the same";
}

INSTANTIATE_TEST_SUITE_P(AllDirections, GradeSkew,
                         testing::Values(skew_case{moving_down, 5.0f}, skew_case{moving_up, 5.0f},
                                         skew_case{moving_right, 8.0f}, skew_case{moving_left, 8.0f}),
                         [](const auto& suite) { return tarn::test::direction_name(suite.param.direction); });

TEST_F(Grade, SkewIsNotJudgedWithoutADirection)
{
    start();
    reference().base_homo = leaning(0.3);
    EXPECT_EQ(feed(view(0, 0)), 1);
    EXPECT_EQ(tarn_stitcher.last_direction, 0);
}

TEST_F(Grade, SkewIsTheGreatestOfTheFourDeviations)
{
    for (int corner = 0; corner < 4; ++corner) {
        resetStitch(directory().c_str());
        start();
        tarn_stitcher.last_direction = moving_right;
        reference().base_homo = stretched(corner, 24.0);
        const std::vector<float> angles = measured(view(0, 0)).last_angles;
        for (int other = 0; other < 4; ++other) {
            const float deviation = std::fabs(angles[static_cast<std::size_t>(other)] - 90.0f);
            ASSERT_EQ(deviation > 8.0f, other == corner);
        }
        EXPECT_EQ(feed(view(0, 0)), 6) << corner;
    }
}

TEST_F(Grade, SkewWinsOverSpeedAndSpeedOverInliers)
{
    const auto code_of = [&](int count, float distance, double lean) {
        resetStitch(directory().c_str());
        EXPECT_EQ(feed(dots(count)), 1);
        tarn_stitcher.last_direction = moving_right;
        tarn_stitcher.failed_thresh = 3;
        tarn_stitcher.last_move_distances.assign(3, distance);
        reference().base_homo = leaning(lean);
        return feed(dots(count));
    };
    EXPECT_EQ(code_of(60, 1, 0.0), 1);
    EXPECT_EQ(code_of(19, 1, 0.0), 3);
    EXPECT_EQ(code_of(30, 1, 0.0), 2);
    EXPECT_EQ(code_of(19, 40, 0.0), 5);
    EXPECT_EQ(code_of(30, 40, 0.0), 5);
    EXPECT_EQ(code_of(19, 40, 0.2), 6);
    EXPECT_EQ(code_of(60, 40, 0.2), 6);
    EXPECT_EQ(code_of(30, 1, 0.2), 6);
}

// --------------------------------------------------------------------------------- what the workers are given

/// Workers run here.
class HandOff : public tarn::test::stitcher_fixture {
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
        std::ifstream file(directory() + "big_frame" + std::to_string(big_frame_index) + ".jpg",
                           std::ios::binary);
        const std::vector<uchar> found((std::istreambuf_iterator<char>(file)),
                                       std::istreambuf_iterator<char>());
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

// ---------------------------------------------------------------------------------------------- hostile input

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
    for (const float value :
         {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e30f}) {
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

TEST_F(FrameIntake, FirstFrameOfFloatsBeginsNoPanorama)
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
    for (const cv::Size size :
         {cv::Size(180, 240), cv::Size(241, 180), cv::Size(600, 400), cv::Size(120, 90)}) {
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

// ------------------------------------------------------------------------------------------- images used again

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
        held.push_back(x % 3 == 2 ? tarn_stitcher.last_frame(cv::Rect(5, 5, 50, 50))
                                  : tarn_stitcher.last_frame);
    }
    for (int x = 0; x < 12; ++x) {
        const cv::Mat frame = view(x, 0);
        EXPECT_TRUE(
            same_pixels(held[static_cast<std::size_t>(x)], x % 3 == 2 ? frame(cv::Rect(5, 5, 50, 50)) : frame))
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

// ------------------------------------------------------------------------------- against the plain list of steps

/// One random sweep: motions, jumps, blank and spoiled frames, hints, limits. Everything must agree after each.
class AgainstPlainSteps : public LiveRegistration, public testing::WithParamInterface<int> {};

TEST_P(AgainstPlainSteps, RandomSweepAgreesFieldByFieldToTheLastBit)
{
    cv::RNG random(static_cast<std::uint64_t>(GetParam()) * 7919 + 17);
    const cv::Size sizes[] = {{240, 180}, {160, 300}, {301, 200}, {480, 360}, {299, 299}};
    const cv::Size size = sizes[random.uniform(0, 5)];
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(1024, 1024));
    const auto new_task = [&] {
        resetStitch(directory().c_str());
        tarn_stitcher.iou_thresh = random.uniform(0.6f, 0.98f);
        tarn_stitcher.failed_thresh = random.uniform(2, 11);
        tarn_stitcher.matches_thresh = random.uniform(0, 25);
        tarn_stitcher.inline_thresh = random.uniform(0.0f, 0.8f);
        tarn_stitcher.area_thresh = random.uniform(0.3f, 0.9f);
    };
    new_task();
    const double unit = std::max(1.0, size.width / 300.0);

    plain_live_path plain(tarn_stitcher);
    cv::Point2d position(300, 300);
    cv::Point2d velocity(random.uniform(-9.0, 9.0), random.uniform(-9.0, 9.0));
    cv::Matx33d bend = cv::Matx33d::eye();
    std::size_t launches = 0;
    std::size_t key_frames = 0;
    std::vector<std::pair<cv::Mat, cv::Mat>> kept;
    const int length = 50;
    for (int i = 0; i < length; ++i) {
        if (plain.failed_count > 12) {  // lost: another sweep from here
            new_task();
            const int code = plain.code;
            plain = plain_live_path(tarn_stitcher);
            plain.code = code;
            launches = 0;
            bend = cv::Matx33d::eye();
        }
        if (random.uniform(0, 8) == 0)
            velocity = {random.uniform(-14.0, 14.0), random.uniform(-14.0, 14.0)};
        if (random.uniform(0, 25) == 0)
            velocity = -velocity;
        position += velocity * unit;
        position.x = std::clamp(position.x, 40.0, 500.0);
        position.y = std::clamp(position.y, 40.0, 500.0);
        bend(0, 1) += random.gaussian(0.006);
        bend(1, 0) += random.gaussian(0.004);
        bend(2, 0) += random.gaussian(1.5e-5 / unit);
        bend(2, 1) += random.gaussian(1.5e-5 / unit);
        cv::Mat frame;
        cv::warpPerspective(plane, frame, tarn::test::translation(position.x, position.y) * bend, size,
                            cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT_101);
        switch (random.uniform(0, 20)) {
        case 0:
            frame = blank(size);
            break;
        case 1:
            cv::flip(frame, frame, 1);
            break;
        case 2:
            random.fill(frame, cv::RNG::UNIFORM, 0, 256);
            break;
        case 3:
            cv::GaussianBlur(frame, frame, cv::Size(0, 0), 6.0);
            break;
        case 4:
            frame(cv::Rect(0, 0, size.width, size.height / 2)).setTo(cv::Scalar::all(90));
            break;
        default:
            break;
        }
        const int hint = random.uniform(0, 3) == 0 ? random.uniform(0, 5) : 0;

        // What a host may keep: pixels that never change.
        if (random.uniform(0, 4) == 0) {
            for (const cv::Mat& image : {tarn_stitcher.last_frame, getCurrentPanoramsShowMat(),
                                         tarn_stitcher.last_check_data.scaled_gray_frame}) {
                kept.emplace_back(image, image.clone());
            }
        }
        if (random.uniform(0, 30) == 0)
            kept.clear();
        // What a host may write.
        if (plain.frame_index > 0 && random.uniform(0, 25) == 0) {
            const uchar value = static_cast<uchar>(random.uniform(0, 256));
            for (cv::Mat* reference :
                 {&plain.reference_gray, &tarn_stitcher.last_check_data.scaled_gray_frame}) {
                *reference = reference->clone();
                reference->col(reference->cols / 2).setTo(value);
            }
        }

        cv::setNumThreads(random.uniform(1, 3));
        const int code = random.uniform(0, 2) == 0
                             ? videoStitch(tarn::test::host_frame_from(frame), hint, 0)[0]
                             : tarn_stitcher.ofcheck_stitch(frame = frame.clone(), hint, 0)[0];
        EXPECT_EQ(code, plain.feed(frame, hint)) << "frame " << i;
        const cv::Mat preview = getCurrentPanoramsShowMat();
        ASSERT_TRUE(preview.empty() || preview.isContinuous());
        for (const auto& [image, copy] : kept)
            ASSERT_TRUE(same_pixels(image, copy)) << "frame " << i;
        ASSERT_EQ(plain.differences(tarn_stitcher), "") << "frame " << i << " of sweep " << GetParam();
        launches += take_launches().size();
        ASSERT_EQ(launches, plain.hand_offs.size());
        key_frames += launches > 1 ? 1 : 0;
    }
    EXPECT_GT(key_frames, 0U) << "a sweep that went nowhere proves little";
}

INSTANTIATE_TEST_SUITE_P(Sweeps, AgainstPlainSteps, testing::Range(0, 16));

// The preview is a field that a host may set.
TEST_F(LiveRegistration, PreviewOfAnotherKindIsGrownAsThePlainStepsGrowIt)
{
    const cv::Mat large = view(0, 0, cv::Size(640, 480));
    for (const cv::Mat& preview :
         {cv::Mat(), cv::Mat(0, 240, CV_8UC3), cv::Mat(180, 0, CV_8UC3), cv::Mat(0, 240, CV_8UC1), large,
          large(cv::Rect(10, 20, 300, 200)), cv::Mat(180, 240, CV_8UC1, cv::Scalar(90)),
          cv::Mat(180, 240, CV_8UC4, cv::Scalar::all(90)), cv::Mat(180, 240, CV_16UC3, cv::Scalar::all(300)),
          cv::Mat(180, 240, CV_32FC3, cv::Scalar::all(7.5)),
          cv::Mat(2000, 2000, CV_8UC4, cv::Scalar::all(9))}) {
        resetStitch(directory().c_str());
        int code = 0;
        for (const int x : {0, 25}) {
            code = videoStitch(tarn::test::host_frame_from(view(x, 0)), no_direction, 0)[0];
        }
        ASSERT_EQ(tarn_stitcher.big_frame_index, 1);
        tarn_stitcher.last_stitch_image = preview;
        plain_live_path expected(tarn_stitcher);
        expected.code = code;
        const cv::Mat frame = tarn::test::host_frame_from(view(50, 0));
        EXPECT_EQ(videoStitch(frame, no_direction, 0)[0], expected.feed_host_frame(frame, no_direction));
        EXPECT_EQ(expected.differences(tarn_stitcher), "") << preview.size() << ", type " << preview.type();
        EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    }
}

// ---------------------------------------------------------------------------------------------- short of memory

class ShortOfMemory : public LiveRegistration, public testing::WithParamInterface<int> {};

TEST_P(ShortOfMemory, FrameFedAgainIsRegisteredAsByPlainSteps)
{
    cv::setNumThreads(GetParam());
    // Each allocation that the second frame takes fails once. The frames are of another size every time, so that
    // no storage is there from the time before.
    bool fails = true;
    int number = 1;
    for (; fails; ++number) {
        resetStitch(directory().c_str());
        const cv::Size size(200 + number, 150);
        const cv::Mat first = tarn::test::host_frame_from(view(0, 0, size));
        const cv::Mat second = tarn::test::host_frame_from(view(5, 2, size));
        const cv::Mat third = tarn::test::host_frame_from(view(9, 1, size));
        ASSERT_EQ(videoStitch(first, no_direction, 0)[0], 1);
        {
            const tarn::test::watched_allocations short_of_memory(number, tarn::test::run_out_of_memory);
            videoStitch(second, no_direction, 0);
            fails = short_of_memory.came_so_far();
        }
        plain_live_path plain(tarn_stitcher);
        for (const cv::Mat& frame : {second, third}) {
            const int code = videoStitch(frame, no_direction, 0)[0];
            EXPECT_EQ(code, plain.feed_host_frame(frame, no_direction)) << "allocation " << number;
            ASSERT_EQ(plain.differences(tarn_stitcher), "") << "allocation " << number;
        }
    }
    EXPECT_GT(number, 20) << "so many images a frame takes at least";
}

INSTANTIATE_TEST_SUITE_P(Threads, ShortOfMemory, testing::Values(1, 2));

}  // namespace
