// SPDX-License-Identifier: Apache-2.0
//
// Whole sweeps of the high-resolution pipeline, from the host's first frame to the file: the place of every key
// frame against the truth, the panorama's size and content, the projection rules, and that nothing depends on
// timing.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/counted_sleep.h"
#include "support/rendered_sweep.h"
#include "support/sample_video.h"
#include "support/stitcher_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;

std::vector<uchar> file_bytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<uchar> encoded(const cv::Mat& image)
{
    std::vector<uchar> bytes;
    cv::imencode(".jpg", image, bytes);
    return bytes;
}

/// One key frame after its turn.
struct key_frame {
    int frame;                  ///< number of the frame in the sweep
    cv::Matx33d placed;         ///< the prepared frame into the panorama as it was then
    cv::Size panorama;          ///< its size then
    std::vector<float> angles;  ///< what the worker was given
    std::vector<float> scales;
};

/// What became of a sweep.
struct sweep_record {
    std::vector<int> codes;
    std::vector<key_frame> key_frames;  ///< as far as their turns ended well
};

class HighResSweep : public stitcher_fixture {
protected:
    /// Hands a frame in, waits for the turn of its worker if it was a key frame, and notes what that did.
    void feed(sweep_record& record, const cv::Mat& host_frame, int hint, bool is_last_one)
    {
        const int before = tarn_stitcher.big_frame_index;
        record.codes.push_back(videoStitch(host_frame, hint, is_last_one ? 1 : 0)[0]);
        if (tarn_stitcher.big_frame_index == before)
            return;
        ASSERT_TRUE(wait_for_turns(tarn_stitcher.big_frame_index));
        if (tarn::look_at_pipeline().status != tarn::pipeline_ready)
            return;
        record.key_frames.push_back({static_cast<int>(record.codes.size()) - 1, cv::Matx33d(neighbour_homo),
                                     big_stitch_image.size(), tarn_stitcher.last_angles, tarn_stitcher.last_scales});
    }

    sweep_record run(const rendered_sweep& sweep, int hint)
    {
        sweep_record record;
        for (int i = 0; i < sweep.length(); ++i)
            feed(record, sweep.host_frame(i), hint, i == sweep.length() - 1);
        return record;
    }

    /// A sweep that ended well left exactly its files, and the panorama's is the one in memory.
    void expect_files_of(const sweep_record& record) const
    {
        std::vector<std::string> expected = {"big_stitch.jpg"};
        for (std::size_t i = 1; i <= record.key_frames.size(); ++i)
            expected.push_back("big_frame" + std::to_string(i) + ".jpg");
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(entries_of(directory()), expected);
        EXPECT_EQ(getCurrentPanoramaShow(), directory() + "big_stitch.jpg");
        EXPECT_EQ(getTestCurrentPanoramaShow(),
                  directory() + "big_frame" + std::to_string(record.key_frames.size()) + ".jpg");
        EXPECT_EQ(file_bytes(directory() + "big_stitch.jpg"), encoded(big_stitch_image));
    }
};

/// Where each key frame's prepared frame lies relative to that of the first one, by the truth.
std::vector<cv::Matx33d> true_places(const std::vector<cv::Matx33d>& plane_from_frame, cv::Size frame_size,
                                     const std::vector<key_frame>& key_frames)
{
    const cv::Matx33d frame_from_turned = frame_from_prepared(frame_size);
    const cv::Matx33d first_from_plane = (plane_from_frame.front() * frame_from_turned).inv();
    std::vector<cv::Matx33d> places;
    for (const key_frame& key : key_frames)
        places.push_back(first_from_plane * plane_from_frame[static_cast<std::size_t>(key.frame)] * frame_from_turned);
    return places;
}

/// How far the i-th key frame was placed from where it belongs, in parts of the frame's width.
double placing_error(const std::vector<key_frame>& key_frames, const std::vector<cv::Matx33d>& places, std::size_t i,
                     cv::Size frame_size)
{
    const cv::Size prepared = prepared_size(frame_size);
    const std::vector<cv::Matx33d> so_far(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    return mean_corner_error(key_frames[i].placed, canvas_shift(so_far, prepared) * places[i], prepared)
           / std::min(prepared.width, prepared.height);
}

/// Pixels that the frames cover in the panorama, by the truth, without a rim of `rim` pixels.
cv::Mat covered_area(const std::vector<cv::Matx33d>& places, cv::Size prepared, cv::Size panorama, int rim)
{
    cv::Mat covered = cv::Mat::zeros(panorama, CV_8UC1);
    const cv::Matx33d shift = canvas_shift(places, prepared);
    for (const cv::Matx33d& place : places) {
        std::vector<cv::Point> corners;
        for (const cv::Point2d& corner : mapped_corners(shift * place, prepared))
            corners.emplace_back(cvRound(corner.x), cvRound(corner.y));
        cv::fillConvexPoly(covered, corners, cv::Scalar(255));
    }
    cv::erode(covered, covered, cv::Mat::ones(2 * rim + 1, 2 * rim + 1, CV_8UC1), cv::Point(-1, -1), 1,
              cv::BORDER_CONSTANT, cv::Scalar(0));
    return covered;
}

/// Everything that is known of a slide's panorama.
void expect_true_panorama(const rendered_sweep& sweep, const sweep_record& record)
{
    const cv::Size prepared = prepared_size(sweep.frame_size);
    const std::vector<cv::Matx33d> places = true_places(sweep.plane_from_frame, sweep.frame_size, record.key_frames);
    for (std::size_t i = 0; i < places.size(); ++i)
        EXPECT_LT(placing_error(record.key_frames, places, i, sweep.frame_size), 0.01) << "key frame " << i + 1;

    std::vector<cv::Point2f> corners;
    for (const cv::Matx33d& place : places) {
        for (const cv::Point2d& corner : mapped_corners(place, prepared))
            corners.emplace_back(corner);
    }
    const cv::Rect box = cv::boundingRect(corners);
    EXPECT_NEAR(big_stitch_image.cols, box.width, 0.02 * box.width);
    EXPECT_NEAR(big_stitch_image.rows, box.height, 0.02 * box.height);

    const cv::Mat covered = covered_area(places, prepared, big_stitch_image.size(), 6);
    ASSERT_GT(cv::countNonZero(covered), big_stitch_image.size().area() * 8 / 10);
    cv::Mat black;
    cv::inRange(big_stitch_image, cv::Scalar::all(0), cv::Scalar::all(0), black);
    EXPECT_EQ(cv::countNonZero(black & covered), 0) << "holes inside the covered area";

    // The panorama shows the scene: it differs from the plane, seen from there, by less than a view of the plane
    // that is off by one percent of the frame's width, and by the pixel that each growth of the canvas may lose,
    // since it moves the panorama by whole pixels.
    const cv::Matx33d plane_from_panorama =
        sweep.plane_from_frame.front() * frame_from_prepared(sweep.frame_size) * canvas_shift(places, prepared).inv();
    const auto difference_at = [&](double x, double y) {
        cv::Mat scene;
        cv::warpPerspective(sweep.plane, scene, plane_from_panorama * translation(x, y), big_stitch_image.size(),
                            cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
        cv::Mat difference;
        cv::absdiff(scene, big_stitch_image, difference);
        return cv::mean(difference, covered)[1];
    };
    const double off = 0.01 * prepared.width + static_cast<double>(record.key_frames.size());
    EXPECT_LT(difference_at(0, 0), std::min(difference_at(off, 0), difference_at(0, off)));
}

// --------------------------------------------------------------------------------------------------- slides

class HighResSlide : public HighResSweep, public testing::WithParamInterface<int> {};

TEST_P(HighResSlide, EveryKeyFrameIsWithinOnePercentOfItsPlaceAndThePanoramaIsTheScene)
{
    const cv::Size size(640, 480);
    const bool level = GetParam() == moving_left || GetParam() == moving_right;
    const rendered_sweep sweep = slide(size, GetParam(), level ? 13.0 : 11.0, scaled_count(50, 20));
    const sweep_record record = run(sweep, GetParam());

    EXPECT_EQ(std::count(record.codes.begin(), record.codes.end(), 1), sweep.length());
    ASSERT_EQ(static_cast<int>(record.key_frames.size()), tarn_stitcher.big_frame_index);
    EXPECT_GE(static_cast<int>(record.key_frames.size()), sweep.length() / 10);
    EXPECT_FALSE(SP);
    expect_true_panorama(sweep, record);
    expect_files_of(record);
    // Frames were neither bent nor shrunk on their way.
    for (std::size_t i = 1; i <= record.key_frames.size(); ++i)
        EXPECT_EQ(cv::imread(directory() + "big_frame" + std::to_string(i) + ".jpg").size(), cv::Size(480, 640));
}

TEST_P(HighResSlide, FramesWiderThan1000PixelsAreShrunkFirst)
{
    const cv::Size size(1280, 720);
    const rendered_sweep sweep = slide(size, GetParam(), 24.0, 22);
    const sweep_record record = run(sweep, GetParam());
    EXPECT_EQ(record.codes.back(), 1);
    ASSERT_GE(record.key_frames.size(), 3U);
    EXPECT_EQ(record.key_frames[0].panorama, cv::Size(562, 1000));
    EXPECT_EQ(big_work_scale, 0.8f);
    EXPECT_EQ(cv::imread(directory() + "big_frame2.jpg").size(), cv::Size(450, 800));
    expect_true_panorama(sweep, record);
    expect_files_of(record);
}

TEST_P(HighResSlide, PanoramaOnlyGrowsAndKeepsWhatItShows)
{
    const cv::Size size(480, 360);
    const rendered_sweep sweep = slide(size, GetParam(), 10.0, 30);
    sweep_record record;
    cv::Mat before;
    for (int i = 0; i < sweep.length(); ++i) {
        const std::size_t turns = record.key_frames.size();
        feed(record, sweep.host_frame(i), GetParam(), false);
        if (record.key_frames.size() == turns)
            continue;
        const cv::Mat now = tarn::look_at_pipeline().panorama;
        if (!before.empty()) {
            EXPECT_GE(now.cols, before.cols);
            EXPECT_GE(now.rows, before.rows);
            // The existing panorama wins over a new frame, but for the fade along the joint: the middle of what was
            // there before the last two turns stands as it was, at the whole-pixel shift of the canvas.
            const cv::Rect middle(before.cols / 2 - 20, before.rows / 2 - 20, 40, 40);
            cv::Mat score;
            cv::Point found;
            cv::matchTemplate(now, before(middle), score, cv::TM_SQDIFF);
            cv::minMaxLoc(score, nullptr, nullptr, &found);
            EXPECT_EQ(cv::norm(now(cv::Rect(found, middle.size())), before(middle), cv::NORM_INF), 0.0)
                << "frame " << i;
        }
        before = now;
    }
    EXPECT_GE(record.key_frames.size(), 3U);
}

INSTANTIATE_TEST_SUITE_P(Directions, HighResSlide, testing::Values(moving_down, moving_up, moving_right, moving_left),
                         [](const auto& slide_info) { return direction_name(slide_info.param); });

TEST_F(HighResSweep, PanoramaIsTurnedClockwiseAgainstTheFrames)
{
    const rendered_sweep sweep = slide(cv::Size(480, 360), moving_right, 9.0, 2);
    run(sweep, moving_right);
    cv::Mat turned;
    cv::rotate(sweep.frame(0), turned, cv::ROTATE_90_CLOCKWISE);
    // The first frame came first, so it wins wherever it is, but for the fade of 50 pixels along its edge.
    const cv::Rect inside(60, 60, 240, 340);
    EXPECT_EQ(cv::norm(big_stitch_image(inside), turned(inside), cv::NORM_INF), 0.0);
}

TEST_F(HighResSweep, SlideThereAndBackComposesBothWays)
{
    const cv::Size size(640, 480);
    const rendered_sweep sweep = slide_there_and_back(size, moving_right, 12.0, 24, 20);
    const sweep_record record = run(sweep, no_direction);
    EXPECT_EQ(record.codes.back(), 1);
    ASSERT_EQ(static_cast<int>(record.key_frames.size()), tarn_stitcher.big_frame_index);
    expect_true_panorama(sweep, record);
    expect_files_of(record);
}

TEST_F(HighResSweep, NewSweepInTheSameDirectoryLeavesNothingOfTheOldOne)
{
    const rendered_sweep longer = slide(cv::Size(480, 360), moving_right, 10.0, 40);
    run(longer, moving_right);
    resetStitch(directory().c_str());
    const rendered_sweep shorter = slide(cv::Size(480, 360), moving_down, 10.0, 16);
    const sweep_record record = run(shorter, moving_down);
    expect_true_panorama(shorter, record);
    expect_files_of(record);
}

// ------------------------------------------------------------------------------------------- projection rules

/// How a key frame should have been bent, by the rules, and the frame file that it should have left.
enum class bending { none, cylinder, sphere_from_here };

struct expected_bending {
    bending rule;
    float angle;
};

expected_bending bending_of(const key_frame& key, int big_frame_index, int direction)
{
    const std::vector<float>& a = key.angles;
    const float mean_scale = (key.scales[0] + key.scales[1] + key.scales[2] + key.scales[3]) * 0.25f;
    const float sideways = std::max(std::fabs(90.0f - (a[0] + a[3]) / 2.0f), std::fabs(90.0f - (a[1] + a[2]) / 2.0f));
    const float upright = std::max(std::fabs(90.0f - (a[0] + a[1]) / 2.0f), std::fabs(90.0f - (a[3] + a[2]) / 2.0f));
    if (big_frame_index == 2 && upright > 1.5f && direction == 2 && mean_scale > 0.95)
        return {bending::sphere_from_here, upright};
    if (mean_scale > 0.95 && sideways > 2.0f)
        return {bending::cylinder, sideways};
    return {bending::none, 0.0f};
}

TEST_F(HighResSweep, CameraThatTurnsSidewaysIsBentOntoACylinderAndEndsWell)
{
    for (const int direction : {moving_right, moving_left}) {
        resetStitch(directory().c_str());
        const cv::Size size(480, 360);
        const rendered_sweep sweep = turn(size, direction, 420.0, 1.1, 30);
        const sweep_record record = run(sweep, direction);

        EXPECT_EQ(record.codes.back(), 1);
        EXPECT_EQ(big_stitch_status, 3);
        ASSERT_EQ(static_cast<int>(record.key_frames.size()), tarn_stitcher.big_frame_index);
        int cylinders = 0;
        for (std::size_t i = 0; i < record.key_frames.size(); ++i) {
            // The first frame goes with the angles of a new task; what key frames are given was noted.
            const int index = static_cast<int>(i) + 1;
            const expected_bending expected = bending_of(record.key_frames[i], index, direction);
            cv::Mat image;
            cv::rotate(sweep.frame(record.key_frames[i].frame), image, cv::ROTATE_90_CLOCKWISE);
            if (expected.rule == bending::cylinder)
                cylindrical_projection(image, image, expected.angle);
            EXPECT_EQ(file_bytes(directory() + "big_frame" + std::to_string(index) + ".jpg"), encoded(image)) << index;
            cylinders += expected.rule == bending::cylinder ? 1 : 0;
        }
        EXPECT_GE(cylinders, 2);
        EXPECT_FALSE(SP);
        expect_files_of(record);
        EXPECT_GT(big_stitch_image.rows, 2 * 480 * 9 / 10) << "the sweep turns by more than a view";
    }
}

TEST_F(HighResSweep, CameraThatTurnsUpwardsIsSwitchedToTheSphereAndThePipelineFailsAtTheSecondFrame)
{
    const cv::Size size(360, 480);
    const rendered_sweep sweep = turn(size, moving_up, 420.0, 1.1, 40);
    sweep_record record;
    int number = 0;
    while (tarn_stitcher.big_frame_index < 2 && number < sweep.length() - 1)
        feed(record, sweep.host_frame(number++), moving_up, false);
    ASSERT_EQ(tarn_stitcher.big_frame_index, 2);
    const key_frame second = {number - 1, cv::Matx33d::eye(), {}, tarn_stitcher.last_angles, tarn_stitcher.last_scales};
    const expected_bending expected = bending_of(second, 2, moving_up);
    ASSERT_EQ(expected.rule, bending::sphere_from_here);

    // The switch leaves 8-bit descriptors, with which the second frame's cannot be paired.
    EXPECT_TRUE(SP);
    EXPECT_EQ(neighbour_descriptors.type(), CV_8UC1);
    const tarn::pipeline_snapshot pipeline = tarn::look_at_pipeline();
    EXPECT_EQ(pipeline.status, tarn::pipeline_failed);
    EXPECT_EQ(pipeline.turns_over, 2);
    EXPECT_EQ(pipeline.first_failed_frame, 2);

    // What is left of the panorama is the first frame on the sphere.
    cv::Mat first;
    cv::rotate(sweep.frame(0), first, cv::ROTATE_90_CLOCKWISE);
    SphericalProjection(first, first, expected.angle);
    EXPECT_EQ(cv::norm(pipeline.panorama, first, cv::NORM_INF), 0.0);
    cv::Mat image;
    cv::rotate(sweep.frame(second.frame), image, cv::ROTATE_90_CLOCKWISE);
    SphericalProjection(image, image, expected.angle);
    EXPECT_EQ(file_bytes(directory() + "big_frame2.jpg"), encoded(image));

    // From then on the host is told, and no file comes out.
    while (number < sweep.length()) {
        feed(record, sweep.host_frame(number), moving_up, number == sweep.length() - 1);
        ++number;
        EXPECT_EQ(record.codes.back(), -1);
    }
    EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"big_frame1.jpg", "big_frame2.jpg"}));

    // And a new task starts from nothing.
    resetStitch(directory().c_str());
    const rendered_sweep next = slide(cv::Size(480, 360), moving_right, 10.0, 16);
    const sweep_record after = run(next, moving_right);
    expect_true_panorama(next, after);
}

TEST_F(HighResSweep, CameraThatTurnsDownwardsIsNotBentAndEndsWell)
{
    const cv::Size size(360, 480);
    const rendered_sweep sweep = turn(size, moving_down, 420.0, 0.8, 20);
    const sweep_record record = run(sweep, moving_down);
    EXPECT_EQ(record.codes.back(), 1);
    ASSERT_GE(record.key_frames.size(), 3U);
    for (std::size_t i = 0; i < record.key_frames.size(); ++i) {
        const int index = static_cast<int>(i) + 1;
        EXPECT_EQ(bending_of(record.key_frames[i], index, moving_down).rule, bending::none);
        cv::Mat image;
        cv::rotate(sweep.frame(record.key_frames[i].frame), image, cv::ROTATE_90_CLOCKWISE);
        EXPECT_EQ(file_bytes(directory() + "big_frame" + std::to_string(index) + ".jpg"), encoded(image)) << index;
    }
    EXPECT_FALSE(SP);
    expect_files_of(record);
}

TEST_F(HighResSweep, SweepWithoutEnoughToMatchFailsAndIsAnsweredMinus1)
{
    // The last frame shows another place altogether.
    const cv::Size size(480, 360);
    const rendered_sweep sweep = slide(size, moving_right, 10.0, 6);
    sweep_record record;
    for (int i = 0; i < sweep.length(); ++i)
        feed(record, sweep.host_frame(i), moving_right, false);
    const cv::Mat elsewhere = textured_plane(cv::Size(512, 512), 77)(cv::Rect(cv::Point(0, 0), size));
    // Its worker starts when the host already waits for it, and so the call does not know of the failure.
    hold_workers();
    {
        const counted_sleep count([this](int number) {
            if (number == 1)
                release_workers();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        feed(record, host_frame_from(elsewhere), moving_right, true);
    }
    EXPECT_EQ(record.codes.back(), 1);
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
    feed(record, sweep.host_frame(5), moving_right, false);
    EXPECT_EQ(record.codes.back(), -1);
}

// ------------------------------------------------------------------------------------------------- timing

class HighResTiming : public HighResSweep {
protected:
    /// The sweep without any waiting in between; the workers run as they may.
    std::vector<uchar> panorama_of(const rendered_sweep& sweep, const std::function<void()>& before_the_last = nullptr)
    {
        resetStitch(directory().c_str());
        for (int i = 0; i < sweep.length(); ++i) {
            const bool is_last_one = i == sweep.length() - 1;
            if (is_last_one && before_the_last)
                before_the_last();
            EXPECT_EQ(videoStitch(sweep.host_frame(i), no_direction, is_last_one ? 1 : 0)[0], 1) << i;
        }
        EXPECT_EQ(big_stitch_status, 3);
        EXPECT_EQ(getCurrentPanoramaShow(), directory() + "big_stitch.jpg");
        on_worker_stage(nullptr);
        return file_bytes(directory() + "big_stitch.jpg");
    }

    void SetUp() override
    {
        HighResSweep::SetUp();
        sweep_ = slide(cv::Size(480, 360), moving_left, 9.0, 40);
        expected_ = panorama_of(sweep_);
        workers_ = tarn_stitcher.big_frame_index;
        ASSERT_GE(workers_, 4);
        ASSERT_FALSE(expected_.empty());
    }

    rendered_sweep sweep_;
    std::vector<uchar> expected_;
    int workers_ = 0;
};

/// Where a worker has arrived, for others to wait for.
class milestones {
public:
    void reach(int index)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        reached_.push_back(index);
        changed_.notify_all();
    }

    void wait_for(int index)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return std::count(reached_.begin(), reached_.end(), index) != 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> reached_;
};

TEST_F(HighResTiming, RepeatedSweepsGiveTheSameFileByteForByte)
{
    for (int i = 0; i < scaled_count(4, 1); ++i)
        EXPECT_EQ(panorama_of(sweep_), expected_);
}

TEST_F(HighResTiming, WaitingForEachTurnGivesTheSameFile)
{
    resetStitch(directory().c_str());
    run(sweep_, no_direction);
    EXPECT_EQ(file_bytes(directory() + "big_stitch.jpg"), expected_);
}

TEST_F(HighResTiming, WorkersThatAllStartAtOnceGiveTheSameFile)
{
    hold_workers();
    EXPECT_EQ(panorama_of(sweep_, [this] { release_workers(); }), expected_);
}

TEST_F(HighResTiming, WorkersThatPrepareInReverseOrderGiveTheSameFile)
{
    const auto written = std::make_shared<milestones>();
    const int workers = workers_;
    on_worker_stage([written, workers](tarn::worker_stage stage, int index) {
        if (stage == tarn::worker_stage::started && index < workers)
            written->wait_for(index + 1);
        if (stage == tarn::worker_stage::file_written)
            written->reach(index);
    });
    EXPECT_EQ(panorama_of(sweep_), expected_);
}

TEST_F(HighResTiming, TurnThatEndsOnlyWhenAllOthersWaitGivesTheSameFile)
{
    // Every worker holds its turn until the next one has been waiting for the pipeline to become idle.
    const auto waiting = std::make_shared<milestones>();
    const int workers = workers_;
    on_worker_stage([waiting, workers](tarn::worker_stage stage, int index) {
        if (stage == tarn::worker_stage::polling_for_idle || stage == tarn::worker_stage::polling_for_turn)
            waiting->reach(index);
        if (stage == tarn::worker_stage::turn_taken && index < workers)
            waiting->wait_for(index + 1);
    });
    EXPECT_EQ(panorama_of(sweep_), expected_);
}

TEST_F(HighResTiming, NumberOfThreadsDoesNotMatter)
{
    for (const int threads : {1, 2, 3, 8}) {
        cv::setNumThreads(threads);
        EXPECT_EQ(panorama_of(sweep_), expected_) << threads;
    }
}

TEST_F(HighResTiming, RandomNumbersDrawnElsewhereDoNotMatter)
{
    cv::theRNG().state = 4711;
    on_worker_stage([](tarn::worker_stage stage, int index) {
        if (stage == tarn::worker_stage::started || stage == tarn::worker_stage::turn_taken)
            cv::theRNG().state = static_cast<std::uint64_t>(index) * 1234567 + 1;
    });
    EXPECT_EQ(panorama_of(sweep_), expected_);
}

// ------------------------------------------------------------------------------------------------- samples

struct known_sample {
    const char* file;
    double net_widths;  ///< way of the camera along the sweep, in frame widths, chained from frame to frame

    friend std::ostream& operator<<(std::ostream& stream, const known_sample& sample)
    {
        return stream << sample.file;
    }
};

class HighResSample : public HighResSweep, public testing::WithParamInterface<known_sample> {};

TEST_P(HighResSample, WholeSweepEndsWithThePanoramaInItsFile)
{
    const std::vector<cv::Mat>& frames = sample_video(GetParam().file);
    ASSERT_FALSE(frames.empty());
    sweep_record record;
    for (std::size_t i = 0; i < frames.size(); ++i)
        feed(record, host_frame_from(frames[i]), no_direction, i + 1 == frames.size());

    EXPECT_EQ(std::count(record.codes.begin(), record.codes.end(), -1), 0);
    EXPECT_EQ(std::count(record.codes.begin(), record.codes.end(), 0), 0);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(static_cast<int>(record.key_frames.size()), tarn_stitcher.big_frame_index);
    expect_files_of(record);
    // Turned clockwise, the sweep's length is the panorama's height. A turning camera stretches it further.
    EXPECT_GT(big_stitch_image.rows, 0.95 * (1.0 + GetParam().net_widths) * frames[0].cols);
    EXPECT_GE(big_stitch_image.cols, frames[0].rows);
}

INSTANTIATE_TEST_SUITE_P(Bundled, HighResSample,
                         testing::Values(known_sample{"parking_pan.mp4", 0.92}, known_sample{"river_pan.mp4", 2.80},
                                         known_sample{"hall_slide.mp4", 1.78}),
                         [](const auto& sample) {
                             const std::string file = sample.param.file;
                             return file.substr(0, file.find('_'));
                         });

TEST_F(HighResSweep, RenderedSampleEndsWithinOnePercentOfItsPlace)
{
    const std::vector<cv::Mat>& frames = sample_video("hall_slide.mp4");
    const std::vector<cv::Matx33d> truth = sample_ground_truth("hall_slide.gt.csv");
    ASSERT_EQ(truth.size(), frames.size());
    sweep_record record;
    for (std::size_t i = 0; i < frames.size(); ++i)
        feed(record, host_frame_from(frames[i]), moving_right, i + 1 == frames.size());
    ASSERT_EQ(static_cast<int>(record.key_frames.size()), tarn_stitcher.big_frame_index);
    const cv::Size size = frames[0].size();
    const std::vector<cv::Matx33d> places = true_places(truth, size, record.key_frames);
    for (std::size_t i = 0; i < places.size(); ++i)
        EXPECT_LT(placing_error(record.key_frames, places, i, size), 0.01) << "key frame " << i + 1;
    const cv::Mat covered = covered_area(places, prepared_size(size), big_stitch_image.size(), 12);
    cv::Mat black;
    cv::inRange(big_stitch_image, cv::Scalar::all(0), cv::Scalar::all(0), black);
    cv::erode(black, black, cv::Mat::ones(3, 3, CV_8UC1));  // single pixels of the photograph are black
    EXPECT_EQ(cv::countNonZero(black & covered), 0);
}

}  // namespace
