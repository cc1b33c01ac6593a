// SPDX-License-Identifier: Apache-2.0
//
// How a frame enters the live path: what is needed at once, the small copy that it is registered by, is made at
// once; what is needed only of frames that are kept, the full-size B,G,R image, when it is needed or when there
// is a thread to spare. This header is the library's own; a host needs nothing from it.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "deferred_work.h"

namespace tarn {

/// A frame of the camera on its way through the live path. Host's thread.
class camera_frame {
public:
    /// A frame as the live path takes it: B,G,R, shared.
    explicit camera_frame(const cv::Mat& bgr);

    /// A frame as the host hands it in: R,G,B,A. Its pixels are read as long as this lives, and not kept.
    /// @throws cv::Exception for an image that cannot be converted to B,G,R, or a lack of memory
    static camera_frame from_host(const cv::Mat& rgba);

    camera_frame(camera_frame&&) = default;
    camera_frame& operator=(camera_frame&&) = delete;
    camera_frame(const camera_frame&) = delete;
    camera_frame& operator=(const camera_frame&) = delete;
    ~camera_frame() = default;

    /// Rows, and the type, of the B,G,R image.
    int rows() const;
    int type() const;

    /// The B,G,R image shrunk to at most 300 pixels of width.
    /// @throws cv::Exception for an image without pixels, or one that is left without any
    cv::Mat working_copy() const;

    /// The B,G,R image at full size. Its pixels belong to whoever holds a header of them, and are not written
    /// again before all those are gone.
    const cv::Mat& bgr();

    /// The work that bgr() does the first time, as far as it can be done ahead, in pieces; may be empty.
    std::vector<deferred_work>& conversion();

private:
    struct images {
        cv::Mat rgba;  // empty when the frame came as B,G,R
        cv::Mat bgr;   // of the right size and type from the start; without content until it is converted
    };

    std::unique_ptr<images> images_;  // at an address that the conversion can refer to
    std::vector<deferred_work> conversion_;
};

/// Lets go of the images that are kept to be used again, for the frames of a new task. Host's thread.
void release_spare_frames();

}  // namespace tarn
