// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: waiting for the last worker and writing the panorama.
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/stepped_time.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

class FinalImage : public worker_fixture {
protected:
    void SetUp() override
    {
        worker_fixture::SetUp();
        random_input random;
        big_stitch_image = random.image(cv::Size(64, 48));
    }

    std::string final_path() const
    {
        return directory() + "big_stitch.jpg";
    }

    void expect_file() const
    {
        EXPECT_EQ(tarn_stitcher.big_stitch_image_path, final_path());
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), final_path());
        ASSERT_TRUE(cv::imwrite(root() + "expected.jpg", big_stitch_image));
        EXPECT_EQ(bytes_of(final_path()), bytes_of(root() + "expected.jpg"));
    }

    void expect_no_file() const
    {
        EXPECT_EQ(tarn_stitcher.big_stitch_image_path, "as before");
        EXPECT_FALSE(fs::exists(final_path()));
    }

    static void set_pipeline(int status, int ticket)
    {
        tarn::store_release(big_stitch_status, status);
        tarn::store_release(big_frame_num, ticket);
        tarn_stitcher.big_stitch_image_path = "as before";
    }
};

TEST_F(FinalImage, PipelineFailedBeforeTheCallReturnsFalseAtOnceAndWritesNothing)
{
    for (const int ticket : {0, 4, 5, 9}) {
        SCOPED_TRACE(ticket);
        set_pipeline(4, ticket);
        const stepped_time time;

        EXPECT_FALSE(tarn_stitcher.get_big_image(5));

        EXPECT_EQ(time.polls(), 0);
        expect_no_file();
    }
}

TEST_F(FinalImage, LastWorkerAlreadyDoneWritesTheFileWithoutWaiting)
{
    set_pipeline(3, 5);
    const stepped_time time;

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), 0);
    expect_file();
}

TEST_F(FinalImage, TicketThatPassedTheIndexMeansNoWaitingNoFileAndTrue)
{
    set_pipeline(3, 6);
    const stepped_time time;

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), 0);
    expect_no_file();
}

TEST_F(FinalImage, LastWorkerFailingDuringTheWaitMeansNoFileAndTrue)
{
    set_pipeline(2, 4);
    const stepped_time time([](int poll) {
        if (poll == 7) {
            set_pipeline(4, 5);
        }
    });

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), 7);
    expect_no_file();
}

TEST_F(FinalImage, LastWorkerSucceedingDuringTheWaitIsWritten)
{
    for (const int entry_status : {0, 2, 3}) {
        SCOPED_TRACE(entry_status);
        set_pipeline(entry_status, 4);
        const stepped_time time([](int poll) {
            if (poll == 1999) {
                set_pipeline(3, 5);
            }
        });

        EXPECT_TRUE(tarn_stitcher.get_big_image(5));

        EXPECT_EQ(time.polls(), 1999);
        EXPECT_TRUE(time.all_polls_took(poll_interval));
        expect_file();
        fs::remove(final_path());
    }
}

TEST_F(FinalImage, GivesUpAfterMoreThanTheTimeOutReturnsTrueAndLeavesThePath)
{
    set_pipeline(3, 4);
    max_wait_seconds = usual_wait;
    const stepped_time time;

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out) << "exactly 20 s are not enough";
    expect_no_file();
}

TEST_F(FinalImage, ProcessThatIsStoppedMeanwhileStillWaitsForTheWorker)
{
    set_pipeline(2, 4);
    max_wait_seconds = usual_wait;
    stepped_time* clock = nullptr;
    stepped_time time([&clock](int poll) {
        if (poll == 100) {
            clock->pass(22.0);
        } else if (poll == 300) {
            set_pipeline(3, 5);
        }
    });
    clock = &time;

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), 300);
    expect_file();
}

TEST_F(FinalImage, WorkerDoneAtTheVeryLastPollIsStillWritten)
{
    set_pipeline(2, 4);
    const stepped_time time([](int poll) {
        if (poll == polls_of_a_full_time_out) {
            set_pipeline(3, 5);
        }
    });

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    expect_file();
}

TEST_F(FinalImage, EntryStatusIsReadOnceFailureAndRecoveryDuringTheWaitCountForTheFileOnly)
{
    set_pipeline(2, 3);
    const stepped_time time([](int poll) {
        if (poll == 3) {
            set_pipeline(4, 4);  // one fails,
        } else if (poll == 6) {
            set_pipeline(3, 5);  // the one behind it succeeds
        }
    });

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(time.polls(), 6);
    expect_file();
}

TEST_F(FinalImage, StatusOtherThan3AtTheRightTicketWritesNothing)
{
    for (const int status : {0, 2}) {
        SCOPED_TRACE(status);
        set_pipeline(status, 5);
        EXPECT_TRUE(tarn_stitcher.get_big_image(5));
        expect_no_file();
    }
}

TEST_F(FinalImage, FileThatCannotBeWrittenStillSetsThePathAndReturnsTrue)
{
    set_pipeline(3, 5);
    fs::remove_all(directory());

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(tarn_stitcher.big_stitch_image_path, final_path());
    EXPECT_FALSE(fs::exists(final_path()));
    EXPECT_EQ(take_output(), "");
}

TEST_F(FinalImage, NameIsAppendedDirectlyToTheWorkersDirectory)
{
    set_pipeline(3, 5);
    big_local_path = root() + "prefix-";

    EXPECT_TRUE(tarn_stitcher.get_big_image(5));

    EXPECT_EQ(tarn_stitcher.big_stitch_image_path, root() + "prefix-big_stitch.jpg");
    EXPECT_TRUE(fs::exists(root() + "prefix-big_stitch.jpg"));
}

TEST_F(FinalImage, SecondCallWritesThePanoramaOfThatMoment)
{
    set_pipeline(3, 5);
    ASSERT_TRUE(tarn_stitcher.get_big_image(5));
    big_stitch_image = cv::Mat(30, 90, CV_8UC3, cv::Scalar(10, 20, 230));

    ASSERT_TRUE(tarn_stitcher.get_big_image(5));

    expect_file();
}

// --------------------------------------------------------------------------------------- through the live path

class LastFrame : public worker_fixture {
protected:
    static cv::Mat frame(int index)
    {
        return host_frame_from(key_frame(index));
    }
};

TEST_F(LastFrame, OnlyFrameOfASweepBecomesThePanorama)
{
    EXPECT_EQ(videoStitch(frame(1), moving_right, 1)[0], 1);

    EXPECT_EQ(std::string(getCurrentPanoramaShow()), directory() + "big_stitch.jpg");
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"big_frame1.jpg", "big_stitch.jpg"}));
    const cv::Mat written = cv::imread(directory() + "big_stitch.jpg");
    EXPECT_EQ(written.size(), cv::Size(key_frame_height, key_frame_width)) << "turned";
}

TEST_F(LastFrame, FailureBetweenTheEntryAndTheCallIsAnsweredWithMinusOne)
{
    videoStitch(frame(1), moving_right, 0);
    ASSERT_TRUE(wait_for_workers());
    stepper.at(worker_stage::launching, 2, [] { tarn::store_release(big_stitch_status, 4); });

    EXPECT_EQ(videoStitch(frame(2), moving_right, 1)[0], -1);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
}

TEST_F(LastFrame, WorkerThatFailsDuringTheWaitIsAnsweredWithOneAndAnEmptyPath)
{
    videoStitch(frame(1), moving_right, 0);
    ASSERT_TRUE(wait_for_workers());
    // Nothing of the failure may show before the host's thread waits.
    stepper.hold_at(worker_stage::started, 2);
    const cv::Mat blank(240, 320, CV_8UC4, cv::Scalar(90, 90, 90, 255));
    {
        const counted_sleep let_the_worker_go_in_the_first_poll([this](int poll) {
            if (poll == 1) {
                stepper.let_go(worker_stage::started, 2);
            }
            wait_for_workers();
        });
        EXPECT_EQ(videoStitch(blank, moving_right, 1)[0], 1);
    }

    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
    EXPECT_FALSE(fs::exists(directory() + "big_stitch.jpg"));
    EXPECT_EQ(videoStitch(frame(3), moving_right, 0)[0], -1) << "the next frame tells";
}

TEST_F(LastFrame, LastWorkerThatNeverGetsItsTurnIsAnsweredWithOneAndAnEmptyPath)
{
    videoStitch(frame(1), moving_right, 0);
    ASSERT_TRUE(wait_for_workers());
    stepper.hold_at(worker_stage::started, 2);
    max_wait_seconds = usual_wait;
    const stepped_time time;

    EXPECT_EQ(videoStitch(frame(2), moving_right, 1)[0], 1);

    EXPECT_EQ(time.polls(), polls_of_a_full_time_out);
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
}

TEST_F(LastFrame, FirstOfTwoLastFramesIsReplacedByTheSecond)
{
    ASSERT_EQ(videoStitch(frame(1), moving_right, 1)[0], 1);
    const cv::Size first = cv::imread(getCurrentPanoramaShow()).size();

    EXPECT_EQ(videoStitch(frame(2), moving_right, 1)[0], 1);

    EXPECT_EQ(big_frame_num, 2);
    EXPECT_NEAR(cv::imread(getCurrentPanoramaShow()).rows, first.height + key_frame_step, 2);
}

}  // namespace
