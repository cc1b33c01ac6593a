// SPDX-License-Identifier: Apache-2.0
#include "arc_tangent.h"

#include <cmath>

namespace {

bool properly_rounded = false;

}  // namespace

void tarn::test::round_arc_tangents(bool properly)
{
    properly_rounded = properly;
}

// The names are the linker's: option --wrap. Two roundings, first to double precision: that both go the wrong way
// is as good as impossible, and a last bit of the first leaves no trace in the second.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

float __real_atanf(float x);
float __real_atan2f(float y, float x);

float __wrap_atanf(float x)
{
    return properly_rounded ? static_cast<float>(std::atan(static_cast<double>(x))) : __real_atanf(x);
}

float __wrap_atan2f(float y, float x)
{
    return properly_rounded ? static_cast<float>(std::atan2(static_cast<double>(y), static_cast<double>(x)))
                            : __real_atan2f(y, x);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
