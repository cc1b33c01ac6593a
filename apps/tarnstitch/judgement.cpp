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

bool second_try_may_help(const sweep_result& result)
{
    return result.outcome == sweep_outcome::pipeline_failed && !many_with_code(result, code_wrong_way);
}

int reach_of(const sweep_result& failed)
{
    return failed.failed_frame > 0 ? failed.failed_frame : failed.broken_at_frame;
}

bool second_is_better(const sweep_result& first, const sweep_result& second, bool stopped)
{
    switch (second.outcome) {
    case sweep_outcome::complete:
        return !stopped || second.last_frame >= reach_of(first);
    case sweep_outcome::pipeline_failed:
        return reach_of(second) > reach_of(first);
    case sweep_outcome::given_up:  // what the user does not want is not replaced by something else
        return true;
    case sweep_outcome::input_failed:
        break;
    }
    return false;
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
