// SPDX-License-Identifier: Apache-2.0
//
// The thread that plays a feed.
#include "realtime_feed.h"

#include <algorithm>
#include <utility>

#include "interruption.h"

namespace tarn::host {

std::chrono::steady_clock::time_point time_due(std::chrono::steady_clock::time_point begun, double seconds)
{
    // A damaged file's time stamps may be beyond what a clock can count, which is some hundred years.
    constexpr double longest = 1e9;
    const std::chrono::duration<double> since_begin(std::clamp(seconds, 0.0, longest));
    return begun + std::chrono::duration_cast<std::chrono::steady_clock::duration>(since_begin);
}

realtime_feed::realtime_feed(frame_feed& feed) : feed_(feed), reader_([this] { read(); })
{
}

realtime_feed::~realtime_feed()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
    reader_.join();
}

bool realtime_feed::next(feed_frame& frame)
{
    std::unique_lock<std::mutex> lock(mutex_);
    wanted_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return there_ || ended_; });
    wanted_ = false;
    if (there_) {
        frame = std::move(frame_);
        frame_ = feed_frame();
        there_ = false;
        return true;
    }
    if (error_) {
        std::rethrow_exception(error_);
    }
    return false;
}

int realtime_feed::dropped() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
}

void realtime_feed::read()
{
    try {
        feed_frame frame;
        while (feed_.next(frame) && wait_until_due(frame) && offer(frame)) {
        }
    } catch (...) {
        const std::lock_guard<std::mutex> lock(mutex_);
        error_ = std::current_exception();
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
    }
    changed_.notify_all();
}

bool realtime_feed::wait_until_due(const feed_frame& frame)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (feed_.facts().live) {
        return !closed_;
    }
    if (!running_) {
        // The clock starts when somebody is there for the first frame.
        changed_.wait(lock, [this] { return wanted_ || closed_; });
        begun_ = std::chrono::steady_clock::now();
        first_seconds_ = frame.stamp.seconds;
        running_ = true;
    }
    const auto due = time_due(begun_, frame.stamp.seconds - first_seconds_);
    // Nobody tells of a stop, so it is asked for. The frame waited for is then the last one, at once.
    constexpr std::chrono::milliseconds between_looks(50);
    while (!closed_ && stop_asked_for() == stop_kind::none) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= due) {
            break;
        }
        changed_.wait_until(lock, std::min(due, now + between_looks));
    }
    return !closed_;
}

bool realtime_feed::offer(feed_frame& frame)
{
    std::unique_lock<std::mutex> lock(mutex_);
    const auto can_be_taken = [this] { return closed_ || (wanted_ && !there_); };
    if (frame.last || stop_asked_for() != stop_kind::none) {  // the sweep will make it the last one
        changed_.wait(lock, can_be_taken);
    } else if (!can_be_taken()) {
        ++dropped_;
        return true;
    }
    if (closed_) {
        return false;
    }
    frame_ = std::move(frame);
    there_ = true;
    changed_.notify_all();
    return true;
}

}  // namespace tarn::host
