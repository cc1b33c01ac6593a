// SPDX-License-Identifier: Apache-2.0
//
// Workers on hosts without threads: they wait in the queue, whoever waits for them runs them, and a sweep comes to the
// same.
#include <vector>

#include <gtest/gtest.h>

#include "internal/worker_pool.h"
#include "internal/worker_queue.h"
#include "support/sweep_fixture.h"
#include "tarn_stitcher.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

class WorkerQueue : public sweep_fixture {
protected:
    void SetUp() override
    {
        sweep_fixture::SetUp();
        tarn::queue_workers(true);
    }

    void TearDown() override
    {
        while (tarn::run_queued_worker()) {
        }
        tarn::queue_workers(false);
        sweep_fixture::TearDown();
    }
};

std::vector<unsigned char> panorama_of(tarn::sweep& sweep)
{
    return sweep.finish().jpeg();
}

TEST_F(WorkerQueue, WorkersWaitUntilTheHostRunsThem)
{
    tarn::sweep sweep = tarn::sweep::begin(options());
    feed(sweep, 0, 1);
    EXPECT_EQ(tarn::queued_workers(), 1);
    EXPECT_EQ(tarn::workers_in_flight(), 1);
    EXPECT_EQ(sweep.status().under_way, 1);
    EXPECT_TRUE(tarn::run_queued_worker());
    EXPECT_EQ(sweep.status().under_way, 0);
    EXPECT_EQ(tarn::workers_in_flight(), 0);
    EXPECT_FALSE(tarn::run_queued_worker());
}

TEST_F(WorkerQueue, FinishRunsWhatWaitsAndComesToTheSameAsThreads)
{
    tarn::sweep queued = tarn::sweep::begin(options());
    feed(queued, 0, frames().size());
    EXPECT_GT(tarn::queued_workers(), 2);
    const std::vector<unsigned char> by_queue = panorama_of(queued);
    EXPECT_EQ(tarn::queued_workers(), 0);

    tarn::queue_workers(false);
    tarn::sweep threaded = tarn::sweep::begin(options());
    feed(threaded, 0, frames().size());
    EXPECT_EQ(panorama_of(threaded), by_queue);
}

TEST_F(WorkerQueue, AWaitForRoomRunsWhatWaits)
{
    tarn::sweep sweep = tarn::sweep::begin(options());
    feed(sweep, 0, frames().size());
    EXPECT_TRUE(sweep.wait_for_room(0));
    EXPECT_EQ(tarn::queued_workers(), 0);
}

TEST_F(WorkerQueue, WorkersOfACancelledSweepLeaveWhenTheyAreRun)
{
    tarn::sweep sweep = tarn::sweep::begin(options());
    feed(sweep, 0, frames().size());
    sweep.cancel();
    const tarn::sweep next = tarn::sweep::begin(options());
    while (tarn::run_queued_worker()) {
    }
    EXPECT_EQ(tarn::workers_in_flight(), 0);
    EXPECT_EQ(next.status().key_frames, 0);
    EXPECT_EQ(next.status().pipeline, tarn::pipeline_empty);
}

TEST_F(WorkerQueue, AWorkerWhoseTurnCannotComeGivesUpAtOnce)
{
    tarn::sweep sweep = tarn::sweep::begin(options());
    feed(sweep, 0, frames().size());
    // The first one is gone: nobody will pass the turn on to the second.
    const int gone = big_frame_num;
    ASSERT_EQ(gone, 0);
    tarn::store_release(big_frame_num, -1);
    while (tarn::run_queued_worker()) {
    }
    EXPECT_EQ(sweep.status().pipeline, tarn::pipeline_failed);
    EXPECT_EQ(sweep.status().why, tarn::reason::timed_out);
}

TEST_F(WorkerQueue, AWorkerDoesNotRunAnother)
{
    bool ran_inside = true;
    bool was_inside = false;
    tarn::queue_worker([&] {
        was_inside = tarn::is_queued_worker();
        ran_inside = tarn::run_queued_worker();
    });
    tarn::queue_worker([] {});
    EXPECT_FALSE(tarn::is_queued_worker());
    EXPECT_TRUE(tarn::run_queued_worker());
    EXPECT_TRUE(was_inside);
    EXPECT_FALSE(ran_inside);
    EXPECT_EQ(tarn::queued_workers(), 1);
}

}  // namespace
