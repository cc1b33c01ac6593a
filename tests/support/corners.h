// SPDX-License-Identifier: Apache-2.0
//
// Four corners as the tests of geometry and seams write and print them.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::test {

using corners_t = std::vector<cv::Point2f>;

/// " (x, y)" for each, to the last bit.
inline std::string text_of(const corners_t& corners)
{
    std::ostringstream text;
    text.precision(9);
    for (const cv::Point2f& corner : corners) {
        text << " (" << corner.x << ", " << corner.y << ")";
    }
    return text.str();
}

}  // namespace tarn::test
