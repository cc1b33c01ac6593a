// SPDX-License-Identifier: Apache-2.0
//
// Workers that cannot be started, or that take longer than the time-outs, in whole sweeps: the sweep ends with
// code -1, the preview stays, and the next sweep is as good as any.
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "fault_fixture.h"
#include "support/random_input.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

class SlowWorker : public fault_fixture {
protected:
    void SetUp() override
    {
        fault_fixture::SetUp();
        undisturbed_ = whole_sweep(directory());
        ASSERT_FALSE(undisturbed_.empty());
        key_frames_ = tarn_stitcher.big_frame_index;
        ASSERT_GE(key_frames_, 4);
        resetStitch(directory().c_str());
    }

    /// Feeds the rest of the sweep, last frame included, from frame `i` on, after the pipeline has failed.
    static void expect_failed_from(std::size_t i)
    {
        const cv::Mat preview = getCurrentPanoramsShowMat();
        const cv::Mat copy = preview.clone();
        for (; i < frames().size(); ++i) {
            EXPECT_EQ(feed(i), -1) << "frame " << i;
        }
        EXPECT_EQ(getCurrentPanoramsShowMat().data, preview.data) << "the preview stays";
        EXPECT_TRUE(same_pixels(copy, preview));
        EXPECT_FALSE(preview.empty());
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
    }

    void expect_good_sweep()
    {
        tarn::store_release(max_wait_seconds, patient_wait);
        EXPECT_TRUE(whole_sweep(directory()) == undisturbed_);
    }

    std::vector<unsigned char> undisturbed_;
    int key_frames_ = 0;
};

TEST_F(SlowWorker, TurnThatOutlastsTheNextWorkersWaitEndsTheSweepAndKeepsThePreview)
{
    for (const worker_stage stage :
         {worker_stage::started, worker_stage::frame_prepared, worker_stage::frame_described,
          worker_stage::file_written, worker_stage::turn_taken, worker_stage::registered, worker_stage::composed}) {
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        const int visits = stepper.times_at(stage, 2);
        stepper.hold_at(stage, 2);
        std::size_t i = 0;
        for (; i < frames().size() - 1 && tarn_stitcher.big_frame_index < 3; ++i) {
            if (tarn_stitcher.big_frame_index == 2) {
                ASSERT_TRUE(stepper.wait_until_at(stage, 2, visits + 1));
                ASSERT_TRUE(wait_for_turns(1));
                tarn::store_release(max_wait_seconds, 0);  // as if they had waited for so long
            }
            EXPECT_GT(feed(i), 0);
        }
        ASSERT_EQ(tarn_stitcher.big_frame_index, 3);
        ASSERT_TRUE(wait_for_turns(2)) << "worker 3 gives up, and passes the ticket on";
        EXPECT_EQ(tarn::look_at_pipeline().status, 4);
        EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 3);

        expect_failed_from(i);

        stepper.let_go(stage, 2);
        expect_good_sweep();
    }
}

TEST_F(SlowWorker, ThreadThatCannotBeStartedForTheFirstThirdOrLastKeyFrameCostsThatSweepOnly)
{
    for (const int index : {1, 3, key_frames_}) {
        SCOPED_TRACE(index);
        resetStitch(directory().c_str());
        stepper.at(worker_stage::launching, index,
                   [] { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });
        tarn::store_release(max_wait_seconds, 0);
        cv::Mat preview;
        for (std::size_t i = 0; i < frames().size(); ++i) {
            const int code = feed(i);
            EXPECT_GE(code, -1) << i;
            EXPECT_LE(code, 6) << i;
            wait_for_workers();
            EXPECT_FALSE(getCurrentPanoramsShowMat().empty());
        }
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
        stepper.at(worker_stage::launching, index, nullptr);
        expect_good_sweep();
    }
}

}  // namespace
