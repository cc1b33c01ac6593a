// SPDX-License-Identifier: Apache-2.0
//
// What is decided about a frame, as tables: thresholds to the last bit, the order of the tests, what a rejection
// leaves behind, key frames, grades. The frames are lists of point pairs; no image is needed.
#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/frame_judgement.h"

namespace {

using namespace tarn;

constexpr float half = 0.5f;
const cv::Size usual_size(240, 180);

cv::Matx33d moved(double x, double y)
{
    return {1, 0, x, 0, 1, y, 0, 0, 1};
}

cv::Matx33d scaled(double x, double y)
{
    return {x, 0, 0, 0, y, 0, 0, 0, 1};
}

/// Vertical edges that lean: x' = x + k y.
cv::Matx33d leaning(double k)
{
    return {1, k, 0, 0, 1, 0, 0, 0, 1};
}

/// What maps the corners of the usual frame to these places.
cv::Matx33d onto(const points& places)
{
    return cv::getPerspectiveTransform(corners_of(usual_size), places);
}

/// One corner of the usual frame pulled outwards along the diagonal: the angle there deviates most from 90 degrees.
cv::Matx33d stretched(std::size_t corner, double outwards)
{
    points places = corners_of(usual_size);
    places[corner] += (places[corner] - cv::Point2f(120, 90)) * (outwards / 150.0);
    return onto(places);
}

/// A horizon at x = 120 that cuts the frame: its right half is thrown to the left of everything.
const cv::Matx33d cut_by_a_horizon(1, 0, 0, 0, 1, 0, -1.0 / 120, 0, 1);

/// All that a judgement goes by. It begins as a frame that stands still and fits.
struct scene {
    cv::Matx33d motion = cv::Matx33d::eye();  ///< the frame into the reference
    int pairs = 60;
    int outliers = 0;  ///< of these, that move otherwise
    cv::Size size = usual_size;
    int hint = direction_undecided;
    cv::Matx33d homo = cv::Matx33d::eye();
    cv::Matx33d base_homo = cv::Matx33d::eye();
    cv::Size preview = usual_size;
    judging_limits limits{10, 0.5f, 10.0f, 0.1f, 0.7f, 10};
    std::vector<float> move_distances;

    int last_direction = direction_undecided;
    std::vector<float> last_angles = std::vector<float>(4, 90.0f);
    std::vector<float> last_scales = std::vector<float>(4, 1.0f);
    cv::Point2f total_shift;
    points last_warp_points = corners_of(usual_size);

    /// Points all over the frame, and where the motion takes them.
    tracked_points tracks() const
    {
        tracked_points result;
        for (int i = 0; i < pairs; ++i) {
            const int place = i * 29 % 77;  // no three of the first four on one line
            result.matched_frame_points.emplace_back(10.0f + static_cast<float>(place % 11 * 20),
                                                     12.0f + static_cast<float>(place / 11 * 24));
        }
        if (pairs > 0) {
            result.neighbour_points = mapped(result.matched_frame_points, cv::Mat(motion));
        }
        for (int i = pairs - outliers; i < pairs; ++i) {
            result.neighbour_points[static_cast<std::size_t>(i)] += cv::Point2f(7, -11);
        }
        return result;
    }

    frame_verdict judged()
    {
        const judged_reference reference{cv::Mat(homo), cv::Mat(base_homo), preview};
        const judged_numbers numbers{last_direction, last_angles,   last_scales,
                                     total_shift.x,  total_shift.y, last_warp_points};
        return judge(reference, cv::Mat(size, CV_8UC1), tracks(), hint, limits, move_distances, numbers);
    }

    /// Judged by a copy, so that the numbers stay.
    frame_verdict tried() const
    {
        return scene(*this).judged();
    }
};

scene moving(double x, double y)
{
    scene result;
    result.motion = moved(x, y);
    return result;
}

/// A motion of 5 px in a direction.
scene moving(int direction)
{
    switch (direction) {
    case direction_down:
        return moving(0, 5);
    case direction_up:
        return moving(0, -5);
    case direction_right:
        return moving(5, 0);
    case direction_left:
        return moving(-5, 0);
    default:
        return {};
    }
}

const std::vector<int> all_directions = {direction_down, direction_up, direction_right, direction_left};

// ------------------------------------------------------------------------------------------------- the verdict

TEST(FrameJudgement, TestsComeInTheirOrder)
{
    // Each row mends one fault more of a frame that has them all.
    const std::vector<std::pair<reason, void (*)(scene&)>> faults = {
        {reason::too_few_tracked, [](scene& frame) { frame.limits.matches = 61; }},
        {reason::implausible_shape, [](scene& frame) { frame.limits.angle = -1.0f; }},
        {reason::too_few_inliers, [](scene& frame) { frame.limits.inliers = 1.1f; }},
        {reason::against_the_hint, [](scene& frame) { frame.hint = direction_left; }},
        {reason::not_convex, [](scene& frame) { frame.homo = cut_by_a_horizon; }},
        {reason::none, [](scene&) {}},
    };
    for (std::size_t mended = 0; mended < faults.size(); ++mended) {
        scene frame = moving(direction_right);
        frame.homo = scaled(20, 1);  // out of scale; a frame that is cut by a horizon is no worse for that
        for (std::size_t i = mended; i < faults.size(); ++i) {
            faults[i].second(frame);
        }
        const reason expected = faults[mended].first == reason::none ? reason::out_of_scale : faults[mended].first;
        EXPECT_EQ(frame.judged().why, expected) << mended << " mended";
    }
    EXPECT_EQ(moving(direction_right).judged().why, reason::none);
}

TEST(FrameJudgement, RejectionLeavesWhatWasMeasuredBeforeIt)
{
    struct row {
        reason why;
        void (*spoil)(scene&);
        bool direction, shape, shift;  ///< whether it stays behind
    };

    const std::vector<row> rows = {
        {reason::too_few_tracked, [](scene& s) { s.limits.matches = 61; }, false, false, false},
        {reason::implausible_shape, [](scene& s) { s.limits.area = 1.1f; }, false, false, false},
        {reason::too_few_inliers, [](scene& s) { s.limits.inliers = 1.1f; }, false, false, false},
        {reason::against_the_hint, [](scene& s) { s.hint = direction_right; }, true, false, false},
        {reason::not_convex, [](scene& s) { s.homo = cut_by_a_horizon; }, true, true, true},
        {reason::out_of_scale, [](scene& s) { s.homo = scaled(20, 1); }, true, true, true},
        {reason::none, [](scene&) {}, true, true, true},
    };
    for (const row& row : rows) {
        scene frame = moving(direction_left);
        frame.base_homo = scaled(1.1, 0.9);
        frame.total_shift = {3.0f, 4.0f};
        row.spoil(frame);
        const scene before = frame;
        const frame_verdict verdict = frame.judged();
        EXPECT_EQ(verdict.why, row.why);
        const int what = static_cast<int>(row.why);
        EXPECT_EQ(frame.last_direction, row.direction ? direction_left : direction_undecided) << what;
        EXPECT_EQ(frame.last_angles != before.last_angles, row.shape) << what;
        EXPECT_EQ(frame.last_scales != before.last_scales, row.shape) << what;
        EXPECT_EQ(verdict.measured, row.shape) << what;
        EXPECT_EQ(frame.total_shift != before.total_shift, row.shift) << what;
        const cv::Point2f moved_by = frame.total_shift - before.total_shift;
        for (std::size_t i = 0; i < 4; ++i) {
            const cv::Point2f off = frame.last_warp_points[i] - before.last_warp_points[i] - moved_by;
            EXPECT_LT(cv::norm(off), 1e-3) << what;
        }
    }
}

TEST(FrameJudgement, ErrorsChangeNoNumber)
{
    scene few;
    few.pairs = 3;
    few.limits.matches = 0;
    few.base_homo = scaled(1.1, 1.1);
    EXPECT_THROW(few.judged(), cv::Exception);
    EXPECT_EQ(few.last_angles, std::vector<float>(4, 90.0f));
    EXPECT_EQ(few.last_direction, direction_undecided);
}

TEST(FrameJudgement, FourPointsAreEnoughAndAllCountAsInliers)
{
    scene frame = moving(3, 0);
    frame.pairs = 4;
    frame.limits.matches = 4;
    EXPECT_EQ(frame.judged().why, reason::none);
    EXPECT_EQ(frame.tried().inliers, 4);
    EXPECT_NEAR(frame.tried().move_distance, 3.0f, 1e-2f);
}

TEST(FrameJudgement, LimitOfMatches)
{
    const std::vector<std::tuple<int, int, bool>> rows = {
        {10, 10, true}, {11, 10, false}, {0, 10, true}, {-1, 60, false}, {std::numeric_limits<int>::min(), 60, false}};
    for (const auto& [limit, pairs, passes] : rows) {
        EXPECT_EQ(is_below(limit, static_cast<std::size_t>(pairs)), !passes);
        scene frame;
        frame.limits.matches = limit;
        frame.pairs = pairs;
        EXPECT_EQ(frame.judged().why, passes ? reason::none : reason::too_few_tracked) << limit;
    }
    EXPECT_FALSE(is_below(0, 0));
    EXPECT_TRUE(is_below(1, 0));
}

TEST(FrameJudgement, AreaAndAngleLimitsAreNotMixedUp)
{
    // 30 of 240 columns leave the frame: 0.875 of it are covered, and no edge tilts by as much as half a degree.
    scene frame = moving(30, 0);
    frame.limits.area = 0.8f;
    frame.limits.angle = 0.5f;
    EXPECT_EQ(frame.tried().why, reason::none);
    frame.limits.area = 0.9f;
    EXPECT_EQ(frame.tried().why, reason::implausible_shape);
}

TEST(FrameJudgement, ShareOfInliersAtTheLimitPasses)
{
    scene frame = moving(3, 0);
    frame.pairs = 40;
    frame.outliers = 10;
    frame.limits.inliers = 0.75f;
    EXPECT_EQ(frame.tried().why, reason::none);
    EXPECT_EQ(frame.tried().inliers, 30);
    frame.limits.inliers = std::nextafter(0.75f, 1.0f);
    EXPECT_EQ(frame.tried().why, reason::too_few_inliers);
    EXPECT_EQ(frame.tried().inliers, 30) << "told of a rejected frame too";
}

TEST(FrameJudgement, HintRejectsItsOppositeOnly)
{
    for (const int motion : all_directions) {
        for (int hint = -1; hint <= 6; ++hint) {
            scene frame = moving(motion);
            frame.hint = hint;
            const frame_verdict verdict = frame.judged();
            const bool opposite = (hint == 1 && motion == 2) || (hint == 2 && motion == 1) || (hint == 3 && motion == 4)
                                  || (hint == 4 && motion == 3);
            EXPECT_EQ(verdict.why, opposite ? reason::against_the_hint : reason::none) << hint << motion;
            EXPECT_EQ(verdict.move_direction, motion);
            EXPECT_EQ(frame.last_direction, motion) << "remembered, even of a rejected frame";
        }
    }
}

TEST(FrameJudgement, UndecidedMotionTakesTheLastDirection)
{
    for (int last = direction_undecided; last <= last_direction_code; ++last) {
        for (int hint = direction_undecided; hint <= last_direction_code; ++hint) {
            scene frame;
            frame.last_direction = last;
            frame.hint = hint;
            const bool opposite = (hint == 1 && last == 2) || (hint == 2 && last == 1) || (hint == 3 && last == 4)
                                  || (hint == 4 && last == 3);
            const frame_verdict verdict = frame.judged();
            EXPECT_EQ(verdict.why, opposite ? reason::against_the_hint : reason::none) << hint << last;
            EXPECT_EQ(verdict.move_direction, last);
            EXPECT_EQ(frame.last_direction, last);
        }
    }
}

TEST(FrameJudgement, KeepsALaterDirectionUntilItIsCommitted)
{
    scene frame = moving(direction_left);
    frame.last_direction = direction_right;
    EXPECT_EQ(frame.judged().move_direction, direction_left);
    EXPECT_EQ(frame.last_direction, direction_right);
}

TEST(FrameJudgement, SidesFrom2To4000PixelsPass)
{
    const std::vector<std::tuple<double, double, bool>> rows = {
        {16.0, 1.0, true},  {16.00001, 1.0, false}, {1.0, 20.0, true}, {1.0, 20.00001, false},
        {0.008, 1.0, true}, {0.007999, 1.0, false}, {1.0, 0.01, true}, {1.0, 0.009999, false},
    };
    for (const auto& [x, y, passes] : rows) {
        scene frame;
        frame.size = {250, 200};
        frame.homo = scaled(x, y);
        EXPECT_EQ(frame.judged().why, passes ? reason::none : reason::out_of_scale) << x << " " << y;
    }
}

TEST(FrameJudgement, RejectionsFromTheLimitOnAreLost)
{
    const std::vector<std::tuple<int, int, answer_code>> rows = {
        {1, 10, code_normal}, {9, 10, code_normal}, {10, 10, code_lost}, {11, 10, code_lost},
        {1, 1, code_lost},    {1, 0, code_lost},    {1, -5, code_lost},
    };
    for (const auto& [count, limit, code] : rows) {
        EXPECT_EQ(code_of_rejection(count, limit), code) << count << " of " << limit;
    }
}

// ---------------------------------------------------------------------------------------------- what is measured

TEST(FrameJudgement, DistanceIsThatOfTheCentreInWholePixels)
{
    EXPECT_NEAR(moving(6, 3).judged().move_distance, std::hypot(6.0, 3.0), 1e-3);
    // Twice the size about (120, 90): what stands still there is the centre of these sizes, and of no others.
    const cv::Matx33d about_centre = moved(120, 90) * scaled(1.1, 1.1) * moved(-120, -90);
    for (const cv::Size size : {cv::Size(240, 180), cv::Size(241, 181)}) {
        scene frame;
        frame.motion = about_centre;
        frame.size = size;
        EXPECT_LT(frame.judged().move_distance, 1e-3f) << size;
    }
}

TEST(FrameJudgement, ShapeIsMeasuredAgainstTheLastKeyFrame)
{
    const double degree = CV_PI / 180;
    const float lean = static_cast<float>(std::atan(0.05) / degree);

    struct row {
        cv::Matx33d base_homo;
        std::vector<double> angles, scales;
    };

    const std::vector<row> rows = {
        // The lower corners go to the right: the angle at the top left closes.
        {leaning(0.05), {90 - lean, 90 + lean, 90 - lean, 90 + lean}, {1, std::hypot(1, 0.05), 1, std::hypot(1, 0.05)}},
        {scaled(1.1, 0.8), {90, 90, 90, 90}, {1.1, 0.8, 1.1, 0.8}},
        {onto({{0, 0}, {240, 0}, {200, 150}, {50, 150}}),
         {std::atan2(150, 50) / degree, std::atan2(150, 40) / degree, 180 - std::atan2(150, 40) / degree,
          180 - std::atan2(150, 50) / degree},
         {1.0, std::hypot(40, 150) / 180, 150.0 / 240, std::hypot(50, 150) / 180}},
    };
    for (const row& row : rows) {
        scene frame;
        frame.base_homo = row.base_homo;
        frame.judged();
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_NEAR(frame.last_angles[i], row.angles[i], 1e-3) << i;
            EXPECT_NEAR(frame.last_scales[i], row.scales[i], 1e-4) << i;
        }
    }
}

TEST(FrameJudgement, MotionIsChainedIntoThePreviewAndIntoTheLastKeyFrame)
{
    scene frame = moving(6, 3);
    frame.homo = moved(20, 30);
    frame.base_homo = moved(4, 5);
    const frame_verdict verdict = frame.judged();
    EXPECT_LT(cv::norm(verdict.place.H, cv::Mat(moved(26, 33))), 1e-3);
    EXPECT_LT(cv::norm(verdict.base_homo, cv::Mat(moved(10, 8))), 1e-3);
    EXPECT_EQ(verdict.place.base_shift, cv::Point2f());
    EXPECT_EQ(frame.last_warp_points, corners_of(usual_size));
}

TEST(FrameJudgement, FrameLeftOfOrAboveTheOriginMovesIt)
{
    scene frame = moving(-6, -3);
    frame.total_shift = {1.0f, 2.0f};
    const frame_verdict verdict = frame.judged();
    EXPECT_NEAR(verdict.place.base_shift.x, 6.0f, 1e-3f);
    EXPECT_NEAR(verdict.place.base_shift.y, 3.0f, 1e-3f);
    EXPECT_EQ(frame.total_shift, cv::Point2f(1, 2) + verdict.place.base_shift);
    EXPECT_EQ(frame.last_warp_points[0], verdict.place.base_shift);
    EXPECT_LT(cv::norm(verdict.place.H, cv::Mat::eye(3, 3, CV_64F)), 1e-3) << "the frame touches the origin now";
    EXPECT_NEAR(verdict.place.transpose_corners[2].x, 240.0f, 1e-3f);
}

TEST(FrameJudgement, ExtentCoversTheFrameAndTheOldPreview)
{
    scene frame;
    frame.homo = onto({{50, 20}, {300, 25}, {290, 220}, {40, 210}});
    frame.preview = {280, 260};
    frame.total_shift = {5.0f, 7.0f};
    const placement inside = frame.tried().place;
    EXPECT_NEAR(inside.left_x, 40, 1e-3);
    EXPECT_NEAR(inside.top_y, 20, 1e-3);
    EXPECT_NEAR(inside.warp_width, 260, 1e-3);
    EXPECT_NEAR(inside.warp_height, 200, 1e-3);
    EXPECT_NEAR(inside.stitch_width, 300, 1e-3) << "the frame's right side";
    EXPECT_NEAR(inside.stitch_height, 267, 1e-3) << "the old preview's lower one";

    frame.preview = {310, 200};
    EXPECT_NEAR(frame.tried().place.stitch_width, 315, 1e-3);
    EXPECT_NEAR(frame.tried().place.stitch_height, 220, 1e-3);
}

// -------------------------------------------------------------------------------------------------- key frames

TEST(FrameJudgement, OverlapBelowTheLimitMakesAKeyFrame)
{
    scene frame = moving(direction_right);
    frame.base_homo = moved(25.5, 0);
    const float iou = frame.tried().overlap;
    EXPECT_NEAR(iou, 210.0f / 270.0f, 1e-6f);
    frame.limits.overlap = iou;
    EXPECT_EQ(frame.tried().key_frame, key_frame_rule::none);
    EXPECT_GT(cv::norm(frame.tried().base_homo, cv::Mat::eye(3, 3, CV_64F)), 1.0);

    frame.limits.overlap = std::nextafter(iou, 1.0f);
    const frame_verdict verdict = frame.tried();
    EXPECT_EQ(verdict.key_frame, key_frame_rule::new_ground);
    EXPECT_EQ(cv::norm(verdict.base_homo, cv::Mat::eye(3, 3, CV_64F)), 0.0) << "the new base";
}

TEST(FrameJudgement, ChangeOfDirectionMakesOneBelowAnOverlapOf09)
{
    // Boxes of 190 columns, 10 apart: 180 of 200 columns overlap. As a float 0.9 lies below the double 0.9.
    struct row {
        double base_shift;
        int last_direction;
        key_frame_rule rule;
        int told;
    };

    const key_frame_rule none = key_frame_rule::none;
    const key_frame_rule turns = key_frame_rule::turns_round;
    const std::vector<row> rows = {
        {6.5, direction_down, turns, direction_down},        // overlap of 0.9f
        {5.5, direction_down, none, direction_right},        // 181 / 199
        {20.5, direction_left, turns, direction_left},       // 166 / 214
        {20.5, direction_right, none, direction_right},      // no change of direction
        {20.5, direction_undecided, none, direction_right},  // the first direction seen is no change
        {60.5, direction_left, key_frame_rule::new_ground, direction_right},
        {60.5, direction_right, key_frame_rule::new_ground, direction_right},
    };
    for (const row& row : rows) {
        scene frame = moving(4, 0);
        frame.size = {190, 100};
        frame.last_direction = row.last_direction;
        frame.base_homo = moved(row.base_shift, half);
        const frame_verdict verdict = frame.judged();
        EXPECT_EQ(verdict.key_frame, row.rule) << row.base_shift << " after " << row.last_direction;
        EXPECT_EQ(cv::norm(verdict.base_homo, cv::Mat::eye(3, 3, CV_64F)) == 0.0, row.rule != none);
        EXPECT_EQ(verdict.worker_direction, row.told);
        EXPECT_EQ(verdict.move_direction, direction_right);
    }
}

TEST(FrameJudgement, UndecidedMotionIsNoChangeOfDirection)
{
    scene frame;
    frame.last_direction = direction_left;
    frame.base_homo = moved(20.5, 0);
    EXPECT_EQ(frame.judged().key_frame, key_frame_rule::none);
}

// ------------------------------------------------------------------------------------------------------ grades

TEST(FrameJudgement, InliersDecideBetween1And2And3)
{
    for (const auto& [inliers, code] : std::vector<std::pair<int, answer_code>>{{12, code_very_few_details},
                                                                                {19, code_very_few_details},
                                                                                {20, code_few_details},
                                                                                {49, code_few_details},
                                                                                {50, code_normal},
                                                                                {70, code_normal}}) {
        scene frame = moving(3, 0);
        frame.pairs = inliers;
        EXPECT_EQ(frame.tried().code, code) << inliers;
        frame.limits.overlap = 2.0f;
        EXPECT_EQ(frame.tried().code, code) << inliers << ", a key frame";
    }
}

TEST(FrameJudgement, SpeedIsTheMeanOverAFullWindow)
{
    struct row {
        int window;
        std::vector<float> before;  ///< px
        double moved;               ///< px
        answer_code code;
        std::vector<float> after;
    };

    const std::vector<row> rows = {
        {2, {}, 30, code_normal, {30}},
        {2, {30}, 30, code_normal, {30, 30}},
        {2, {30, 30}, 30, code_too_fast, {30, 30}},
        {2, {1000, 20}, 0, code_normal, {20, 0}},  // exactly 10; the oldest goes before the mean is taken
        {2, {0, 20.00001f}, 0, code_too_fast, {20.00001f, 0}},
        {2, {30, 30, 30, 30}, 0, code_too_fast, {30, 30, 30, 0}},  // only one leaves a window that is too long
        {0, {}, 30, code_normal, {}},                              // judges nothing
        {-5, {}, 30, code_normal, {}},
    };
    for (const row& row : rows) {
        scene frame = moving(0, row.moved);
        frame.limits.rejections = row.window;
        frame.move_distances = row.before;
        const frame_verdict verdict = frame.judged();
        EXPECT_EQ(verdict.code, row.code) << row.window << ", " << row.before.size();
        ASSERT_EQ(verdict.move_distances.size(), row.after.size());
        for (std::size_t i = 0; i < row.after.size(); ++i) {
            EXPECT_NEAR(verdict.move_distances[i], row.after[i], 1e-3f);
        }
        EXPECT_EQ(frame.move_distances, row.before);
    }
}

TEST(FrameJudgement, RejectedFramesDoNotEnterTheWindow)
{
    scene frame;
    frame.homo = scaled(20, 1);
    frame.move_distances = {3.0f};
    EXPECT_TRUE(frame.judged().move_distances.empty()) << "nothing to commit";
}

TEST(FrameJudgement, SkewAtTheLimitOfItsDirectionPasses)
{
    for (const int direction : all_directions) {
        const bool horizontal = direction == direction_right || direction == direction_left;
        const float limit = horizontal ? 8.0f : 5.0f;
        scene frame;
        frame.last_direction = direction;
        const auto deviation = [&frame](double outwards) {
            scene shaped = frame;
            shaped.base_homo = stretched(0, outwards);
            shaped.judged();
            float greatest = 0.0f;
            for (const float angle : shaped.last_angles) {
                greatest = std::max(greatest, std::fabs(angle - 90.0f));
            }
            return greatest;
        };
        // The stretch at which the deviation is the limit to the last bit, then the first one beyond it.
        double below = 0.0;
        double above = 60.0;
        while (above - below > 1e-6) {
            (deviation((below + above) / 2) < limit ? below : above) = (below + above) / 2;
        }
        while (deviation(below) < limit) {
            below += 1e-7;
        }
        ASSERT_EQ(deviation(below), limit);
        frame.base_homo = stretched(0, below);
        EXPECT_EQ(frame.tried().code, code_normal) << direction;
        while (deviation(below) <= limit) {
            below += 1e-7;
        }
        frame.base_homo = stretched(0, below);
        EXPECT_EQ(frame.tried().code, code_skewed) << direction;
        EXPECT_EQ(frame.tried().why, reason::none) << "taken all the same";
    }
}

TEST(FrameJudgement, SkewIsTheGreatestOfTheFourDeviations)
{
    for (std::size_t corner = 0; corner < 4; ++corner) {
        scene frame;
        frame.last_direction = direction_right;
        frame.base_homo = stretched(corner, 24.0);
        EXPECT_EQ(frame.judged().code, code_skewed);
        for (std::size_t other = 0; other < 4; ++other) {
            EXPECT_EQ(std::fabs(frame.last_angles[other] - 90.0f) > 8.0f, other == corner);
        }
    }
}

TEST(FrameJudgement, SkewIsNotJudgedWithoutADirection)
{
    scene frame;
    frame.base_homo = leaning(0.3);
    EXPECT_EQ(frame.judged().code, code_normal);
}

TEST(FrameJudgement, SkewWinsOverSpeedAndSpeedOverInliers)
{
    struct row {
        int pairs;
        float distance;
        double lean;
        answer_code code;
    };

    const std::vector<row> rows = {
        {60, 1, 0.0, code_normal},    {19, 1, 0.0, code_very_few_details}, {30, 1, 0.0, code_few_details},
        {19, 40, 0.0, code_too_fast}, {30, 40, 0.0, code_too_fast},        {19, 40, 0.2, code_skewed},
        {60, 40, 0.2, code_skewed},   {30, 1, 0.2, code_skewed},
    };
    for (const row& row : rows) {
        scene frame;
        frame.pairs = row.pairs;
        frame.last_direction = direction_right;
        frame.limits.rejections = 3;
        frame.move_distances.assign(3, row.distance);
        frame.base_homo = leaning(row.lean);
        EXPECT_EQ(frame.judged().code, row.code) << row.pairs << ", " << row.distance << ", " << row.lean;
    }
}

}  // namespace
