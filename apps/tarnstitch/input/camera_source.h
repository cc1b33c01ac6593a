// SPDX-License-Identifier: Apache-2.0
//
// Cameras, by OpenCV's videoio.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "frame_source.h"

namespace tarn::host {

/// Opens a camera.
/// @param name  "camera:0", or the path of its device
/// @returns nothing when there is none that can be opened
std::unique_ptr<frame_source> open_camera(const std::string& name);

/// The number in "camera:0"; nothing for another name.
std::optional<int> camera_number(const std::string& name);

}  // namespace tarn::host
