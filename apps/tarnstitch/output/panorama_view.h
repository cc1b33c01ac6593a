// SPDX-License-Identifier: Apache-2.0
//
// What viewers of panoramas are told.
#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace tarn::host {

/// The part of the whole surroundings that a picture shows.
struct panorama_view {
    std::string projection;  ///< as the GPano tags name it; "" when no tag can tell
    cv::Size whole;          ///< px of a full turn, and of all heights
    cv::Rect shown;          ///< the picture in it
    int photos = 0;          ///< that it was made of
};

}  // namespace tarn::host
