// SPDX-License-Identifier: Apache-2.0
//
// Every value has its words, and what has no name says so.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "vocabulary.h"

namespace {

using namespace tarn;  // NOLINT(google-build-using-namespace): these are all about it

constexpr int last_reason = static_cast<int>(reason::no_frames);

TEST(Vocabulary, CodesHaveNamesAndAdvice)
{
    struct row {
        answer_code code;
        const char* name;
        const char* advice;
        frame_fate fate;
    };

    const row rows[] = {
        {code_pipeline_failed, "pipeline failed", "start again", frame_fate::rejected},
        {code_lost, "lost", "go back to where the panorama ends", frame_fate::rejected},
        {code_normal, "normal", "", frame_fate::either},
        {code_few_details, "few details", "few details here", frame_fate::taken},
        {code_very_few_details, "very few details", "very few details here", frame_fate::taken},
        {code_wrong_way, "wrong way", "wrong way", frame_fate::rejected},
        {code_too_fast, "too fast", "slower", frame_fate::taken},
        {code_skewed, "skewed", "hold the device level", frame_fate::taken},
    };
    int code = lowest_code;
    for (const row& expected : rows) {
        EXPECT_EQ(expected.code, code);
        EXPECT_STREQ(name_of(expected.code), expected.name);
        EXPECT_STREQ(advice_for(expected.code), expected.advice);
        EXPECT_EQ(fate_of(expected.code), expected.fate) << expected.name;
        ++code;
    }
    EXPECT_EQ(code, highest_code + 1);
}

TEST(Vocabulary, ValuesWithoutANameAreUnknown)
{
    for (const int value : {-2, 7, 100, -2147483647}) {
        EXPECT_STREQ(name_of(static_cast<answer_code>(value)), "unknown");
        EXPECT_STREQ(advice_for(static_cast<answer_code>(value)), "");
        EXPECT_EQ(fate_of(static_cast<answer_code>(value)), frame_fate::either);
    }
    for (const int value : {-1, 5}) {
        EXPECT_STREQ(name_of(static_cast<direction_code>(value)), "unknown");
        EXPECT_EQ(opposite_of(static_cast<direction_code>(value)), value);
        EXPECT_FALSE(is_direction(value));
    }
    for (const int value : {-1, 1, 5}) {
        EXPECT_STREQ(name_of(static_cast<pipeline_state>(value)), "unknown");
    }
    for (const int value : {-1, last_reason + 1}) {
        EXPECT_STREQ(name_of(static_cast<reason>(value)), "unknown");
        EXPECT_STREQ(advice_for(static_cast<reason>(value)), "");
    }
}

TEST(Vocabulary, EveryReasonHasANameOfItsOwn)
{
    std::set<std::string> names;
    for (int value = 0; value <= last_reason; ++value) {
        const std::string name = name_of(static_cast<reason>(value));
        EXPECT_NE(name, "unknown") << value;
        EXPECT_TRUE(names.insert(name).second) << name << " stands for two reasons";
        EXPECT_NE(advice_for(static_cast<reason>(value)), nullptr);
    }
    EXPECT_STREQ(name_of(reason::too_few_matches), "too few matches");
    EXPECT_STREQ(advice_for(reason::too_few_corners), "more texture, more light");
    EXPECT_STREQ(advice_for(reason::none), "");
}

TEST(Vocabulary, DirectionsHaveNamesAndOpposites)
{
    EXPECT_STREQ(name_of(direction_undecided), "undecided");
    EXPECT_STREQ(name_of(direction_down), "down");
    EXPECT_STREQ(name_of(direction_up), "up");
    EXPECT_STREQ(name_of(direction_right), "to the right");
    EXPECT_STREQ(name_of(direction_left), "to the left");
    for (int value = 0; value <= last_direction_code; ++value) {
        const auto direction = static_cast<direction_code>(value);
        EXPECT_TRUE(is_direction(value));
        EXPECT_EQ(opposite_of(opposite_of(direction)), direction);
        EXPECT_EQ(opposite_of(direction) == direction, direction == direction_undecided);
    }
    EXPECT_EQ(opposite_of(direction_down), direction_up);
    EXPECT_EQ(opposite_of(direction_right), direction_left);
}

TEST(Vocabulary, StatesHaveNames)
{
    EXPECT_STREQ(name_of(pipeline_empty), "empty");
    EXPECT_STREQ(name_of(pipeline_busy), "busy");
    EXPECT_STREQ(name_of(pipeline_ready), "ready");
    EXPECT_STREQ(name_of(pipeline_failed), "failed");
}

}  // namespace
