// SPDX-License-Identifier: Apache-2.0
//
// The lines in the order of their weight.
#include "verdict.h"

#include "report.h"

namespace tarn::host {

namespace {

const char* words_for(exit_code code)
{
    switch (code) {
    case exit_code::done:
        return "Stitched";
    case exit_code::not_stitched:
        return "Not stitched to its end";
    case exit_code::usage:
        return "Not tried";
    case exit_code::input_failed:
        return "The input broke off";
    case exit_code::output_failed:
        return "Not all could be written";
    case exit_code::short_of_means:
        return "The machine gave too little";
    case exit_code::stopped:
        break;
    }
    return "Stopped";
}

}  // namespace

run_verdict verdict_of(const run_summary& summary)
{
    const std::string line =
        summary_line(summary.result, summary.written, summary.lost, summary.pieces, summary.seconds);
    run_verdict verdict;
    verdict.outcome = words_for(summary.code);
    verdict.is_good = summary.code == exit_code::done;
    verdict.sentence = summary.error.empty() ? line : summary.error;
    verdict.more = summary.notes;
    if (!summary.error.empty()) {
        verdict.more.push_back(line);
    }
    return verdict;
}

}  // namespace tarn::host
