// SPDX-License-Identifier: Apache-2.0
//
// Videos and cameras, by OpenCV's videoio.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "frame_source.h"
#include "standard_streams.h"

namespace tarn::host {

/// Opens a video file, or anything else that a decoder can open by its path.
/// @returns nothing when no decoder takes it
std::unique_ptr<frame_source> open_video(const std::string& path);

/// Opens a camera.
/// @param name  "camera:0", or the path of its device
/// @returns nothing when there is none that can be opened
std::unique_ptr<frame_source> open_camera(const std::string& name);

/// The number in "camera:0"; nothing for another name.
std::optional<int> camera_number(const std::string& name);

/// Keeps the media libraries from printing on standard error, unless OPENCV_LOG_LEVEL in the
/// environment asks them to. Call it before the first input is opened.
void silence_media_logs();

/// Silences standard error around a decoder: decoders print warnings of their own, where the caller has a line
/// for a file that cannot be read.
class quiet_decoder {
public:
    quiet_decoder();

private:
    std::optional<silenced_descriptor> silence_;
};

}  // namespace tarn::host
