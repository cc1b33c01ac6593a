// SPDX-License-Identifier: Apache-2.0
//
// Videos: exactly the pictures that a player shows, with the times at which it shows them.
#pragma once

#include <memory>
#include <string>

#include "frame_source.h"

namespace tarn::host {

/// Opens a video file, or a pipe that one comes through.
/// @param max_pixels  that a picture may have
/// @returns nothing when it is no video
/// @throws host_error (input_failed) as media_file::open does
std::unique_ptr<frame_source> open_video(const std::string& path, int max_pixels);

}  // namespace tarn::host
