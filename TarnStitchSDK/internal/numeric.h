// SPDX-License-Identifier: Apache-2.0
//
// The few conversions between number types on which every result depends. They stand here once, so that
// each of them is defined for every input and gives the same value on every processor.
#pragma once

#include <cstdint>
#include <limits>

namespace tarn {

/// π as the angle conversions use it.
constexpr double pi = 3.141592653589793;

/// Converts a coordinate to a pixel index by truncation toward zero: 9.9 gives 9, -0.9 gives 0.
///
/// Total: a NaN, an infinity, or a value whose integer part does not fit gives the smallest int. The plain
/// conversion is undefined there, and processors disagree (64-bit ARM saturates); this is what x86-64 does.
/// A float argument is widened, which is exact.
constexpr int truncate_to_int(double value)
{
    constexpr double below_smallest = -2147483649.0;
    constexpr double above_largest = 2147483648.0;
    return (value > below_smallest && value < above_largest) ? static_cast<int>(value)
                                                             : std::numeric_limits<int>::min();
}

/// a - b modulo 2^32: differences of coordinates that truncate_to_int gave for far-away or NaN corners
/// overflow an int, which would be undefined.
constexpr int wrapping_difference(int a, int b)
{
    return static_cast<int>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

/// Radians to degrees, the product and the quotient in double precision.
constexpr double degrees_from_radians(double radians)
{
    return radians * 180.0 / pi;
}

/// Degrees to radians, the product and the quotient in double precision.
constexpr double radians_from_degrees(double degrees)
{
    return degrees * pi / 180.0;
}

/// A limit kept as an int, widened and read as unsigned, as it is compared with a container's size: a
/// negative limit thus lies above every size.
constexpr std::uint64_t as_unsigned_limit(int limit)
{
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(limit));
}

}  // namespace tarn
