// SPDX-License-Identifier: Apache-2.0
//
// Image files as an input, by OpenCV's imgcodecs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"

namespace tarn::host {

/// Image files, each a picture, in the order given.
/// @param files       one at least
/// @param max_pixels  that a picture may have; at a larger one the source throws host_error (input_failed)
std::unique_ptr<frame_source> open_images(std::vector<std::string> files, int max_pixels);

}  // namespace tarn::host
