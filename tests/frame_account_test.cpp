// SPDX-License-Identifier: Apache-2.0
//
// What is told of a frame beside its code, of a worker's failure beside the state, and where the log goes.
#include <cmath>
#include <new>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/frame_account.h"
#include "internal/frame_geometry.h"
#include "internal/log.h"
#include "support/live_fixture.h"
#include "support/worker_stepper.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::frame_account;
using tarn::reason;

class FrameAccount : public LiveRegistration {
protected:
    static const frame_account& account_of(const cv::Mat& frame, int direction = 0, int is_last_one = 0)
    {
        cv::Mat input = frame;
        tarn_stitcher.ofcheck_stitch(input, direction, is_last_one);
        return tarn::account_of_this_thread();
    }

    static void expect_outline(const frame_account& account, cv::Point2f at, float tolerance = 0.5f)
    {
        const tarn::points frame = tarn::corners_of(usual_size);
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(account.answer.outline[i].x, frame[i].x + at.x, tolerance) << i;
            EXPECT_NEAR(account.answer.outline[i].y, frame[i].y + at.y, tolerance) << i;
        }
    }

    static void expect_plane(const frame_account& account, double x, double y, double tolerance = 0.7)
    {
        EXPECT_LT(mean_corner_error(account.plane_from_frame, translation(x, y), usual_size), tolerance);
    }
};

TEST_F(FrameAccount, FirstFrame)
{
    const frame_account& account = account_of(view(0, 0));
    EXPECT_EQ(account.answer.code, tarn::code_normal);
    EXPECT_EQ(account.answer.why, reason::none);
    EXPECT_TRUE(account.answer.taken);
    EXPECT_TRUE(account.answer.placed);
    EXPECT_FALSE(account.answer.registered) << "there was nothing to compare it with";
    EXPECT_EQ(account.answer.key_frame, 1);
    EXPECT_EQ(account.answer.key_frames, 1);
    EXPECT_EQ(account.answer.corners_found, 80);
    EXPECT_EQ(account.working_size, usual_size);
    expect_outline(account, {0, 0}, 0.0f);
    expect_plane(account, 0, 0, 1e-12);
}

TEST_F(FrameAccount, OrdinaryFrameAndKeyFrame)
{
    start();
    const frame_account ordinary = account_of(view(5, 2));
    EXPECT_TRUE(ordinary.answer.taken);
    EXPECT_TRUE(ordinary.answer.placed);
    EXPECT_TRUE(ordinary.answer.registered);
    EXPECT_EQ(ordinary.answer.key_frame, 0);
    EXPECT_EQ(ordinary.answer.key_frames, 1);
    EXPECT_EQ(ordinary.answer.direction, tarn::direction_right);
    EXPECT_NEAR(ordinary.answer.move_distance, std::hypot(5.0, 2.0), 0.1);
    EXPECT_GT(ordinary.answer.corners_tracked, 50);
    EXPECT_GT(ordinary.answer.inliers, 50);
    EXPECT_LE(ordinary.answer.inliers, ordinary.answer.corners_tracked);
    EXPECT_NEAR(ordinary.answer.overlap, 0.94f, 0.03f);
    EXPECT_NEAR(ordinary.answer.angles[2], 90.0f, 0.5f);
    expect_outline(ordinary, {5, 2});
    expect_plane(ordinary, 5, 2);

    tarn_stitcher.iou_thresh = 2.0f;
    const frame_account key = account_of(view(9, 2));
    EXPECT_EQ(key.answer.key_frame, 2);
    EXPECT_EQ(key.answer.key_frames, 2);
    expect_plane(key, 9, 2);
}

TEST_F(FrameAccount, PlaneStaysThatOfTheFirstFrameWhateverThePreviewDoes)
{
    start();
    expect_plane(account_of(view(-8, -3)), -8, -3);
    expect_outline(tarn::account_of_this_thread(), {-8, -3});
    // A rejected frame's move of the preview's origin stays in the task, and counts for nothing here.
    const cv::Mat homo = reference().homo.clone();
    reference().homo = matrix({20, 0, -100, 0, 1, -50, 0, 0, 1});
    EXPECT_EQ(account_of(view(-8, -3)).answer.why, reason::out_of_scale);
    EXPECT_GT(tarn_stitcher.total_shift_x, 100.0f);
    reference().homo = homo;
    expect_plane(account_of(view(-12, -3)), -12, -3);

    tarn_stitcher.iou_thresh = 2.0f;
    expect_plane(account_of(view(-16, -6)), -16, -6);
    EXPECT_EQ(tarn_stitcher.total_shift_x, 0.0f) << "begins anew";
    tarn_stitcher.iou_thresh = 0.7f;
    expect_plane(account_of(view(-20, -6)), -20, -6, 1.0);

    resetStitch(directory().c_str());
    expect_plane(account_of(view(0, 0)), 0, 0, 1e-12);
}

TEST_F(FrameAccount, RejectedFrameTellsWhyAndShowsTheOneBefore)
{
    struct row {
        reason why;
        void (*spoil)();
        cv::Mat frame;
        int hint;
        int corners, tracked;  ///< at least
        bool registered;
    };

    const std::vector<row> rows = {
        {reason::too_few_corners, [] {}, blank(), 0, 0, 0, false},
        {reason::too_few_tracked,
         [] {
             reference().good_keypoints.assign(5, {-500, -500});
         },
         view(8, 0), 0, 80, 0, false},
        {reason::implausible_shape, [] { tarn_stitcher.angle_thresh = -1.0f; }, view(8, 0), 0, 80, 50, false},
        {reason::too_few_inliers, [] { tarn_stitcher.inline_thresh = 2.0f; }, view(8, 0), 0, 80, 50, false},
        {reason::against_the_hint, [] {}, view(12, 0), moving_left, 80, 50, false},
        {reason::not_convex,
         [] {
             reference().homo = matrix({1, 0, 0, 0, 1, 0, -1.0 / 120, 0, 1});
         },
         view(8, 0), 0, 80, 50, true},
        {reason::out_of_scale,
         [] {
             reference().homo = matrix({20, 0, 0, 0, 1, 0, 0, 0, 1});
         },
         view(8, 0), 0, 80, 50, true},
    };
    for (const row& row : rows) {
        resetStitch(directory().c_str());
        start();
        ASSERT_TRUE(account_of(view(4, 0)).answer.taken);
        row.spoil();
        const frame_account& account = account_of(row.frame, row.hint);
        const int what = static_cast<int>(row.why);
        EXPECT_EQ(account.answer.why, row.why);
        EXPECT_EQ(account.answer.code, row.why == reason::against_the_hint ? tarn::code_wrong_way : tarn::code_normal);
        EXPECT_FALSE(account.answer.taken) << what;
        EXPECT_FALSE(account.answer.placed) << what;
        EXPECT_EQ(account.answer.registered, row.registered) << what;
        EXPECT_EQ(account.answer.key_frame, 0) << what;
        EXPECT_EQ(account.answer.key_frames, 1) << what;
        EXPECT_GE(account.answer.corners_found, row.corners) << what;
        EXPECT_GE(account.answer.corners_tracked, row.tracked) << what;
        EXPECT_EQ(account.answer.direction, tarn::direction_right) << what;
        if (row.why != reason::not_convex && row.why != reason::out_of_scale) {
            expect_outline(account, {4, 0});
        }
    }
}

TEST_F(FrameAccount, FrameThatIsNotLookedAt)
{
    start();
    tarn_stitcher.stitcher_status = tarn::live_registering;
    EXPECT_EQ(account_of(view(3, 0)).answer.why, reason::busy);
    EXPECT_EQ(tarn::account_of_this_thread().answer.code, tarn::code_lost);
    tarn_stitcher.stitcher_status = tarn::live_finished;
    big_stitch_status = tarn::pipeline_failed;
    for (const int is_last_one : {0, 1}) {
        const frame_account& account = account_of(view(3, 0), 0, is_last_one);
        EXPECT_EQ(account.answer.why, reason::pipeline_failed);
        EXPECT_EQ(account.answer.code, tarn::code_pipeline_failed);
        EXPECT_FALSE(account.answer.taken);
        EXPECT_EQ(account.answer.key_frames, 1);
        expect_outline(account, {0, 0});
    }
}

TEST_F(FrameAccount, LastFrame)
{
    start();
    release_workers();
    const frame_account& account = account_of(view(10, 0), 0, 1);
    EXPECT_EQ(account.answer.code, tarn::code_normal);
    EXPECT_TRUE(account.answer.taken);
    EXPECT_FALSE(account.answer.placed);
    EXPECT_FALSE(account.answer.registered);
    EXPECT_EQ(account.answer.key_frame, 2);
    EXPECT_EQ(account.answer.key_frames, 2);
    expect_outline(account, {0, 0});
}

TEST_F(FrameAccount, FrameThatRaisesSaysWhatItWas)
{
    start();
    videoStitch(cv::Mat(), 0, 0);
    EXPECT_EQ(tarn::account_of_this_thread().answer.why, reason::unusable_frame);
    EXPECT_NE(tarn::account_of_this_thread().answer.detail, "");
    EXPECT_FALSE(tarn::account_of_this_thread().answer.taken);

    tarn_stitcher.iou_thresh = 2.0f;
    on_worker_stage([](tarn::worker_stage stage, int) {
        if (stage == tarn::worker_stage::launching) {
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no thread");
        }
    });
    videoStitch(host_frame_from(view(5, 0)), 0, 0);
    EXPECT_EQ(tarn::account_of_this_thread().answer.why, reason::no_thread);
    EXPECT_EQ(tarn::account_of_this_thread().answer.key_frames, 2);
    on_worker_stage(nullptr);
}

TEST_F(FrameAccount, IsEachThreadsOwn)
{
    start();
    std::thread other([] { EXPECT_EQ(tarn::account_of_this_thread().answer.key_frames, 0); });
    other.join();
    EXPECT_EQ(tarn::account_of_this_thread().answer.key_frames, 1);
}

TEST(ReasonOf, TellsMemoryAndThreadsFromTheRest)
{
    EXPECT_EQ(tarn::reason_of(std::bad_alloc()), reason::no_memory);
    EXPECT_EQ(tarn::reason_of(cv::Exception(cv::Error::StsNoMem, "", "", "", 0)), reason::no_memory);
    EXPECT_EQ(tarn::reason_of(cv::Exception(cv::Error::StsAssert, "", "", "", 0)), reason::unusable_frame);
    EXPECT_EQ(tarn::reason_of(std::system_error(std::make_error_code(std::errc::invalid_argument))), reason::no_thread);
    EXPECT_EQ(tarn::reason_of(std::runtime_error("")), reason::unusable_frame);
}

// ------------------------------------------------------------------------------------------- a worker's failure

class WorkerFailure : public worker_fixture {
protected:
    static void expect_failure(int frame, reason why)
    {
        const tarn::pipeline_snapshot now = tarn::look_at_pipeline();
        EXPECT_EQ(now.status, tarn::pipeline_failed);
        EXPECT_EQ(now.first_failed_frame, frame);
        EXPECT_EQ(now.first_failure, why);
    }
};

TEST_F(WorkerFailure, NoneUntilThereIsOne)
{
    add_key_frame(1);
    EXPECT_EQ(tarn::look_at_pipeline().first_failure, reason::none);
}

TEST_F(WorkerFailure, FrameWithoutMatches)
{
    add_key_frame(1);
    neighbour_descriptors = neighbour_descriptors.rowRange(0, 19);
    add_key_frame(2);
    expect_failure(2, reason::too_few_matches);
}

TEST_F(WorkerFailure, FrameThatWouldMakeThePanoramaTooLarge)
{
    add_key_frame(1);
    neighbour_homo = cv::Mat(translation(20000, 0)).clone();
    add_key_frame(2);
    expect_failure(2, reason::too_large);
}

TEST_F(WorkerFailure, FrameWithoutPixels)
{
    stitch_big_image(cv::Mat(), right_angles(), full_size(), 0, 1);
    expect_failure(1, reason::unusable_frame);
}

TEST_F(WorkerFailure, TurnThatDoesNotCome)
{
    tarn::store_release(max_wait_seconds, 0);
    stitch_big_image(key_frame(1), right_angles(), full_size(), 0, 2);
    expect_failure(2, reason::timed_out);
}

TEST_F(WorkerFailure, FirstOneIsToldAndForgottenWithItsTask)
{
    stitch_big_image(cv::Mat(), right_angles(), full_size(), 0, 1);
    tarn::store_release(big_stitch_status, tarn::pipeline_ready);
    tarn::store_release(max_wait_seconds, 0);
    stitch_big_image(key_frame(1), right_angles(), full_size(), 0, 7);
    expect_failure(1, reason::unusable_frame);
    resetStitch(directory().c_str());
    EXPECT_EQ(tarn::look_at_pipeline().first_failure, reason::none);
}

// ------------------------------------------------------------------------------------------------------- the log

/// Takes nothing.
class full_disk : public std::streambuf {};

class Log : public LiveRegistration {};

TEST_F(Log, OfOneThreadMayGoElsewhere)
{
    std::ostringstream elsewhere;
    {
        const tarn::log_redirection redirected(elsewhere);
        videoStitch(host_frame_from(view(0, 0)), 0, 0);
        std::thread other([] { tarn::log_line("other"); });
        other.join();
    }
    tarn::log_line("later");
    EXPECT_EQ(elsewhere.str().rfind("input_frame shape is 180*180, type is 16main thread: videoStitch finish", 0), 0U);
    EXPECT_EQ(take_output(), "other\nlater\n");
}

TEST_F(Log, ThatCannotBeWrittenCostsNoFrame)
{
    full_disk full;
    std::ostream stream(&full);
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    const tarn::log_redirection redirected(stream);
    EXPECT_EQ(videoStitch(host_frame_from(view(0, 0)), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    EXPECT_NO_THROW(videoStitch(cv::Mat(), 0, 0));
    EXPECT_EQ(videoStitch(host_frame_from(view(4, 0)), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.last_move_distances.size(), 1U);
    EXPECT_FALSE(stream.good());
}

}  // namespace
