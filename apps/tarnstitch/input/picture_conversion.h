// SPDX-License-Identifier: Apache-2.0
//
// Decoded pictures made into the library's frames: colours by libswscale, as the stream says that they are meant, and
// the turn.
#pragma once

#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "media_handles.h"

namespace tarn::host {

/// What is to be done with a recorded picture to see it upright: first mirrored, left for right, then turned.
struct picture_orientation {
    int quarter_turns = 0;  ///< clockwise, 0 to 3
    bool mirrored = false;
};

/// Converts the pictures of one video. Not for several threads at once.
class picture_converter {
public:
    /// A picture as the library takes it: R,G,B,A, upright and then turned. The turn that a device's recording wants is
    /// often the library's the other way round: the two are one, and at most one further pass over the pixels.
    /// @returns CV_8UC4, an image of its own; empty when the picture's kind cannot be converted
    cv::Mat convert(const AVFrame& picture, picture_orientation shown, frame_turn turn);

private:
    bool prepare(const AVFrame& picture);

    media_handle<SwsContext> scaler_;
    AVColorSpace colours_ = AVCOL_SPC_UNSPECIFIED;
    AVColorRange range_ = AVCOL_RANGE_UNSPECIFIED;
};

}  // namespace tarn::host
