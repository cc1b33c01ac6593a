// SPDX-License-Identifier: Apache-2.0
//
// Whole sweeps through the session: the answers, the preview and the panorama are those of the interface's own
// functions, to the byte.
#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/sample_video.h"
#include "support/stitcher_fixture.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"
#include "tarn_sweep.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

/// What a sweep came to.
struct outcome {
    std::vector<int> codes;
    std::vector<std::string> logs;  ///< per frame, without the time spent
    cv::Mat preview;
    std::vector<unsigned char> panorama;
    int key_frames = 0;
};

std::string without_time(const std::string& log)
{
    return log.substr(0, log.find("total spent"));
}

class SweepWhole : public stitcher_fixture {
protected:
    /// The frames as a host hands them over, the last one as the last.
    outcome by_functions(const std::vector<cv::Mat>& frames, int hint)
    {
        resetStitch(directory().c_str());
        outcome result;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            take_output();
            result.codes.push_back(videoStitch(frames[i], hint, i + 1 == frames.size() ? 1 : 0)[0]);
            result.logs.push_back(without_time(take_output()));
            while (tarn_stitcher.big_frame_index - tarn::look_at_pipeline().turns_over > 1) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
        result.preview = getCurrentPanoramsShowMat();
        result.panorama = bytes_of(getCurrentPanoramaShow());
        result.key_frames = tarn_stitcher.big_frame_index;
        resetStitch("");
        return result;
    }

    outcome by_session(const std::vector<cv::Mat>& frames, int hint, int most_under_way)
    {
        outcome result;
        tarn::sweep_options options;
        options.most_under_way = most_under_way;
        options.on_log = [&result](const std::string& text) { result.logs.push_back(without_time(text)); };
        take_output();
        tarn::sweep sweep = tarn::sweep::begin(options);
        const auto direction = static_cast<tarn::direction_code>(hint);
        for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
            result.codes.push_back(sweep.feed(tarn::view_of(frames[i]), direction).code);
        }
        const tarn::frame_view last = tarn::view_of(frames.back());
        tarn::finish_options ending;
        ending.last_frame = &last;
        ending.hint = direction;
        const tarn::panorama panorama = sweep.finish(ending);
        EXPECT_EQ(panorama.extent, tarn::panorama_extent::whole) << tarn::name_of(panorama.why);
        EXPECT_EQ(panorama.why, tarn::reason::none);
        EXPECT_EQ(panorama.first_failed_key_frame, 0);
        EXPECT_TRUE(panorama.image.isContinuous());
        result.codes.push_back(panorama.last_frame.code);
        result.preview = sweep.preview().pixels;
        result.panorama = panorama.jpeg();
        result.key_frames = panorama.key_frames;
        EXPECT_TRUE(bytes_of(sweep.directory() + "big_stitch.jpg") == result.panorama)
            << "the file in the working directory is that JPEG";
        EXPECT_EQ(take_output(), "") << "standard output stays untouched";
        return result;
    }

    void expect_same(const outcome& expected, const outcome& actual)
    {
        EXPECT_EQ(expected.codes, actual.codes);
        EXPECT_EQ(expected.logs, actual.logs);
        EXPECT_TRUE(same_pixels(expected.preview, actual.preview));
        EXPECT_TRUE(expected.panorama == actual.panorama);
        EXPECT_EQ(expected.key_frames, actual.key_frames);
        EXPECT_GT(actual.key_frames, 2);
        EXPECT_FALSE(actual.panorama.empty());
    }

    static std::vector<cv::Mat> host_frames_of(const std::string& sample)
    {
        std::vector<cv::Mat> frames;
        for (const cv::Mat& frame : sample_video(sample)) {
            frames.push_back(host_frame_from(frame));
        }
        return frames;
    }

    void compare_on(const std::string& sample)
    {
        const std::vector<cv::Mat> frames = host_frames_of(sample);
        const outcome expected = by_functions(frames, 0);
        expect_same(expected, by_session(frames, 0, 2));
    }
};

TEST_F(SweepWhole, ParkingPanIsThatOfTheFunctions)
{
    compare_on("parking_pan.mp4");
}

TEST_F(SweepWhole, RiverPanIsThatOfTheFunctions)
{
    compare_on("river_pan.mp4");
}

TEST_F(SweepWhole, HallSlideIsThatOfTheFunctions)
{
    compare_on("hall_slide.mp4");
}

TEST_F(SweepWhole, HintsGoTheSameWay)
{
    const rendered_sweep rendered = slide_there_and_back(cv::Size(320, 240), moving_right, 16.0, 24, 8);
    std::vector<cv::Mat> frames;
    for (int i = 0; i < rendered.length(); ++i) {
        frames.push_back(rendered.host_frame(i));
    }
    const outcome expected = by_functions(frames, moving_right);
    const outcome actual = by_session(frames, moving_right, 1);
    expect_same(expected, actual);
    EXPECT_NE(std::count(actual.codes.begin(), actual.codes.end(), tarn::code_wrong_way), 0);
}

}  // namespace
