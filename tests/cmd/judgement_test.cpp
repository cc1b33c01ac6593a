// SPDX-License-Identifier: Apache-2.0
//
// Which tries are made, and which of them is taken.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "judgement.h"

using namespace tarn::host;

namespace {

verdict graded(grade how_good, double stretch = 1.0)
{
    verdict judged;
    judged.how_good = how_good;
    judged.numbers.stretch = stretch;
    return judged;
}

}  // namespace

TEST(Judgement, ExitCodeTellsWhetherThePicturesOrTheMachineIsToBlame)
{
    for (const tarn::reason why :
         {tarn::reason::none, tarn::reason::too_few_matches, tarn::reason::no_homography, tarn::reason::too_large}) {
        EXPECT_EQ(code_of_failure(why), exit_code::not_stitched) << tarn::name_of(why);
    }
    for (const tarn::reason why : {tarn::reason::timed_out, tarn::reason::no_memory, tarn::reason::no_thread}) {
        EXPECT_EQ(code_of_failure(why), exit_code::short_of_means) << tarn::name_of(why);
    }
    EXPECT_EQ(code_of_failure(tarn::reason::disk), exit_code::output_failed);
}

TEST(Judgement, AnotherTryMayHelpAfterAFailureOrABadPanorama)
{
    sweep_result result;
    result.frames = 100;
    EXPECT_FALSE(another_try_may_help(result, graded(grade::good)));
    EXPECT_FALSE(another_try_may_help(result, graded(grade::flawed)));
    verdict missing = graded(grade::bad);
    EXPECT_TRUE(another_try_may_help(result, missing));
    missing.numbers.path = camera_path::turning;
    missing.numbers.taken = 1.0;
    EXPECT_FALSE(another_try_may_help(result, missing)) << "it turned, however it is looked at";
    missing.numbers.taken = 0.4;
    EXPECT_TRUE(another_try_may_help(result, missing));
    missing.how_good = grade::nothing;
    EXPECT_TRUE(another_try_may_help(result, missing));
    missing.numbers.taken = 1.0;
    EXPECT_FALSE(another_try_may_help(result, missing)) << "the camera did not move";
    result.outcome = sweep_outcome::pipeline_failed;
    EXPECT_TRUE(another_try_may_help(result, graded(grade::good)));
    result.by_code[tarn::code_wrong_way] = 4;
    EXPECT_TRUE(another_try_may_help(result, graded(grade::good)));
    result.by_code[tarn::code_wrong_way] = 5;
    EXPECT_FALSE(another_try_may_help(result, graded(grade::good)));
    for (const sweep_outcome ended : {sweep_outcome::input_failed, sweep_outcome::given_up}) {
        result = {};
        result.frames = 100;
        result.outcome = ended;
        EXPECT_FALSE(another_try_may_help(result, graded(grade::nothing)));
    }
    result = {};
    result.frames = 1;
    EXPECT_FALSE(another_try_may_help(result, graded(grade::nothing))) << "one frame is one frame";
}

TEST(Judgement, EveryFurtherWayIsAnother)
{
    for (const frame_turn turn : {frame_turn::counter_clockwise, frame_turn::clockwise, frame_turn::none}) {
        for (const sweep_outcome ended : {sweep_outcome::pipeline_failed, sweep_outcome::complete}) {
            const way first = {turn};
            std::vector<std::string> differences = {""};
            for (const way& other : further_ways(first, ended)) {
                differences.push_back(difference(first, other));
            }
            EXPECT_EQ(differences.size(), 3U) << "each costs a whole sweep";
            std::sort(differences.begin(), differences.end());
            EXPECT_EQ(std::unique(differences.begin(), differences.end()), differences.end());
        }
    }
    EXPECT_EQ(difference({frame_turn::none}, {frame_turn::clockwise, near_key_frame_overlap}),
              "the frames turned clockwise and key frames nearer to each other");
}

TEST(Judgement, FurtherTryIsBetterWhenItGotFurther)
{
    sweep_result first;
    first.outcome = sweep_outcome::pipeline_failed;
    first.broken_at_frame = 57;
    EXPECT_EQ(reach_of(first), 57);
    first.failed_frame = 41;
    EXPECT_EQ(reach_of(first), 41);
    const verdict good = graded(grade::good);

    sweep_result second = first;
    EXPECT_FALSE(is_better(first, good, second, good, false));
    second.failed_frame = 42;
    EXPECT_TRUE(is_better(first, good, second, good, false));
    second.outcome = sweep_outcome::input_failed;
    EXPECT_FALSE(is_better(first, good, second, good, false));
    second.outcome = sweep_outcome::given_up;
    EXPECT_TRUE(is_better(first, good, second, good, true));

    // What was cut short is complete as far as it went.
    second.outcome = sweep_outcome::complete;
    second.last_frame = 40;
    EXPECT_TRUE(is_better(first, good, second, good, false));
    EXPECT_FALSE(is_better(first, good, second, good, true));
    second.last_frame = 41;
    EXPECT_TRUE(is_better(first, good, second, good, true));
    // One frame at the end of a sweep is less than the part of it that there is.
    EXPECT_FALSE(is_better(first, good, second, graded(grade::nothing), false));
}

TEST(Judgement, OfTwoWholePanoramasTheBetterOneIsTaken)
{
    sweep_result whole;
    sweep_result failed;
    failed.outcome = sweep_outcome::pipeline_failed;
    const verdict bad = graded(grade::bad, 3.0);
    EXPECT_FALSE(is_better(whole, bad, failed, graded(grade::good), false));
    EXPECT_FALSE(is_better(whole, bad, whole, bad, false));
    EXPECT_TRUE(is_better(whole, bad, whole, graded(grade::good), false));
    EXPECT_TRUE(is_better(whole, bad, whole, graded(grade::bad, 2.0), false)) << "less stretched";
    EXPECT_FALSE(is_better(whole, bad, whole, graded(grade::nothing), false));
    EXPECT_FALSE(is_better(whole, bad, whole, graded(grade::good), true)) << "stopped before its end";
}
