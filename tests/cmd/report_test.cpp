// SPDX-License-Identifier: Apache-2.0
//
// What the program says: the summary, notes on sweeps that broke, the bar and the lines of progress, the lines on
// frames.
#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "frames_file.h"
#include "host_error.h"
#include "output_names.h"
#include "progress.h"
#include "report.h"
#include "size_watch.h"
#include "summary.h"

using namespace tarn::host;

namespace {

progress_state in_mid_sweep()
{
    progress_state state;
    state.frames = 120;
    state.expected = 240;
    state.key_frames = 5;
    state.seconds = 2.0;
    state.advice = "slower";
    return state;
}

}  // namespace

TEST(Report, EveryCodeHasAKeyOfItsOwn)
{
    std::vector<std::string> all;
    for (int code = tarn::lowest_code; code <= tarn::highest_code; ++code) {
        all.emplace_back(code_key(static_cast<tarn::answer_code>(code)));
        EXPECT_NE(all.back(), "unknown");
        EXPECT_EQ(all.back().find(' '), std::string::npos);
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
    EXPECT_EQ(code_key(tarn::code_very_few_details), "very_few_details");
}

TEST(Report, SummaryBeginsWithTheFileAndCountsFramesByCodeName)
{
    sweep_result result;
    result.frames = 12;
    result.taken = 9;
    result.by_code[tarn::code_normal] = 9;
    result.by_code[tarn::code_wrong_way] = 3;
    result.key_frames = 1;
    written_files written;
    written.panorama = {"a.jpg", {640, 480}};
    written.uncropped = {640, 480};
    EXPECT_EQ(summary_line(result, written, {2, std::nullopt}, {}, 1.26),
              "a.jpg: 640x480; 12 frames, 9 taken, 2 unreadable (answers: 3 wrong way, 9 normal); 1 key frame; 1.3 s");
    written.uncropped = {700, 500};
    written.preview = {"b.png", {300, 200}};
    written.finished = {"c.jpg", {600, 400}};
    EXPECT_EQ(summary_line(result, written, {0, 7}, {}, 1.26),
              "a.jpg: 640x480 of 700x500; 12 frames, 9 taken, 7 dropped (answers: 3 wrong way, 9 normal); 1 key frame; "
              "finished "
              "600x400 in c.jpg; preview 300x200 in b.png; 1.3 s");
    EXPECT_NE(summary_line(result, written_files(), {0, 0}, {}, 1.0).find(", 0 dropped (answers: "), std::string::npos);
    EXPECT_EQ(summary_line(result, written_files(), {}, {}, 1.0).find("no panorama; 12 frames"), 0U);
}

TEST(Report, SummaryTellsWhatCameBehindABreakApart)
{
    sweep_result result;
    result.frames = 12;
    result.taken = 11;
    result.by_code[tarn::code_normal] = 11;
    result.by_code[tarn::code_pipeline_failed] = 1;
    result.key_frames = 3;
    std::vector<sweep_piece> pieces = {piece_of(result), piece_of(result), piece_of(result)};
    pieces[1].taken_before = pieces[2].taken_before = 1;  // and come again
    EXPECT_EQ(summary_line(result, {}, {}, pieces, 1.0),
              "no panorama; up to the break 12 frames, 11 taken (answers: 11 normal, 1 pipeline failed); 3 key frames; "
              "from there on 22 frames, 20 taken; 1.0 s");
    pieces.resize(1);
    EXPECT_EQ(summary_line(result, {}, {}, pieces, 1.0),
              "no panorama; 12 frames, 11 taken (answers: 11 normal, 1 pipeline failed); 3 key frames; 1.0 s");
}

TEST(Report, FramesAreSaidToBeReducedWhereTheyAre)
{
    EXPECT_EQ(note_on_reduction({1920, 1080}, 1000 * 1778),
              "frames reduced to 1000 px for the panorama: 1778x1000 of 1920x1080");
    EXPECT_EQ(note_on_reduction({960, 540}, 960 * 540), "");
    EXPECT_EQ(note_on_reduction({}, 0), "") << "no frame was handed over";
}

TEST(Report, LimitOfSizeIsSaidBeforeItIsMet)
{
    EXPECT_EQ(note_on_size(7999), "");
    EXPECT_EQ(note_on_size(8000),
              "the panorama is about 8000 px long by now; the library makes none of more than 10000 px");
    // A preview 300 px wide stands for a frame of at most 1000.
    EXPECT_EQ(panorama_side({300, 500}, 200), 500);
    EXPECT_EQ(panorama_side({300, 500}, 600), 1000);
    EXPECT_EQ(panorama_side({900, 500}, 4000), 3000);
}

TEST(Report, BrokenSweepSaysWhereAndWhatIsLeft)
{
    sweep_result result;
    result.outcome = sweep_outcome::pipeline_failed;
    result.frames = 57;
    result.broken_at_frame = 57;
    result.failed_key_frame = 4;
    result.failed_frame = 41;
    ASSERT_EQ(notes_on(result, {}, "x-partial.jpg").size(), 1U);
    EXPECT_EQ(notes_on(result, {}, "x-partial.jpg")[0],
              "stitching failed at frame 57: key frame 4 (frame 41) could not be joined to the panorama; what was "
              "composed until then is in x-partial.jpg");
    EXPECT_EQ(notes_on(result, {}, "")[0],
              "stitching failed at frame 57: key frame 4 (frame 41) could not be joined to the panorama; nothing of "
              "a panorama is left");
}

TEST(Report, BrokenSweepSaysWhyInTheLibrarysWords)
{
    sweep_result result;
    result.outcome = sweep_outcome::pipeline_failed;
    result.frames = 57;
    result.broken_at_frame = 57;
    result.failed_key_frame = 4;
    result.failed_frame = 57;
    result.why = tarn::reason::too_few_matches;
    EXPECT_EQ(notes_on(result, {}, "")[0],
              "stitching failed at frame 57: key frame 4 (frame 57) could not be joined to the panorama: too few "
              "matches; nothing of a panorama is left");
    result.failed_key_frame = 0;
    result.why = tarn::reason::timed_out;
    EXPECT_EQ(notes_on(result, {}, "x-partial.jpg")[0],
              "stitching failed at frame 57: the panorama could not be finished: the wait for the workers was too "
              "long; what was composed until then is in x-partial.jpg");
    // That it failed has been said.
    result.why = tarn::reason::pipeline_failed;
    EXPECT_EQ(notes_on(result, {}, "")[0],
              "stitching failed at frame 57: the panorama could not be finished; nothing of a panorama is left");
}

TEST(Summary, FailureHasItsReasonAsTextAndAsNumber)
{
    run_summary summary;
    const options asked;
    EXPECT_TRUE(nlohmann::json::parse(summary_as_json(summary, asked))["failure"].is_null());
    summary.result.broken_at_frame = 57;
    nlohmann::json failure = nlohmann::json::parse(summary_as_json(summary, asked))["failure"];
    EXPECT_EQ(failure["shown_at_frame"], 57);
    EXPECT_TRUE(failure["reason"].is_null());
    EXPECT_TRUE(failure["reason_code"].is_null());
    summary.result.why = tarn::reason::too_large;
    failure = nlohmann::json::parse(summary_as_json(summary, asked))["failure"];
    EXPECT_EQ(failure["reason"], tarn::name_of(tarn::reason::too_large));
    EXPECT_EQ(failure["reason_code"], 14);
}

TEST(Report, BrokenSweepSaysWhatHasHelpedAndHowToFilm)
{
    sweep_result result;
    result.outcome = sweep_outcome::pipeline_failed;
    result.frames = 100;
    result.by_code[tarn::code_normal] = 100;
    EXPECT_EQ(notes_on(result, {}, "").size(), 1U) << "nothing has helped, and nothing is advised";
    advice_facts facts;
    facts.remedy = tried_remedy{"--start 3.40 for the part behind", 15, {612, 420}};
    EXPECT_EQ(notes_on(result, facts, "").back(),
              "what helps: --start 3.40 for the part behind: tried, a panorama of 612x420 from 15 frames");
    facts = {};
    facts.tries_left = true;
    EXPECT_EQ(notes_on(result, facts, "").back(),
              "what may help: without --no-retry the sweep is tried in other ways as well");
    for (const auto& [code, words] :
         std::vector<std::pair<tarn::answer_code, std::string>>{{tarn::code_lost, "overlap"},
                                                                {tarn::code_few_details, "little to see"},
                                                                {tarn::code_very_few_details, "too little"},
                                                                {tarn::code_wrong_way, "--direction"},
                                                                {tarn::code_too_fast, "slower"},
                                                                {tarn::code_skewed, "level"}}) {
        const int many = code == tarn::code_wrong_way ? 5 : 20;
        const auto help = [&result] { return notes_on(result, {}, "").back(); };
        result.by_code[code] = many - 1;
        EXPECT_EQ(help().find(words), std::string::npos) << help();
        result.by_code[code] = many;
        EXPECT_NE(help().find(words), std::string::npos) << help();
        result.by_code[code] = 0;
    }
}

TEST(Report, WalkingSidewaysIsToldFromTilting)
{
    sweep_result result;
    result.outcome = sweep_outcome::pipeline_failed;
    result.frames = 100;
    result.by_code[tarn::code_skewed] = 50;
    advice_facts facts;
    facts.path = camera_path::walking;
    EXPECT_EQ(notes_on(result, facts, "").back(),
              "for the next time: the camera was carried past things at different distances: turn on the spot, do not "
              "walk");
    facts.path = camera_path::tilting;
    EXPECT_EQ(notes_on(result, facts, "").back(), "for the next time: the horizon turned: hold the camera level");
}

TEST(Report, RestBeginsBetweenTheFrameThatFittedAndTheOneThatDidNot)
{
    sweep_result result;
    EXPECT_EQ(start_of_rest(result), "");
    result.fitted_seconds = 1.6;
    result.failed_seconds = 3.4;
    EXPECT_EQ(start_of_rest(result), "3.40");
    // 240 a second
    result.fitted_seconds = 387.0 / 240.0;
    result.failed_seconds = 388.0 / 240.0;
    EXPECT_EQ(start_of_rest(result), "1.616");
}

TEST(Report, CompleteSweepThatLostAKeyFrameSaysSo)
{
    sweep_result result;
    result.frames = 50;
    EXPECT_TRUE(notes_on(result, {}, "").empty());
    result.failed_key_frame = 3;
    result.failed_frame = 20;
    ASSERT_EQ(notes_on(result, {}, "").size(), 1U);
    EXPECT_EQ(notes_on(result, {}, "")[0], "the panorama is without key frame 3 (frame 20), which could not be joined");
    result.why = tarn::reason::no_homography;
    EXPECT_EQ(notes_on(result, {}, "")[0],
              "the panorama is without key frame 3 (frame 20), which could not be joined: the matches agree on no "
              "motion");
}

TEST(Progress, BarHoldsWhatTheWidthAllows)
{
    EXPECT_EQ(progress_bar(in_mid_sweep(), 110), "[===============>              ]  50 %  frame 120 of 240  60 "
                                                 "frames/s  0:02 left  5 key frames  slower");
    EXPECT_EQ(progress_bar(in_mid_sweep(), 85),
              "[======>      ]  50 %  frame 120 of 240  60 frames/s  0:02 left  5 key frames  slower");
    EXPECT_EQ(progress_bar(in_mid_sweep(), 60), "frame 120 of 240  60 frames/s  0:02 left  5 key frames");
    EXPECT_EQ(progress_bar(in_mid_sweep(), 20), "frame 120 of 240");
    EXPECT_EQ(progress_bar(in_mid_sweep(), 3), "");
    for (int width = 0; width < 120; ++width) {
        EXPECT_LE(progress_bar(in_mid_sweep(), width).size(), static_cast<std::size_t>(width));
    }
}

TEST(Progress, BarOfAnInputOfUnknownLengthHasNoShare)
{
    progress_state state = in_mid_sweep();
    state.expected = 0;
    EXPECT_EQ(progress_bar(state, 100), "frame 120  60 frames/s  5 key frames  slower");
}

TEST(Progress, MoreFramesThanAnnouncedAreAllOfThem)
{
    progress_state state = in_mid_sweep();
    state.expected = 100;
    const std::string bar = progress_bar(state, 100);
    EXPECT_NE(bar.find("100 %"), std::string::npos) << bar;
    EXPECT_EQ(bar.find('>'), std::string::npos) << bar;
    EXPECT_NE(bar.find("frame 120 of 120"), std::string::npos) << bar;
}

TEST(Progress, LineSaysTheSameAndWhatIsWaitedFor)
{
    progress_state state = in_mid_sweep();
    EXPECT_EQ(progress_line(state), "frame 120 of 240, 60 frames/s, 0:02 left, 5 key frames, slower");
    state.waiting_for = 2;
    EXPECT_EQ(progress_line(state), "frame 120 of 240, 60 frames/s, 0:02 left, 5 key frames, waiting for 2");
    state.seconds = 7200.0;
    EXPECT_EQ(progress_line(state), "frame 120 of 240, 0.0 frames/s, 2:00:00 left, 5 key frames, waiting for 2");
}

TEST(OutputNames, HaveEndingsThatCanBeWrittenInCapitalsToo)
{
    const auto with_frames = [](const char* name) {
        options asked;
        asked.inputs = {"a.mp4"};
        asked.frames = name;
        return asked;
    };
    EXPECT_NO_THROW(check_output_names(with_frames("a.csv")));
    EXPECT_NO_THROW(check_output_names(with_frames("a.JSONL")));
    EXPECT_THROW(check_output_names(with_frames("a.json")), host_error);
    EXPECT_THROW(check_output_names(with_frames("csv")), host_error);
    EXPECT_TRUE(is_jpeg_name("a.b/C.JPeG"));
    EXPECT_FALSE(is_jpeg_name("a.jpg/c"));
}

TEST(FramesFile, LinesAreInTheViewersOrientation)
{
    frame_record frame;
    frame.stamp = {12, 0.44};
    frame.answer.code = tarn::code_too_fast;
    frame.answer.taken = true;
    frame.answer.key_frame = 7;
    frame.answer.direction = tarn::direction_up;  // in frames turned counter-clockwise: to the right for the viewer
    frame.answer.registered = true;
    frame.answer.move_distance = 12.3456f;
    frame.answer.angles = {90.5f, 91.5f, 92.5f, 93.5f};
    frame.answer.scales = {1.5f, 1.25f, 1.125f, 1.0625f};
    frame.answer.milliseconds = 6.5;
    // Beyond it by 4.5 px at the top, 1.5 on the right, 2.5 at the bottom and 3 on the left.
    frame.preview.pixels = cv::Mat(200, 300, CV_8UC3);
    frame.preview.has_outline = true;
    frame.preview.outline = {cv::Point2f(-3.0f, -4.5f), {301.5f, -1.0f}, {300.0f, 202.5f}, {0.0f, 200.0f}};
    EXPECT_EQ(csv_header(),
              "frame,seconds,code,name,taken,key_frame,direction,move_px,angle_top_left,angle_top_right,"
              "angle_bottom_right,angle_bottom_left,scale_top,scale_right,scale_bottom,scale_left,shift_x,"
              "shift_y,milliseconds");
    EXPECT_EQ(frame_as_csv(frame, frame_turn::none),
              "12,0.44,5,too_fast,1,1,up,12.346,90.5,91.5,92.5,93.5,1.5,1.25,1.125,1.0625,3.0,4.5,6.5");
    EXPECT_EQ(frame_as_csv(frame, frame_turn::counter_clockwise),
              "12,0.44,5,too_fast,1,1,right,12.346,93.5,90.5,91.5,92.5,1.0625,1.5,1.25,1.125,2.5,3.0,6.5");
    EXPECT_EQ(frame_as_json(frame, frame_turn::clockwise),
              R"({"frame":12,"seconds":0.44,"code":5,"name":"too_fast","taken":true,"key_frame":true,)"
              R"("direction":"left","move_px":12.346,"angle_top_left":91.5,"angle_top_right":92.5,)"
              R"("angle_bottom_right":93.5,"angle_bottom_left":90.5,"scale_top":1.25,"scale_right":1.125,)"
              R"("scale_bottom":1.0625,"scale_left":1.5,"shift_x":4.5,"shift_y":1.5,"milliseconds":6.5})");
}

TEST(FramesFile, PiecesAreToldApartWhereThereMayBeSome)
{
    frame_record frame;
    frame.piece = 2;
    EXPECT_EQ(csv_header(true), csv_header() + ",piece");
    const std::string csv = frame_as_csv(frame, frame_turn::none);
    EXPECT_EQ(csv.substr(csv.rfind(',')), ",2");
    EXPECT_NE(frame_as_json(frame, frame_turn::none).find(R"("piece":2})"), std::string::npos);
}

TEST(FramesFile, WhatThereIsNotIsLeftEmpty)
{
    frame_record frame;
    EXPECT_EQ(frame_as_csv(frame, frame_turn::none).substr(0, 23), "0,,1,normal,0,0,none,,9");
    EXPECT_NE(frame_as_json(frame, frame_turn::none).find(R"("seconds":null)"), std::string::npos);
    EXPECT_NE(frame_as_json(frame, frame_turn::none).find(R"("move_px":null)"), std::string::npos);
    // Of a frame that was measured and then rejected, nothing has moved to it; and without an outline nothing reaches
    // beyond the preview.
    frame.answer.registered = true;
    frame.preview.outline[0] = {-3.0f, -4.5f};
    EXPECT_NE(frame_as_json(frame, frame_turn::none).find(R"("move_px":null)"), std::string::npos);
    EXPECT_NE(frame_as_json(frame, frame_turn::none).find(R"("shift_x":0.0,"shift_y":0.0)"), std::string::npos);
}
