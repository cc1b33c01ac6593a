// SPDX-License-Identifier: Apache-2.0
//
// What the program says about a sweep, in words. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame_turn.h"
#include "panorama_files.h"
#include "sweep.h"

namespace tarn::host {

/// A code's name for files that programs read: "few_details".
std::string code_key(answer_code code);

/// What has been tried already, and is not to be advised.
struct tried_ways {
    std::vector<frame_turn> turns;  ///< of the frames, try by try
    std::string thinning;           ///< options by which frames were left out, "--step and --fps"; "" if there are none
};

/// What a user should know about a sweep beside the summary, a line for each: where and why it broke and what may
/// help, or in what it falls short.
/// @param partial_panorama  where the part that was composed has been written; "" if nowhere
std::vector<std::string> notes_on(const sweep_result& result, const tried_ways& tried,
                                  const std::string& partial_panorama);

/// What was lost on the way to the library.
struct lost_frames {
    int unreadable = 0;
    std::optional<int> dropped = std::nullopt;  ///< because the library was busy; nothing where none can be
};

/// One line on a sweep: frames by code, key frames, sizes, time.
std::string summary_line(const sweep_result& result, const written_files& written, const lost_frames& lost,
                         double seconds);

}  // namespace tarn::host
