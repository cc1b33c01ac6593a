// SPDX-License-Identifier: Apache-2.0
//
// Judging sweeps by their results.
#include "judgement.h"

namespace tarn::host {

bool many_with_code(const sweep_result& result, answer_code code)
{
    // Frames that went the wrong way are soon followed by others that are only counted as lost.
    const int one_in = code == code_wrong_way ? 20 : 5;
    return result.by_code[code] > 0 && result.by_code[code] * one_in >= result.frames;
}

std::vector<way> further_ways(const way& first, sweep_outcome ended)
{
    const frame_turn other = other_turn(first.turn);
    const way nearer = {first.turn, near_key_frame_overlap};
    if (ended == sweep_outcome::pipeline_failed) {
        return {{other, first.overlap}, nearer};
    }
    return {nearer, {other, near_key_frame_overlap}};
}

std::string difference(const way& first, const way& other)
{
    std::string words;
    if (other.turn != first.turn) {
        words = std::string("the frames turned ") + turn_name(other.turn);
    }
    if (other.overlap > first.overlap) {
        words += words.empty() ? "" : " and ";
        words += "key frames nearer to each other";
    }
    return words;
}

bool another_try_may_help(const sweep_result& result, const verdict& judged)
{
    if (result.frames <= 1 || many_with_code(result, code_wrong_way)) {
        return false;
    }
    if (result.outcome != sweep_outcome::complete) {
        return result.outcome == sweep_outcome::pipeline_failed;
    }
    constexpr double few = 0.5;
    switch (judged.how_good) {
    case grade::bad:
        return judged.numbers.path != camera_path::turning || judged.numbers.taken < few;
    case grade::nothing:
        return judged.numbers.taken < few;
    case grade::good:
    case grade::flawed:
        break;
    }
    return false;
}

int reach_of(const sweep_result& failed)
{
    return failed.failed_frame > 0 ? failed.failed_frame : failed.broken_at_frame;
}

bool is_better(const sweep_result& best, const verdict& best_judged, const sweep_result& further,
               const verdict& further_judged, bool stopped)
{
    switch (further.outcome) {
    case sweep_outcome::complete:
        break;
    case sweep_outcome::pipeline_failed:
        return best.outcome == sweep_outcome::pipeline_failed && reach_of(further) > reach_of(best);
    case sweep_outcome::given_up:  // what the user does not want is not replaced by something else
        return true;
    case sweep_outcome::input_failed:
        return false;
    }
    if (best.outcome == sweep_outcome::pipeline_failed) {
        return further_judged.how_good != grade::nothing && (!stopped || further.last_frame >= reach_of(best));
    }
    return !stopped && is_better_picture(further_judged, best_judged);
}

exit_code code_of_failure(reason why)
{
    switch (why) {
    case reason::timed_out:
    case reason::no_memory:
    case reason::no_thread:
        return exit_code::short_of_means;
    case reason::disk:
        return exit_code::output_failed;
    default:
        return exit_code::not_stitched;
    }
}

}  // namespace tarn::host
