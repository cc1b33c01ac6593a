// SPDX-License-Identifier: Apache-2.0
//
// What the program says of a run, for whoever repeats it elsewhere. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "summary.h"

namespace tarn::host {

/// A run in words: those that the program has used.
struct run_verdict {
    std::string outcome;            ///< in two or three words: "Stitched"
    bool is_good = false;           ///< whether all came out that was asked for
    std::string sentence;           ///< what went wrong, or the summary line
    std::vector<std::string> more;  ///< all else that was said, line by line
};

run_verdict verdict_of(const run_summary& summary);

}  // namespace tarn::host
