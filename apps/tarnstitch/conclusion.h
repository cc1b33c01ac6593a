// SPDX-License-Identifier: Apache-2.0
//
// The end of a run: what is said of it, what its summary tells, and its exit code.
#pragma once

#include <optional>

#include "options.h"
#include "report.h"
#include "summary.h"
#include "tries.h"

namespace tarn::host {

/// Says what there is to say of a sweep whose outputs have been written, and settles the exit code.
/// @param remedy   another command line that helps where this one failed
/// @param summary  has what was written; is given all else but what the end of the program tells
void conclude(const options& asked, const attempt& done, const std::optional<tried_remedy>& remedy,
              run_summary& summary);

}  // namespace tarn::host
