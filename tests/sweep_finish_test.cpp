// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: a panorama that is whole, partial or missing, why, and how it is handed out.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "support/random_input.h"
#include "support/stepped_time.h"
#include "support/sweep_fixture.h"
#include "support/watched_allocations.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using namespace tarn;        // NOLINT(google-build-using-namespace): these are all about it

class SweepFinish : public sweep_fixture {
protected:
    static finish_options ending_with(const frame_view& last)
    {
        finish_options result;
        result.last_frame = &last;
        return result;
    }

    static void expect_partial(const panorama& result, reason why, int first_failed)
    {
        EXPECT_EQ(result.extent, panorama_extent::partial);
        EXPECT_EQ(result.why, why) << name_of(result.why);
        EXPECT_EQ(result.first_failed_key_frame, first_failed);
        EXPECT_FALSE(result.image.empty());
        EXPECT_TRUE(result.image.isContinuous());
        EXPECT_FALSE(result.jpeg().empty()) << "what there is can be kept";
    }
};

// ---------------------------------------------------------------------------------------------------------- whole

TEST_F(SweepFinish, WithoutALastFrameTheKeyFramesAreThePanorama)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 12);
    const panorama result = sweeping.finish();
    EXPECT_EQ(result.extent, panorama_extent::whole);
    EXPECT_EQ(result.why, reason::none);
    EXPECT_EQ(result.first_failed_key_frame, 0);
    EXPECT_EQ(result.key_frames, sweeping.status().key_frames);
    EXPECT_EQ(result.last_frame.key_frame, 0);
    EXPECT_FALSE(result.last_frame.taken);
    EXPECT_EQ(result.image.type(), CV_8UC3);
    EXPECT_TRUE(same_pixels(big_stitch_image, result.image));
    EXPECT_TRUE(result.jpeg() == bytes_of(sweeping.directory() + "big_stitch.jpg"));
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), sweeping.directory() + "big_stitch.jpg");
}

TEST_F(SweepFinish, FileThatCannotBeWrittenIsSaidAndTriedAgain)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const std::string file = sweeping.directory() + "big_stitch.jpg";
    fs::create_directories(file + "/occupied");
    const panorama without = sweeping.finish();
    EXPECT_EQ(without.extent, panorama_extent::whole) << "the picture itself is there";
    EXPECT_EQ(without.why, reason::disk);
    EXPECT_EQ(without.file, "");
    EXPECT_FALSE(without.jpeg().empty());

    fs::remove_all(file);
    const panorama with = sweeping.finish();
    EXPECT_EQ(with.extent, panorama_extent::whole);
    EXPECT_EQ(with.why, reason::none);
    EXPECT_EQ(with.file, file);
    EXPECT_TRUE(with.jpeg() == bytes_of(file));
}

TEST_F(SweepFinish, LastFrameIsComposedWhereverItLies)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const int before = sweeping.status().key_frames;
    const frame_view last = view(9);
    const panorama result = sweeping.finish(ending_with(last));
    EXPECT_EQ(result.extent, panorama_extent::whole);
    EXPECT_TRUE(result.last_frame.taken);
    EXPECT_FALSE(result.last_frame.registered);
    EXPECT_EQ(result.last_frame.code, code_normal);
    EXPECT_EQ(result.last_frame.key_frame, before + 1);
    EXPECT_EQ(result.key_frames, before + 1);
}

TEST_F(SweepFinish, SinglePictureIsItsOwnPanorama)
{
    sweep sweeping = sweep::begin(options());
    const frame_view last = view(0);
    const panorama result = sweeping.finish(ending_with(last));
    EXPECT_EQ(result.extent, panorama_extent::whole);
    EXPECT_EQ(result.key_frames, 1);
    EXPECT_EQ(result.image.size(), cv::Size(240, 320)) << "turned";
    EXPECT_TRUE(sweeping.preview().pixels.empty());
}

TEST_F(SweepFinish, OnceMoreIsTheSameAndFramesGoOnWithTheSweep)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const frame_view last = view(6);
    const panorama first = sweeping.finish(ending_with(last));
    const panorama second = sweeping.finish();
    EXPECT_EQ(second.extent, panorama_extent::whole);
    EXPECT_EQ(second.key_frames, first.key_frames);
    EXPECT_EQ(second.last_frame.key_frame, first.last_frame.key_frame);
    EXPECT_TRUE(same_pixels(first.image, second.image));

    const cv::Mat kept = first.image.clone();
    feed(sweeping, 7, 16);
    const panorama third = sweeping.finish();
    EXPECT_EQ(third.extent, panorama_extent::whole);
    EXPECT_GT(third.key_frames, first.key_frames);
    EXPECT_GT(third.image.rows, first.image.rows);
    EXPECT_EQ(third.last_frame.key_frame, 0) << "that one was not the last";
    EXPECT_TRUE(third.jpeg() == bytes_of(sweeping.directory() + "big_stitch.jpg")) << "written anew";
    EXPECT_TRUE(same_pixels(kept, first.image)) << "what was handed out never changes";
}

TEST_F(SweepFinish, ProgressIsToldUntilAllIsDone)
{
    sweep sweeping = sweep::begin(options());
    hold_workers();
    feed(sweeping, 0, 12);
    const int key_frames = sweeping.status().key_frames;
    ASSERT_GE(key_frames, 3);
    int before = 0;
    int calls = 0;
    finish_options watched;
    watched.on_progress = [&](int done, int of) {
        EXPECT_EQ(of, key_frames);
        EXPECT_GE(done, before);
        EXPECT_LE(done, of);
        before = done;
        if (++calls == 3) {
            release_workers();
        }
        return true;
    };
    EXPECT_EQ(sweeping.finish(watched).extent, panorama_extent::whole);
    EXPECT_GE(calls, 3);
    EXPECT_EQ(before, key_frames) << "the last call tells of all";
}

TEST_F(SweepFinish, ImageHasNoGapsThoughTheLibrarysMayHave)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 1);
    ASSERT_TRUE(wait_for_turns(1));
    // As the library leaves it when it has grown within larger storage.
    cv::Mat storage(400, 400, CV_8UC3);
    big_stitch_image.copyTo(storage(cv::Rect(0, 0, big_stitch_image.cols, big_stitch_image.rows)));
    const cv::Mat expected = big_stitch_image.clone();
    big_stitch_image = storage(cv::Rect(0, 0, expected.cols, expected.rows));
    ASSERT_FALSE(big_stitch_image.isContinuous());
    const panorama result = sweeping.finish();
    EXPECT_TRUE(result.image.isContinuous());
    EXPECT_TRUE(same_pixels(expected, result.image));
    {
        const watched_allocations scarce(1, run_out_of_memory);
        EXPECT_THROW(sweeping.finish(), std::bad_alloc);
    }
    EXPECT_EQ(sweeping.finish().extent, panorama_extent::whole) << "the sweep goes on";
}

// --------------------------------------------------------------------------------------------- partial and missing

TEST_F(SweepFinish, WithoutFramesThereIsNone)
{
    sweep sweeping = sweep::begin(options());
    for (int i = 0; i < 2; ++i) {
        const panorama result = sweeping.finish();
        EXPECT_EQ(result.extent, panorama_extent::missing);
        EXPECT_EQ(result.why, reason::no_frames);
        EXPECT_EQ(result.key_frames, 0);
        EXPECT_TRUE(result.image.empty());
        refusal(sweep_problem::no_panorama, [&] { result.jpeg(); });
        refusal(sweep_problem::no_panorama, [&] { result.save(root() + "none.jpg"); });
        sweeping.feed(blank_view());
    }
    EXPECT_FALSE(fs::exists(root() + "none.jpg"));
}

TEST_F(SweepFinish, FailureInTheMiddleEndsThePanoramaThere)
{
    for (const int most : {0, 2}) {
        sweep_options paced = options();
        paced.most_under_way = most;
        stepper.at(worker_stage::registered, 3, run_out_of_memory);
        sweep sweeping = sweep::begin(paced);
        for (std::size_t i = 0; i + 1 < frames().size(); ++i) {
            sweeping.feed(view(i));
            ASSERT_TRUE(sweeping.wait_for_room(0)) << "so that nobody is waiting who would bring the pipeline back";
        }
        const frame_view last = view(frames().size() - 1);
        const panorama result = sweeping.finish(ending_with(last));
        expect_partial(result, reason::no_memory, 3);
        EXPECT_EQ(result.last_frame.code, code_pipeline_failed);
        EXPECT_EQ(result.last_frame.why, reason::pipeline_failed);
        EXPECT_FALSE(result.last_frame.taken);
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), "") << "no file is written";
        EXPECT_EQ(sweeping.finish().why, reason::no_memory) << "nor does it change";
    }
}

TEST_F(SweepFinish, KeyFrameThatDoesNotFitIsTheReason)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const cv::Mat noise = random_input(1).noise(cv::Size(320, 240), CV_8UC4);
    const frame_view last = view_of(noise);
    const panorama result = sweeping.finish(ending_with(last));
    EXPECT_EQ(result.extent, panorama_extent::partial);
    EXPECT_TRUE(result.why == reason::too_few_matches || result.why == reason::no_homography
                || result.why == reason::shape_refused)
        << name_of(result.why);
    EXPECT_EQ(result.first_failed_key_frame, result.key_frames);
    EXPECT_TRUE(result.last_frame.taken) << "it was handed over; that it does not fit is found out later";
}

// ---------------------------------------------------------------------------------------------- what workers took

TEST_F(SweepFinish, WorkersTurnsAreToldInTheirOrder)
{
    constexpr worker_turn::instant never{};
    const worker_turn::instant before = std::chrono::steady_clock::now();
    sweep sweeping = sweep::begin(options());
    EXPECT_TRUE(sweeping.worker_turns().empty()) << "those of an earlier sweep are gone";
    feed(sweeping, 0, 12);
    const int key_frames = sweeping.finish().key_frames;
    const std::vector<worker_turn> turns = sweeping.worker_turns();
    const worker_turn::instant after = std::chrono::steady_clock::now();
    ASSERT_EQ(static_cast<int>(turns.size()), key_frames);
    ASSERT_GE(key_frames, 3);
    for (const worker_turn& turn : turns) {
        EXPECT_EQ(turn.key_frame, 1 + static_cast<int>(&turn - turns.data()));
        EXPECT_LE(before, turn.begun);
        EXPECT_LE(turn.begun, turn.prepared);
        EXPECT_LE(turn.prepared, turn.taken);
        EXPECT_LE(turn.taken, turn.ended);
        EXPECT_LE(turn.ended, after);
        if (turn.key_frame == 1) {
            EXPECT_EQ(turn.registered, never) << "it is the panorama";
        } else {
            EXPECT_LE(turn.taken, turn.registered);
            EXPECT_LE(turn.registered, turn.ended);
            EXPECT_LE(turns[static_cast<std::size_t>(turn.key_frame) - 2].ended, turn.taken) << "one at a time";
        }
    }
    sweeping.cancel();
    EXPECT_NE(refusal(sweep_problem::over, [&] { sweeping.worker_turns(); }), "");
}

TEST_F(SweepFinish, WorkersThatFailHaveEndedAllTheSame)
{
    stepper.at(worker_stage::frame_prepared, 2, run_out_of_memory);
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 12);
    sweeping.finish();
    constexpr worker_turn::instant never{};
    const std::vector<worker_turn> turns = sweeping.worker_turns();
    ASSERT_GE(turns.size(), 2U);
    EXPECT_EQ(turns[1].key_frame, 2);
    EXPECT_NE(turns[1].begun, never);
    EXPECT_EQ(turns[1].prepared, never);
    EXPECT_EQ(turns[1].taken, never);
    EXPECT_NE(turns[1].ended, never);
}

TEST_F(SweepFinish, FailureOfTheLastWorkerIsTold)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const int last_index = sweeping.status().key_frames + 1;
    stepper.at(worker_stage::composed, last_index, run_out_of_memory);
    const frame_view last = view(8);
    expect_partial(sweeping.finish(ending_with(last)), reason::no_memory, last_index);
}

TEST_F(SweepFinish, FailureOfTheOnlyFrameLeavesNothing)
{
    stepper.at(worker_stage::frame_prepared, 1, run_out_of_memory);
    sweep sweeping = sweep::begin(options());
    const frame_view last = view(0);
    const panorama result = sweeping.finish(ending_with(last));
    EXPECT_EQ(result.extent, panorama_extent::missing);
    EXPECT_EQ(result.why, reason::no_memory);
    EXPECT_EQ(result.first_failed_key_frame, 1);
    EXPECT_EQ(result.key_frames, 1);
}

TEST_F(SweepFinish, WorkersThatDoNotMoveEndTheWait)
{
    sweep sweeping = sweep::begin(options());
    stepper.hold_at(worker_stage::turn_taken, 2);
    feed_until_key_frame(sweeping, 2);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
    max_wait_seconds = usual_wait;
    {
        const stepped_time time;
        expect_partial(sweeping.finish(), reason::timed_out, 0);
        EXPECT_EQ(time.polls(), 3 * usual_wait * 500 + 1);
    }
    max_wait_seconds = patient_wait;
    stepper.let_go(worker_stage::turn_taken, 2);
    EXPECT_EQ(sweeping.finish().extent, panorama_extent::whole) << "the wait may be tried again";
}

TEST_F(SweepFinish, StallBeforeTheLastFrameKeepsItBack)
{
    sweep_options paced = options();
    paced.most_under_way = 3;
    sweep sweeping = sweep::begin(paced);
    stepper.hold_at(worker_stage::turn_taken, 2);
    const std::size_t next = feed_until_key_frame(sweeping, 2);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
    max_wait_seconds = usual_wait;
    const frame_view last = view(next);
    {
        const stepped_time time;
        const panorama result = sweeping.finish(ending_with(last));
        expect_partial(result, reason::timed_out, 0);
        EXPECT_EQ(result.last_frame.why, reason::timed_out);
        EXPECT_EQ(result.key_frames, 2);
    }
    max_wait_seconds = patient_wait;
    stepper.let_go(worker_stage::turn_taken, 2);
    EXPECT_EQ(sweeping.finish(ending_with(last)).extent, panorama_extent::whole);
}

TEST_F(SweepFinish, WorkerThatWasNeverStartedIsNotWaitedFor)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    const int last_index = sweeping.status().key_frames + 1;
    stepper.at(worker_stage::launching, last_index,
               [] { throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)); });
    const frame_view last = view(8);
    const panorama result = sweeping.finish(ending_with(last));
    expect_partial(result, reason::no_thread, last_index);
    EXPECT_EQ(result.last_frame.why, reason::no_thread);
    EXPECT_EQ(result.key_frames, last_index);
}

TEST_F(SweepFinish, LastFrameWithoutMemoryIsMissingFromThePanorama)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    EXPECT_TRUE(sweeping.wait_for_room(0));
    const frame_view last = view(8);
    panorama result;
    {
        const watched_allocations scarce(1, run_out_of_memory);
        cv::Mat large(1080, 1920, CV_8UC4, const_cast<void*>(last.pixels), 0UL + 4 * 1920);
        frame_view other = last;
        other.width = 300;  // of another size, so that it needs memory
        result = sweeping.finish(ending_with(other));
    }
    expect_partial(result, reason::no_memory, 0);
    EXPECT_EQ(result.last_frame.why, reason::no_memory);
}

TEST_F(SweepFinish, DeclinedWaitGivesWhatThereIs)
{
    sweep sweeping = sweep::begin(options());
    stepper.hold_at(worker_stage::turn_taken, 2);
    const std::size_t next = feed_until_key_frame(sweeping, 2);
    ASSERT_TRUE(wait_for_turns(1));
    finish_options impatient;
    impatient.on_progress = [](int done, int) { return done < 1; };
    const frame_view last = view(next);
    impatient.last_frame = &last;
    const panorama part = sweeping.finish(impatient);
    expect_partial(part, reason::cancelled, 0);
    EXPECT_TRUE(part.last_frame.taken);
    EXPECT_EQ(part.key_frames, 3);
    stepper.let_go(worker_stage::turn_taken, 2);
    const panorama whole = sweeping.finish();
    EXPECT_EQ(whole.extent, panorama_extent::whole);
    EXPECT_EQ(whole.last_frame.key_frame, 3);
}

TEST_F(SweepFinish, WaitForAnotherTryOfTheLastFrameMayBeDeclined)
{
    sweep sweeping = sweep::begin(options());
    tarn_stitcher.iou_thresh = 0.9f;  // so that the third key frame still overlaps with the first
    stepper.at(worker_stage::registered, 2, run_out_of_memory);
    stepper.hold_at(worker_stage::turn_taken, 2);
    stepper.hold_at(worker_stage::file_written, 3);
    const std::size_t next = feed_until_key_frame(sweeping, 3);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 3));
    stepper.let_go(worker_stage::turn_taken, 2);
    ASSERT_TRUE(wait_for_turns(2));
    ASSERT_EQ(sweeping.status().pipeline, pipeline_failed);

    int asked = 0;
    finish_options impatient;
    impatient.on_progress = [&asked](int, int) {
        ++asked;
        return false;
    };
    const frame_view last = view(next);
    impatient.last_frame = &last;
    const panorama part = sweeping.finish(impatient);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(part.why, reason::cancelled);
    EXPECT_EQ(part.last_frame.code, code_pipeline_failed);
    EXPECT_FALSE(part.last_frame.taken);

    stepper.let_go(worker_stage::file_written, 3);
    const panorama whole = sweeping.finish(ending_with(last));
    EXPECT_EQ(whole.extent, panorama_extent::whole) << "worker 3 has brought the pipeline back";
    EXPECT_TRUE(whole.last_frame.taken);
}

// ----------------------------------------------------------------------------------------------------- handing out

TEST_F(SweepFinish, SavedFileIsThatJpegWithTheProcesssMode)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 1);
    const panorama result = sweeping.finish();
    sweeping.cancel();  // what was handed out is the host's
    const std::string path = root() + "panorama.jpg";
    std::ofstream(path) << "an older one";
    const mode_t before = umask(027);
    result.save(path);
    umask(before);
    EXPECT_TRUE(bytes_of(path) == result.jpeg());
    save_bytes(root() + "bytes.jpg", result.jpeg());
    EXPECT_TRUE(bytes_of(root() + "bytes.jpg") == result.jpeg());
    EXPECT_EQ(cv::imread(path).size(), result.image.size());
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(SweepFinish, FileThatCannotBeWrittenLeavesNothing)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 1);
    const panorama result = sweeping.finish();
    ASSERT_TRUE(fs::create_directory(root() + "folder"));
    std::ofstream(root() + "folder/file") << "kept";
    for (const std::string& path :
         {root() + "missing/panorama.jpg", root() + "folder", std::string(), root() + "folder/file/below"}) {
        const std::string text = refusal(sweep_problem::disk, [&] { result.save(path); });
        EXPECT_NE(text.find(path), std::string::npos) << text;
        EXPECT_EQ(refusal(sweep_problem::disk, [&] { save_bytes(path, result.jpeg()); }), text);
    }
    EXPECT_EQ(entries_of(root() + "folder"), std::vector<std::string>{"file"});
    EXPECT_FALSE(fs::exists(root() + "missing"));
}

TEST_F(SweepFinish, EncodingWithoutMemoryIsToldAsThat)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 1);
    panorama result = sweeping.finish();
    result.image = cv::Mat(4, 4, CV_8UC2);  // what a host may do with its structure
    refusal(sweep_problem::bad_argument, [&] { result.jpeg(); });
}

}  // namespace
