// SPDX-License-Identifier: Apache-2.0
//
// What the chunks of an AVI file say that OpenCV does not pass on: at which of its pictures nothing changes. There the
// file has a chunk without content, and a decoder passes it over like one that it cannot decode.
#pragma once

#include <string>
#include <vector>

namespace tarn::host {

/// Whether a file is one of Microsoft's AVI container, in which pictures have numbers and no times.
bool is_avi(const std::string& file);

/// For each picture of the first video stream of an AVI file, in order, whether it is the one before once more. As
/// many as can be found: of a file that is damaged or cut short perhaps not all.
std::vector<bool> repeated_pictures(const std::string& file);

}  // namespace tarn::host
