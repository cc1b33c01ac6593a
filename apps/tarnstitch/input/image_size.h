// SPDX-License-Identifier: Apache-2.0
//
// How large an image file's picture is, known before it is decoded: a small file may hold a very large one.
#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace tarn::host {

/// The size in a file's header, the largest if there are several; empty when it tells none.
cv::Size image_size(const std::string& file);

}  // namespace tarn::host
