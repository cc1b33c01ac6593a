// SPDX-License-Identifier: Apache-2.0
//
// What the program says about a sweep, in words. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame_turn.h"
#include "panorama_files.h"
#include "panorama_verdict.h"
#include "sweep.h"
#include "sweep_pieces.h"

namespace tarn::host {

/// A code's name for files that programs read: "few_details".
std::string code_key(answer_code code);

/// Another command line that was tried for a sweep that failed, and gave a panorama.
struct tried_remedy {
    std::string what;  ///< "all frames, without --step"; "--start 8.80 for the part after"
    int frames = 0;    ///< that were handed over
    cv::Size size;     ///< of the panorama
};

/// What advice on a sweep that failed rests on.
struct advice_facts {
    bool tries_left = false;             ///< whether further tries were not made for an option alone, --no-retry
    std::optional<tried_remedy> remedy;  ///< the one that helped; none where nothing did, or nothing was tried
    camera_path path = camera_path::unknown;
};

/// The moment behind which the sweep came apart, as --start is given it; "" where that is not known.
std::string start_of_rest(const sweep_result& result);

/// Why a further try is made: "the sweep cannot be stitched beyond frame 49"
std::string why_another_try(const sweep_result& result, const verdict& judged);

/// What a user should know about a sweep beside the summary, a line for each: where and why it broke and what helps, or
/// in what it falls short.
/// @param partial_panorama  where the part that was composed has been written; "" if nowhere
std::vector<std::string> notes_on(const sweep_result& result, const advice_facts& facts,
                                  const std::string& partial_panorama);

/// That frames were reduced on their way into the panorama; "" where they were not.
/// @param frame  size of a frame of the input, px
/// @param laid   area of a frame as the library lays it into the panorama, px
std::string note_on_reduction(cv::Size frame, int laid);

/// That a panorama comes near the greatest size that the library can make; "" while it does not.
/// @param side  its longer side, px, about
std::string note_on_size(int side);

/// What was lost on the way to the library.
struct lost_frames {
    int unreadable = 0;
    std::optional<int> dropped = std::nullopt;  ///< because the library was busy; nothing where none can be
};

/// One line on a sweep: the panorama and its size, frames taken, answers by code, key frames, what came behind a break
/// for the finished picture, the other pictures, time.
/// @param pieces  of the sweep; the first is the one that `result` is of
std::string summary_line(const sweep_result& result, const written_files& written, const lost_frames& lost,
                         const std::vector<sweep_piece>& pieces, double seconds);

}  // namespace tarn::host
