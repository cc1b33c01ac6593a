// SPDX-License-Identifier: Apache-2.0
//
// What a worker makes of its frame, and how it finds the frame's place: preparation, projection, description,
// homography.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/high_res_frame.h"
#include "internal/high_res_registration.h"
#include "reference/composition.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::choose_projection;
using tarn::frame_shape;
using tarn::measure_shape;
using tarn::projection_rule;
using tarn::worker_stage;

// --------------------------------------------------------------------------------------- the shape and its rules

TEST(FrameShape, BothDeviationsTakeTheLargerSideDespiteTheirNames)
{
    // Left side 87 on average, right side 91; top 88, bottom 90.
    const frame_shape shape = measure_shape({86.0f, 90.0f, 92.0f, 88.0f}, full_size());
    EXPECT_EQ(shape.min_h_angle, 3.0f);
    EXPECT_EQ(shape.min_v_angle, 2.0f);
    // The same with the sides exchanged.
    const frame_shape mirrored = measure_shape({90.0f, 86.0f, 88.0f, 92.0f}, full_size());
    EXPECT_EQ(mirrored.min_h_angle, 3.0f);
    EXPECT_EQ(mirrored.min_v_angle, 2.0f);
    const frame_shape upside_down = measure_shape({88.0f, 92.0f, 90.0f, 86.0f}, full_size());
    EXPECT_EQ(upside_down.min_h_angle, 3.0f);
    EXPECT_EQ(upside_down.min_v_angle, 2.0f);
}

TEST(FrameShape, DeviationsAreTakenOfTheMeanOfASidesTwoAngles)
{
    const frame_shape twisted = measure_shape({100.0f, 100.0f, 80.0f, 80.0f}, full_size());
    EXPECT_EQ(twisted.min_h_angle, 0.0f);
    EXPECT_EQ(twisted.min_v_angle, 10.0f);
    const frame_shape skewed = measure_shape({100.0f, 80.0f, 100.0f, 80.0f}, full_size());
    EXPECT_EQ(skewed.min_h_angle, 0.0f);
    EXPECT_EQ(skewed.min_v_angle, 0.0f);
}

TEST(FrameShape, RightAnglesDeviateByNothing)
{
    const frame_shape shape = measure_shape(right_angles(), full_size());
    EXPECT_EQ(shape.min_h_angle, 0.0f);
    EXPECT_EQ(shape.min_v_angle, 0.0f);
    EXPECT_EQ(shape.mean_scale, 1.0f);
}

TEST(FrameShape, MeanScaleIsTheSumInOrderTimesAQuarterInSinglePrecision)
{
    random_input random;
    for (int i = 0; i < 1000; ++i) {
        std::vector<float> scales;
        for (int k = 0; k < 4; ++k) {
            scales.push_back(random.real(0.1f, 3.0f));
        }
        const float sum = scales[0] + scales[1] + scales[2] + scales[3];
        EXPECT_EQ(measure_shape(right_angles(), scales).mean_scale, sum * 0.25f);
    }
}

TEST(FrameShape, OnlyTheFirstFourElementsAreReadAndFewerAreRefused)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(measure_shape({90.0f, 90.0f, 90.0f, 90.0f, nan}, {1.0f, 1.0f, 1.0f, 1.0f, nan}).mean_scale, 1.0f);
    EXPECT_THROW(measure_shape({90.0f, 90.0f, 90.0f}, full_size()), std::out_of_range);
    EXPECT_THROW(measure_shape(right_angles(), {1.0f, 1.0f, 1.0f}), std::out_of_range);
}

frame_shape shape_of(float min_h_angle, float min_v_angle, float mean_scale = 1.0f)
{
    return {min_h_angle, min_v_angle, mean_scale};
}

float just_above(float value)
{
    return std::nextafter(value, std::numeric_limits<float>::infinity());
}

TEST(ProjectionChoice, SphericalSwitchFiresOnlyForTheSecondFrame)
{
    for (const int index : {1, 3, 4, 100, 0, -2}) {
        EXPECT_EQ(choose_projection(shape_of(0.0f, 5.0f), 2, index, false), projection_rule::none) << index;
    }
    EXPECT_EQ(choose_projection(shape_of(0.0f, 5.0f), 2, 2, false), projection_rule::switch_sphere);
}

TEST(ProjectionChoice, SphericalSwitchFiresOnlyForTheDirection2)
{
    for (const int direction : {0, 1, 3, 4}) {
        EXPECT_EQ(choose_projection(shape_of(0.0f, 5.0f), direction, 2, false), projection_rule::none);
    }
}

TEST(ProjectionChoice, SphericalSwitchNeedsMoreThanOneAndAHalfDegrees)
{
    EXPECT_EQ(choose_projection(shape_of(0.0f, 1.5f), 2, 2, false), projection_rule::none);
    EXPECT_EQ(choose_projection(shape_of(0.0f, just_above(1.5f)), 2, 2, false), projection_rule::switch_sphere);
}

TEST(ProjectionChoice, ScaleIsComparedInDoublePrecision)
{
    // The nearest float to 0.95 lies below it.
    const float nearest = 0.95f;
    for (const float too_small : {0.5f, nearest}) {
        EXPECT_EQ(choose_projection(shape_of(0.0f, 5.0f, too_small), 2, 2, false), projection_rule::none);
        EXPECT_EQ(choose_projection(shape_of(5.0f, 0.0f, too_small), 3, 5, false), projection_rule::none);
    }
    EXPECT_EQ(choose_projection(shape_of(0.0f, 5.0f, just_above(nearest)), 2, 2, false),
              projection_rule::switch_sphere);
    EXPECT_EQ(choose_projection(shape_of(5.0f, 0.0f, just_above(nearest)), 3, 5, false), projection_rule::cylinder);
}

TEST(ProjectionChoice, CylinderNeedsMoreThanTwoDegrees)
{
    EXPECT_EQ(choose_projection(shape_of(2.0f, 0.0f), 3, 1, false), projection_rule::none);
    EXPECT_EQ(choose_projection(shape_of(just_above(2.0f), 0.0f), 3, 1, false), projection_rule::cylinder);
}

TEST(ProjectionChoice, FirstMatchingRuleWins)
{
    const frame_shape fits_all = shape_of(5.0f, 5.0f);
    EXPECT_EQ(choose_projection(fits_all, 2, 2, false), projection_rule::switch_sphere);
    EXPECT_EQ(choose_projection(fits_all, 2, 2, true), projection_rule::switch_sphere);
    EXPECT_EQ(choose_projection(fits_all, 2, 3, true), projection_rule::sphere);
    EXPECT_EQ(choose_projection(fits_all, 2, 3, false), projection_rule::cylinder);
}

TEST(ProjectionChoice, OnceSwitchedOnEveryFrameIsSphericalWhateverItsShape)
{
    for (const frame_shape& shape :
         {shape_of(0.0f, 0.0f), shape_of(9.0f, 0.0f), shape_of(9.0f, 9.0f, 0.1f), shape_of(0.0f, 9.0f)}) {
        for (const int direction : {0, 1, 2, 3, 4}) {
            EXPECT_EQ(choose_projection(shape, direction, 3, true), projection_rule::sphere);
        }
    }
}

// ----------------------------------------------------------------------------------- preparation and description

TEST(FramePreparation, FrameIsShrunkToAThousandPixelsOfWidthAndTurnedClockwise)
{
    random_input random;
    for (const int width : {1, 2, 999, 1000, 1001, 1500, 1920, 4000}) {
        SCOPED_TRACE(width);
        const cv::Mat frame = random.noise(cv::Size(width, 37), CV_8UC3);
        const float scale = width > 1000 ? 1000.0f / static_cast<float>(width) : 1.0f;
        cv::Mat expected;
        cv::resize(frame, expected, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
        cv::rotate(expected, expected, cv::ROTATE_90_CLOCKWISE);

        const cv::Mat prepared = tarn::shrink_and_turn(frame);

        EXPECT_TRUE(same_pixels(expected, prepared));
        EXPECT_EQ(prepared.rows, std::min(width, 1000));
    }
}

TEST(FramePreparation, FramesPixelsAreOnlyReadSquareOnesToo)
{
    random_input random;
    for (const cv::Size size : {cv::Size(64, 64), cv::Size(64, 48), cv::Size(1000, 1000), cv::Size(1200, 1200)}) {
        const cv::Mat frame = random.noise(size, CV_8UC3);
        const cv::Mat before = frame.clone();
        const cv::Mat prepared = tarn::shrink_and_turn(frame);
        EXPECT_TRUE(same_pixels(before, frame));
        EXPECT_NE(prepared.data, frame.data);
    }
}

TEST(FrameDescription, Frame800PixelsHighOrLessIsDescribedAtScale1)
{
    random_input random;
    for (const int height : {100, 799, 800}) {
        const cv::Mat frame = random.noise(cv::Size(120, height), CV_8UC3);
        const tarn::described_frame described = tarn::describe(frame, stitch_feature_finder);
        EXPECT_EQ(described.work_scale, 1.0f) << height;
        EXPECT_TRUE(same_pixels(frame, described.scaled_frame));
    }
}

TEST(FrameDescription, HigherFrameIsDescribedAt800PixelsOfHeight)
{
    random_input random;
    for (const int height : {801, 1000, 1600}) {
        SCOPED_TRACE(height);
        const cv::Mat frame = random.noise(cv::Size(120, height), CV_8UC3);
        const float scale = 800.0f / static_cast<float>(height);
        cv::Mat expected;
        cv::resize(frame, expected, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);

        const tarn::described_frame described = tarn::describe(frame, stitch_feature_finder);

        EXPECT_EQ(described.work_scale, scale);
        EXPECT_TRUE(same_pixels(expected, described.scaled_frame));
        for (const cv::KeyPoint& keypoint : described.keypoints) {
            EXPECT_LT(keypoint.pt.y, 800.0f) << "keypoints are in pixels of the copy";
        }
    }
}

TEST(FrameDescription, DescriptorsAreTheDetectorsBytesScaledToOne)
{
    const cv::Mat frame = key_frame(1);
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat bytes;
    stitch_feature_finder->detectAndCompute(frame, cv::Mat(), keypoints, bytes, false);
    ASSERT_EQ(bytes.type(), CV_8UC1);
    ASSERT_GT(bytes.rows, 50);

    const tarn::described_frame described = tarn::describe(frame, stitch_feature_finder);

    cv::Mat floats;
    bytes.convertTo(floats, CV_32F, 0.00392156862745098, 0.0);
    EXPECT_TRUE(same_pixels(floats, described.descriptors));
    EXPECT_NEAR(floats.at<float>(0, 0), bytes.at<uchar>(0, 0) / 255.0, 1e-6);
    EXPECT_EQ(described.keypoints.size(), keypoints.size());
    double greatest = 0.0;
    cv::minMaxLoc(described.descriptors, nullptr, &greatest);
    EXPECT_EQ(greatest, 1.0);
}

// ------------------------------------------------------------------------------------------------- registration

/// The frame into its neighbour and, chained, into the panorama, by the plainest means.
cv::Mat panorama_from_frame(const shared_state& neighbour, const tarn::described_frame& frame)
{
    std::vector<cv::DMatch> good_matches;
    single_match(neighbour.descriptors, frame.descriptors, good_matches, 0.2f);
    std::vector<cv::Point2f> frame_points;
    std::vector<cv::Point2f> neighbour_points;
    for (const cv::DMatch& m : good_matches) {
        const cv::Point2f a = frame.keypoints[static_cast<size_t>(m.trainIdx)].pt;
        const cv::Point2f b = neighbour.keypoints[static_cast<size_t>(m.queryIdx)].pt;
        frame_points.emplace_back(a.x / frame.work_scale, a.y / frame.work_scale);
        neighbour_points.emplace_back(b.x / frame.work_scale, b.y / frame.work_scale);
    }
    return neighbour.homo * cv::findHomography(frame_points, neighbour_points, 8, 3.0, cv::noArray(), 2000, 0.995);
}

// Joining without a worker or a turn: what becomes of one frame against one record.

TEST(JoinFrame, FrameIsMergedOrTheReasonSaysWhyNot)
{
    const auto described = [](const cv::Mat& prepared) { return tarn::describe(prepared, stitch_feature_finder); };
    const cv::Mat first = tarn::shrink_and_turn(key_frame(1));
    const cv::Mat second = tarn::shrink_and_turn(key_frame(2));
    const tarn::described_frame features = described(second);
    const auto beside = [&](const cv::Matx33d& homo) {
        const tarn::described_frame of_first = described(first);
        return tarn::neighbour_record{first, cv::Mat(homo).clone(), of_first.keypoints, of_first.descriptors};
    };
    const cv::Matx33d in_place = cv::Matx33d::eye();

    tarn::neighbour_record poor = beside(in_place);
    poor.descriptors = poor.descriptors.rowRange(0, 19);
    tarn::neighbour_record stacked = beside(in_place);  // all keypoints in one place: no motion takes the frame there
    for (cv::KeyPoint& keypoint : stacked.keypoints) {
        keypoint.pt = {1.0f, 1.0f};
    }

    const struct {
        const char* what;
        tarn::neighbour_record neighbour;
        tarn::reason why;
    } cases[] = {
        {"fits", beside(in_place), tarn::reason::none},
        {"19 descriptors", poor, tarn::reason::too_few_matches},
        {"one place", stacked, tarn::reason::no_homography},
        {"cut by a horizon", beside({1, 0, 0, 0, 1, 0, -1.0 / 120, 0, 1}), tarn::reason::shape_refused},
        {"far away", beside(translation(20000, 0)), tarn::reason::too_large},
    };

    for (const auto& row : cases) {
        int registered = 0;
        const tarn::joined_frame joined =
            tarn::join_frame(row.neighbour, second, features, [&registered] { ++registered; });
        EXPECT_EQ(joined.why, row.why) << row.what;
        EXPECT_EQ(joined.merged.has_value(), row.why == tarn::reason::none) << row.what;
        EXPECT_EQ(registered, 1) << row.what;
        EXPECT_TRUE(same_pixels(row.neighbour.panorama, tarn::shrink_and_turn(key_frame(1)))) << "read only";
    }
}

TEST(JoinFrame, IsThatOfAPlainTranscription)
{
    const cv::Mat first = tarn::shrink_and_turn(key_frame(1));
    const cv::Mat second = tarn::shrink_and_turn(key_frame(2));
    const tarn::described_frame of_first = tarn::describe(first, stitch_feature_finder);
    const tarn::described_frame of_second = tarn::describe(second, stitch_feature_finder);
    shared_state before;
    before.panorama = first;
    before.homo = cv::Mat::eye(3, 3, CV_64F);
    before.keypoints = of_first.keypoints;
    before.descriptors = of_first.descriptors;
    const reference::composition expected = reference::compose(first, second, panorama_from_frame(before, of_second));

    const tarn::joined_frame joined =
        tarn::join_frame({first, before.homo, of_first.keypoints, of_first.descriptors}, second, of_second);

    ASSERT_TRUE(joined.merged);
    EXPECT_TRUE(same_pixels(expected.image, tarn::grow_in_new_storage(first, *joined.merged)));
    EXPECT_TRUE(same_pixels(expected.H, joined.merged->panorama_from_frame));
}

class Registration : public worker_fixture {
protected:
    /// Leaves exactly `count` of the neighbour's descriptors, all of which match one of the key frame `index`.
    static void keep_matches(int count, int index)
    {
        const tarn::described_frame frame =
            tarn::describe(tarn::shrink_and_turn(key_frame(index)), stitch_feature_finder);
        std::vector<cv::DMatch> matches;
        single_match(neighbour_descriptors, frame.descriptors, matches, 0.2f);
        ASSERT_GE(matches.size(), static_cast<size_t>(count));
        // Spread over the frame, so that the homography is well founded.
        std::vector<cv::KeyPoint> keypoints;
        cv::Mat descriptors;
        for (size_t k = 0; k < static_cast<size_t>(count); ++k) {
            const cv::DMatch& match = matches[k * matches.size() / static_cast<size_t>(count)];
            keypoints.push_back(neighbour_keypoints[static_cast<size_t>(match.queryIdx)]);
            descriptors.push_back(neighbour_descriptors.row(match.queryIdx));
        }
        neighbour_keypoints = keypoints;
        neighbour_descriptors = descriptors;

        matches.clear();
        single_match(neighbour_descriptors, frame.descriptors, matches, 0.2f);
        ASSERT_EQ(matches.size(), static_cast<size_t>(count));
    }
};

TEST_F(Registration, Exactly19GoodMatchesFail)
{
    add_key_frame(1);
    ASSERT_NO_FATAL_FAILURE(keep_matches(19, 2));

    add_key_frame(2);

    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

TEST_F(Registration, Exactly20GoodMatchesGoOnToTheHomography)
{
    add_key_frame(1);
    ASSERT_NO_FATAL_FAILURE(keep_matches(20, 2));

    add_key_frame(2);

    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 1);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(Registration, TurnIsThatOfAPlainTranscriptionToTheLastBit)
{
    add_key_frame(1);
    for (int index = 2; index <= 5; ++index) {
        SCOPED_TRACE(index);
        const cv::Mat prepared = tarn::shrink_and_turn(key_frame(index));
        const shared_state before = look_at_shared_state();
        const reference::composition expected = reference::compose(
            before.panorama, prepared, panorama_from_frame(before, tarn::describe(prepared, stitch_feature_finder)));

        add_key_frame(index);

        ASSERT_EQ(big_stitch_status, 3);
        EXPECT_TRUE(same_pixels(expected.image, big_stitch_image));
        EXPECT_TRUE(same_pixels(expected.H, neighbour_homo));
        EXPECT_EQ(neighbour_homo.type(), CV_64F);
    }
}

TEST_F(Registration, FramesFollowTheSweepToWithinAPixelPerFrame)
{
    constexpr int count = 8;
    for (int index = 1; index <= count; ++index) {
        add_key_frame(index);
        ASSERT_EQ(big_stitch_status, 3) << index;
        const double shift = neighbour_homo.at<double>(1, 2) / neighbour_homo.at<double>(2, 2);
        EXPECT_NEAR(shift, (index - 1) * key_frame_step, index) << index;
    }
}

TEST_F(Registration, PointsOfBothFramesAreDividedByTheCurrentFramesScale)
{
    add_key_frame(1);  // 320 px high when turned, described at scale 1
    ASSERT_EQ(big_work_scale, 1.0f);
    const shared_state base = look_at_shared_state();
    cv::Mat enlarged;
    cv::resize(key_frame(1), enlarged, cv::Size(1000, 750), 0, 0, cv::INTER_CUBIC);

    stitch_big_image(enlarged, right_angles(), full_size(), moving_right, 2);

    ASSERT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_work_scale, 0.8f);
    // Enlarged by 3.125, the frame should shrink to 0.32; the neighbour's points, which were described at scale 1
    // and are divided by 0.8, make it 0.4.
    EXPECT_NEAR(neighbour_homo.at<double>(0, 0), 0.4, 0.01);
    EXPECT_NEAR(neighbour_homo.at<double>(1, 1), 0.4, 0.01);
    const cv::Mat expected =
        panorama_from_frame(base, tarn::describe(tarn::shrink_and_turn(enlarged), stitch_feature_finder));
    EXPECT_EQ(cv::norm(neighbour_homo.rowRange(2, 3), expected.rowRange(2, 3), cv::NORM_INF), 0.0);
}

TEST_F(Registration, WorkScaleIsStoredBeforeTheTurnAndIsTheTurnsOwnDuringIt)
{
    cv::Mat enlarged;
    cv::resize(key_frame(2), enlarged, cv::Size(1000, 750));
    stepper.hold_at(worker_stage::frame_described, 1);
    stepper.hold_at(worker_stage::turn_taken, 1);
    launch_key_frame(1);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::frame_described, 1));
    EXPECT_EQ(look_at_shared_state().work_scale, 1.0f);
    tarn::launch_worker(enlarged, right_angles(), full_size(), moving_right, 2);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 2));
    EXPECT_EQ(look_at_shared_state().work_scale, 0.8f) << "the later one prepares beside the first";

    stepper.let_go(worker_stage::frame_described, 1);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 1));

    EXPECT_EQ(look_at_shared_state().work_scale, 1.0f);
    stepper.let_go(worker_stage::turn_taken, 1);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_work_scale, 0.8f);
}

TEST_F(Registration, CornersThatCrossEachOtherFailThePipelineEvenThoughTheHomographyWasFound)
{
    add_key_frame(1);
    // Folds the frame along x = 100: the right corners land on the left.
    neighbour_homo = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, -0.01, 0, 1);
    const cv::Mat H = panorama_from_frame(look_at_shared_state(),
                                          tarn::describe(tarn::shrink_and_turn(key_frame(2)), stitch_feature_finder));
    ASSERT_FALSE(H.empty());
    std::vector<cv::Point2f> corners = {{0, 0}, {240, 0}, {240, 320}, {0, 320}};
    cv::perspectiveTransform(corners, corners, H);
    ASSERT_FALSE(is_convex(corners));

    add_key_frame(2);

    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

TEST_F(Registration, CornersTestedAreThoseOfThePreparedFrameNotOfItsCopy)
{
    cv::Mat enlarged;
    cv::resize(key_frame(1), enlarged, cv::Size(1000, 750));
    stitch_big_image(enlarged, right_angles(), full_size(), moving_right, 1);
    ASSERT_EQ(big_stitch_image.size(), cv::Size(750, 1000));
    // Folds the frame at y = 900: beyond the end of the copy of 800 rows, within the frame.
    neighbour_homo = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, 0, -1.0 / 900.0, 1);

    stitch_big_image(enlarged, right_angles(), full_size(), moving_right, 2);

    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(stepper.times_at(worker_stage::registered, 2), 1);
    EXPECT_EQ(stepper.times_at(worker_stage::composed, 2), 0);
}

// ------------------------------------------------------------------------------------------ projections at work

class WorkerProjection : public worker_fixture {
protected:
    /// The base panorama that a worker with the given shape makes of the key frame 1.
    cv::Mat base_with(const std::vector<float>& angles, const std::vector<float>& scales, int direction, bool spherical)
    {
        resetStitch(directory().c_str());
        SP = spherical;
        stitch_big_image(key_frame(1), angles, scales, direction, 1);
        EXPECT_EQ(big_stitch_status, 3);
        return big_stitch_image;
    }

    static cv::Mat on_sphere(int index, float angle)
    {
        cv::Mat image = tarn::shrink_and_turn(key_frame(index));
        SphericalProjection(image, image, angle);
        return image;
    }

    static cv::Mat on_cylinder(int index, float angle)
    {
        cv::Mat image = tarn::shrink_and_turn(key_frame(index));
        cylindrical_projection(image, image, angle);
        return image;
    }
};

TEST_F(WorkerProjection, CylinderIsGivenTheDeviationOfTheUprightSides)
{
    EXPECT_TRUE(same_pixels(on_cylinder(1, 3.0f), base_with(cylinder_angles(), full_size(), 3, false)));
    EXPECT_TRUE(same_pixels(on_cylinder(1, 4.0f), base_with({93, 86, 86, 93}, full_size(), 3, false)));
}

TEST_F(WorkerProjection, SphereOnceOnIsGivenTheDeviationOfTheLevelSidesAndNoCylinderHappensAnyMore)
{
    EXPECT_TRUE(same_pixels(on_sphere(1, 3.0f), base_with(sphere_angles(), full_size(), 3, true)));
    EXPECT_TRUE(same_pixels(on_sphere(1, 0.0f), base_with(cylinder_angles(), full_size(), 3, true)));
    EXPECT_TRUE(same_pixels(on_sphere(1, 0.0f), base_with(right_angles(), {0.5f, 0.5f, 0.5f, 0.5f}, 3, true)));
}

TEST_F(WorkerProjection, FrameThatFitsNoRuleIsNotProjected)
{
    const cv::Mat plain = tarn::shrink_and_turn(key_frame(1));
    EXPECT_TRUE(same_pixels(plain, base_with(right_angles(), full_size(), 2, false)));
    EXPECT_TRUE(same_pixels(plain, base_with(sphere_angles(), full_size(), 2, false))) << "the first frame";
    EXPECT_TRUE(same_pixels(plain, base_with(cylinder_angles(), {0.9f, 0.9f, 0.9f, 0.9f}, 3, false)));
}

TEST_F(WorkerProjection, SphericalSwitchBendsThePanoramaToo)
{
    add_key_frame(1);
    stepper.at(worker_stage::frame_prepared, 2, [] {
        EXPECT_TRUE(same_pixels(on_sphere(1, 3.0f), big_stitch_image));
        EXPECT_TRUE(SP);
        EXPECT_EQ(big_stitch_status, 3) << "the turn has not begun";
        EXPECT_EQ(big_frame_num, 1);
    });

    add_sphere_switch();

    EXPECT_EQ(stepper.times_at(worker_stage::frame_prepared, 2), 1);
}

TEST_F(WorkerProjection, DescriptorsAfterTheSphericalSwitchStayBytesAndTheTurnFails)
{
    add_key_frame(1);
    cv::Mat bent = on_sphere(1, 3.0f);
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat bytes;
    stitch_feature_finder->detectAndCompute(bent, cv::Mat(), keypoints, bytes, false);

    add_sphere_switch();

    EXPECT_EQ(neighbour_descriptors.type(), CV_8UC1);
    EXPECT_TRUE(same_pixels(bytes, neighbour_descriptors));
    EXPECT_EQ(neighbour_keypoints.size(), keypoints.size());
    EXPECT_EQ(stepper.times_at(worker_stage::turn_taken, 2), 1);
    EXPECT_EQ(stepper.times_at(worker_stage::registered, 2), 0) << "the matcher raises an error";
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_TRUE(SP);
}

TEST_F(WorkerProjection, FrameWaitingBehindTheSphericalSwitchFailsOverTheSameDescriptors)
{
    add_key_frame(1);
    stepper.hold_at(worker_stage::turn_taken, 2);
    launch_sphere_switch();
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
    launch_key_frame(3);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_idle, 3));
    stepper.let_go(worker_stage::turn_taken, 2);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(stepper.times_at(worker_stage::turn_taken, 3), 1);
    EXPECT_EQ(stepper.times_at(worker_stage::registered, 3), 0);
    EXPECT_EQ(big_stitch_status, 4);
    EXPECT_EQ(big_frame_num, 3);
}

TEST_F(WorkerProjection, SphereStaysOnUntilTheTaskIsReplaced)
{
    add_key_frame(1);
    add_sphere_switch();
    ASSERT_TRUE(SP);

    resetStitch(directory().c_str());

    EXPECT_FALSE(SP);
    add_key_frame(1);
    EXPECT_TRUE(same_pixels(tarn::shrink_and_turn(key_frame(1)), big_stitch_image));
}

TEST_F(WorkerProjection, SecondFrameOnTheCylinderIsRegisteredAndComposed)
{
    stitch_big_image(key_frame(1), cylinder_angles(), full_size(), moving_right, 1);
    stitch_big_image(key_frame(2), cylinder_angles(), full_size(), moving_right, 2);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

}  // namespace
