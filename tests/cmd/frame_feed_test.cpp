// SPDX-License-Identifier: Apache-2.0
//
// Reading ahead in a thread: the same frames, the same words at the same frame, and never too far.
#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "frame_feed.h"
#include "host_error.h"
#include "picture_list.h"

using namespace tarn::host;
using tarn::test::picture_list;

namespace {

/// What a watched input is seen to do. It outlives the feed.
struct sightings {
    std::atomic<int> asked{0};     ///< pictures gone on to
    std::atomic<int> given{0};     ///< the number of the last one that the test has got
    std::atomic<int> furthest{0};  ///< most pictures that the reader was ahead of the test
    std::thread::id reader;        ///< of the last picture, once the feed is gone
};

/// Pictures of a file, which may be read ahead. Damage is met at every fourth one; the one with the number `broken`
/// cannot be had at all.
class watched_list : public picture_list {
public:
    watched_list(std::vector<cv::Mat> pictures, sightings& seen, bool rereadable, int broken = 0)
        : picture_list(std::move(pictures), 10.0), seen_(seen), facts_(picture_list::facts()), broken_(broken)
    {
        facts_.rereadable = rereadable;
    }

    const source_facts& facts() const override
    {
        return facts_;
    }

    bool advance(frame_stamp& stamp) override
    {
        if (!picture_list::advance(stamp)) {
            return false;
        }
        number_ = stamp.number;
        const int ahead = ++seen_.asked - seen_.given;
        seen_.furthest = std::max<int>(seen_.furthest, ahead);
        return true;
    }

    cv::Mat picture(frame_turn turn) override
    {
        seen_.reader = std::this_thread::get_id();
        if (number_ == broken_) {
            throw host_error(exit_code::input_failed, "picture " + std::to_string(number_) + " is broken");
        }
        return picture_list::picture(turn);
    }

    int passed_over() const override
    {
        return number_ / 4;
    }

private:
    sightings& seen_;
    source_facts facts_;
    int broken_;
    int number_ = 0;
};

/// Gray pictures, each of its own brightness; every fifth cannot be read.
std::vector<cv::Mat> some_pictures(int count)
{
    std::vector<cv::Mat> pictures;
    for (int number = 1; number <= count; ++number) {
        pictures.push_back(number % 5 == 0 ? cv::Mat() : cv::Mat(8, 12, CV_8UC3, cv::Scalar::all(number)));
    }
    return pictures;
}

/// All that a feed tells at a frame, in one line.
std::string told_at(const feed_frame& frame, const frame_feed& feed)
{
    return "frame " + std::to_string(frame.stamp.number) + ", place " + std::to_string(frame.place) + ", brightness "
           + std::to_string(frame.bgr.at<cv::Vec3b>(0, 0)[0]) + ", last " + std::to_string(static_cast<int>(frame.last))
           + ", met " + std::to_string(feed.pictures()) + ", unreadable " + std::to_string(feed.unreadable()) + ", "
           + feed.damage() + feed.early_end();
}

/// Takes all frames. @returns what was told at each, and the error at the end, if there was one
std::vector<std::string> told_of_all(frame_feed& feed, sightings& seen)
{
    std::vector<std::string> told;
    try {
        feed_frame frame;
        while (feed.next(frame)) {
            seen.given = frame.stamp.number;
            told.push_back(told_at(frame, feed));
        }
    } catch (const host_error& error) {
        told.emplace_back(error.what());
    }
    return told;
}

TEST(FrameFeedAhead, TellsTheSameAtEachFrameAsReadingOneByOne)
{
    constexpr int length = 43;
    for (const int broken : {0, 2, 30, length}) {
        SCOPED_TRACE("broken: " + std::to_string(broken));
        std::vector<std::vector<std::string>> told;
        for (const std::size_t ahead : {0U, 1U, 2U, 100U}) {
            sightings seen;
            frame_feed feed(std::make_unique<watched_list>(some_pictures(length), seen, true, broken), {},
                            frame_turn::none, 0, ahead);
            told.push_back(told_of_all(feed, seen));
            EXPECT_EQ(told.back(), told.front()) << ahead << " frames ahead";
        }
        const std::size_t frames = broken == 0 ? 35 : static_cast<std::size_t>(broken - 1 - (broken - 1) / 5);
        EXPECT_EQ(told.front().size(), frames + (broken == 0 ? 0 : 1));
    }
}

TEST(FrameFeedAhead, ReadsNoFurtherThanItMay)
{
    for (const int ahead : {1, 3}) {
        sightings seen;
        frame_feed feed(std::make_unique<watched_list>(some_pictures(200), seen, true), {}, frame_turn::none, 0,
                        static_cast<std::size_t>(ahead));
        told_of_all(feed, seen);
        // Beside those that are ready: the next one, the one at work, the one that the test has got but not counted, and
        // one or two among all of them that cannot be read.
        EXPECT_LE(seen.furthest, ahead + 5);
    }
}

TEST(FrameFeedAhead, ReadsInAThreadOnlyWhatCanBeReadAgain)
{
    for (const bool rereadable : {false, true}) {
        sightings seen;
        {
            frame_feed feed(std::make_unique<watched_list>(some_pictures(20), seen, rereadable), {}, frame_turn::none,
                            0, 2);
            told_of_all(feed, seen);
        }
        EXPECT_EQ(seen.reader != std::this_thread::get_id(), rereadable);
    }
}

TEST(FrameFeedAhead, CanBeLeftAtAnyFrame)
{
    for (int taken = 0; taken < 8; ++taken) {
        sightings seen;
        frame_feed feed(std::make_unique<watched_list>(some_pictures(12), seen, true), {}, frame_turn::none, 0, 2);
        feed_frame frame;
        for (int i = 0; i < taken; ++i) {
            EXPECT_TRUE(feed.next(frame));
        }
    }
}

TEST(FrameFeedAhead, GoesOnGivingTheErrorThatEndedIt)
{
    sightings seen;
    frame_feed feed(std::make_unique<watched_list>(some_pictures(12), seen, true, 3), {}, frame_turn::none, 0, 2);
    feed_frame frame;
    EXPECT_TRUE(feed.next(frame));
    EXPECT_FALSE(frame.last);
    EXPECT_TRUE(feed.next(frame));
    EXPECT_TRUE(frame.last);  // for all that is known
    EXPECT_THROW(feed.next(frame), host_error);
    EXPECT_THROW(feed.next(frame), host_error);
}

}  // namespace
