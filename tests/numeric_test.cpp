// SPDX-License-Identifier: Apache-2.0
//
// The conversions between number types on which every result depends.
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "internal/numeric.h"
#include "support/random_input.h"

namespace {

using tarn::test::random_input;

constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();

TEST(TruncateToInt, TowardZeroOnBothSides)
{
    EXPECT_EQ(tarn::truncate_to_int(9.9), 9);
    EXPECT_EQ(tarn::truncate_to_int(-9.9), -9);
    EXPECT_EQ(tarn::truncate_to_int(0.9), 0);
    EXPECT_EQ(tarn::truncate_to_int(-0.9), 0);
    EXPECT_EQ(tarn::truncate_to_int(-0.0), 0);
    EXPECT_EQ(tarn::truncate_to_int(std::numeric_limits<double>::denorm_min()), 0);
}

TEST(TruncateToInt, WholeRangeOfIntIsKept)
{
    EXPECT_EQ(tarn::truncate_to_int(2147483647.0), largest);
    EXPECT_EQ(tarn::truncate_to_int(2147483647.9), largest);
    EXPECT_EQ(tarn::truncate_to_int(2147483646.0), largest - 1);
    EXPECT_EQ(tarn::truncate_to_int(-2147483648.0), smallest);
    EXPECT_EQ(tarn::truncate_to_int(-2147483647.9), smallest + 1);
    EXPECT_EQ(tarn::truncate_to_int(2147483520.0f), 2147483520);  // the greatest float below 2^31
}

TEST(TruncateToInt, OutOfRangeOnEitherSideGivesTheSmallestInt)
{
    EXPECT_EQ(tarn::truncate_to_int(2147483648.0), smallest);
    EXPECT_EQ(tarn::truncate_to_int(-2147483649.0), smallest);
    EXPECT_EQ(tarn::truncate_to_int(1e300), smallest);
    EXPECT_EQ(tarn::truncate_to_int(-1e300), smallest);
    EXPECT_EQ(tarn::truncate_to_int(std::numeric_limits<float>::max()), smallest);
}

TEST(TruncateToInt, NanAndInfinitiesGiveTheSmallestInt)
{
    EXPECT_EQ(tarn::truncate_to_int(std::numeric_limits<double>::quiet_NaN()), smallest);
    EXPECT_EQ(tarn::truncate_to_int(std::numeric_limits<float>::quiet_NaN()), smallest);
    EXPECT_EQ(tarn::truncate_to_int(std::numeric_limits<double>::infinity()), smallest);
    EXPECT_EQ(tarn::truncate_to_int(-std::numeric_limits<double>::infinity()), smallest);
}

TEST(TruncateToInt, EqualsStdTruncForRandomValuesInRange)
{
    random_input random;
    for (int i = 0; i < 100000; ++i) {
        const float value = random.one_in(2) ? random.real(-2147483648.0f, 2147483520.0f) : random.real(-9, 9);
        ASSERT_EQ(tarn::truncate_to_int(value), static_cast<std::int64_t>(std::trunc(value))) << value;
    }
}

TEST(WrappingDifference, IsTheDifferenceWhereThatFits)
{
    EXPECT_EQ(tarn::wrapping_difference(7, 9), -2);
    EXPECT_EQ(tarn::wrapping_difference(-1, smallest), largest);
    EXPECT_EQ(tarn::wrapping_difference(smallest, smallest), 0);
}

TEST(WrappingDifference, WrapsWhereItDoesNot)
{
    EXPECT_EQ(tarn::wrapping_difference(0, smallest), smallest);
    EXPECT_EQ(tarn::wrapping_difference(smallest, 1), largest);
    EXPECT_EQ(tarn::wrapping_difference(largest, -1), smallest);
    EXPECT_EQ(tarn::wrapping_difference(2000000000, -2000000000), -294967296);  // 4000000000 - 2^32
}

TEST(AngleConversion, DegreesAndRadiansOfTheQuarters)
{
    EXPECT_EQ(tarn::degrees_from_radians(0.0), 0.0);
    EXPECT_EQ(tarn::degrees_from_radians(tarn::pi), 180.0);
    EXPECT_EQ(tarn::degrees_from_radians(tarn::pi / 2), 90.0);
    EXPECT_EQ(tarn::radians_from_degrees(180.0), tarn::pi);
    EXPECT_EQ(tarn::radians_from_degrees(-90.0), -tarn::pi / 2);
}

TEST(AngleConversion, MultipliesBeforeItDivides)
{
    random_input random;
    for (int i = 0; i < 10000; ++i) {
        const double angle = random.real(-400.0f, 400.0f);
        const double degrees_times_pi = angle * 3.141592653589793;
        ASSERT_EQ(tarn::radians_from_degrees(angle), degrees_times_pi / 180.0);
        const double radians_times_180 = angle * 180.0;
        ASSERT_EQ(tarn::degrees_from_radians(angle), radians_times_180 / 3.141592653589793);
    }
}

TEST(AsUnsignedLimit, NegativeLimitLiesAboveEverySize)
{
    EXPECT_EQ(tarn::as_unsigned_limit(0), 0U);
    EXPECT_EQ(tarn::as_unsigned_limit(10), 10U);
    EXPECT_EQ(tarn::as_unsigned_limit(largest), 2147483647U);
    EXPECT_EQ(tarn::as_unsigned_limit(-1), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(tarn::as_unsigned_limit(smallest), 0xFFFFFFFF80000000U);
}

static_assert(tarn::truncate_to_int(-0.9) == 0, "usable in constant expressions");

}  // namespace
