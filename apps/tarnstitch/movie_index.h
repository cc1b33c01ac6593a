// SPDX-License-Identifier: Apache-2.0
//
// What the index of an MP4 or QuickTime file (ISO/IEC 14496-12), the containers in which hand-held devices record,
// says that OpenCV does not pass on: how the recording wants to be turned for display, when it was made, and when each
// of its pictures is due.
//
// Videos from such devices hold the sensor's frames and a matrix that says how to show them. OpenCV turns frames
// by it, but not all versions the same way: 4.6 turns quarter turns the wrong way round. So the matrix is read
// here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn::host {

/// Quarter turns, clockwise, 0 to 3, by which the frames of an MP4 or QuickTime file have to be turned to be
/// upright (track header box): those of its first video track, 0 for a matrix that is no such turn. Nothing for a
/// file of another kind, or one whose index cannot be read.
std::optional<int> display_quarter_turns(const std::string& file);

/// When an MP4 or QuickTime file was recorded (movie header box), in seconds since the beginning of 1970, UTC.
/// Nothing for a file that does not say.
std::optional<std::int64_t> recording_time(const std::string& file);

/// When each picture of the first video track of an MP4 or QuickTime file is shown, in seconds, in that order (time to
/// sample and composition offset boxes). Nothing for a file of another kind, or one whose index has no such list.
std::vector<double> picture_times(const std::string& file);

}  // namespace tarn::host
