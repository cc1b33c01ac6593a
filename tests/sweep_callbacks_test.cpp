// SPDX-License-Identifier: Apache-2.0
//
// What a sweep calls of its host's, and what that may call of the sweep: everything that does not wait for the call
// inside; and it may throw.
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/sample_video.h"
#include "support/sweep_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using namespace tarn;        // NOLINT(google-build-using-namespace): these are all about it

class SweepCallbacks : public sweep_fixture {
protected:
    /// Options of which every callback of feed calls `action`, with its name. A wait comes with the second frame.
    sweep_options calling(std::function<void(const std::string& who)> action)
    {
        action_ = std::move(action);
        stepper.hold_at(worker_stage::turn_taken, 1);
        sweep_options result = options();
        result.most_under_way = 1;
        result.while_waiting = [this](int) {
            stepper.let_go(worker_stage::turn_taken, 1);
            action_("while_waiting");
            return true;
        };
        result.on_key_frame = [this](const tarn::key_frame&) { action_("on_key_frame"); };
        result.on_log = [this](const std::string&) { action_("on_log"); };
        return result;
    }

    finish_options telling()
    {
        finish_options result;
        result.on_progress = [this](int, int) {
            action_("on_progress");
            return true;
        };
        return result;
    }

    std::function<void(const std::string&)> action_;
};

const char* const callbacks_of_feed[] = {"on_key_frame", "on_log", "while_waiting"};

// ------------------------------------------------------------------------------------------------------ exceptions

TEST_F(SweepCallbacks, WhatTheyThrowLeavesTheMethodAndTheSweepGoesOn)
{
    for (const std::string thrower : callbacks_of_feed) {
        SCOPED_TRACE(thrower);
        bool throws = true;
        sweep sweeping = sweep::begin(calling([&](const std::string& who) {
            if (throws && who == thrower) {
                throw std::out_of_range("by " + who);
            }
        }));
        bool has_thrown = false;
        for (std::size_t i = 0; i < 2; ++i) {
            try {
                EXPECT_TRUE(sweeping.feed(view(i)).taken);
            } catch (const std::out_of_range& error) {
                EXPECT_EQ(error.what(), "by " + thrower);
                has_thrown = true;
                throws = false;
            }
        }
        EXPECT_TRUE(has_thrown);
        EXPECT_TRUE(sweeping.is_current());
        EXPECT_EQ(sweeping.status().key_frames, 1);
        EXPECT_FALSE(sweeping.preview().pixels.empty());
        feed(sweeping, 2, 12);
        EXPECT_EQ(sweeping.finish().extent, panorama_extent::whole);
    }
}

TEST_F(SweepCallbacks, FinishThatWasThrownOutOfCanBeCalledAgain)
{
    bool throws = false;
    sweep sweeping = sweep::begin(calling([&](const std::string& who) {
        if (throws && who == "on_progress") {
            throw std::out_of_range("by " + who);
        }
    }));
    feed(sweeping, 0, 6);
    const int before = sweeping.status().key_frames;
    throws = true;
    const frame_view last = view(7);
    finish_options ending = telling();
    ending.last_frame = &last;
    EXPECT_THROW(sweeping.finish(ending), std::out_of_range);
    throws = false;
    const bool was_handed_over = sweeping.status().key_frames > before;
    if (was_handed_over) {
        ending.last_frame = nullptr;
    }
    const panorama result = sweeping.finish(ending);
    EXPECT_EQ(result.extent, panorama_extent::whole);
    EXPECT_EQ(result.last_frame.key_frame, before + 1);
}

TEST_F(SweepCallbacks, ExceptionsThatAreNoneOfTheStandardsLeaveToo)
{
    sweep sweeping = sweep::begin(calling([](const std::string&) { throw 7; }));
    EXPECT_THROW(sweeping.feed(view(0)), int);
    EXPECT_EQ(sweeping.status().key_frames, 1);
}

// ---------------------------------------------------------------------------------------------------------- cancel

TEST_F(SweepCallbacks, CancelTakesEffectWhenTheCallReturns)
{
    for (const std::string canceller : callbacks_of_feed) {
        SCOPED_TRACE(canceller);
        std::optional<sweep> sweeping;
        std::string directory;
        bool has_cancelled = false;
        sweeping = sweep::begin(calling([&](const std::string& who) {
            if (who == canceller && !has_cancelled) {
                sweeping->cancel();
                has_cancelled = true;
                EXPECT_TRUE(sweeping->is_current()) << "until the call returns";
                EXPECT_EQ(sweeping->directory(), directory);
            }
        }));
        directory = sweeping->directory();
        frame_answer answer;
        for (std::size_t i = 0; i < 2 && !has_cancelled; ++i) {
            answer = sweeping->feed(view(i));
        }
        EXPECT_TRUE(has_cancelled);
        EXPECT_EQ(answer.why, canceller == "while_waiting" ? reason::cancelled : reason::none);
        EXPECT_EQ(answer.taken, canceller != "while_waiting");
        expect_over(*sweeping);
        EXPECT_TRUE(private_directories().empty());
    }
}

TEST_F(SweepCallbacks, CancelWhileAPanoramaIsWaitedForGivesWhatThereIs)
{
    sweep_options plain = options();
    stepper.hold_at(worker_stage::turn_taken, 2);
    sweep sweeping = sweep::begin(plain);
    feed_until_key_frame(sweeping, 2);
    ASSERT_TRUE(wait_for_turns(1));
    finish_options ending;
    ending.on_progress = [&](int, int) {
        sweeping.cancel();
        return true;
    };
    const panorama result = sweeping.finish(ending);
    EXPECT_EQ(result.extent, panorama_extent::partial);
    EXPECT_EQ(result.why, reason::cancelled);
    expect_over(sweeping);
}

TEST_F(SweepCallbacks, SweepMayBeDestroyedByItsOwnCallback)
{
    auto sweeping = std::make_unique<sweep>(sweep::begin(calling([](const std::string&) {})));
    sweep& same = *sweeping;
    action_ = [&](const std::string&) { sweeping.reset(); };
    EXPECT_TRUE(same.feed(view(0)).taken);
    EXPECT_EQ(sweeping, nullptr);
    EXPECT_TRUE(private_directories().empty());
}

// ------------------------------------------------------------------------------------------- what else may be called

TEST_F(SweepCallbacks, LooksAreAnsweredAndWhatWouldWaitIsRefused)
{
    std::optional<sweep> sweeping;
    std::vector<std::string> callers;
    sweeping = sweep::begin(calling([&](const std::string& who) {
        callers.push_back(who);
        EXPECT_TRUE(sweeping->is_current());
        EXPECT_GE(sweeping->status().key_frames, 1);
        EXPECT_FALSE(sweeping->preview().pixels.empty());
        EXPECT_FALSE(sweeping->directory().empty());
        EXPECT_TRUE(sweeping->wait_for_room(1));
        const frame_answer answer = sweeping->feed(view(5));
        EXPECT_EQ(answer.code, code_lost);
        EXPECT_EQ(answer.why, reason::busy);
        EXPECT_NE(refusal(sweep_problem::bad_argument, [&] { sweeping->finish(); }).find("finish"), std::string::npos);
        EXPECT_NE(refusal(sweep_problem::bad_argument, [&] { sweep::begin(options()); }).find("begin"),
                  std::string::npos);
    }));
    feed(*sweeping, 0, 2);
    EXPECT_EQ(sweeping->finish(telling()).extent, panorama_extent::whole);
    for (const char* const who : {"on_key_frame", "on_log", "while_waiting", "on_progress"}) {
        EXPECT_NE(std::count(callers.begin(), callers.end(), who), 0) << who;
    }
    EXPECT_EQ(private_directories().size(), 1U) << "nothing is left of the refused ones";
}

// ------------------------------------------------------------------------------------------------------------- log

TEST_F(SweepCallbacks, LogGoesToTheHostAndNowhereElse)
{
    std::vector<std::string> logs;
    sweep_options logging = options();
    logging.on_log = [&logs](const std::string& text) { logs.push_back(text); };
    take_output();
    sweep sweeping = sweep::begin(logging);
    sweeping.feed(view(0));
    ASSERT_EQ(logs.size(), 1U);
    EXPECT_EQ(
        logs.front().rfind("input_frame shape is 240*240, type is 16main thread: videoStitch finish, total spent", 0),
        0U)
        << logs.front();
    EXPECT_EQ(logs.front().back(), '\n');
    const frame_view last = view(1);
    sweeping.finish({&last});
    EXPECT_EQ(logs.size(), 2U);
    sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    sweeping.finish();
    EXPECT_EQ(take_output(), "");
    EXPECT_EQ(logs.size(), 2U);
    videoStitch(frames().front(), 0, 0);
    EXPECT_NE(take_output(), "") << "the interface's own functions write as ever";
}

// ------------------------------------------------------------------------------------------------------ key frames

/// The key frames of sweeps, against the truth: which they are, their pixels, and where they lie.
class SweepKeyFrames : public sweep_fixture {};

TEST_F(SweepKeyFrames, AreHandedOutWithTheirPlaceInThePlaneOfTheFirst)
{
    hold_workers();
    // To the left and upwards the preview's origin moves; the plane stays.
    for (const int direction : {moving_right, moving_left, moving_up, moving_down}) {
        SCOPED_TRACE(direction_name(direction));
        const rendered_sweep rendered = slide(cv::Size(320, 240), direction, 16.0, 24);
        const cv::Size working = working_copy_size(rendered.frame_size);
        const cv::Matx33d frame_from_copy = frame_from_working_copy(rendered.frame_size);
        const cv::Matx33d first_from_plane = (rendered.plane_from_frame.front() * frame_from_copy).inv();
        std::size_t current = 0;
        int keys = 0;
        sweep_options handing = options();
        handing.on_key_frame = [&](const tarn::key_frame& key) {
            EXPECT_EQ(key.number, ++keys);
            EXPECT_TRUE(same_pixels(rendered.frame(static_cast<int>(current)), key.image));
            EXPECT_TRUE(key.placed);
            EXPECT_EQ(key.working_size, working);
            const cv::Matx33d truth = first_from_plane * rendered.plane_from_frame[current] * frame_from_copy;
            // Registered from frame to frame, errors add up.
            EXPECT_LT(mean_corner_error(key.plane_from_frame, truth, working), 4.0) << "frame " << current;
            if (keys == 1) {
                EXPECT_EQ(key.plane_from_frame, cv::Matx33d::eye());
            }
        };
        sweep sweeping = sweep::begin(handing);
        for (; current < rendered.plane_from_frame.size(); ++current) {
            const cv::Mat frame = rendered.frame(static_cast<int>(current));
            const frame_answer answer = sweeping.feed(view_of(frame));
            EXPECT_TRUE(answer.taken);
            EXPECT_EQ(answer.key_frames, keys);
            EXPECT_TRUE(answer.key_frame == 0 || answer.key_frame == keys);
        }
        EXPECT_GE(keys, 4);
    }
}

TEST_F(SweepKeyFrames, LastFrameIsOneWithoutAPlace)
{
    std::vector<tarn::key_frame> keys;
    sweep_options handing = options();
    handing.on_key_frame = [&keys](const tarn::key_frame& key) { keys.push_back(key); };
    sweep sweeping = sweep::begin(handing);
    feed(sweeping, 0, 6);
    const frame_view last = view(6);
    const panorama result = sweeping.finish({&last});
    ASSERT_EQ(keys.size(), static_cast<std::size_t>(result.key_frames));
    EXPECT_EQ(keys.back().number, result.key_frames);
    EXPECT_FALSE(keys.back().placed);
    cv::Mat expected;
    cv::cvtColor(frames()[6], expected, cv::COLOR_RGBA2BGR);
    EXPECT_TRUE(same_pixels(expected, keys.back().image));
}

TEST_F(SweepKeyFrames, ImagesStayWhatTheyWere)
{
    std::vector<cv::Mat> images;
    std::vector<cv::Mat> copies;
    sweep_options handing = options();
    handing.on_key_frame = [&](const tarn::key_frame& key) {
        images.push_back(key.image);
        copies.push_back(key.image.clone());
    };
    sweep sweeping = sweep::begin(handing);
    feed(sweeping, 0, frames().size());
    sweeping.finish();
    sweeping.cancel();
    ASSERT_GE(images.size(), 3U);
    for (std::size_t i = 0; i < images.size(); ++i) {
        EXPECT_TRUE(same_pixels(copies[i], images[i]));
    }
}

TEST_F(SweepKeyFrames, OfASampleWithKnownMotionLieWhereTheyShould)
{
    const std::vector<cv::Mat>& video = sample_video("hall_slide.mp4");
    const std::vector<cv::Matx33d> truth = sample_ground_truth("hall_slide.gt.csv");
    ASSERT_EQ(video.size(), truth.size());
    const cv::Size size = video.front().size();
    const cv::Matx33d frame_from_copy = frame_from_working_copy(size);
    std::size_t current = 0;
    std::size_t first = 0;
    int keys = 0;
    sweep_options handing = options();
    handing.most_under_way = 1;
    handing.on_key_frame = [&](const tarn::key_frame& key) {
        first = keys++ == 0 ? current : first;
        const cv::Matx33d first_from_plane = (truth[first] * frame_from_copy).inv();
        const double error = mean_corner_error(
            key.plane_from_frame, first_from_plane * truth[current] * frame_from_copy, working_copy_size(size));
        // Registered from frame to frame, errors add up: a pixel for each thirty of the way.
        const double way = std::abs((first_from_plane * truth[current] * frame_from_copy)(0, 2));
        EXPECT_LT(error, 3.0 + way / 30.0) << "key frame " << key.number << ", frame " << current;
    };
    sweep sweeping = sweep::begin(handing);
    for (; current < video.size(); ++current) {
        sweeping.feed(view_of(video[current]));
    }
    EXPECT_GE(keys, 3);
}

}  // namespace
