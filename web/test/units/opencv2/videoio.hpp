// SPDX-License-Identifier: Apache-2.0
//
// In place of OpenCV's module for videos, which the library does not need: reads what has been decoded beforehand.
#pragma once

#include <fstream>
#include <string>

#include <opencv2/core.hpp>

namespace cv {

/// The frames of NAME, which lie in NAME.ppm, one portable pixmap behind the other.
class VideoCapture {
public:
    explicit VideoCapture(const std::string& name) : file_(name + ".ppm", std::ios::binary)
    {
    }

    /// @param frame  becomes B,G,R
    /// @return false if there is no further frame
    bool read(Mat& frame);

private:
    std::ifstream file_;
};

}  // namespace cv
