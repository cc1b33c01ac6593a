// SPDX-License-Identifier: Apache-2.0
//
// Which frames are taken, and frames that come in real time.
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "frame_feed.h"
#include "frame_selection.h"
#include "host_error.h"
#include "interruption.h"
#include "picture_list.h"
#include "realtime_feed.h"

using namespace tarn::host;
using tarn::test::picture_list;

namespace {

/// The numbers of the frames that a selection takes of `count` at `rate` per second.
std::vector<int> taken(const frame_selection& selection, int count, double rate)
{
    frame_selector selector(selection);
    std::vector<int> numbers;
    for (int number = 1; number <= count; ++number) {
        const frame_selector::verdict verdict = selector.judge({number, (number - 1) / rate});
        if (verdict == frame_selector::verdict::end) {
            break;
        }
        if (verdict == frame_selector::verdict::take) {
            numbers.push_back(number);
        }
    }
    EXPECT_NEAR(frame_selector(selection).expected(count, rate), static_cast<double>(numbers.size()), 1.0);
    return numbers;
}

std::vector<cv::Mat> pictures(int count)
{
    return {static_cast<std::size_t>(count), cv::Mat(20, 30, CV_8UC3, cv::Scalar::all(50))};
}

/// Pictures in the midst of which the user asks for an end.
class stopping_list : public picture_list {
public:
    /// @param stop_at  number of the picture at which that happens
    stopping_list(std::vector<cv::Mat> pictures, double rate, int stop_at)
        : picture_list(std::move(pictures), rate), stop_at_(stop_at)
    {
    }

    bool advance(frame_stamp& stamp) override
    {
        const bool there = picture_list::advance(stamp);
        if (stamp.number == stop_at_) {
            ask_to_stop(stop_kind::interrupted);
        }
        return there;
    }

private:
    int stop_at_;
};

}  // namespace

TEST(FrameSelection, TimesAreSecondsMinutesOrHours)
{
    EXPECT_EQ(parse_time("0"), 0.0);
    EXPECT_EQ(parse_time("90"), 90.0);
    EXPECT_EQ(parse_time("12.5"), 12.5);
    EXPECT_EQ(parse_time("1:30"), 90.0);
    EXPECT_EQ(parse_time("1:02:03.25"), 3723.25);
    EXPECT_EQ(parse_time("100:00:00"), 360000.0);
    for (const char* const text : {"", ":", "1:", ":1", "1:60", "1:2:3:4", "1.5:00", "-1", "+1", "1e3", "1.", ".5",
                                   "nan", "1 ", "9999999999", "1:00:60", "later"}) {
        EXPECT_LT(parse_time(text), 0.0) << text;
    }
}

TEST(FrameSelection, StretchHoldsItsFirstMomentAndNotItsLast)
{
    frame_selection selection;
    selection.start = 0.2;
    selection.end = 0.4;
    EXPECT_EQ(taken(selection, 100, 10.0), (std::vector<int>{3, 4}));
    EXPECT_EQ(taken(selection, 100, 25.0), (std::vector<int>{6, 7, 8, 9, 10}));
}

TEST(FrameSelection, StepsCountFromTheStartOfTheStretch)
{
    frame_selection selection;
    selection.step = 3;
    EXPECT_EQ(taken(selection, 8, 10.0), (std::vector<int>{1, 4, 7}));
    selection.start = 0.1;
    EXPECT_EQ(taken(selection, 8, 10.0), (std::vector<int>{2, 5, 8}));
}

TEST(FrameSelection, RateHoldsOverAnyLength)
{
    frame_selection selection;
    selection.fps = 10.0;
    EXPECT_EQ(taken(selection, 25, 25.0), (std::vector<int>{1, 4, 6, 9, 11, 14, 16, 19, 21, 24}));
    EXPECT_EQ(taken(selection, 10, 5.0).size(), 10U);  // a slower input is taken whole
    EXPECT_EQ(taken(selection, 10000, 30000.0 / 1001.0).size(), 3337U);
}

TEST(FrameSelection, ExpectedIsUnknownWithoutWhatItNeeds)
{
    frame_selection selection;
    EXPECT_EQ(frame_selector(selection).expected(0, 25.0), 0);
    EXPECT_EQ(frame_selector(selection).expected(100, 0.0), 100);
    selection.end = 2.0;
    EXPECT_EQ(frame_selector(selection).expected(0, 0.0), 0);
    EXPECT_EQ(frame_selector(selection).expected(0, 25.0), 50);
    EXPECT_EQ(frame_selector(selection).expected(30, 25.0), 30);
    // So it is when only an end far beyond every input tells.
    selection.end = 1e11;
    EXPECT_EQ(frame_selector(selection).expected(0, 25.0), 0);
    EXPECT_EQ(frame_selector(selection).expected(50, 25.0), 50);
}

TEST(FrameFeed, LastFrameOfTheSelectionIsKnownAsTheLast)
{
    frame_selection selection;
    selection.step = 2;
    selection.end = 0.5;
    frame_feed feed(std::make_unique<picture_list>(pictures(20), 10.0), selection, frame_turn::none);
    EXPECT_EQ(feed.expected(), 3);
    std::vector<int> numbers;
    feed_frame frame;
    while (feed.next(frame)) {
        numbers.push_back(frame.stamp.number);
        EXPECT_EQ(frame.last, frame.stamp.number == 5);
    }
    EXPECT_EQ(numbers, (std::vector<int>{1, 3, 5}));
    EXPECT_EQ(feed.early_end(), "");
}

TEST(FrameFeed, SelectionOutsideTheInputIsAnInputError)
{
    const auto error_of = [](double start, double end) -> std::string {
        frame_selection selection;
        selection.start = start;
        selection.end = end;
        try {
            const frame_feed feed(std::make_unique<picture_list>(pictures(20), 10.0), selection, frame_turn::none);
        } catch (const host_error& error) {
            EXPECT_EQ(error.code(), exit_code::input_failed);
            return error.what();
        }
        return "";
    };
    EXPECT_NE(error_of(3.0, -1.0).find("ends before --start: its last frame is at 1.90 s"), std::string::npos)
        << error_of(3.0, -1.0);
    EXPECT_NE(error_of(0.51, 0.59).find("lies between --start and --end"), std::string::npos) << error_of(0.51, 0.59);
}

TEST(FrameFeedDeathTest, StopEndsTheSearchForTheNextFrame)
{
    // Nothing of the part asked for has come yet.
    EXPECT_EXIT(
        {
            frame_selection selection;
            selection.start = 1.0;
            try {
                const frame_feed feed(std::make_unique<stopping_list>(pictures(20), 10.0, 3), selection,
                                      frame_turn::none);
            } catch (const host_error& error) {
                std::_Exit(static_cast<int>(error.code()));
            }
            std::_Exit(EXIT_SUCCESS);
        },
        testing::ExitedWithCode(static_cast<int>(exit_code::stopped)), "");
    // What has come before is the last frame.
    EXPECT_EXIT(
        {
            frame_selection selection;
            selection.step = 10;
            frame_feed feed(std::make_unique<stopping_list>(pictures(20), 10.0, 3), selection, frame_turn::none);
            feed_frame frame;
            const bool last = feed.next(frame) && frame.last && feed.pictures() == 3;
            std::_Exit(last && feed.early_end().empty() ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(RealtimeFeed, FrameIsDueAtItsTimeHoweverFarOff)
{
    const std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    EXPECT_EQ(time_due(begun, 1.5), begun + std::chrono::milliseconds(1500));
    for (const double seconds : {1e8, 1e10, 1e300}) {
        EXPECT_GT(time_due(begun, seconds), begun + std::chrono::hours(24 * 365)) << seconds;
    }
}

TEST(RealtimeFeedDeathTest, StopMakesTheNextFrameComeAtOnce)
{
    EXPECT_EXIT(
        {
            constexpr double one_in_an_hour = 1.0 / 3600.0;
            frame_feed feed(std::make_unique<stopping_list>(pictures(20), one_in_an_hour, 3), {}, frame_turn::none);
            realtime_feed realtime(feed);
            feed_frame frame;
            const bool came = realtime.next(frame) && realtime.next(frame) && frame.stamp.number == 2;
            std::_Exit(came ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(RealtimeFeed, WithoutAWaitingSweepAllButTheFirstAndTheLastAreDropped)
{
    constexpr int length = 20;
    frame_feed feed(std::make_unique<picture_list>(pictures(length), 1000.0), {}, frame_turn::none);
    realtime_feed realtime(feed);
    feed_frame frame;
    ASSERT_TRUE(realtime.next(frame));
    EXPECT_EQ(frame.stamp.number, 1);
    // Busy until everything but the last frame has come and gone.
    while (realtime.dropped() < length - 2) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(realtime.next(frame));
    EXPECT_EQ(frame.stamp.number, length);
    EXPECT_TRUE(frame.last);
    EXPECT_FALSE(realtime.next(frame));
    EXPECT_EQ(realtime.dropped(), length - 2);
}

TEST(RealtimeFeed, CameraSetsThePaceItself)
{
    // By their time stamps these frames would take most of a day.
    constexpr double one_in_an_hour = 1.0 / 3600.0;
    constexpr int length = 20;
    frame_feed feed(std::make_unique<picture_list>(pictures(length), one_in_an_hour, true), {}, frame_turn::none);
    EXPECT_EQ(feed.expected(), 0);
    realtime_feed realtime(feed);
    feed_frame frame;
    ASSERT_TRUE(realtime.next(frame));
    while (realtime.dropped() < length - 2) {
        std::this_thread::yield();
    }
    // A camera waits for nobody: all of its frames but the last may have been gone before the first one was asked for.
    const int taken_before_the_last = frame.last ? 0 : 1;
    if (!frame.last) {
        ASSERT_TRUE(realtime.next(frame));
    }
    EXPECT_EQ(frame.stamp.number, length);
    EXPECT_EQ(frame.place, length);
    EXPECT_TRUE(frame.last);
    EXPECT_EQ(realtime.dropped(), length - 1 - taken_before_the_last);
    EXPECT_FALSE(realtime.next(frame));
}

TEST(RealtimeFeed, CamerasSweepEndsWhereItIsToldTo)
{
    frame_selection selection;
    selection.end = 3.0;
    frame_feed feed(std::make_unique<picture_list>(pictures(1000), 1.0, true), selection, frame_turn::none);
    realtime_feed realtime(feed);
    feed_frame frame;
    while (realtime.next(frame)) {
    }
    EXPECT_EQ(frame.stamp.number, 3);
    EXPECT_TRUE(frame.last);
    EXPECT_EQ(feed.pictures(), 4);
}

TEST(RealtimeFeed, FramesComeInOrderAndAreTakenOrDropped)
{
    constexpr int length = 50;
    frame_feed feed(std::make_unique<picture_list>(pictures(length), 2000.0), {}, frame_turn::none);
    realtime_feed realtime(feed);
    feed_frame frame;
    int number = 0;
    int count = 0;
    while (realtime.next(frame)) {
        EXPECT_GT(frame.stamp.number, number);
        number = frame.stamp.number;
        ++count;
    }
    EXPECT_EQ(number, length);
    EXPECT_EQ(count + realtime.dropped(), length);
}

TEST(RealtimeFeed, ErrorOfTheInputReachesTheSweep)
{
    std::vector<cv::Mat> some = pictures(3);
    some.back() = cv::Mat(5, 5, CV_8UC3, cv::Scalar::all(1));
    frame_feed feed(std::make_unique<picture_list>(some, 1000.0), {}, frame_turn::none);
    realtime_feed realtime(feed);
    feed_frame frame;
    EXPECT_THROW(
        {
            while (realtime.next(frame)) {
            }
        },
        host_error);
    EXPECT_EQ(frame.stamp.number, 2) << "the last good one";
    EXPECT_TRUE(frame.last);
}

TEST(RealtimeFeed, CanBeLeftBeforeItsEnd)
{
    frame_feed feed(std::make_unique<picture_list>(pictures(1000), 1.0), {}, frame_turn::none);
    realtime_feed realtime(feed);
    feed_frame frame;
    EXPECT_TRUE(realtime.next(frame));  // the next one would come in a second
}
