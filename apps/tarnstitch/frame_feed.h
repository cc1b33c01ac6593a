// SPDX-License-Identifier: Apache-2.0
//
// The input's pictures made into the library's frames, read one ahead so that the last one is known as such.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>

#include "frame_source.h"
#include "frame_turn.h"

namespace tarn::host {

/// A frame ready for the library.
struct feed_frame {
    cv::Mat rgba;       ///< CV_8UC4, R,G,B,A, turned
    int number = 0;     ///< 1, 2, 3, … in the order of reading, unreadable pictures included
    std::string name;   ///< for messages
    bool last = false;  ///< nothing comes after it
};

/// Reads a source to its end. Holds two frames at most.
class frame_feed {
public:
    /// Reads the first frame, so that an input without any fails before the work starts.
    /// @throws host_error (input_failed) when there is no frame
    frame_feed(std::unique_ptr<frame_source> source, frame_turn turn);

    /// Gives the next frame.
    /// @returns false after the last one
    /// @throws host_error (input_failed), naming the picture, when a picture has another size than the first
    bool next(feed_frame& frame);

    /// Pictures left out because they cannot be read; each has been named on standard error.
    int unreadable() const
    {
        return unreadable_;
    }

    /// One line on an input that ended well before it said it would, as one does that was cut short; "" for one
    /// that did not, or has not ended.
    std::string early_end() const;

private:
    bool read_ahead();

    std::unique_ptr<frame_source> source_;
    frame_turn turn_;
    feed_frame ahead_;  ///< its image is empty when there is none
    cv::Size size_;     ///< of the first frame, before turning
    int pictures_ = 0;
    int unreadable_ = 0;
    bool ended_ = false;
};

}  // namespace tarn::host
