// SPDX-License-Identifier: Apache-2.0
//
// The protocol by which workers take turns: the ticket, the status, the waits and their time-outs, the frame
// files, and workers that cannot be started.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <sys/resource.h>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/high_res_frame.h"
#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/stepped_time.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

// All stages from the beginning to the turn.
const std::vector<worker_stage> stages_before_the_turn = {worker_stage::started, worker_stage::frame_prepared,
                                                          worker_stage::frame_described, worker_stage::file_written};

void set_status(int status)
{
    tarn::store_release(big_stitch_status, status);
}

void set_ticket(int ticket)
{
    tarn::store_release(big_frame_num, ticket);
}

int status_now()
{
    return tarn::load_acquire(big_stitch_status);
}

int ticket_now()
{
    return tarn::load_acquire(big_frame_num);
}

/// The key frame as a worker prepares it without a projection.
cv::Mat prepared_key_frame(int index)
{
    return tarn::shrink_and_turn(key_frame(index));
}

// ---------------------------------------------------------------------------------------- turns and the ticket

class WorkerTurn : public worker_fixture {};

TEST_F(WorkerTurn, IndexOneAfterAResetBecomesTheBaseImageWithoutMatching)
{
    add_key_frame(1);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 1);
    EXPECT_TRUE(same_pixels(prepared_key_frame(1), big_stitch_image));
    EXPECT_EQ(neighbour_homo.type(), CV_64F);
    EXPECT_EQ(cv::norm(neighbour_homo, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
    EXPECT_EQ(neighbour_descriptors.type(), CV_32F);
    EXPECT_EQ(static_cast<size_t>(neighbour_descriptors.rows), neighbour_keypoints.size());
    EXPECT_GT(neighbour_keypoints.size(), 80U);  // differs by processor: 100 on 64-bit ARM
    EXPECT_EQ(stepper.times_at(worker_stage::registered, 1), 0);
    EXPECT_EQ(stepper.times_at(worker_stage::turn_taken, 1), 1);
}

TEST_F(WorkerTurn, FrameWithoutAnyDetailCanBeTheBase)
{
    stitch_big_image(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 90, 90)), right_angles(), full_size(), 3, 1);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 1);
    EXPECT_TRUE(neighbour_keypoints.empty());
}

TEST_F(WorkerTurn, Status0MakesTheBaseWhateverTheIndex)
{
    set_ticket(4);

    add_key_frame(5);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 5);
    EXPECT_TRUE(same_pixels(prepared_key_frame(5), big_stitch_image));
}

TEST_F(WorkerTurn, SecondFrameIsRegisteredComposedAndBecomesTheNeighbour)
{
    add_key_frame(1);
    const shared_state base = look_at_shared_state();

    add_key_frame(2);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_NE(big_stitch_image.data, base.panorama.data);
    EXPECT_GT(big_stitch_image.rows, base.panorama.rows) << "turned, the sweep goes down";
    EXPECT_NE(neighbour_homo.data, base.homo.data);
    EXPECT_NE(neighbour_descriptors.data, base.descriptors.data);
    const tarn::described_frame described = tarn::describe(prepared_key_frame(2), stitch_feature_finder);
    EXPECT_EQ(neighbour_keypoints.size(), described.keypoints.size());
    EXPECT_TRUE(same_pixels(described.descriptors.reshape(1, 1), neighbour_descriptors.reshape(1, 1)));
    const std::vector<worker_stage> turn = {worker_stage::turn_taken, worker_stage::registered, worker_stage::composed};
    std::vector<worker_stage> all = stages_before_the_turn;
    all.insert(all.end(), turn.begin(), turn.end());
    EXPECT_EQ(stepper.stages_of(2), all);
}

TEST_F(WorkerTurn, StatusIs2FromTheBeginningOfTheTurnUntilItsEnd)
{
    std::vector<int> seen;
    for (const worker_stage stage :
         {worker_stage::file_written, worker_stage::turn_taken, worker_stage::registered, worker_stage::composed}) {
        stepper.at(stage, 2, [&seen] { seen.push_back(status_now()); });
    }
    add_key_frame(1);

    add_key_frame(2);

    EXPECT_EQ(seen, std::vector<int>({3, 2, 2, 2}));
    EXPECT_EQ(big_stitch_status, 3);
}

TEST_F(WorkerTurn, PanoramaAndNeighbourStayTheOldOnesUntilTheTurnEnds)
{
    add_key_frame(1);
    shared_state before = look_at_shared_state();
    before.status = 2;
    ::testing::AssertionResult unchanged = ::testing::AssertionFailure() << "never looked";
    stepper.at(worker_stage::composed, 2, [&] { unchanged = same_state(before, look_at_shared_state()); });

    add_key_frame(2);

    EXPECT_TRUE(unchanged);
}

TEST_F(WorkerTurn, TurnsRequestedOutOfOrderAreTakenInOrder)
{
    for (int i = 1; i <= 4; ++i) {
        add_key_frame(i);
    }
    const cv::Mat in_order = big_stitch_image;
    resetStitch(directory().c_str());

    stepper.hold_at(worker_stage::started, 1);
    for (const int index : {4, 3, 2, 1}) {
        launch_key_frame(index);
    }
    for (const int index : {4, 3, 2}) {
        ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_turn, index, 2));
    }
    EXPECT_EQ(ticket_now(), 0);
    EXPECT_EQ(status_now(), 0);
    stepper.let_go(worker_stage::started, 1);
    ASSERT_TRUE(wait_for_workers());

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 4);
    EXPECT_TRUE(same_pixels(in_order, big_stitch_image));
}

TEST_F(WorkerTurn, OnlyTheTurnIsSerialPreparationRunsBesideAnotherOnesTurn)
{
    stepper.hold_at(worker_stage::turn_taken, 1);
    launch_key_frame(1);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 1));

    launch_key_frame(2);

    ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_idle, 2, 3));
    EXPECT_EQ(stepper.stages_of(2).back(), worker_stage::polling_for_idle);
    EXPECT_TRUE(fs::exists(directory() + "big_frame2.jpg"));
    stepper.let_go(worker_stage::turn_taken, 1);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(WorkerTurn, TakesTheTurnWhateverTheStatusWas)
{
    for (const int old_status : {3, 4, 1, -7}) {
        SCOPED_TRACE(old_status);
        resetStitch(directory().c_str());
        add_key_frame(1);
        stepper.at(worker_stage::file_written, 2, [old_status] { set_status(old_status); });

        add_key_frame(2);

        EXPECT_EQ(big_stitch_status, 3);
        EXPECT_EQ(big_frame_num, 2);
    }
}

TEST_F(WorkerTurn, WaitingWorkerGoesOnAfterAPredecessorsFailureAndRevivesThePipeline)
{
    add_key_frame(1);
    const cv::Mat base = big_stitch_image;
    stepper.hold_at(worker_stage::turn_taken, 2);
    tarn::launch_worker(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 90, 90)), right_angles(), full_size(), 3, 2);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
    launch_key_frame(3);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_idle, 3));
    stepper.hold_at(worker_stage::turn_taken, 3);

    stepper.let_go(worker_stage::turn_taken, 2);

    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 3));
    EXPECT_EQ(tarn::look_at_pipeline().turns_over, 2);
    EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 2);
    stepper.let_go(worker_stage::turn_taken, 3);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 3);
    EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 2) << "the first failure stays on record";
    EXPECT_GT(big_stitch_image.rows, base.rows);
}

// ------------------------------------------------------------------- the ticket on every path out, by one each

class WorkerTicket : public worker_fixture {
protected:
    /// Runs `worker`, whose turn follows the ticket's present value, and checks what it leaves.
    void expect_way_out(const std::function<void()>& worker, int status)
    {
        const int ticket = big_frame_num;
        worker();
        EXPECT_EQ(big_frame_num, ticket + 1);
        EXPECT_EQ(big_stitch_status, status);
        EXPECT_EQ(take_output(), "") << "workers are silent";
    }

    static void make_base()
    {
        add_key_frame(1);
        ASSERT_EQ(big_frame_num, 1);
    }
};

TEST_F(WorkerTicket, RisesByOneWhenThePipelineHadFailedBefore)
{
    set_status(4);
    set_ticket(7);

    expect_way_out([] { add_key_frame(3); }, 4);

    EXPECT_EQ(stepper.stages_of(3), std::vector<worker_stage>({worker_stage::started}));
    EXPECT_TRUE(entries_of(directory()).empty());
    EXPECT_EQ(test_image_path, "");
}

TEST_F(WorkerTicket, AfterStatus4LaterWorkersReturnAtOnceEachRaisingTheTicket)
{
    set_status(4);

    for (int index = 5; index <= 9; ++index) {
        launch_key_frame(index);
    }

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_frame_num, 5);
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_TRUE(entries_of(directory()).empty());
}

TEST_F(WorkerTicket, RisesByOneWhenTheBaseIsMade)
{
    expect_way_out([] { add_key_frame(1); }, 3);
}

TEST_F(WorkerTicket, RisesByOneAfterASuccessfulTurn)
{
    make_base();
    expect_way_out([] { add_key_frame(2); }, 3);
    expect_way_out([] { add_key_frame(3); }, 3);
}

TEST_F(WorkerTicket, RisesByOneWhenTooFewDescriptorsMatch)
{
    make_base();
    const shared_state before = look_at_shared_state();

    expect_way_out(
        [] {
            stitch_big_image(textured_plane(cv::Size(512, 256), 99)(cv::Rect(0, 0, 320, 240)), right_angles(),
                             full_size(), 3, 2);
        },
        4);

    EXPECT_EQ(big_stitch_image.data, before.panorama.data);
    EXPECT_EQ(neighbour_descriptors.data, before.descriptors.data);
    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

TEST_F(WorkerTicket, RisesByOneWhenNoHomographyIsFound)
{
    make_base();
    for (cv::KeyPoint& keypoint : neighbour_keypoints) {
        keypoint.pt = {50.0f, 50.0f};
    }

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(stepper.times_at(worker_stage::registered, 2), 1);
    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

TEST_F(WorkerTicket, RisesByOneWhenTheFrameIsMappedToNoConvexQuadrilateral)
{
    make_base();
    neighbour_homo = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, -0.01, 0, 1);  // folds the frame at x = 100

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

TEST_F(WorkerTicket, RisesByOneWhenTheFrameIsOfFloats)
{
    cv::Mat frame(240, 320, CV_32FC3, cv::Scalar::all(std::numeric_limits<double>::quiet_NaN()));
    const std::vector<float> right_angles(4, 90.0f);
    const std::vector<float> full_size(4, 1.0f);

    expect_way_out([&] { stitch_big_image(frame, right_angles, full_size, 0, 1); }, 4);
}

TEST_F(WorkerTicket, RisesByOneWhenTheCanvasWouldBeTooLarge)
{
    make_base();
    const cv::Mat base = big_stitch_image;
    neighbour_homo = (cv::Mat_<double>(3, 3) << 1, 0, 11000, 0, 1, 0, 0, 0, 1);

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(tarn::look_at_pipeline().first_failure, tarn::reason::too_large);
    EXPECT_EQ(big_stitch_image.data, base.data);
}

TEST_F(WorkerTicket, RisesByOneForAFrameWithoutPixels)
{
    expect_way_out([] { stitch_big_image(cv::Mat(), right_angles(), full_size(), 3, 1); }, 4);
}

TEST_F(WorkerTicket, RisesByOneForAFrameOfAnotherTypeThanThePanorama)
{
    make_base();
    expect_way_out(
        [] { stitch_big_image(cv::Mat(240, 320, CV_8UC4, cv::Scalar::all(9)), right_angles(), full_size(), 3, 2); }, 4);
}

TEST_F(WorkerTicket, RisesByOneForFewerThanFourAnglesOrScales)
{
    expect_way_out([] { stitch_big_image(key_frame(1), {90.0f, 90.0f, 90.0f}, full_size(), 3, 1); }, 4);
    resetStitch(directory().c_str());
    expect_way_out([] { stitch_big_image(key_frame(1), right_angles(), {}, 3, 1); }, 4);
}

TEST_F(WorkerTicket, RisesByOneWhenMemoryRunsShort)
{
    make_base();
    stepper.at(worker_stage::turn_taken, 2, [] { throw std::bad_alloc(); });
    expect_way_out([] { add_key_frame(2); }, 4);
}

TEST_F(WorkerTicket, RisesByOneForAStandardExceptionAtAnyStage)
{
    for (const worker_stage stage :
         {worker_stage::frame_prepared, worker_stage::frame_described, worker_stage::file_written,
          worker_stage::turn_taken, worker_stage::registered, worker_stage::composed}) {
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        make_base();
        stepper.at(stage, 2, [] { throw std::logic_error("test"); });
        expect_way_out([] { add_key_frame(2); }, 4);
        stepper.at(stage, 2, nullptr);
    }
}

TEST_F(WorkerTicket, RisesByOneForAStandardExceptionInEitherWait)
{
    make_base();
    stepper.at(worker_stage::polling_for_turn, 3, [] { throw std::runtime_error("test"); });
    expect_way_out([] { add_key_frame(3); }, 4);

    resetStitch(directory().c_str());
    make_base();
    set_status(2);
    stepper.at(worker_stage::polling_for_idle, 2, [] { throw std::runtime_error("test"); });
    expect_way_out([] { add_key_frame(2); }, 4);
}

TEST_F(WorkerTicket, OtherExceptionsThanStandardOnesAreNotCaught)
{
    for (const worker_stage stage : {worker_stage::started, worker_stage::frame_prepared, worker_stage::frame_described,
                                     worker_stage::file_written, worker_stage::turn_taken}) {
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        stepper.at(stage, 1, [] { throw 5; });  // NOLINT(hicpp-exception-baseclass): the point of it

        EXPECT_THROW(add_key_frame(1), int);

        EXPECT_EQ(big_frame_num, 0);
        EXPECT_NE(big_stitch_status, 4);
        stepper.at(stage, 1, nullptr);
    }
}

// ------------------------------------------------------------------------------------------ waits and time-outs

class WorkerWait : public WorkerTicket {
protected:
    void SetUp() override
    {
        WorkerTicket::SetUp();
        max_wait_seconds = usual_wait;
    }
};

TEST_F(WorkerWait, WorkerWhosePredecessorNeverFinishesGivesUpAfterMoreThanTheTimeOut)
{
    const stepped_time time;

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out) << "exactly 20 s are not enough";
    EXPECT_TRUE(time.all_polls_took(poll_interval));
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_turn, 2), polls_of_a_full_time_out);
    EXPECT_EQ(stepper.times_at(worker_stage::turn_taken, 2), 0);
    EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 2);
}

TEST_F(WorkerWait, WaitForAnIdlePipelineGivesUpAfterMoreThanTheTimeOut)
{
    set_status(2);
    const stepped_time time;

    expect_way_out([] { add_key_frame(1); }, 4);

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out);
    EXPECT_TRUE(time.all_polls_took(poll_interval));
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_idle, 1), polls_of_a_full_time_out);
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_turn, 1), 0);
}

TEST_F(WorkerWait, IndexNotAboveTheTicketWaitsOutTheFullTimeOutAndThenFailsThePipeline)
{
    for (const int index : {5, 3, 0, -2}) {
        SCOPED_TRACE(index);
        resetStitch(directory().c_str());
        set_status(3);
        set_ticket(5);
        const stepped_time time;

        expect_way_out([index] { stitch_big_image(key_frame(1), right_angles(), full_size(), moving_right, index); },
                       4);

        EXPECT_EQ(time.polls(), polls_of_a_full_time_out);
    }
}

TEST_F(WorkerWait, NobodyIsWaitedForWhenTheTurnIsFree)
{
    const stepped_time time;
    add_key_frame(1);
    add_key_frame(2);
    EXPECT_EQ(time.polls(), 0);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(WorkerWait, EachWaitHasItsOwnStart)
{
    make_base();
    set_status(2);
    set_ticket(0);
    constexpr int polls_of_19_seconds = 1900;
    const stepped_time time([](int poll) {
        if (poll == polls_of_19_seconds) {
            set_status(3);
        } else if (poll == 2 * polls_of_19_seconds) {
            set_ticket(1);
        }
    });

    add_key_frame(2);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_idle, 2), polls_of_19_seconds);
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_turn, 2), polls_of_19_seconds);
}

TEST_F(WorkerWait, TimeSpentBeforeAWaitDoesNotCount)
{
    make_base();
    set_ticket(0);
    stepped_time time([](int poll) {
        if (poll == 1500) {
            set_ticket(1);
        }
    });
    stepper.at(worker_stage::file_written, 2, [&time] { time.pass(100.0); });

    add_key_frame(2);

    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(WorkerWait, TimeInWhichTheProcessIsStoppedDoesNotCount)
{
    make_base();
    set_status(2);
    set_ticket(0);
    constexpr double a_night = 8.0 * 3600.0;  // s
    stepped_time* clock = nullptr;
    stepped_time time([&clock](int poll) {
        if (poll == 5 || poll == 25) {
            clock->pass(a_night);
        } else if (poll == 20) {
            set_status(3);
        } else if (poll == 40) {
            set_ticket(1);
        }
    });
    clock = &time;

    add_key_frame(2);

    EXPECT_EQ(time.polls(), 40);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(WorkerWait, AStopCountsForATenthOfASecond)
{
    constexpr int polls_of_a_tenth = 10;
    constexpr int stops = 100;
    stepped_time* clock = nullptr;
    stepped_time time([&clock](int poll) {
        if (poll <= stops) {
            clock->pass(3600.0);
        }
    });
    clock = &time;

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out - stops * (polls_of_a_tenth - 1));
}

TEST_F(WorkerWait, HostMayShortenTheTimeOutDuringAWait)
{
    const stepped_time time([](int poll) {
        if (poll == 5) {
            tarn::store_release(max_wait_seconds, 0);
        }
    });

    expect_way_out([] { add_key_frame(2); }, 4);

    EXPECT_EQ(time.polls(), 5);
}

TEST_F(WorkerWait, TimeOutWhileAnotherHoldsItsTurnDoesNotDisturbThatTurn)
{
    stepper.hold_at(worker_stage::turn_taken, 1);
    launch_key_frame(1);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 1));
    tarn::store_release(max_wait_seconds, 0);

    add_key_frame(2);

    EXPECT_EQ(status_now(), 4) << "set while the first one holds its turn";
    EXPECT_EQ(ticket_now(), 1);
    stepper.let_go(worker_stage::turn_taken, 1);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3) << "the one that held the turn succeeds all the same";
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_TRUE(same_pixels(prepared_key_frame(1), big_stitch_image));
}

TEST_F(WorkerWait, FailedTurnPassesTheTicketOnToThoseWaiting)
{
    max_wait_seconds = patient_wait;  // those waiting do so in real time
    make_base();
    stepper.hold_at(worker_stage::turn_taken, 2);
    tarn::launch_worker(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 90, 90)), right_angles(), full_size(), 3, 2);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
    for (const int index : {3, 4}) {
        launch_key_frame(index);
        ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_idle, index));
    }
    stepper.let_go(worker_stage::turn_taken, 2);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_frame_num, 4);
    EXPECT_EQ(big_stitch_status, 3);
}

// ------------------------------------------------------------------------------ the wait of the spherical switch

class SphereWait : public WorkerTicket {};

TEST_F(SphereWait, HasNoTimeOutInsideATask)
{
    make_base();
    set_status(0);
    constexpr int very_many_polls = 5 * polls_of_a_full_time_out;
    const stepped_time time([](int poll) {
        if (poll == very_many_polls) {
            set_status(3);
        }
    });

    expect_way_out([] { add_sphere_switch(); }, 4);

    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_base, 2), very_many_polls);
    EXPECT_EQ(time.polls(), very_many_polls);
    EXPECT_TRUE(time.all_polls_took(poll_interval));
    EXPECT_TRUE(SP);
}

TEST_F(SphereWait, GoesOnAfterAFailure)
{
    make_base();
    set_status(0);
    const stepped_time time([](int poll) {
        if (poll == 10) {
            set_status(4);
        } else if (poll == polls_of_a_full_time_out + 10) {
            set_status(2);
        } else if (poll == polls_of_a_full_time_out + 20) {
            set_status(3);
        }
    });

    expect_way_out([] { add_sphere_switch(); }, 4);

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out + 20);
}

TEST_F(SphereWait, IsLeftAtTheNextPollWhenTheTaskIsReplaced)
{
    const std::string next_directory = root() + "next/";
    fs::create_directory(next_directory);
    shared_state fresh;
    const stepped_time time([&](int poll) {
        if (poll == 3000) {
            resetStitch(next_directory.c_str());
            fresh = look_at_shared_state();
        }
    });

    EXPECT_NO_THROW(add_sphere_switch());

    EXPECT_EQ(time.polls(), 3000);
    EXPECT_EQ(stepper.times_at(worker_stage::polling_for_base, 2), 3001);
    EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
    EXPECT_EQ(big_stitch_status, 0);
    EXPECT_EQ(big_frame_num, 0);
    EXPECT_TRUE(entries_of(next_directory).empty());
    EXPECT_FALSE(fs::exists(directory()));
}

// -------------------------------------------------------------------------------------------- the frame's file

class FrameFile : public worker_fixture {};

TEST_F(FrameFile, LiesThereAndItsPathIsSetBeforeTheTurn)
{
    stepper.hold_at(worker_stage::file_written, 1);
    launch_key_frame(1);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 1));

    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"big_frame1.jpg"}));
    EXPECT_EQ(std::string(getTestCurrentPanoramaShow()), directory() + "big_frame1.jpg");
    const shared_state now = look_at_shared_state();
    EXPECT_EQ(now.status, 0);
    EXPECT_EQ(now.ticket, 0);
    EXPECT_TRUE(now.panorama.empty());
    EXPECT_TRUE(now.keypoints.empty());

    stepper.let_go(worker_stage::file_written, 1);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3);
}

TEST_F(FrameFile, IsWrittenEvenWhenTheTurnNeverComes)
{
    max_wait_seconds = 0;

    add_key_frame(2);

    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"big_frame2.jpg"}));
    EXPECT_EQ(test_image_path, directory() + "big_frame2.jpg");
}

TEST_F(FrameFile, HoldsTheDetectionCopyOfThePreparedFrame)
{
    cv::Mat wide;
    cv::resize(key_frame(1), wide, cv::Size(1200, 500));

    stitch_big_image(wide, right_angles(), full_size(), 3, 1);

    const cv::Mat prepared = tarn::shrink_and_turn(wide);
    ASSERT_EQ(prepared.size(), cv::Size(417, 1000));
    const cv::Mat copy = tarn::describe(prepared, stitch_feature_finder).scaled_frame;
    ASSERT_EQ(copy.rows, 800);
    ASSERT_TRUE(cv::imwrite(root() + "expected.jpg", copy));
    EXPECT_EQ(bytes_of(directory() + "big_frame1.jpg"), bytes_of(root() + "expected.jpg"));
}

TEST_F(FrameFile, HoldsTheProjectedFrame)
{
    stitch_big_image(key_frame(1), cylinder_angles(), full_size(), 3, 1);

    cv::Mat projected = prepared_key_frame(1);
    cylindrical_projection(projected, projected, 3.0f);
    ASSERT_TRUE(cv::imwrite(root() + "expected.jpg", projected));
    EXPECT_EQ(bytes_of(directory() + "big_frame1.jpg"), bytes_of(root() + "expected.jpg"));
}

TEST_F(FrameFile, NameIsAppendedDirectlyToTheDirectorysName)
{
    big_local_path = root() + "prefix-";

    add_key_frame(1);

    EXPECT_TRUE(fs::exists(root() + "prefix-big_frame1.jpg"));
    EXPECT_EQ(test_image_path, root() + "prefix-big_frame1.jpg");
}

// ------------------------------------------------------------------- directories in which nothing can be written

/// While one lives, files cannot grow: writing fails as on a full disk.
class full_disk {
public:
    full_disk() : kept_handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &kept_);
        const rlimit nothing = {0, kept_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &nothing);
    }

    ~full_disk()
    {
        setrlimit(RLIMIT_FSIZE, &kept_);
        std::signal(SIGXFSZ, kept_handler_);
    }

    full_disk(const full_disk&) = delete;
    full_disk& operator=(const full_disk&) = delete;

private:
    rlimit kept_{};
    void (*kept_handler_)(int);
};

/// Removes a directory into which a worker may put files until it is gone. Meanwhile a new one may come, and one that
/// was there may take another name.
void remove_in_use(const std::string& path)
{
    std::error_code error;
    do {
        fs::remove_all(path, error);
    } while (error == std::errc::directory_not_empty || error == std::errc::no_such_file_or_directory);
    ASSERT_FALSE(error) << error.message();
}

class UnwritableDirectory : public worker_fixture {
protected:
    /// A sweep from the first to the last frame, with `spoil` called before the frame with the given number.
    void sweep(const std::function<void()>& spoil, int before_frame)
    {
        const rendered_sweep frames = slide(cv::Size(320, 240), moving_right, 12.0, 25);
        for (int i = 0; i < frames.length(); ++i) {
            if (i == before_frame) {
                spoil();
            }
            const int last = i == frames.length() - 1 ? 1 : 0;
            EXPECT_GT(videoStitch(frames.host_frame(i), moving_right, last)[0], 0) << "frame " << i;
        }
        EXPECT_GE(tarn_stitcher.big_frame_index, 4);
        ASSERT_TRUE(wait_for_workers());
        EXPECT_EQ(big_stitch_status, 3);
        EXPECT_EQ(big_frame_num, tarn_stitcher.big_frame_index);
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), directory() + "big_stitch.jpg")
            << "the path says that the panorama was complete, not that the file could be written";
        EXPECT_EQ(std::string(getTestCurrentPanoramaShow()).substr(0, directory().size()), directory());
        EXPECT_EQ(take_output().find("error"), std::string::npos);
    }
};

TEST_F(UnwritableDirectory, DirectoryThatVanishesBeforeTheSweepLeavesTheSweepGoingOn)
{
    sweep([this] { fs::remove_all(directory()); }, 0);
    EXPECT_FALSE(fs::exists(directory()));
}

TEST_F(UnwritableDirectory, DirectoryThatVanishesInMidSweepLeavesTheSweepGoingOn)
{
    sweep([this] { remove_in_use(directory()); }, 14);
    EXPECT_FALSE(fs::exists(directory()));
}

TEST_F(UnwritableDirectory, DirectoryReplacedByAFileLeavesTheSweepGoingOn)
{
    sweep(
        [this] {
            const std::string path = directory().substr(0, directory().size() - 1);
            remove_in_use(path);
            std::ofstream(path) << "no directory";
        },
        8);
}

TEST_F(UnwritableDirectory, FullDiskLeavesTheSweepGoingOn)
{
    std::unique_ptr<full_disk> full;
    sweep([&full] { full = std::make_unique<full_disk>(); }, 0);
    full.reset();
    for (const std::string& name : entries_of(directory())) {
        EXPECT_EQ(fs::file_size(directory() + name), 0U) << name;
    }
}

TEST_F(UnwritableDirectory, DiskThatFillsUpInMidSweepLeavesTheSweepGoingOn)
{
    std::unique_ptr<full_disk> full;
    const auto fill_up = [&] {
        ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 1));
        full = std::make_unique<full_disk>();
    };
    sweep(fill_up, 14);
    full.reset();
    EXPECT_GT(fs::file_size(directory() + "big_frame1.jpg"), 1000U);
}

TEST_F(UnwritableDirectory, DeviceWithoutSpaceLeavesTheSweepGoingOn)
{
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full on this system";
    }
    for (const char* name : {"big_frame1.jpg", "big_frame2.jpg", "big_frame3.jpg", "big_stitch.jpg"}) {
        fs::create_symlink("/dev/full", directory() + name);
    }
    sweep([] {}, 0);
}

TEST_F(UnwritableDirectory, EmptyPathWritesIntoTheCurrentDirectory)
{
    const fs::path before = fs::current_path();
    fs::current_path(directory());
    resetStitch("");  // removes the working directory of the task before, which is the current one
    fs::create_directories(root() + "current");
    fs::current_path(root() + "current");

    add_key_frame(1);

    fs::current_path(before);
    EXPECT_EQ(entries_of(root() + "current"), std::vector<std::string>({"big_frame1.jpg"}));
    EXPECT_EQ(test_image_path, "big_frame1.jpg");
}

// ------------------------------------------------------------------------------ workers that cannot be started

/// While one lives, no thread can be created in the ordinary way: its stack would be larger than the address space.
class no_room_for_threads {
public:
    no_room_for_threads()
    {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_getstacksize(&attributes, &kept_size_);
        constexpr size_t whole_address_space = std::numeric_limits<size_t>::max() >> 17U;
        pthread_attr_setstacksize(&attributes, whole_address_space);
        worked_ = pthread_setattr_default_np(&attributes) == 0;
        pthread_attr_destroy(&attributes);
    }

    ~no_room_for_threads()
    {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, kept_size_);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

    no_room_for_threads(const no_room_for_threads&) = delete;
    no_room_for_threads& operator=(const no_room_for_threads&) = delete;

    bool worked() const
    {
        return worked_;
    }

private:
    size_t kept_size_ = 0;
    bool worked_ = false;
};

const std::string error_line = "stitch: When checkimage encounter an error";

class WorkerLaunch : public worker_fixture {
protected:
    void SetUp() override
    {
        worker_fixture::SetUp();
        frames_ = slide(cv::Size(320, 240), moving_right, 12.0, 30);
    }

    int frames() const
    {
        return frames_.length();
    }

    /// Frame i of the sweep; the last one ends it.
    int* feed(int i)
    {
        return videoStitch(frames_.host_frame(i), moving_right, i == frames() - 1 ? 1 : 0);
    }

    /// Feeds frame `i`, whose worker cannot be started, and checks all that is to be seen of it.
    void expect_failed_launch(int i)
    {
        take_output();
        const int* before = videoStitch(cv::Mat(), 0, 0);  // what the array holds, from a frame that is dropped
        const std::vector<int> held(before, before + 2);
        const int handed_over = tarn_stitcher.big_frame_index;
        const shared_state shared = look_at_shared_state();
        const int in_flight = tarn::workers_in_flight();
        take_output();

        const int* result = feed(i);

        EXPECT_EQ(std::vector<int>(result, result + 2), held) << "the array is left as it was";
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
        EXPECT_EQ(tarn_stitcher.big_frame_index, handed_over + 1) << "the index is spent";
        EXPECT_EQ(tarn::workers_in_flight(), in_flight);
        EXPECT_TRUE(same_state(shared, look_at_shared_state()));
        EXPECT_EQ(tarn_stitcher.big_stitch_image_path, "");
        const std::string output = take_output();
        EXPECT_NE(output.find(error_line), std::string::npos) << output;
        EXPECT_NE(output.find("\nmain thread: videoStitch finish"), std::string::npos) << output;
    }

    /// The frame at which the worker with the given index is launched, in a sweep without failures.
    int frame_of_worker(int index)
    {
        for (int i = 0; i < frames() - 1; ++i) {
            feed(i);
            if (tarn_stitcher.big_frame_index == index) {
                resetStitch(directory().c_str());
                EXPECT_TRUE(wait_for_workers());
                return i;
            }
        }
        ADD_FAILURE() << "the sweep has no key frame " << index;
        return 0;
    }

private:
    rendered_sweep frames_;
};

TEST_F(WorkerLaunch, ThreadThatCannotBeCreatedForTheFirstFrameIsLoggedAndTheNextWorkerTimesOut)
{
    stepper.at(worker_stage::launching, 1,
               [] { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });
    expect_failed_launch(0);
    EXPECT_EQ(take_launches(), std::vector<int>({1}));

    // The frame is the preview's first all the same, and the sweep goes on live. The next worker waits for a turn
    // before its own that nobody takes.
    EXPECT_FALSE(getCurrentPanoramsShowMat().empty());
    stepper.at(worker_stage::launching, 1, nullptr);
    tarn::store_release(max_wait_seconds, 0);
    int i = 1;
    for (; i < frames() && tarn_stitcher.big_frame_index < 2; ++i) {
        EXPECT_GT(feed(i)[0], 0) << i;
    }
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_frame_num, 1);
    EXPECT_EQ(feed(i)[0], -1);

    resetStitch(directory().c_str());
    EXPECT_EQ(feed(0)[0], 1) << "a new task starts afresh";
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3);
}

TEST_F(WorkerLaunch, ThreadThatCannotBeCreatedForAMiddleKeyFrameIsLoggedAndTheFrameIsNotComposed)
{
    const int middle = frame_of_worker(3);
    for (int i = 0; i < middle; ++i) {
        EXPECT_GT(feed(i)[0], 0) << i;
    }
    ASSERT_TRUE(wait_for_workers());
    const cv::Mat preview = getCurrentPanoramsShowMat();
    stepper.at(worker_stage::launching, 3,
               [] { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });

    expect_failed_launch(middle);

    EXPECT_EQ(getCurrentPanoramsShowMat().data, preview.data);
    // The next frame is a key frame again, whose worker waits for a turn before its own that nobody takes.
    tarn::store_release(max_wait_seconds, 0);
    EXPECT_GT(feed(middle + 1)[0], 0);
    EXPECT_EQ(tarn_stitcher.big_frame_index, 4);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 4);
    EXPECT_EQ(feed(middle + 2)[0], -1);
}

TEST_F(WorkerLaunch, ThreadThatCannotBeCreatedForTheLastFrameIsLoggedAndNothingIsWaitedForOrWritten)
{
    for (int i = 0; i < frames() - 1; ++i) {
        EXPECT_GT(feed(i)[0], 0) << i;
    }
    ASSERT_TRUE(wait_for_workers());
    stepper.at(worker_stage::launching, tarn_stitcher.big_frame_index + 1,
               [] { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });
    const counted_sleep no_waiting;

    expect_failed_launch(frames() - 1);

    EXPECT_TRUE(no_waiting.sleeps().empty());
    EXPECT_FALSE(fs::exists(directory() + "big_stitch.jpg"));
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
}

TEST_F(WorkerLaunch, SystemWithoutRoomForAThreadIsSurvivedAtTheFirstAMiddleAndTheLastFrame)
{
    const int middle = frame_of_worker(2);
    const auto feed_without_threads = [this](int i) {
        const no_room_for_threads crowded;
        ASSERT_TRUE(crowded.worked());
        expect_failed_launch(i);
    };
    {
        SCOPED_TRACE("the first frame");
        feed_without_threads(0);
    }
    resetStitch(directory().c_str());
    for (int i = 0; i < middle; ++i) {
        EXPECT_GT(feed(i)[0], 0) << i;
    }
    ASSERT_TRUE(wait_for_workers());
    {
        SCOPED_TRACE("a middle frame");
        feed_without_threads(middle);
    }
    resetStitch(directory().c_str());
    for (int i = 0; i < frames() - 1; ++i) {
        EXPECT_GT(feed(i)[0], 0) << i;
    }
    ASSERT_TRUE(wait_for_workers());
    {
        SCOPED_TRACE("the last frame");
        feed_without_threads(frames() - 1);
    }
    resetStitch(directory().c_str());
    for (int i = 0; i < frames(); ++i) {
        EXPECT_EQ(feed(i)[0] > 0, true) << i;
    }
    EXPECT_TRUE(fs::exists(directory() + "big_stitch.jpg")) << "with room again, a sweep ends well";
}

TEST_F(WorkerLaunch, WorkerKeepsThePixelsThatItWasGivenWhateverTheHostDoesWithItsFrame)
{
    stepper.hold_at(worker_stage::started, 1);
    cv::Mat frame = host_frame_from(key_frame(1));
    videoStitch(frame, moving_right, 0);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::started, 1));
    frame.setTo(cv::Scalar::all(0));
    stepper.let_go(worker_stage::started, 1);
    ASSERT_TRUE(wait_for_workers());

    EXPECT_TRUE(same_pixels(prepared_key_frame(1), big_stitch_image));
}

}  // namespace
