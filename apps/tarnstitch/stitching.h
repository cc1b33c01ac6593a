// SPDX-License-Identifier: Apache-2.0
//
// A whole run of the program: the input opened, the sweep made, once more if need be, the outputs written, and what
// is to be said about it said.
#pragma once

#include "host_error.h"
#include "options.h"

namespace tarn::host {

/// Does what the command line asks for. Errors are said, and in the summary if there is to be one; none leaves the
/// function but those of a programming mistake or a lack of memory.
exit_code stitch(const options& asked);

}  // namespace tarn::host
