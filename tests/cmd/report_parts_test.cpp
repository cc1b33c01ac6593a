// SPDX-License-Identifier: Apache-2.0
//
// The parts of a report as functions: curves, texts, pictures within their limits, what two pictures share, the words
// on workers.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "curve.h"
#include "found_matches.h"
#include "page_budget.h"
#include "page_text.h"
#include "report_break.h"
#include "report_pictures.h"
#include "report_plots.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"

using namespace tarn::host;

namespace {

std::vector<curve_point> long_curve(std::size_t count)
{
    std::vector<curve_point> points;
    for (std::size_t i = 0; i < count; ++i) {
        const auto x = static_cast<double>(i);
        points.push_back({x, std::sin(x) * 3.0, i == 0});
    }
    return points;
}

TEST(Curve, AShortOneIsLeftAsItIs)
{
    const std::vector<curve_point> points = long_curve(2000);
    EXPECT_EQ(thinned(points, 2000).size(), 2000U);
    EXPECT_TRUE(thinned({}, 2000).empty());
}

TEST(Curve, ALongOneKeepsItsEndsAndItsExtremes)
{
    for (const std::size_t count : {2001U, 2003U, 50001U, 108000U}) {
        std::vector<curve_point> points = long_curve(count);
        points[count / 3].y = 90.0;  // a single frame that stands out
        points[count / 2].y = -90.0;
        const std::vector<curve_point> few = thinned(points, 2000);
        ASSERT_LE(few.size(), 2000U) << count;
        EXPECT_GE(few.size(), 1000U) << count;
        EXPECT_EQ(few.front().x, 0.0);
        EXPECT_EQ(few.back().x, static_cast<double>(count - 1));
        EXPECT_TRUE(std::is_sorted(few.begin(), few.end(),
                                   [](const curve_point& a, const curve_point& b) { return a.x < b.x; }));
        EXPECT_EQ(std::count_if(few.begin(), few.end(), [](const curve_point& p) { return std::abs(p.y) == 90.0; }), 2);
        for (const curve_point& point : few) {  // points that are there, none made up
            EXPECT_EQ(point.y, points[static_cast<std::size_t>(point.x)].y);
        }
    }
}

TEST(Curve, NothingJoinsPointsAcrossAGapThatWasThinnedAway)
{
    std::vector<curve_point> points = long_curve(10000);
    points[5001].begins = true;
    const std::vector<curve_point> few = thinned(points, 100);
    const auto behind = std::find_if(few.begin(), few.end(), [](const curve_point& p) { return p.x >= 5001.0; });
    EXPECT_TRUE(behind->begins);
    EXPECT_EQ(std::count_if(few.begin(), few.end(), [](const curve_point& p) { return p.begins; }), 2);
}

TEST(Curve, PathsAreShortAndPointsByThemselvesAreDots)
{
    EXPECT_EQ(path_of({{0, 0, true}, {10.04, 5}, {20, 7, true}}, 0.0, 2.0, 10.0, -1.0), "M0 10L20.1 5M40 3h0");
    EXPECT_EQ(path_of({}, 0.0, 1.0, 0.0, 1.0), "");
}

TEST(Curve, NumbersSayNoMoreThanTheyKnow)
{
    EXPECT_EQ(short_number(12.50, 2), "12.5");
    EXPECT_EQ(short_number(3.0, 3), "3");
    EXPECT_EQ(short_number(-0.0001, 1), "0");
    EXPECT_EQ(short_number(100.0, 0), "100");
    EXPECT_EQ(short_number(-1.25, 2), "-1.25");
}

TEST(Curve, AxesEndAtRoundNumbers)
{
    EXPECT_EQ(round_above(7.2), 10.0);
    EXPECT_EQ(round_above(10.0), 10.0);
    EXPECT_EQ(round_above(21.0), 25.0);
    EXPECT_DOUBLE_EQ(round_above(0.03), 0.05);
    EXPECT_EQ(round_above(0.0), 1.0);
    EXPECT_EQ(round_above(std::numeric_limits<double>::infinity()), 1.0);
    EXPECT_EQ(round_above(std::nan("")), 1.0);
}

TEST(PageText, MarkupQuotesControlsAndTurnedTextAreShownNotObeyed)
{
    EXPECT_EQ(as_html("<b onclick=\"x\">'&"), "&lt;b onclick=&quot;x&quot;&gt;&#39;&amp;");
    EXPECT_EQ(as_html("a\x01"
                      "b\x7f\x1b[31m\r"),
              "a?b??[31m?");
    EXPECT_EQ(as_html("gpj.\xe2\x80\xae"
                      "exe\xe2\x81\xa9"),
              "gpj.?exe?");                                      // U+202E, U+2069
    EXPECT_EQ(as_html("\xff\xc0\x80"), "???");                   // no UTF-8
    EXPECT_EQ(as_html("\xd7\xa9\xd7\x9c"), "\xd7\xa9\xd7\x9c");  // Hebrew letters
    EXPECT_EQ(as_html("one\n\ntwo"), "one\n\ntwo");
}

TEST(PageText, JsonCannotEndItsElementAndReadsTheSame)
{
    const nlohmann::ordered_json object = {
        {"name", "</script><!-- <script>alert(1)&amp;"},
        {"lines", "\xe2\x80\xa8 \xe2\x80\xa9 \x7f \x01 \xe2\x80\xae"},
        {"\xd7\xa9", {1, 2.5, nullptr, true}},
    };
    const std::string text = json_for_page(object);
    for (const char* const bad : {"<", ">", "&", "\xe2", "\x7f", "\x01"}) {
        EXPECT_EQ(text.find(bad), std::string::npos) << bad;
    }
    EXPECT_EQ(nlohmann::ordered_json::parse(text), object);
}

cv::Mat noise(cv::Size size)
{
    cv::Mat picture(size, CV_8UC3);
    cv::RNG random(7);
    random.fill(picture, cv::RNG::UNIFORM, 0, 256);
    return picture;
}

TEST(ReportPictures, StayWithinTheirBytes)
{
    const cv::Mat worst = noise({1600, 700});  // nothing compresses worse
    for (const std::size_t most : {std::size_t{200'000}, std::size_t{12'000}, std::size_t{2'000}}) {
        const std::vector<unsigned char> jpeg = jpeg_within(worst, most);
        EXPECT_LE(jpeg.size(), most);
        const cv::Mat shown = cv::imdecode(jpeg, cv::IMREAD_COLOR);
        EXPECT_NEAR(static_cast<double>(shown.cols) / shown.rows, 1600.0 / 700.0, 0.15);
    }
    EXPECT_FALSE(jpeg_within(worst, 1).empty());
    EXPECT_TRUE(jpeg_within(cv::Mat(), 1000).empty());
    EXPECT_EQ(no_larger_than(worst, 400).size(), cv::Size(400, 175));
    EXPECT_EQ(no_larger_than(cv::Mat(1, 4000, CV_8UC3), 400).size(), cv::Size(400, 1));
}

TEST(ReportPictures, AllOfThemFitIntoThePage)
{
    const auto as_text = [](std::size_t bytes) { return (bytes + 2) / 3 * 4; };
    const std::size_t but_key_frames = as_text(most_panorama_bytes) + as_text(most_finished_bytes)
                                       + as_text(most_preview_bytes) + 2 * as_text(most_break_bytes)
                                       + 2 * as_text(most_gap_bytes);
    for (const std::size_t key_frames : {1U, 7U, 20U, 60U}) {
        EXPECT_LE(but_key_frames + key_frames * as_text(most_key_frame_bytes(key_frames)), 1'200'000U) << key_frames;
    }
    for (const std::size_t key_frames : {61U, 300U, 400U, 1000U, 100000U}) {
        const std::size_t shown = std::min<std::size_t>(key_frames, most_key_frame_pictures);
        EXPECT_LE(but_key_frames + shown * as_text(most_key_frame_bytes(key_frames)), 2'400'000U) << key_frames;
        EXPECT_GE(most_key_frame_bytes(key_frames), 2'000U);
    }
}

TEST(ReportPictures, TextOfBytes)
{
    EXPECT_EQ(base64({}), "");
    EXPECT_EQ(base64({'f'}), "Zg==");
    EXPECT_EQ(base64({'f', 'o'}), "Zm8=");
    EXPECT_EQ(base64({'f', 'o', 'o'}), "Zm9v");
    EXPECT_EQ(base64({0xff, 0xef, 0xbe}), "/+++");
    EXPECT_EQ(policy_digest(""), "sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

TEST(FoundMatches, OfASlideAgreeOnItsMotion)
{
    const tarn::test::rendered_sweep sweep = tarn::test::slide({480, 360}, tarn::test::moving_right, 40, 2);
    const matched_pictures live =
        matches_of_live_path(no_larger_than(sweep.frame(0), 300), no_larger_than(sweep.frame(1), 300));
    EXPECT_GE(live.matches.size(), 20U);
    // A worker's picture is turned clockwise: what moves to the left moves up.
    const matched_pictures workers =
        matches_of_workers(as_worker_takes_it(sweep.frame(0)), as_worker_takes_it(sweep.frame(1)));
    EXPECT_EQ(workers.before.size(), cv::Size(360, 480));
    EXPECT_GE(workers.matches.size(), 20U);
    const auto expect_motion = [](const matched_pictures& pictures, cv::Point2f motion) {
        int agreeing = 0;
        for (const found_match& match : pictures.matches) {
            if (match.agrees) {
                ++agreeing;
                EXPECT_LT(cv::norm(match.after - match.before - motion), 4.0);
            }
        }
        EXPECT_GT(agreeing * 2, static_cast<int>(pictures.matches.size()));
    };
    expect_motion(live, {-25.0f, 0.0f});
    expect_motion(workers, {0.0f, -40.0f});
    expect_motion(turned_clockwise(workers, 3), {-40.0f, 0.0f});
    EXPECT_EQ(turned_clockwise(workers, 3).before.size(), cv::Size(480, 360));
}

TEST(FoundMatches, OfBlankPicturesThereAreNone)
{
    const cv::Mat blank(200, 300, CV_8UC3, cv::Scalar::all(90));
    EXPECT_TRUE(matches_of_live_path(blank, blank).matches.empty());
    EXPECT_TRUE(matches_of_workers(blank, blank).matches.empty());
}

TEST(FoundMatches, KeyFramesAreBentAsWorkersBendThem)
{
    reported_frame frame;
    frame.key_frame = 3;
    frame.angles = {90, 90, 90, 90};
    frame.scales = {1, 1, 1, 1};
    EXPECT_EQ(bending_of(frame, nullptr).way, bending::none);
    frame.angles = {93, 90, 90, 93};
    EXPECT_EQ(bending_of(frame, nullptr).way, bending::cylinder);
    EXPECT_FLOAT_EQ(bending_of(frame, nullptr).angle, 3.0f);
    frame.scales = {0.9f, 0.9f, 0.9f, 0.9f};
    EXPECT_EQ(bending_of(frame, nullptr).way, bending::none);
    reported_frame second;
    second.angles = {92, 92, 90, 90};
    second.scales = {1, 1, 1, 1};
    second.direction = tarn::direction_up;
    EXPECT_EQ(bending_of(frame, &second).way, bending::sphere);
    second.direction = tarn::direction_down;
    EXPECT_EQ(bending_of(frame, &second).way, bending::none);
}

TEST(ReportPlots, WorkersTimesAreBetweenThePoints)
{
    using std::chrono::milliseconds;
    const tarn::worker_turn::instant begun = std::chrono::steady_clock::now();
    tarn::worker_turn first;  // nothing to register
    first.key_frame = 1;
    first.begun = begun + milliseconds(100);
    first.prepared = begun + milliseconds(150);
    first.taken = begun + milliseconds(160);
    first.ended = begun + milliseconds(161);
    tarn::worker_turn second = first;
    second.key_frame = 2;
    second.registered = begun + milliseconds(200);
    second.ended = begun + milliseconds(230);
    tarn::worker_turn refused = first;  // its wait ran out
    refused.taken = {};
    const std::vector<worker_times> times = times_of({first, second, refused}, begun);
    ASSERT_EQ(times.size(), 3U);
    EXPECT_DOUBLE_EQ(times[0].begun, 0.1);
    EXPECT_DOUBLE_EQ(times[0].prepare, 50.0);
    EXPECT_DOUBLE_EQ(times[0].wait, 10.0);
    EXPECT_LT(times[0].registering, 0.0);
    EXPECT_DOUBLE_EQ(times[0].compose, 1.0);
    EXPECT_DOUBLE_EQ(times[1].registering, 40.0);
    EXPECT_DOUBLE_EQ(times[1].compose, 30.0);
    EXPECT_DOUBLE_EQ(times[2].wait, 11.0);
    EXPECT_LT(times[2].compose, 0.0);
}

reported_frame frame_at(int number, double seconds, tarn::answer_code code, bool taken)
{
    reported_frame frame;
    frame.stamp = {number, seconds};
    frame.code = code;
    frame.taken = taken;
    return frame;
}

TEST(ReportPlots, LanesShowWhereFramesWereAnsweredHow)
{
    const std::vector<reported_frame> frames = {
        frame_at(1, 0.0, tarn::code_normal, true), frame_at(2, 1.0, tarn::code_too_fast, true),
        frame_at(3, 2.0, tarn::code_normal, false), frame_at(4, 4.0, tarn::code_normal, true)};
    const std::vector<answer_lane> lanes = answer_lanes(frames, sweep_axis(frames));
    ASSERT_EQ(lanes.size(), 3U);
    EXPECT_EQ(lanes[0].words, "too fast");
    EXPECT_EQ(lanes[0].path, "M250 0H500V10H250z");
    EXPECT_EQ(lanes[1].words, "normal");
    EXPECT_EQ(lanes[1].count, 3);
    EXPECT_EQ(lanes[1].path, "M0 0H250V10H0zM500 0H1000V10H500z");
    EXPECT_EQ(lanes[2].words, "not taken");
    EXPECT_EQ(lanes[2].path, "M500 0H1000V10H500z");
}

TEST(ReportPlots, TheAxisIsTimeWhereThereIsOneElseTheFrames)
{
    const std::vector<reported_frame> timed = {frame_at(1, 2.0, tarn::code_normal, true),
                                               frame_at(2, 6.0, tarn::code_normal, true)};
    EXPECT_EQ(sweep_axis(timed).ticks(), (std::vector<std::string>{"2 s", "3 s", "4 s", "5 s", "6 s"}));
    EXPECT_EQ(sweep_axis(timed).place({9, 3.0}), 250.0);
    const std::vector<reported_frame> numbered = {frame_at(1, -1.0, tarn::code_normal, true),
                                                  frame_at(3, -1.0, tarn::code_normal, true)};
    EXPECT_EQ(sweep_axis(numbered).place({2, -1.0}), 500.0);
    const std::vector<reported_frame> single = {frame_at(7, -1.0, tarn::code_normal, true)};
    EXPECT_EQ(sweep_axis(single).ticks(), std::vector<std::string>{"7"});
    EXPECT_EQ(sweep_axis(single).place({7, -1.0}), 500.0);
    EXPECT_FALSE(sweep_axis({}).has_times());
}

}  // namespace
