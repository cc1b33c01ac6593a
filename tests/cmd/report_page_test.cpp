// SPDX-License-Identifier: Apache-2.0
//
// The page of a report, made of sweeps without a program around them: what is collected, hostile names, the sizes of
// the longest sweeps.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "frame_feed.h"
#include "picture_list.h"
#include "report_collector.h"
#include "report_page.h"
#include "summary.h"
#include "support/directory_fixture.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep.h"

using namespace tarn::host;

namespace {

/// What stands between two texts.
std::string between(const std::string& text, const std::string& before, const std::string& after)
{
    const std::size_t begin = text.find(before);
    if (begin == std::string::npos) {
        return "";
    }
    const std::size_t from = begin + before.size();
    return text.substr(from, text.find(after, from) - from);
}

std::size_t count_of(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

options asked_for(const std::string& input)
{
    options asked;
    asked.inputs = {input};
    asked.report = "report.html";
    asked.written["--report"] = {"--report", asked.report};
    return asked;
}

class ReportPage : public tarn::test::stitcher_fixture {
protected:
    static run_summary summary_of_slide(frame_turn turn, int length = 12)
    {
        const tarn::test::rendered_sweep sweep = tarn::test::slide({480, 360}, tarn::test::moving_right, 48, length);
        std::vector<cv::Mat> pictures;
        for (int index = 0; index < length; ++index) {
            pictures.push_back(sweep.frame(index));
        }
        frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures), {}, turn);
        run_summary summary;
        summary.turn = turn;
        summary.reported = std::make_shared<report_collector>(turn, 2);
        sweep_settings settings;
        settings.workers = 2;
        settings.observers = {summary.reported.get()};
        summary.result = run_sweep(feed, settings);
        return summary;
    }
};

TEST_F(ReportPage, CollectsEachFrameAndOutlinesEachKeyFrameWhateverTheTurn)
{
    for (const frame_turn turn : {frame_turn::none, frame_turn::counter_clockwise, frame_turn::clockwise}) {
        const run_summary summary = summary_of_slide(turn);
        ASSERT_EQ(summary.result.outcome, sweep_outcome::complete);
        const report_collector& collected = *summary.reported;
        EXPECT_EQ(collected.frames().size(), 12U);
        ASSERT_EQ(static_cast<int>(collected.key_frames().size()), summary.result.key_frames);
        ASSERT_EQ(static_cast<int>(summary.result.turns.size()), summary.result.key_frames);
        const cv::Mat preview = preview_for_viewer(summary.result.preview, turn);
        for (const reported_key_frame& one : collected.key_frames()) {
            EXPECT_EQ(one.size, cv::Size(480, 360));
            if (!one.placed) {
                continue;
            }
            // The camera has moved to the right by 48 of 480 px from frame to frame: 30 of the preview's 300, or by
            // the frame's height where it lies on its side.
            const double scale = turn == frame_turn::none ? 300.0 / 480.0 : 300.0 / 360.0;
            const int number = collected.frames()[one.frame].stamp.number;
            cv::Rect2f box;
            std::vector<cv::Point2f> corners;
            for (const cv::Point2f& corner : one.in_plane) {
                corners.push_back(preview_point_for_viewer(corner + collected.preview_from_plane(),
                                                           summary.result.preview.size(), turn));
            }
            const auto [left, right] = std::minmax({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
            EXPECT_NEAR(left, scale * 48.0 * (number - 1), 6.0) << turn_name(turn) << " " << number;
            EXPECT_NEAR(right - left, scale * 480.0, 6.0);
        }
        const std::string page = report_page(summary, asked_for("slide"));
        EXPECT_EQ(count_of(page, "<tr><th scope=\"row\">"),
                  collected.key_frames().size() + count_of(page, "<td><bdi>"));
    }
}

TEST_F(ReportPage, HostileNamesAreShownAndNothingElse)
{
    const run_summary summary = summary_of_slide(frame_turn::counter_clockwise, 4);
    const std::string name =
        "<img src=x onerror=\"alert('1')\">&\x01\x1b[1m\n{{json}}\xe2\x80\xae\xd7\xa9\xd7\x9c\xff</script>.mp4";
    const options asked = asked_for("dir/" + name);
    const std::string page = report_page(summary, asked);
    EXPECT_EQ(page.find("<img src=x"), std::string::npos);
    EXPECT_EQ(count_of(page, "</script>"), 3U);  // those of the template
    EXPECT_NE(page.find("&lt;img src=x onerror=&quot;alert(&#39;1&#39;)&quot;&gt;&amp;??[1m"), std::string::npos);
    EXPECT_NE(page.find("{{json}}?\xd7\xa9\xd7\x9c?&lt;"), std::string::npos);  // and no template
    for (const char* const bad : {"\x01", "\x1b", "\xe2\x80\xae", "\xff"}) {
        EXPECT_EQ(page.find(bad), std::string::npos);
    }
    const auto run = nlohmann::ordered_json::parse(between(page, "id=\"run\">", "</script>"));
    EXPECT_EQ(run, nlohmann::ordered_json::parse(summary_as_json(summary, asked)));
    const auto visible = between(page, "<pre tabindex=\"0\">", "</pre>");
    EXPECT_NE(visible.find("\\u003c/script"), std::string::npos);
}

TEST_F(ReportPage, NeedsNothingFromElsewhere)
{
    const run_summary summary = summary_of_slide(frame_turn::counter_clockwise, 4);
    const std::string page = report_page(summary, asked_for("slide"));
    const std::regex addresses("(src|href|url|action|srcset)=\"([^\"]{0,30})");
    for (auto it = std::sregex_iterator(page.begin(), page.end(), addresses); it != std::sregex_iterator(); ++it) {
        const std::string address = (*it)[2];
        EXPECT_TRUE(address.rfind("data:image/jpeg;base64,", 0) == 0 || address.rfind("#key-frame-", 0) == 0)
            << address;
    }
    EXPECT_EQ(page.find("http"), page.find("http-equiv"));
    EXPECT_EQ(page.find("http", page.find("http-equiv") + 4), std::string::npos);
    EXPECT_EQ(count_of(page, "style=\""), 0U);  // the policy would not let them
}

/// A sweep of so many frames of which every tenth is a key frame, with pictures that hardly compress.
run_summary long_sweep(int frames)
{
    run_summary summary;
    auto collected = std::make_shared<report_collector>(frame_turn::none, 2);
    cv::Mat picture(360, 640, CV_8UC3);
    cv::RNG random(3);
    random.fill(picture, cv::RNG::UNIFORM, 0, 256);
    tarn::key_frame key_frame;
    key_frame.image = picture;
    key_frame.placed = true;
    key_frame.working_size = {300, 169};
    frame_record record;
    record.preview.pixels = picture;
    record.preview.has_outline = true;
    for (int number = 1; number <= frames; ++number) {
        record.stamp = {number, number / 30.0};
        record.answer.taken = record.answer.registered = true;
        record.answer.code = static_cast<tarn::answer_code>(random.uniform(0, 7));
        record.answer.move_distance = random.uniform(0.0f, 20.0f);
        record.answer.overlap = random.uniform(0.0f, 1.0f);
        record.answer.inliers = random.uniform(0, 80);
        record.answer.angles = {random.uniform(80.0f, 100.0f), 90.0f, 90.0f, 90.0f};
        record.answer.milliseconds = random.uniform(1.0, 50.0);
        record.answer.key_frame = number % 10 == 0 ? number / 10 : 0;
        record.key_frame = number % 10 == 0 ? &key_frame : nullptr;
        key_frame.plane_from_frame(0, 2) = number * 10.0;
        collected->frame_done(record);
    }
    summary.reported = collected;
    summary.result.frames = frames;
    summary.result.key_frames = frames / 10;
    summary.result.preview = picture;
    summary.written.panorama = {"panorama.jpg", picture.size(), picture};
    summary.written.finished = {"finished.jpg", picture.size(), picture};
    summary.notes = {"noted"};
    for (int key = 1; key <= frames / 10; ++key) {
        tarn::worker_turn turn;
        turn.key_frame = key;
        turn.begun = collected->begun() + std::chrono::milliseconds(37 * key);
        turn.prepared = turn.begun + std::chrono::microseconds(20300);
        turn.taken = turn.prepared + std::chrono::microseconds(13300);
        turn.registered = turn.taken + std::chrono::microseconds(10700);
        turn.ended = turn.registered + std::chrono::microseconds(5100);
        summary.result.turns.push_back(turn);
    }
    return summary;
}

TEST(ReportSize, IsBoundedHoweverLongTheSweepIs)
{
    EXPECT_LT(report_page(long_sweep(600), asked_for("usual.mp4")).size(), 1'500'000U);
    const std::string longest = report_page(long_sweep(20'000), asked_for("long.mp4"));
    EXPECT_LT(longest.size(), 5'000'000U);
    EXPECT_NE(longest.find("1000 more are left out"), std::string::npos);
    for (const auto& curve : nlohmann::json::parse(between(longest, "id=\"curves\">", "</script>"))) {
        EXPECT_LE(curve.at("value").size(), 2000U);
        EXPECT_GE(curve.at("value").size(), 1000U);
        EXPECT_EQ(curve.at("value").size(), curve.at("frame").size());
    }
}

TEST(ReportSize, ASweepOfNothingHasAPage)
{
    run_summary summary;
    summary.reported = std::make_shared<report_collector>(frame_turn::none, 1);
    summary.error = "nothing";
    const std::string page = report_page(summary, asked_for("none.mp4"));
    EXPECT_NE(page.find("nothing"), std::string::npos);
    EXPECT_NE(page.find("Nothing was measured."), std::string::npos);
}

}  // namespace
