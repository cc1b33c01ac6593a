// SPDX-License-Identifier: Apache-2.0
//
// Inputs that cannot be taken together, or hold nothing to take: what is wrong, and what may have been meant.
#pragma once

#include <string>
#include <vector>

namespace tarn::host {

/// Whether a file name has an ending under which videos go.
bool has_video_ending(const std::string& name);

/// What is said of a directory without images: it may have videos instead.
std::string no_images_in(const std::string& directory);

/// What is said of an input that is missing among several, as the panorama's name without its -o is.
std::string missing_among(const std::vector<std::string>& inputs, const std::string& missing);

/// What is said of several inputs one of which, `other`, is no image.
std::string not_together(const std::vector<std::string>& inputs, const std::string& other);

}  // namespace tarn::host
