// SPDX-License-Identifier: Apache-2.0
//
// What the program says about a sweep, in words. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "sweep.h"

namespace tarn::host {

/// The name of a frame's code, -1 to 6.
const char* code_name(int code);

/// What a user should know about a sweep beside the summary, a line for each: where and why it broke, or in
/// what it falls short.
/// @param partial_panorama  where the part that was composed has been written; "" if nowhere
std::vector<std::string> notes_on(const sweep_result& result, const std::string& partial_panorama);

/// One line on a sweep: frames by code, key frames, sizes, time.
/// @param unreadable  pictures that were left out
std::string summary_line(const sweep_result& result, int unreadable, double seconds);

}  // namespace tarn::host
