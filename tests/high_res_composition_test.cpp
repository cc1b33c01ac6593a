// SPDX-License-Identifier: Apache-2.0
//
// Laying a high-resolution frame onto the panorama: the canvas and its growth, what is kept and what is filled.
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/high_res_composition.h"
#include "reference/composition.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/watched_allocations.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

const cv::Scalar grey(120, 120, 120);
const cv::Scalar light(200, 200, 200);
const cv::Scalar white(255, 255, 255);

cv::Mat plain(int cols, int rows, const cv::Scalar& colour)
{
    return {rows, cols, CV_8UC3, colour};
}

cv::Mat shift_by(double x, double y)
{
    return cv::Mat(tarn::test::translation(x, y));
}

/// A panorama with a frame laid onto it.
struct grown_panorama {
    cv::Mat image;
    cv::Mat panorama_from_frame;
};

/// A copy of the image as a view of a larger one, with rubbish in the room around it.
/// @param room  columns to the left and to the right, and rows above and below
cv::Mat with_room(const cv::Mat& image, const cv::Size& room)
{
    cv::Mat storage(image.size() + room + room, CV_8UC3);
    cv::randu(storage, 0, 256);
    cv::Mat view = storage(cv::Rect(cv::Point(room), image.size()));
    image.copyTo(view);
    return view;
}

/// The composition, in new storage and in place, which must agree with the plain transcription to the last bit and
/// leave its input alone.
std::optional<grown_panorama> composed(const cv::Mat& panorama, const cv::Mat& frame, const cv::Mat& H)
{
    const cv::Mat panorama_before = panorama.clone();
    const cv::Mat frame_before = frame.clone();
    const cv::Mat H_before = H.clone();
    const auto merged = tarn::merge_frame(panorama, frame, H);
    const reference::composition expected = reference::compose(panorama, frame, H);
    EXPECT_EQ(merged.has_value(), !expected.is_too_large);
    if (!merged) {
        return std::nullopt;
    }
    EXPECT_TRUE(same_pixels(expected.H, merged->panorama_from_frame));
    const grown_panorama result = {tarn::grow_in_new_storage(panorama, *merged), merged->panorama_from_frame};
    EXPECT_TRUE(same_pixels(expected.image, result.image));
    EXPECT_NE(result.image.u, panorama.u);
    EXPECT_TRUE(same_pixels(panorama_before, panorama));
    EXPECT_TRUE(same_pixels(frame_before, frame));
    EXPECT_TRUE(same_pixels(H_before, H));

    const cv::Size growth = expected.image.size() - panorama.size();
    const cv::Mat roomy = with_room(panorama, growth);
    EXPECT_TRUE(tarn::can_grow_in_place(roomy, *merged, 1));
    const cv::Mat grown = tarn::grow_in_place(roomy, *merged);
    EXPECT_EQ(grown.u, roomy.u);
    EXPECT_TRUE(same_pixels(expected.image, grown)) << "in place";
    return result;
}

TEST(CanvasGrowth, FrameWhollyToTheRightAndBelowGivesZeroShifts)
{
    const auto grown = composed(plain(60, 40, grey), plain(30, 20, light), shift_by(100, 70));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(130, 90));
    EXPECT_EQ(cv::norm(grown->panorama_from_frame, shift_by(100, 70), cv::NORM_INF), 0.0);
    EXPECT_TRUE(same_pixels(plain(60, 40, grey), grown->image(cv::Rect(0, 0, 60, 40))));
    EXPECT_TRUE(same_pixels(plain(30, 20, light), grown->image(cv::Rect(100, 70, 30, 20))));
    EXPECT_EQ(cv::countNonZero(grown->image.reshape(1)), 3 * (60 * 40 + 30 * 20)) << "the rest is black";
}

TEST(CanvasGrowth, FrameReachingToNegativeCoordinatesGrowsLeftAndUpAndMovesThePanoramaByTheShift)
{
    const auto grown = composed(plain(60, 40, grey), plain(30, 20, light), shift_by(-50, -35));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(110, 75));
    EXPECT_EQ(cv::norm(grown->panorama_from_frame, shift_by(0, 0), cv::NORM_INF), 0.0);
    EXPECT_TRUE(same_pixels(plain(60, 40, grey), grown->image(cv::Rect(50, 35, 60, 40))));
    EXPECT_TRUE(same_pixels(plain(30, 20, light), grown->image(cv::Rect(0, 0, 30, 20))));
}

TEST(CanvasGrowth, ShiftAndSizesAreTruncatedToWholePixels)
{
    const auto grown = composed(plain(60, 40, grey), plain(30, 20, light), shift_by(-50.75, 30.75));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(110, 50));  // 50.75 + 60 and 30.75 + 20
    EXPECT_EQ(grown->image.at<cv::Vec3b>(0, 49), cv::Vec3b(0, 0, 0));
    EXPECT_EQ(grown->image.at<cv::Vec3b>(0, 50), cv::Vec3b(120, 120, 120));
}

TEST(CanvasGrowth, FrameInsideThePanoramaLeavesItsSize)
{
    const auto grown = composed(plain(200, 150, grey), plain(30, 20, light), shift_by(50, 60));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(200, 150));
}

TEST(CanvasGrowth, WidthOfExactly10000IsAcceptedAnd10000AndAHalfFails)
{
    const cv::Mat panorama = plain(60, 8, grey);
    const cv::Mat frame = plain(16, 8, light);
    const auto grown = composed(panorama, frame, shift_by(10000.0 - 16.0, 0));
    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(10000, 8));
    EXPECT_FALSE(composed(panorama, frame, shift_by(10000.5 - 16.0, 0)));
    EXPECT_FALSE(composed(panorama, frame, shift_by(12000.0, 0)));
}

TEST(CanvasGrowth, HeightOfExactly10000IsAcceptedAnd10000AndAHalfFails)
{
    const cv::Mat panorama = plain(8, 60, grey);
    const cv::Mat frame = plain(8, 16, light);
    const auto grown = composed(panorama, frame, shift_by(0, 10000.0 - 16.0));
    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(8, 10000));
    EXPECT_FALSE(composed(panorama, frame, shift_by(0, 10000.5 - 16.0)));
}

TEST(CanvasGrowth, SizesAreComparedAsFloats)
{
    // The nearest float to 10000.0004 is 10000; the next one above is 10000.0009765625.
    const cv::Mat panorama = plain(60, 8, grey);
    const cv::Mat frame = plain(16, 8, light);
    EXPECT_TRUE(composed(panorama, frame, shift_by(10000.0004 - 16.0, 0)));
    EXPECT_FALSE(composed(panorama, frame, shift_by(10000.0009 - 16.0, 0)));
}

TEST(CanvasGrowth, GrowthToTheLeftCountsTowardsTheLimit)
{
    const cv::Mat panorama = plain(60, 8, grey);
    const cv::Mat frame = plain(16, 8, light);
    const auto grown = composed(panorama, frame, shift_by(-9940.0, 0));
    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.cols, 10000);
    EXPECT_FALSE(composed(panorama, frame, shift_by(-9940.5, 0)));
}

TEST(FrameMerge, PanoramaWinsInsideItsContourAndTheFrameFillsTheRest)
{
    // Wide enough that the cross-fade along the outline leaves the middles alone.
    const auto grown = composed(plain(300, 300, grey), plain(300, 300, light), shift_by(150, 0));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.size(), cv::Size(450, 300));
    EXPECT_TRUE(same_pixels(plain(90, 300, grey), grown->image(cv::Rect(0, 0, 90, 300))));
    EXPECT_TRUE(same_pixels(plain(90, 300, light), grown->image(cv::Rect(360, 0, 90, 300))));
}

TEST(FrameMerge, NoContentUnderTheFrameCopiesTheWarpedFrame)
{
    random_input random;
    const cv::Mat frame = random.noise(cv::Size(40, 30), CV_8UC3);
    for (const cv::Mat& panorama : {plain(100, 80, cv::Scalar()), plain(100, 80, cv::Scalar(1, 1, 1))}) {
        const auto grown = composed(panorama, frame, shift_by(20, 10));
        ASSERT_TRUE(grown);
        EXPECT_TRUE(same_pixels(frame, grown->image(cv::Rect(20, 10, 40, 30))))
            << "a grey level of 1 does not count as content";
    }
}

TEST(FrameMerge, GreyLevelAbove1CountsAsContent)
{
    const auto grown = composed(plain(400, 300, cv::Scalar(2, 2, 2)), plain(200, 200, light), shift_by(100, 50));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.at<cv::Vec3b>(150, 200), cv::Vec3b(2, 2, 2));
}

/// A black panorama with patches of 100, under a frame that shows 200 everywhere.
struct patches {
    cv::Mat panorama = cv::Mat::zeros(400, 700, CV_8UC3);
    cv::Mat frame = plain(700, 400, light);

    void add(const cv::Rect& place)
    {
        panorama(place).setTo(cv::Scalar(100, 100, 100));
    }

    /// Whether the panorama was kept in the middle of a patch: the patch's contour was chosen. Elsewhere the
    /// frame is added to what lies there, and the sum saturates.
    bool is_kept(const cv::Mat& image, const cv::Rect& place) const
    {
        const cv::Vec3b middle = image.at<cv::Vec3b>((place.tl() + place.br()) / 2);
        EXPECT_TRUE(middle == cv::Vec3b(100, 100, 100) || middle == cv::Vec3b(255, 255, 255));
        return middle == cv::Vec3b(100, 100, 100);
    }
};

TEST(FrameMerge, TiesAmongContoursKeepTheFirstOneFound)
{
    const std::vector<cv::Rect> places = {{60, 40, 160, 160}, {400, 40, 160, 160}, {230, 220, 160, 160}};
    patches scene;
    for (const cv::Rect& place : places) {
        scene.add(place);
    }
    std::vector<std::vector<cv::Point>> contours;
    cv::Mat channel;
    cv::extractChannel(scene.panorama, channel, 0);
    cv::findContours(channel, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    ASSERT_EQ(contours.size(), 3U);
    ASSERT_EQ(contours[0].size(), contours[1].size());
    ASSERT_EQ(contours[0].size(), contours[2].size());

    const auto grown = composed(scene.panorama, scene.frame, shift_by(0, 0));

    ASSERT_TRUE(grown);
    for (const cv::Rect& place : places) {
        EXPECT_EQ(scene.is_kept(grown->image, place), cv::boundingRect(contours[0]) == place) << place;
    }
}

TEST(FrameMerge, ContourWithMostPointsIsChosenNotTheLargestArea)
{
    const cv::Rect large(20, 20, 180, 180);      // 716 points of outline, more area
    const cv::Rect long_one(30, 250, 600, 105);  // 1406 points
    const cv::Rect small(300, 30, 120, 120);
    patches scene;
    scene.add(large);
    scene.add(long_one);
    scene.add(small);

    const auto grown = composed(scene.panorama, scene.frame, shift_by(0, 0));

    ASSERT_TRUE(grown);
    EXPECT_FALSE(scene.is_kept(grown->image, large));
    EXPECT_TRUE(scene.is_kept(grown->image, long_one));
    EXPECT_FALSE(scene.is_kept(grown->image, small));
}

TEST(FrameMerge, OnlyTheContentUnderTheFramesBoxDecides)
{
    patches scene;
    scene.add(cv::Rect(10, 10, 250, 380));  // larger, outside of the box but for its right edge
    scene.add(cv::Rect(450, 100, 200, 200));
    const auto grown = composed(scene.panorama, plain(450, 400, light), shift_by(250, 0));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.at<cv::Vec3b>(200, 550), cv::Vec3b(100, 100, 100));
    EXPECT_EQ(grown->image.at<cv::Vec3b>(200, 100), cv::Vec3b(100, 100, 100));
}

TEST(FrameMerge, HolesInsideTheChosenContourStayAsTheyAre)
{
    patches scene;
    scene.add(cv::Rect(100, 50, 400, 300));
    scene.panorama(cv::Rect(290, 190, 20, 20)).setTo(cv::Scalar());

    const auto grown = composed(scene.panorama, scene.frame, shift_by(0, 0));

    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->image.at<cv::Vec3b>(200, 300), cv::Vec3b(0, 0, 0)) << "the whole polygon is blanked";
}

TEST(FrameMerge, AgreesWithThePlainTranscriptionForRandomImagesAndHomographies)
{
    random_input random;
    const int rounds = scaled_count(150, 20);
    int composed_rounds = 0;
    for (int i = 0; i < rounds; ++i) {
        const cv::Size panorama_size(random.integer(1, 260), random.integer(1, 260));
        const cv::Size frame_size(random.integer(1, 160), random.integer(1, 160));
        const cv::Mat panorama = random.image(panorama_size);
        const cv::Mat frame = random.image(frame_size);
        const double spread = random.one_in(3) ? 0.3 : 0.03;
        const auto real = [&random](double limit) {
            return static_cast<double>(random.real(static_cast<float>(-limit), static_cast<float>(limit)));
        };
        const cv::Mat H = (cv::Mat_<double>(3, 3) << 1 + real(spread), real(spread), real(250), real(spread),
                           1 + real(spread), real(250), real(spread / 200), real(spread / 200), 1);
        bool raises = false;
        try {
            reference::compose(panorama, frame, H);
        } catch (const cv::Exception&) {
            raises = true;
        }
        if (raises) {
            EXPECT_THROW(tarn::merge_frame(panorama, frame, H), cv::Exception) << i;
        } else {
            composed_rounds += composed(panorama, frame, H) ? 1 : 0;
        }
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
    EXPECT_GT(composed_rounds, rounds / 3);
}

TEST(FrameMerge, ViewsOfLargerImagesAreReadInsideTheirBoundsOnly)
{
    random_input random;
    for (int i = 0; i < 20; ++i) {
        guarded_image panorama(random.image(cv::Size(random.integer(20, 90), random.integer(20, 90))), random);
        guarded_image frame(random.image(cv::Size(random.integer(20, 90), random.integer(20, 90))), random);
        composed(panorama.view(), frame.view(),
                 shift_by(static_cast<double>(random.integer(-60, 60)), static_cast<double>(random.integer(-60, 60))));
        EXPECT_TRUE(panorama.guards_are_untouched());
        EXPECT_TRUE(frame.guards_are_untouched());
    }
}

TEST(FrameMerge, FrameMappedToNowhereRaisesTheImageLibrarysErrorOrIsTooLarge)
{
    const cv::Mat panorama = plain(60, 40, grey);
    const cv::Mat frame = plain(30, 20, light);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double bad : {nan, infinity, -infinity, 1e300, -1e300, 1e30, -1e30, 3e9, -3e9}) {
        for (const int element : {0, 1, 2, 3, 4, 5, 6, 7}) {
            SCOPED_TRACE(::testing::Message() << bad << " at " << element);
            cv::Mat H = shift_by(10, 10);
            H.at<double>(element / 3, element % 3) = bad;
            try {
                tarn::merge_frame(panorama, frame, H);
            } catch (const cv::Exception&) {
            }
        }
    }
    EXPECT_ANY_THROW(tarn::merge_frame(panorama, frame, shift_by(nan, 0)));
    EXPECT_FALSE(tarn::merge_frame(panorama, frame, shift_by(1e30, 0)));
}

TEST(FrameMerge, OtherTypesThanThreeBytesRaiseAnError)
{
    EXPECT_THROW(tarn::merge_frame(cv::Mat(40, 60, CV_8UC4), plain(30, 20, light), shift_by(0, 0)), cv::Exception);
    EXPECT_THROW(tarn::merge_frame(plain(60, 40, grey), cv::Mat(20, 30, CV_8UC1), shift_by(0, 0)), cv::Exception);
    EXPECT_THROW(tarn::merge_frame(plain(60, 40, grey), cv::Mat(20, 30, CV_16UC3), shift_by(0, 0)), cv::Exception);
}

TEST(GrowthInPlace, NeedsTheRoomOnEverySideToWhichThePanoramaGrows)
{
    const cv::Mat frame = plain(30, 20, light);
    const cv::Mat storage = plain(60 + 7 + 5, 40 + 4 + 3, white);
    const cv::Mat panorama = storage(cv::Rect(7, 4, 60, 40));  // 7 left, 4 above, 5 right, 3 below
    const auto fits = [&](double x, double y) {
        const auto merged = tarn::merge_frame(panorama, frame, shift_by(x, y));
        return merged && tarn::can_grow_in_place(panorama, *merged, 2);
    };
    EXPECT_TRUE(fits(10, 10));
    EXPECT_TRUE(fits(-7, 10));
    EXPECT_FALSE(fits(-8, 10));
    EXPECT_TRUE(fits(10, -4));
    EXPECT_FALSE(fits(10, -5));
    EXPECT_TRUE(fits(35, 10));
    EXPECT_FALSE(fits(36, 10));
    EXPECT_TRUE(fits(10, 23));
    EXPECT_FALSE(fits(10, 24));
    EXPECT_TRUE(fits(35, 23));
}

TEST(GrowthInPlace, IsRefusedWhenAnyoneElseHoldsTheStorage)
{
    cv::Mat panorama = with_room(plain(60, 40, grey), {50, 50});
    const auto merged = tarn::merge_frame(panorama, plain(30, 20, light), shift_by(50, 10));
    ASSERT_TRUE(merged);
    EXPECT_TRUE(tarn::can_grow_in_place(panorama, *merged, 1));
    {
        const cv::Mat part = panorama(cv::Rect(0, 0, 5, 5));
        EXPECT_FALSE(tarn::can_grow_in_place(panorama, *merged, 1));
        EXPECT_TRUE(tarn::can_grow_in_place(panorama, *merged, 2));
    }
    EXPECT_TRUE(tarn::can_grow_in_place(panorama, *merged, 1));

    std::vector<uchar> memory(200 * 3 * 100);
    const cv::Mat of_the_hosts(100, 200, CV_8UC3, memory.data());
    panorama = of_the_hosts(cv::Rect(50, 30, 60, 40));
    EXPECT_FALSE(tarn::can_grow_in_place(panorama, *merged, 1)) << "nobody counts who uses that";
    EXPECT_FALSE(tarn::can_grow_in_place(cv::Mat(), *merged, 1));
}

TEST(GrowthInPlace, CopiesOfASweepAreFewAndItsRoomStaysWithinTheGreatestPanorama)
{
    for (const cv::Point& step : {cv::Point(20, 0), cv::Point(-20, 1), cv::Point(0, 20), cv::Point(-1, -20)}) {
        cv::Mat panorama = plain(60, 60, grey);
        cv::Mat H = shift_by(0, 0);
        int copies = 0;
        for (int i = 1; i <= 400; ++i) {
            const auto merged = tarn::merge_frame(panorama, plain(60, 60, light), shift_by(step.x, step.y) * H);
            ASSERT_TRUE(merged);
            H = merged->panorama_from_frame;
            if (tarn::can_grow_in_place(panorama, *merged, 1)) {
                panorama = tarn::grow_in_place(panorama, *merged);
            } else {
                panorama = tarn::grow_in_new_storage(panorama, *merged);
                ++copies;
            }
            cv::Size storage;
            cv::Point at;
            panorama.locateROI(storage, at);
            ASSERT_LE(std::max(storage.width, storage.height), 10000 + 5000);
        }
        EXPECT_GE(std::max(panorama.cols, panorama.rows), 400 * 20);
        EXPECT_LE(copies, 40) << step;
    }
}

TEST(GrowthInNewStorage, TakesNoRoomBeyondThePanoramaWhenThereIsNoMemoryForIt)
{
    const cv::Mat panorama = plain(60, 40, grey);
    const auto merged = tarn::merge_frame(panorama, plain(30, 20, light), shift_by(50, 10));
    ASSERT_TRUE(merged);
    const auto storage_of = [](const cv::Mat& image) {
        cv::Size storage;
        cv::Point at;
        image.locateROI(storage, at);
        return storage;
    };
    const cv::Mat roomy = tarn::grow_in_new_storage(panorama, *merged);
    EXPECT_EQ(storage_of(roomy), cv::Size(80 + 40, 40));

    cv::Mat narrow;
    {
        const watched_allocations short_of_memory(1, run_out_of_memory);
        narrow = tarn::grow_in_new_storage(panorama, *merged);
        ASSERT_TRUE(short_of_memory.came_so_far());
    }
    EXPECT_EQ(storage_of(narrow), cv::Size(80, 40));
    EXPECT_TRUE(same_pixels(roomy, narrow));
}

// ------------------------------------------------------------------------------------------ through the worker

class WorkerComposition : public worker_fixture {};

TEST_F(WorkerComposition, EveryTurnMakesANewPanoramaAndLeavesTheOldOnesPixelsAlone)
{
    std::vector<cv::Mat> panoramas;
    std::vector<cv::Mat> copies;
    for (int index = 1; index <= 5; ++index) {
        add_key_frame(index);
        ASSERT_EQ(big_stitch_status, 3);
        panoramas.push_back(big_stitch_image);
        copies.push_back(big_stitch_image.clone());
    }
    for (size_t i = 0; i < panoramas.size(); ++i) {
        EXPECT_TRUE(same_pixels(copies[i], panoramas[i])) << i;
    }
}

TEST_F(WorkerComposition, PanoramaThatNobodyElseHoldsGrowsInItsOwnStorage)
{
    for (int index = 1; index <= 3; ++index) {
        add_key_frame(index);
    }
    const cv::UMatData* const storage = big_stitch_image.u;
    const int height = big_stitch_image.rows;
    add_key_frame(4);
    ASSERT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_stitch_image.u, storage);
    EXPECT_GT(big_stitch_image.rows, height);
}

TEST_F(WorkerComposition, TurnThatFailsAfterItsCompositionHasNotTouchedThePanorama)
{
    for (int index = 1; index <= 3; ++index) {
        add_key_frame(index);
    }
    const uchar* const pixels = big_stitch_image.data;
    const cv::Mat before = big_stitch_image.clone();
    stepper.at(tarn::worker_stage::composed, 4, [] { throw std::runtime_error("no room left"); });
    add_key_frame(4);
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_stitch_image.data, pixels);
    EXPECT_TRUE(same_pixels(before, big_stitch_image));
}

TEST_F(WorkerComposition, HeaderTakenDuringATurnKeepsItsPixels)
{
    for (int index = 1; index <= 3; ++index) {
        add_key_frame(index);
    }
    const cv::Mat before = big_stitch_image.clone();
    cv::Mat taken;
    stepper.at(tarn::worker_stage::composed, 4, [&taken] { taken = tarn::look_at_pipeline().panorama; });
    add_key_frame(4);
    ASSERT_EQ(big_stitch_status, 3);
    EXPECT_TRUE(same_pixels(before, taken));
    EXPECT_NE(big_stitch_image.u, taken.u);
}

TEST_F(WorkerComposition, SweepBackwardsGrowsThePanoramaUpwardsAndMovesTheNeighbour)
{
    stitch_big_image(key_frame(5), right_angles(), full_size(), moving_left, 1);
    const int base_height = big_stitch_image.rows;
    for (int index = 2; index <= 4; ++index) {
        stitch_big_image(key_frame(6 - index), right_angles(), full_size(), moving_left, index);
        ASSERT_EQ(big_stitch_status, 3);
        EXPECT_NEAR(big_stitch_image.rows, base_height + (index - 1) * key_frame_step, index);
        EXPECT_NEAR(neighbour_homo.at<double>(1, 2), 0.0, 1.0) << "the newest frame lies at the upper end";
    }
}

TEST_F(WorkerComposition, PanoramaOfASlideHasNoBlackHoleAndShowsTheScene)
{
    constexpr int count = 6;
    for (int index = 1; index <= count; ++index) {
        add_key_frame(index);
    }
    ASSERT_EQ(big_stitch_status, 3);
    // Inside by a margin that covers the frames' own drift of a pixel or so.
    const cv::Rect inside(4, 4, key_frame_height - 8, key_frame_width + (count - 1) * key_frame_step - 12);
    ASSERT_EQ(inside & cv::Rect(cv::Point(), big_stitch_image.size()), inside);
    cv::Mat brightest;
    cv::extractChannel(big_stitch_image(inside), brightest, 0);
    for (const int channel : {1, 2}) {
        cv::Mat other;
        cv::extractChannel(big_stitch_image(inside), other, channel);
        brightest = cv::max(brightest, other);
    }
    EXPECT_EQ(cv::countNonZero(brightest == 0), 0);
}

}  // namespace
