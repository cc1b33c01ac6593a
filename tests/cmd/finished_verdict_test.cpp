// SPDX-License-Identifier: Apache-2.0
//
// What is said of a finished picture that was cut.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "finished_verdict.h"

using namespace tarn::host;

namespace {

/// "-" for each key frame of which less than half lies in the picture, "x" for the others.
crop_effect effect_of(const std::string& frames)
{
    crop_effect effect;
    for (const char frame : frames) {
        effect.parts_in_picture.push_back(frame == 'x' ? 0.5 : 0.49);
    }
    return effect;
}

std::string said_of(const std::string& frames)
{
    crop_effect effect = effect_of(frames);
    effect.lost = 0.5;
    return sentence_on(judge_finished(effect), effect);
}

}  // namespace

TEST(FinishedVerdict, GradeGoesByThePartOfTheKeyFramesInThePicture)
{
    EXPECT_EQ(judge_finished(effect_of("xxxxxxxxxx")).how_good, grade::good);
    EXPECT_EQ(judge_finished(effect_of("xxxxxxxxx-")).how_good, grade::good) << "nine tenths";
    EXPECT_EQ(judge_finished(effect_of("xxxxxxxx--")).how_good, grade::flawed);
    EXPECT_EQ(judge_finished(effect_of("xxxxxx----")).how_good, grade::flawed) << "six tenths";
    EXPECT_EQ(judge_finished(effect_of("xxxxx-----")).how_good, grade::bad);
    EXPECT_EQ(judge_finished({}).how_good, grade::good) << "no picture";
}

TEST(FinishedVerdict, EndsAreCountedApart)
{
    const finished_verdict judged = judge_finished(effect_of("--xx-xx---"));
    EXPECT_EQ(judged.placed, 10);
    EXPECT_EQ(judged.in_picture, 4);
    EXPECT_EQ(judged.lost_at_begin, 2);
    EXPECT_EQ(judged.lost_at_end, 3);
    const finished_verdict nothing = judge_finished(effect_of("---"));
    EXPECT_EQ(nothing.how_good, grade::bad);
    EXPECT_EQ(nothing.lost_at_begin + nothing.lost_at_end, 0) << "no end is told from the other";
}

TEST(FinishedVerdict, SentenceHasTheNumbersAndWhatKeepsAll)
{
    EXPECT_EQ(said_of("xxxxxxxxxx"), "");
    EXPECT_EQ(
        said_of("-xxxx---"),
        "the finished picture lacks both ends of the sweep: the first one and the last 3 of 8 key frames lie outside "
        "its rectangle by more than half, and 50 % of what was seen is cut off; --crop=none keeps it, with "
        "empty corners");
    EXPECT_NE(said_of("xxxx---").find("lacks an end of the sweep: the last 3 of 7 key frames lie"), std::string::npos);
    EXPECT_NE(said_of("xx---xx").find("lacks a part of the sweep: 3 of 7 key frames lie"), std::string::npos);
    EXPECT_NE(said_of("-xx-xx").find("lacks an end of the sweep: 2 of 6 key frames, the first one among them, lie"),
              std::string::npos);
}

TEST(FinishedVerdict, LengthThatIsMissingAtTheEndsCountsToo)
{
    crop_effect effect = effect_of("xxxx");
    effect.lost_at_begin = 0.12;
    effect.lost_at_end = 0.07;
    EXPECT_EQ(judge_finished(effect).how_good, grade::good);
    effect.lost_at_end = 0.09;
    effect.lost = 0.3;
    EXPECT_EQ(judge_finished(effect).how_good, grade::flawed);
    EXPECT_EQ(
        sentence_on(judge_finished(effect), effect),
        "the finished picture lacks much of the sweep's ends: 12 % of its length at the beginning and 9 % at the end "
        "are cut off, and 30 % of what was seen; --crop=none keeps it, with empty corners");
}
