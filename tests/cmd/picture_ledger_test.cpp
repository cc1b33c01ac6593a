// SPDX-License-Identifier: Apache-2.0
//
// Numbers, times and gaps of decoded pictures, without a decoder.
#include <gtest/gtest.h>

#include "picture_ledger.h"

using tarn::host::picture_ledger;

namespace {

constexpr std::int64_t none = picture_ledger::no_time;

/// Crosses out a picture and compares what it turns out to be.
void expect_taken(picture_ledger& ledger, std::int64_t serial, int number, std::int64_t time, bool key = false)
{
    const picture_ledger::entry entry = ledger.take(serial, key);
    EXPECT_EQ(entry.number, number) << "serial number " << serial;
    EXPECT_EQ(entry.time, time) << "serial number " << serial;
}

TEST(PictureLedger, NumbersPicturesAsTheyAreShownNotAsTheyAreDecoded)
{
    picture_ledger ledger;
    const std::int64_t first = ledger.add(0, 0);
    const std::int64_t fourth = ledger.add(30, 10);
    const std::int64_t second = ledger.add(10, 20);
    const std::int64_t third = ledger.add(20, 30);
    expect_taken(ledger, first, 1, 0, true);
    expect_taken(ledger, second, 2, 10);
    expect_taken(ledger, third, 3, 20);
    expect_taken(ledger, fourth, 4, 30);
    ledger.finish();
    EXPECT_EQ(ledger.entered(), 4);
    EXPECT_EQ(ledger.missing(), 0);
}

TEST(PictureLedger, PictureThatDoesNotComeIsMissingOnlyAfterTrouble)
{
    picture_ledger ledger;
    ledger.add(0, 0);
    const std::int64_t third = ledger.add(2, 2);
    expect_taken(ledger, third, 1, 2);  // the packet before held half of it, or one that is never shown
    EXPECT_EQ(ledger.missing(), 0);

    ledger.add(3, 3);
    ledger.trouble();
    const std::int64_t fifth = ledger.add(4, 4);
    expect_taken(ledger, fifth, 3, 4);
    EXPECT_EQ(ledger.missing(), 1);
}

TEST(PictureLedger, TroubleIsOverWithTheNextKeyPictureBehindIt)
{
    picture_ledger ledger;
    const std::int64_t first = ledger.add(0, 0);
    ledger.add(1, 1);
    ledger.trouble();
    expect_taken(ledger, first, 1, 0, true);  // a key picture, but from before it
    const std::int64_t third = ledger.add(2, 2);
    expect_taken(ledger, third, 3, 2, true);
    EXPECT_EQ(ledger.missing(), 1);
    ledger.add(3, 3);
    const std::int64_t fifth = ledger.add(4, 4);
    expect_taken(ledger, fifth, 4, 4);
    EXPECT_EQ(ledger.missing(), 1);
}

TEST(PictureLedger, WhatIsLeftAtTheEndIsMissingAfterTroubleAndElseNot)
{
    for (const bool trouble : {false, true}) {
        picture_ledger ledger;
        const std::int64_t first = ledger.add(0, 0);
        ledger.add(1, 1);
        if (trouble) {
            ledger.trouble();
        }
        ledger.add(2, 2);
        ledger.add_repeat(3, 3);
        expect_taken(ledger, first, 1, 0);
        ledger.finish();
        EXPECT_EQ(ledger.missing(), trouble ? 2 : 0);
        EXPECT_EQ(ledger.repeats_at_end(), 1);
    }
}

TEST(PictureLedger, RepeatsCountAsPicturesAndNeverAsMissing)
{
    picture_ledger ledger;
    const std::int64_t first = ledger.add(0, 0);
    ledger.add_repeat(1, 1);
    ledger.add_repeat(2, 2);
    const std::int64_t fourth = ledger.add(3, 3);
    ledger.trouble();
    expect_taken(ledger, first, 1, 0);
    expect_taken(ledger, fourth, 4, 3);
    EXPECT_EQ(ledger.entered(), 4);
    EXPECT_EQ(ledger.missing(), 0);
}

TEST(PictureLedger, WithoutTimesPicturesAreShownAsTheyCome)
{
    picture_ledger ledger;
    const std::int64_t first = ledger.add(none, none);
    ledger.add_repeat(none, none);
    const std::int64_t third = ledger.add(none, none);
    // The decoder may hand on another one's serial number: the first that is expected is meant.
    EXPECT_EQ(ledger.take(third, false).number, 1);
    EXPECT_EQ(ledger.take(first, false).number, 3);
}

TEST(PictureLedger, TimesThatGoBackBeginAnew)
{
    picture_ledger ledger;
    for (const std::int64_t time : {10, 11, 0, 1}) {
        ledger.add(time, time);
    }
    int number = 0;
    for (const bool jump : {false, false, true, false}) {
        const picture_ledger::entry entry = ledger.take(number, false);
        EXPECT_EQ(entry.number, ++number);
        EXPECT_EQ(entry.after_jump, jump) << "picture " << number;
    }
    EXPECT_EQ(ledger.missing(), 0);
}

TEST(PictureLedger, SecondPictureOfAPacketHasANumberAndNoTime)
{
    picture_ledger ledger;
    const std::int64_t only = ledger.add(5, 5);
    expect_taken(ledger, only, 1, 5);
    expect_taken(ledger, only, 2, none);
    expect_taken(ledger, 77, 3, none);
}

TEST(PictureLedger, GoesOnAtAKeyPictureWithWhatLiesBeforeIt)
{
    picture_ledger ledger;
    ledger.add(0, 0);
    ledger.trouble();
    ledger.add_repeat(1, 1);
    ledger.resume(100);
    EXPECT_EQ(ledger.entered(), 100);
    EXPECT_EQ(ledger.missing(), 0);
    EXPECT_EQ(ledger.repeats_at_end(), 0);
    // It is shown behind two that lie after it, and cannot be decoded without what is before it.
    const std::int64_t key = ledger.add(102, 100);
    ledger.add(100, 101);
    ledger.add(101, 102);
    const std::int64_t next = ledger.add(103, 103);
    expect_taken(ledger, key, 103, 102, true);
    expect_taken(ledger, next, 104, 103);
    ledger.finish();
    EXPECT_EQ(ledger.missing(), 0);
}

}  // namespace
