// SPDX-License-Identifier: Apache-2.0
//
// How a recorded video wants to be turned for display.
//
// Videos from hand-held devices hold the sensor's frames and a matrix that says how to show them. OpenCV turns
// frames by it, but not all versions the same way: 4.6 turns quarter turns the wrong way round. So for the one
// family of containers in which such devices record, MP4 and QuickTime, the matrix is read here.
#pragma once

#include <optional>
#include <string>

namespace tarn::host {

/// Quarter turns, clockwise, 0 to 3, by which the frames of an MP4 or QuickTime file have to be turned to be
/// upright (ISO/IEC 14496-12, track header box): those of its first video track, 0 for a matrix that is no such
/// turn. Nothing for a file of another kind, or one whose index cannot be read.
std::optional<int> display_quarter_turns(const std::string& file);

}  // namespace tarn::host
