// SPDX-License-Identifier: Apache-2.0
//
// Corners and flow of the live path, which must be OpenCV's own to the last bit, and the work that is
// done side by side.
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/deferred_work.h"
#include "internal/exact_routines.h"
#include "internal/live_tracking.h"
#include "support/library_tracking.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "support/thread_count.h"

namespace {

using points = std::vector<cv::Point2f>;
using tarn::test::library_corners;
using tarn::test::library_flow;
using tarn::test::random_input;
using tarn::test::thread_count;

tarn::point_flow own_flow(const cv::Mat& reference, const cv::Mat& gray, const points& from)
{
    return tarn::frame_flow(reference, gray, from).result();
}

::testing::AssertionResult same_flow(const tarn::point_flow& expected, const tarn::point_flow& actual)
{
    if (expected.found != actual.found)
        return ::testing::AssertionFailure() << "other points are found";
    if (expected.places != actual.places)
        return ::testing::AssertionFailure() << "points are found elsewhere";
    return ::testing::AssertionSuccess();
}

/// A part of a textured scene, (x, y) away from its middle.
cv::Mat gray_view(int x, int y, cv::Size size = cv::Size(160, 120))
{
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(1024, 1024));
    cv::Mat gray;
    cv::cvtColor(plane(cv::Rect(cv::Point(400 + x, 400 + y), size)), gray, cv::COLOR_BGR2GRAY);
    return gray;
}

/// A gray image of one of many kinds: noise, few values, so that many corners are as strong, scenes, flat ones.
cv::Mat any_gray(random_input& random, cv::Size size)
{
    switch (random.integer(0, 4)) {
    case 0:
        return random.noise(size, CV_8UC1);
    case 1: {
        cv::Mat few_values = random.noise(size, CV_8UC1);
        few_values &= cv::Scalar(0xC0);
        return few_values;
    }
    case 2: {
        cv::Mat tiles(size, CV_8UC1, cv::Scalar(20));
        for (int y = 0; y < size.height; y += 16) {
            for (int x = 0; x < size.width; x += 16)
                tiles(cv::Rect(x, y, 8, 8) & cv::Rect(cv::Point(), size)).setTo(200);
        }
        return tiles;
    }
    case 3:
        return {size, CV_8UC1, cv::Scalar(random.integer(0, 255))};
    default:
        return gray_view(random.integer(-200, 200), random.integer(-200, 200), size);
    }
}

TEST(FindCorners, AgreesWithTheLibraryForEverySizeAndKindOfImage)
{
    random_input random;
    for (int i = 0; i < tarn::test::scaled_count(400, 60); ++i) {
        const cv::Size size(random.integer(1, 200), random.integer(1, 150));
        const cv::Mat gray = any_gray(random, size);
        ASSERT_EQ(tarn::find_corners(gray), library_corners(gray)) << size;
    }
}

TEST(FindCorners, LeavesOtherTypesAndEmptyImagesToTheLibrary)
{
    EXPECT_TRUE(tarn::find_corners(cv::Mat()).empty());
    cv::Mat floats;
    gray_view(0, 0).convertTo(floats, CV_32F, 1.0 / 255);
    EXPECT_FALSE(tarn::find_corners(floats).empty());
    EXPECT_EQ(tarn::find_corners(floats), library_corners(floats));
    EXPECT_THROW(tarn::find_corners(cv::Mat::zeros(50, 50, CV_16UC1)), cv::Exception);
}

TEST(FrameFlow, AgreesWithTheLibraryWhereverPointsGo)
{
    random_input random;
    int lost = 0;
    int found = 0;
    for (int i = 0; i < tarn::test::scaled_count(300, 40); ++i) {
        const cv::Size size(random.integer(8, 200), random.integer(8, 150));
        const cv::Mat reference = any_gray(random, size);
        const cv::Mat gray = random.one_in(3) ? any_gray(random, size) : gray_view(random.integer(-40, 40), 0, size);
        points from;
        for (int n = random.integer(1, 90); n > 0; --n) {
            from.emplace_back(random.real(-60.0f, static_cast<float>(size.width) + 60.0f),
                              random.real(-60.0f, static_cast<float>(size.height) + 60.0f));
        }
        const tarn::point_flow expected = library_flow(reference, gray, from);
        ASSERT_TRUE(same_flow(expected, own_flow(reference, gray, from))) << size;
        for (const uchar mark : expected.found)
            ++(mark != 0 ? found : lost);
    }
    EXPECT_GT(lost, 0);
    EXPECT_GT(found, 0);
}

TEST(FrameFlow, PointsPushedOutOfTheImageAreLostAsTheLibraryLosesThem)
{
    // Edges at the border pull windows beyond it.
    int lost = 0;
    for (int shift = 0; shift <= 60; shift += 3) {
        const cv::Mat reference = gray_view(0, 0);
        const cv::Mat gray = gray_view(shift, shift / 2);
        points from;
        for (int y = -12; y < 132; y += 4) {
            from.emplace_back(1.0f, static_cast<float>(y));
            from.emplace_back(static_cast<float>(y), -11.0f);
            from.emplace_back(-10.5f, static_cast<float>(y));
        }
        const tarn::point_flow expected = library_flow(reference, gray, from);
        ASSERT_TRUE(same_flow(expected, own_flow(reference, gray, from))) << shift;
        lost += static_cast<int>(std::count(expected.found.begin(), expected.found.end(), 0));
    }
    EXPECT_GT(lost, 0);
}

TEST(FrameFlow, PlacesBeyondAllIntsAndNoNumbersAreLost)
{
    const cv::Mat reference = gray_view(0, 0);
    const cv::Mat gray = gray_view(2, 1);
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const float far :
         {1e20f, -1e20f, 2147483648.0f, -2147483904.0f, infinity, -infinity, std::numeric_limits<float>::quiet_NaN()}) {
        const points from = {{far, 10.0f}, {10.0f, far}, {far, far}, {80.0f, 60.0f}};
        const tarn::point_flow flow = own_flow(reference, gray, from);
        EXPECT_EQ(flow.found, (std::vector<uchar>{0, 0, 0, 1})) << far;
        // To the library NaN lies at 0 where the processor converts it to that.
        if (!std::isnan(far)) {
            EXPECT_EQ(flow.found, library_flow(reference, gray, from).found) << far;
        }
    }
}

TEST(FrameFlow, FollowsTheReferenceWhateverBecomesOfIt)
{
    const points from = library_corners(gray_view(0, 0));
    cv::Mat reference = gray_view(0, 0);
    ASSERT_TRUE(same_flow(library_flow(reference, gray_view(3, 1), from), own_flow(reference, gray_view(3, 1), from)));
    // The frame after becomes the reference; then an earlier one; then one that was never seen.
    for (const int x : {3, 3, 0, 9}) {
        reference = gray_view(x, x == 3 ? 1 : 0);
        const cv::Mat gray = gray_view(x + 2, 2);
        ASSERT_TRUE(same_flow(library_flow(reference, gray, from), own_flow(reference, gray, from))) << x;
    }
    // Its pixels are written, in one place only.
    const cv::Mat gray = gray_view(5, 0);
    own_flow(reference, gray, from);
    reference.at<uchar>(119, 159) ^= 0xFF;
    ASSERT_TRUE(same_flow(library_flow(reference, gray, from), own_flow(reference, gray, from)));
    reference(cv::Rect(0, 0, 80, 120)).setTo(77);
    ASSERT_TRUE(same_flow(library_flow(reference, gray, from), own_flow(reference, gray, from)));
    // It is a view, to which the library gives the border that lies around it.
    cv::Mat around = gray_view(-30, -30, cv::Size(220, 180));
    reference = around(cv::Rect(30, 30, 160, 120));
    ASSERT_TRUE(same_flow(library_flow(reference, gray, from), own_flow(reference, gray, from)));
    ASSERT_TRUE(same_flow(library_flow(gray, reference, from), own_flow(gray, reference, from)));
}

TEST(FrameFlow, RaisesWhatTheLibraryRaisesWhenTheResultIsAskedFor)
{
    const points from = {{20, 20}, {40, 40}};
    const cv::Mat gray = gray_view(0, 0);
    const auto error_of = [](const std::function<void()>& call) {
        try {
            call();
        } catch (const cv::Exception& e) {
            return e.msg;
        }
        return std::string("none");
    };
    const cv::Mat others[] = {gray_view(0, 0, cv::Size(161, 120)), cv::Mat::zeros(120, 160, CV_16UC1)};
    for (const cv::Mat& other : others) {
        for (const bool as_reference : {true, false}) {
            const cv::Mat& first = as_reference ? other : gray;
            const cv::Mat& second = as_reference ? gray : other;
            tarn::frame_flow flow(first, second, from);
            EXPECT_TRUE(flow.pieces().empty()) << "nothing that may fail is done ahead";
            EXPECT_EQ(error_of([&] { flow.result(); }), error_of([&] { library_flow(first, second, from); }));
        }
    }
    EXPECT_EQ(error_of([&] { own_flow(gray, gray, {}); }), error_of([&] { library_flow(gray, gray, {}); }));
    EXPECT_TRUE(tarn::frame_flow(gray, cv::Mat(), from).pieces().empty());
}

TEST(FrameFlow, PiecesMayBeDoneSideBySide)
{
    const thread_count two(2);
    for (int x = 0; x < 60; x += 2) {
        const cv::Mat reference = gray_view(x, 0);
        const cv::Mat gray = gray_view(x + 2, 1);
        const points from = library_corners(reference);
        tarn::frame_flow flow(reference, gray, from);
        std::vector<tarn::deferred_work*> pieces;
        for (tarn::deferred_work& piece : flow.pieces())
            pieces.push_back(&piece);
        ASSERT_GT(pieces.size(), 1U);
        tarn::run_side_by_side(pieces);
        ASSERT_TRUE(same_flow(library_flow(reference, gray, from), flow.result()));
    }
}

TEST(DeferredWork, IsDoneOnceAtMostAndOnlyWhenNeededOnOneThread)
{
    const thread_count one(1);
    int count = 0;
    {
        tarn::deferred_work never_needed([&count] { count += 100; });
        tarn::deferred_work needed([&count] { ++count; });
        tarn::run_side_by_side({&never_needed, &needed});
        EXPECT_EQ(count, 0);
        needed.finish();
        needed.finish();
        needed.run_ahead();
    }
    EXPECT_EQ(count, 1);
}

TEST(DeferredWork, IsDoneAheadByTwoThreadsEachPieceOnce)
{
    const thread_count two(2);
    for (int round = 0; round < 200; ++round) {
        std::vector<int> done(17, 0);
        std::vector<tarn::deferred_work> works;
        for (int& mark : done)
            works.emplace_back([&mark] { ++mark; });
        std::vector<tarn::deferred_work*> pieces;
        for (tarn::deferred_work& work : works)
            pieces.push_back(&work);
        tarn::run_side_by_side(pieces);
        ASSERT_EQ(done, std::vector<int>(17, 1));
    }
    tarn::run_side_by_side({});
}

TEST(DeferredWork, ThrowsWhereItIsNeededAndNowhereElse)
{
    const thread_count two(2);
    tarn::deferred_work bad([] { throw std::runtime_error("bad"); });
    tarn::deferred_work worse([] { throw 7; });
    int count = 0;
    tarn::deferred_work good([&count] { ++count; });
    EXPECT_NO_THROW(tarn::run_side_by_side({&bad, &worse, &good}));
    EXPECT_EQ(count, 1);
    EXPECT_NO_THROW(good.finish());
    EXPECT_THROW(bad.finish(), std::runtime_error);
    EXPECT_THROW(bad.finish(), std::runtime_error) << "every time";
}

}  // namespace
