// SPDX-License-Identifier: Apache-2.0
//
// Frames at the pace at which they were taken: those that arrive while the sweep is busy are lost, as a camera's
// are to an application that does not wait for them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "frame_feed.h"

namespace tarn::host {

/// When a frame is due that comes so many seconds after the first one, which came at `begun`.
std::chrono::steady_clock::time_point time_due(std::chrono::steady_clock::time_point begun, double seconds);

/// Reads a feed in a thread of its own and offers each frame at its time. A frame is taken when the sweep is
/// waiting for one, and dropped otherwise; only the last one always waits until it is taken.
class realtime_feed : public sweep_input {
public:
    /// @param feed  outlives the object and is not to be touched until the sweep is over; a camera's frames come at
    ///              their time by themselves, others by their time stamps
    explicit realtime_feed(frame_feed& feed);
    ~realtime_feed() override;

    bool next(feed_frame& frame) override;

    /// Frames dropped so far.
    int dropped() const;

private:
    void read();
    bool wait_until_due(const feed_frame& frame);
    /// @returns false when nobody takes frames any more
    bool offer(feed_frame& frame);

    frame_feed& feed_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool wanted_ = false;  ///< next() waits for a frame
    bool there_ = false;   ///< frame_ is for next()
    bool ended_ = false;   ///< the reader has no more
    bool closed_ = false;  ///< nobody takes frames any more
    feed_frame frame_;
    std::exception_ptr error_;
    int dropped_ = 0;
    double first_seconds_ = 0.0;
    std::chrono::steady_clock::time_point begun_;
    bool running_ = false;  ///< the first frame has been offered
    std::thread reader_;    ///< the last member: it uses the others
};

}  // namespace tarn::host
