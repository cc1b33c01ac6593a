// SPDX-License-Identifier: Apache-2.0
//
// Threads and descriptors: whether the system lets the program have as many as a run takes.
#pragma once

namespace tarn::host {

/// Tries it out, in well under a millisecond, so that a shortage is named at once. Met in mid-run it would show as
/// something else: a video that no decoder takes, a key frame that no worker joins.
/// @param threads  of the decoder; OpenCV's are those that it has been told
/// @param workers  key frames that may be under way at once
/// @throws host_error (short_of_means), with what is short
void check_resources(int threads, int workers);

}  // namespace tarn::host
