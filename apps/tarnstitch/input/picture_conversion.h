// SPDX-License-Identifier: Apache-2.0
//
// Decoded pictures made into the library's frames: colours by libswscale, as the stream says that they are meant, and
// the turn.
#pragma once

#include <array>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "media_handles.h"

namespace tarn::host {

/// What is to be done with a recorded picture to see it upright: first mirrored, left for right, then turned.
struct picture_orientation {
    int quarter_turns = 0;  ///< clockwise, 0 to 3
    bool mirrored = false;
};

/// Converts the pictures of one video, each in the memory of an earlier one that nobody holds any more. Not for several
/// threads at once.
class picture_converter {
public:
    /// A picture as the library takes it: B,G,R, upright and then turned. The turn that a device's recording wants is
    /// often the library's the other way round: the two are one. Colours are made band by band, and each band is turned
    /// while it is in the cache.
    /// @returns CV_8UC3; empty when the picture's kind cannot be converted
    cv::Mat convert(const AVFrame& picture, picture_orientation shown, frame_turn turn);

private:
    /// Colours of so many rows at a time, of one kind of picture.
    struct colours_of_rows {
        media_handle<SwsContext> scaler;
        std::array<int, 5> kind{};  ///< width, rows, format, colour space and range that it was made for
    };

    static bool prepare(colours_of_rows& colours, const AVFrame& picture, int rows, AVPixelFormat wanted);
    bool make_colours(const AVFrame& picture, int top, cv::Mat& pixels, AVPixelFormat wanted);
    cv::Mat storage(cv::Size size);

    std::array<colours_of_rows, 2> colours_;  ///< of bands, and of the last one, or a whole picture
    cv::Mat band_;
    cv::Mat whole_;               ///< of pictures that cannot be converted by bands
    std::vector<cv::Mat> given_;  ///< whose memory is used again
};

}  // namespace tarn::host
