// SPDX-License-Identifier: Apache-2.0
//
// What --finish works on: kept pictures, key frames with their places, pieces of a sweep that hang together.
#include <filesystem>
#include <optional>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "finish_display.h"
#include "finish_stage.h"
#include "frame_feed.h"
#include "host_error.h"
#include "key_frame_collector.h"
#include "picture_list.h"
#include "picture_store.h"
#include "scratch_directory.h"
#include "support/directory_fixture.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep.h"
#include "sweep_pieces.h"

using namespace tarn::host;

namespace {

constexpr int step = 48;  // px
const cv::Size frame_size(480, 360);

std::vector<cv::Mat> pictures_of_a_slide(int length)
{
    const tarn::test::rendered_sweep sweep = tarn::test::slide(frame_size, tarn::test::moving_right, step, length);
    std::vector<cv::Mat> pictures;
    for (int index = 0; index < length; ++index) {
        pictures.push_back(sweep.frame(index));
    }
    return pictures;
}

bool same_pixels(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

/// From a pixel of one key frame's copy to one of another's.
cv::Point2d seen_by(const collected_key_frame& other, const collected_key_frame& one, cv::Point2d pixel)
{
    const cv::Vec3d place = other.placement->inv() * *one.placement * cv::Vec3d(pixel.x, pixel.y, 1.0);
    return {place[0] / place[2], place[1] / place[2]};
}

/// The places of all key frames of a slide to the right against the truth, px of their copies.
void expect_truth(const std::vector<collected_key_frame>& key_frames, double tolerance)
{
    const double scale = 300.0 / frame_size.width;
    const collected_key_frame& first = key_frames.front();
    ASSERT_TRUE(first.placement);
    for (const collected_key_frame& one : key_frames) {
        ASSERT_TRUE(one.placement) << one.stamp.number;
        const double moved = scale * step * (one.stamp.number - first.stamp.number);
        for (const cv::Point2d corner : {cv::Point2d(0, 0), {299, 0}, {299, 224}, {0, 224}}) {
            EXPECT_LT(cv::norm(seen_by(first, one, corner) - cv::Point2d(corner.x + moved, corner.y)), tolerance)
                << one.stamp.number;
        }
    }
}

class FinishParts : public tarn::test::stitcher_fixture {};

TEST(FinishPlaces, ACopyThatIsTurnedShowsTheSamePlace)
{
    // Upright 600 x 400, copies of 300 x 200 and of 300 x 450: (x, y) of the one is (y, width - x) of the other, each
    // counted from the edges.
    const cv::Size upright(600, 400);
    const auto mapped = [&](frame_turn turn, cv::Point2d edge) {
        const cv::Vec3d place =
            turned_copy_from_upright_copy(upright, turn) * cv::Vec3d(edge.x - 0.5, edge.y - 0.5, 1.0);
        return cv::Point2d(place[0] + 0.5, place[1] + 0.5);
    };
    const cv::Point2d place(100, 50);
    EXPECT_LT(cv::norm(mapped(frame_turn::none, place) - place), 1e-9);
    EXPECT_LT(cv::norm(mapped(frame_turn::counter_clockwise, place) - cv::Point2d(75, 300)), 1e-9);
    EXPECT_LT(cv::norm(mapped(frame_turn::clockwise, place) - cv::Point2d(225, 150)), 1e-9);
}

class PictureStore : public tarn::test::directory_fixture {};

TEST_F(PictureStore, PicturesComeBackFromMemoryAndFromFiles)
{
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(3);
    const double room_for_one = 1.5 * 3 * frame_size.area();
    picture_store store(room_for_one);
    for (const cv::Mat& picture : pictures) {
        store.add(picture);
    }
    EXPECT_EQ(store.in_files(), 2);
    for (std::size_t number = 0; number < pictures.size(); ++number) {
        EXPECT_TRUE(same_pixels(store.picture(number), pictures[number])) << number;
    }
}

TEST_F(PictureStore, AViewOfALargerPictureIsKeptAsItIs)
{
    const cv::Mat view = pictures_of_a_slide(1)[0](cv::Rect(10, 20, 101, 99));
    picture_store store(0.0);
    store.add(view);
    EXPECT_EQ(store.in_files(), 1);
    EXPECT_TRUE(same_pixels(store.picture(0), view));
}

TEST_F(FinishParts, KeyFramesAreCollectedUprightAndInPlaceWhateverTheTurn)
{
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(12);
    for (const frame_turn turn : {frame_turn::none, frame_turn::counter_clockwise, frame_turn::clockwise}) {
        frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, turn);
        key_frame_collector collector(turn);
        sweep_settings settings;
        settings.workers = 2;
        settings.collector = &collector;
        const sweep_result result = run_sweep(feed, settings);
        ASSERT_EQ(result.outcome, sweep_outcome::complete) << turn_name(turn);
        EXPECT_EQ(static_cast<int>(collector.key_frames().size()), result.key_frames);
        EXPECT_EQ(collector.pieces(), 1);
        std::vector<collected_key_frame> key_frames = collector.key_frames();
        for (const collected_key_frame& one : key_frames) {
            EXPECT_TRUE(same_pixels(collector.pictures().picture(one.picture),
                                    pictures[static_cast<std::size_t>(one.stamp.number) - 1]))
                << turn_name(turn);
        }
        // The last one is composed without being registered live.
        EXPECT_EQ(key_frames.back().stamp.number, 12);
        if (!key_frames.back().placement) {
            key_frames.pop_back();
        }
        expect_truth(key_frames, 4.0);  // the live path drifts a little
    }
}

TEST_F(FinishParts, PiecesHangTogether)
{
    // A sweep that ends with its seventh frame though nobody said so, and one that begins with the frame taken last.
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(14);
    key_frame_collector collector(frame_turn::none);
    sweep_settings settings;
    settings.workers = 2;
    settings.collector = &collector;

    class broken_off : public sweep_input {
    public:
        broken_off(sweep_input& whole, int after) : whole_(whole), left_(after)
        {
        }

        bool next(feed_frame& frame) override
        {
            return left_-- > 0 && whole_.next(frame);
        }

    private:
        sweep_input& whole_;
        int left_;
    };

    frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, frame_turn::none);
    broken_off beginning(feed, 6);
    ASSERT_EQ(run_sweep(beginning, settings).outcome, sweep_outcome::complete);
    const std::size_t before = collector.key_frames().size();
    feed_frame refused;
    ASSERT_TRUE(feed.next(refused));
    const sweep_rest rest = sweep_on(feed, settings, collector, refused);
    EXPECT_EQ(rest.outcome, sweep_outcome::complete);
    EXPECT_EQ(rest.input_error, "");
    // The frame taken last again, and the eight that were left.
    ASSERT_EQ(rest.pieces.size(), 1U);
    EXPECT_EQ(rest.pieces[0].frames, 9);
    EXPECT_EQ(rest.pieces[0].taken, 9);
    EXPECT_EQ(rest.pieces[0].by_code[tarn::code_normal], 9);
    EXPECT_GT(rest.pieces[0].key_frames, 1);
    EXPECT_EQ(collector.pieces(), 2);
    std::vector<collected_key_frame> key_frames = collector.key_frames();
    ASSERT_GT(key_frames.size(), before + 2);
    EXPECT_EQ(key_frames.back().stamp.number, 14);
    for (std::size_t i = 1; i < key_frames.size(); ++i) {
        EXPECT_GT(key_frames[i].stamp.number, key_frames[i - 1].stamp.number);
    }
    bool joint = false;
    for (const collected_key_frame& one : key_frames) {
        joint = joint || one.stamp.number == 6;
    }
    EXPECT_TRUE(joint);
    if (!key_frames.back().placement) {
        key_frames.pop_back();
    }
    expect_truth(key_frames, 6.0);
}

TEST_F(FinishParts, APieceThatBeginsElsewhereIsNotSaidToLieWhereTheLastOneEnded)
{
    key_frame_collector collector(frame_turn::none);
    const cv::Mat image = pictures_of_a_slide(1)[0];
    const auto key_frame = [&](int number) {
        tarn::key_frame frame;
        frame.image = image;
        frame.placed = true;
        frame.working_size = {300, 225};
        collector.key_frame(frame, {number, -1.0});
        feed_frame fed;
        fed.bgr = image;
        fed.stamp.number = number;
        tarn::frame_answer answer;
        answer.key_frame = 1;
        answer.placed = true;
        answer.outline = {{{0, 0}, {300, 0}, {300, 225}, {0, 225}}};
        collector.frame_taken(fed, answer);
    };
    key_frame(1);
    const std::optional<feed_frame> joint = collector.begin_piece();
    ASSERT_TRUE(joint);
    EXPECT_EQ(joint->stamp.number, 1);
    key_frame(5);
    ASSERT_EQ(collector.key_frames().size(), 2U);
    EXPECT_TRUE(collector.key_frames()[0].placement);
    EXPECT_FALSE(collector.key_frames()[1].placement);
}

TEST_F(FinishParts, TheFrameThatFailedIsNotCollectedTwice)
{
    // Ended with a frame that shows something else, which is composed without being registered and fails.
    std::vector<cv::Mat> pictures = pictures_of_a_slide(6);
    pictures.push_back(tarn::test::textured_plane({900, 700}, 5)(cv::Rect(cv::Point(200, 200), frame_size)).clone());
    frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, frame_turn::none);
    key_frame_collector collector(frame_turn::none);
    sweep_settings settings;
    settings.collector = &collector;
    const sweep_result result = run_sweep(feed, settings);
    ASSERT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    ASSERT_TRUE(result.refused);
    EXPECT_EQ(result.refused->stamp.number, 7);
    sweep_on(feed, settings, collector, *result.refused);
    const std::vector<collected_key_frame>& key_frames = collector.key_frames();
    for (std::size_t i = 1; i < key_frames.size(); ++i) {
        EXPECT_GT(key_frames[i].stamp.number, key_frames[i - 1].stamp.number);
    }
    EXPECT_EQ(key_frames.back().stamp.number, 7);
    EXPECT_FALSE(key_frames.back().placement);
}

TEST_F(FinishParts, AnInputThatBreaksOffBehindAFailureSaysWhy)
{
    class broken_input : public sweep_input {
    public:
        bool next(feed_frame& /*frame*/) override
        {
            throw host_error(exit_code::input_failed, "picture 7 is gone");
        }
    };

    const std::vector<cv::Mat> pictures = pictures_of_a_slide(6);
    key_frame_collector collector(frame_turn::none);
    sweep_settings settings;
    settings.collector = &collector;
    frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, frame_turn::none);
    feed_frame refused;
    ASSERT_TRUE(feed.next(refused));
    broken_input gone;
    const sweep_rest rest = sweep_on(gone, settings, collector, refused);
    EXPECT_EQ(rest.outcome, sweep_outcome::input_failed);
    EXPECT_EQ(rest.input_error, "picture 7 is gone");
    ASSERT_EQ(rest.pieces.size(), 1U);
    EXPECT_EQ(rest.pieces[0].frames, 1);
}

TEST_F(FinishParts, AKeptKeyFrameThatIsGoneIsNamed)
{
    try {
        check_finishing();
    } catch (const host_error& error) {
        GTEST_SKIP() << error.what();
    }
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(8);
    frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, frame_turn::none);
    key_frame_collector collector(frame_turn::none, 0.0);
    sweep_settings settings;
    settings.collector = &collector;
    ASSERT_EQ(run_sweep(feed, settings).outcome, sweep_outcome::complete);
    ASSERT_GT(collector.pictures().in_files(), 1);
    ASSERT_TRUE(std::filesystem::remove(collector.pictures().file(1)));
    const finished_picture finished = finish_sweep(collector, options());
    EXPECT_TRUE(finished.picture.empty());
    EXPECT_FALSE(finished.stopped);
    EXPECT_EQ(finished.code, exit_code::output_failed);
    EXPECT_EQ(finished.error, "the kept copy of frame " + std::to_string(collector.key_frames()[1].stamp.number)
                                  + " cannot be read again from the temporary directory");
}

TEST(FinishLines, TellTheStageAndHowMuchOfItIsDone)
{
    EXPECT_EQ(finish_line("blending", 6, 6, 0.409), "finishing: blending (6 of 6), 40 %");
    EXPECT_EQ(finish_line("reading", 1, 6, 7.0), "finishing: reading (1 of 6), 100 %");
}

TEST(FinishLines, FramesThatNothingJoinsAreNamed)
{
    finished_picture finished;
    EXPECT_TRUE(notes_on(finished).empty());
    finished.left_out = {17, 40};
    finished.pieces = 3;
    const std::vector<std::string> notes = notes_on(finished);
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0], "the library was begun 3 times, and the finished picture joins the pieces");
    EXPECT_EQ(notes[1], "the finished picture is without frames 17, 40, which nothing joins with the others");
}

}  // namespace
