// SPDX-License-Identifier: Apache-2.0
//
// How large the preview may become. A camera that stands before traffic, or sways fast, leads the live path to places
// that the preview would have to reach with hundreds of millions of black pixels; no device has the memory for them.
//
// Beyond the limit the preview is frozen: it stays as it is until the next sweep. Nothing else changes. Frames are
// taken or rejected, answered and handed to workers as they would have been, and the panorama goes on.
#pragma once

#include <cstdint>

namespace tarn {

/// The limit with which the library begins.
constexpr std::int64_t usual_preview_limit = 64'000'000;  // px

/// Sets the greatest number of pixels that the preview may have, for this sweep and all that follow. A preview that is
/// larger already stays; one that was frozen grows again with the next key frame, if the new limit lets it. The first
/// frame's preview is never refused. Any thread.
/// @param pixels  0 or more; less than 0 counts as 0
void set_preview_limit(std::int64_t pixels);

/// px. Any thread.
std::int64_t preview_limit();

/// Whether a key frame of the current sweep could not be laid onto the preview for its size. Any thread. Never waits
/// for a frame.
bool preview_is_frozen();

}  // namespace tarn
