// SPDX-License-Identifier: Apache-2.0
//
// The input's pictures made into the library's frames, read one ahead so that the last one is known as such.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include <opencv2/core.hpp>

#include "frame_selection.h"
#include "frame_source.h"
#include "frame_turn.h"

namespace tarn::host {

/// A frame ready for the library.
struct feed_frame {
    cv::Mat rgba;  ///< CV_8UC4, R,G,B,A, turned
    frame_stamp stamp;
    int place = 0;      ///< among the frames that the input has given, from 1
    bool last = false;  ///< nothing comes after it
};

/// What a sweep takes its frames from.
class sweep_input {
public:
    sweep_input() = default;
    virtual ~sweep_input() = default;
    sweep_input(const sweep_input&) = delete;
    sweep_input& operator=(const sweep_input&) = delete;

    /// Gives the next frame. To be called once more after the last one, since it may be the last for an error only.
    /// @returns false after the last one
    /// @throws host_error (input_failed), after the frames before it and naming the picture, when a picture has
    ///         another size than the first
    virtual bool next(feed_frame& frame) = 0;
};

/// Reads a source to its end, or to that of the part selected. Holds two frames at most.
class frame_feed : public sweep_input {
public:
    /// Reads the first frame, so that an input without any fails before the work starts.
    /// @param looked_at  pictures of the input that have been looked at before, so that those of them that cannot be
    ///                   read are not named once more
    /// @throws host_error (input_failed when there is no frame, stopped when the user does not wait for it)
    frame_feed(std::unique_ptr<frame_source> source, const frame_selection& selection, frame_turn turn,
               int looked_at = 0);

    bool next(feed_frame& frame) override;

    const source_facts& facts() const
    {
        return source_->facts();
    }

    /// About how many frames there will be; 0 when that is not known.
    int expected() const
    {
        return selector_.expected(facts().announced, facts().rate);
    }

    /// Width and height of the frames, before turning.
    cv::Size size() const
    {
        return size_;
    }

    /// Pictures met so far, those that were left out included.
    int pictures() const
    {
        return last_stamp_.number;
    }

    /// Pictures left out because they cannot be read; files have been named on standard error.
    int unreadable() const
    {
        return unreadable_ + source_->passed_over();
    }

    /// One line on damaged pictures in the midst of a video, which its decoder passed over; "" if there are none.
    std::string damage() const;

    /// One line on an input that ended well before it said it would, as one does that was cut short; "" for one
    /// that did not, or has not ended.
    std::string early_end() const;

private:
    bool read_ahead();
    bool read_ahead_unless_it_fails();

    std::unique_ptr<frame_source> source_;
    frame_selector selector_;
    frame_turn turn_;
    int looked_at_;
    feed_frame ahead_;  ///< its image is empty when there is none
    cv::Size size_;     ///< of the first frame, before turning
    frame_stamp last_stamp_;
    int taken_ = 0;              ///< frames read so far
    std::exception_ptr failed_;  ///< what kept the frame after the one given last from being read
    int unreadable_ = 0;
    bool ended_ = false;
};

}  // namespace tarn::host
