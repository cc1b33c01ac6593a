// SPDX-License-Identifier: Apache-2.0
//
// Whether OpenCV has failed for want of memory. This header is the library's own.
#pragma once

#include <opencv2/core.hpp>

namespace tarn::finishing {

/// Images that are UMats lose the reason on their way: they only find that there is no memory.
inline bool is_about_memory(const cv::Exception& error)
{
    return error.code == cv::Error::StsNoMem
           || (error.code == cv::Error::StsAssert && error.func == "create" && error.err == "u != 0");
}

}  // namespace tarn::finishing
