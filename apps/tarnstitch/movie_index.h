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

/// The pictures that a movie shows, which may be fewer than it has: a trim leaves them all in the file.
struct shown_pictures {
    std::vector<double> times;  ///< of each, in seconds, in that order; empty when they are not known
    bool edited = false;        ///< whether they are others than the movie has, or may be
};

/// What the first video track of an MP4 or QuickTime file shows (time to sample, composition offset and edit list
/// boxes). Its times are not known for a file of another kind, for one whose index has no list of them, and for an
/// edit list of an unusual kind.
shown_pictures pictures_shown(const std::string& file);

}  // namespace tarn::host
