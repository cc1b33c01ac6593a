// SPDX-License-Identifier: Apache-2.0
//
// The input's pictures made into the library's frames, read ahead: by one, so that the last one is known as such, and
// by some more in a thread, so that decoding goes on while frames are stitched.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_selection.h"
#include "frame_source.h"
#include "frame_turn.h"

namespace tarn::host {

/// A frame ready for the library.
struct feed_frame {
    cv::Mat bgr;  ///< CV_8UC3, B,G,R, turned
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
    ///         another size than the first, is too large, or does not fit into memory
    virtual bool next(feed_frame& frame) = 0;
};

/// Reads a source to its end, or to that of the part selected. What it says of the input so far is what led to the
/// frame behind the one given last, however far the thread is.
class frame_feed : public sweep_input {
public:
    /// Reads the first frame, so that an input without any fails before the work starts.
    /// @param looked_at  pictures of the input that have been looked at before, so that those of them that cannot be
    ///                   read are not named once more
    /// @param ahead      frames that a thread may have ready beyond the next; 0 for no thread. An input that may keep
    ///                   its reader waiting, a pipe or a camera, is read without one
    /// @throws host_error (input_failed when there is no frame, stopped when the user does not wait for it)
    frame_feed(std::unique_ptr<frame_source> source, const frame_selection& selection, frame_turn turn,
               int looked_at = 0, std::size_t ahead = 0);
    ~frame_feed() override;

    bool next(feed_frame& frame) override;

    const source_facts& facts() const
    {
        return facts_;
    }

    /// About how many frames there will be; 0 when that is not known.
    int expected() const
    {
        return expected_;
    }

    /// Width and height of the frames, before turning.
    cv::Size size() const
    {
        return size_;
    }

    /// Pictures met so far, those that were left out included.
    int pictures() const
    {
        return ahead_.last_stamp.number;
    }

    /// Pictures left out because they cannot be read; files have been named on standard error.
    int unreadable() const
    {
        return ahead_.unreadable + ahead_.passed_over;
    }

    /// One line on damaged pictures in the midst of a video, which its decoder passed over; "" if there are none.
    std::string damage() const;

    /// One line on an input that ended well before it said it would, as one does that was cut short; "" for one
    /// that did not, or has not ended.
    std::string early_end() const;

private:
    /// What reading on by one frame has come to.
    struct step {
        feed_frame frame;  ///< its image is empty when there is none
        frame_stamp last_stamp;
        int unreadable = 0;
        int passed_over = 0;
        int announced = 0;
        bool ended = false;
        std::exception_ptr failed;  ///< what kept the frame from being read
        std::vector<std::string> remarks;
    };

    step read_on();
    void read_frame(step& now);
    void read_all();
    void take_step();

    // Of the reader, be it the thread or not:
    std::unique_ptr<frame_source> source_;
    frame_selector selector_;
    frame_turn turn_;
    int looked_at_;
    cv::Size size_;  ///< of the first frame, before turning; known before there is a thread
    step reached_;   ///< the counts so far, without a frame

    // Of the one who takes frames:
    source_facts facts_;
    int expected_;
    step ahead_;

    // Between them:
    std::size_t most_ready_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<step> ready_;
    bool closed_ = false;  ///< nobody takes frames any more
    std::thread reader_;   ///< the last member: it uses the others
};

}  // namespace tarn::host
