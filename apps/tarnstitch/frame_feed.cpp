// SPDX-License-Identifier: Apache-2.0
//
// Reading one frame ahead, with one size for all.
#include "frame_feed.h"

#include <array>
#include <cstdio>
#include <utility>

#include "host_error.h"
#include "interruption.h"
#include "standard_streams.h"

namespace tarn::host {

namespace {

std::string shown(const cv::Size& size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

}  // namespace

frame_feed::frame_feed(std::unique_ptr<frame_source> source, const frame_selection& selection, frame_turn turn,
                       int looked_at)
    : source_(std::move(source)), selector_(selection), turn_(turn), looked_at_(looked_at)
{
    if (!read_ahead()) {
        if (stop_asked_for() != stop_kind::none && !ended_) {
            throw host_error(exit_code::stopped, "stopped before the first frame; nothing is written");
        }
        const std::string& file = source_->facts().files.front();
        const bool none_selected = last_stamp_.number > unreadable_;
        std::string reason = "no frame can be read from " + file;
        if (none_selected && ended_) {
            std::array<char, 64> at{};
            std::snprintf(at.data(), at.size(), "%.2f s", last_stamp_.seconds);
            reason = file + " ends before --start: its last frame is at " + at.data();
        } else if (none_selected) {
            reason = "no frame of " + file + " lies between --start and --end";
        }
        throw host_error(exit_code::input_failed, reason);
    }
}

bool frame_feed::next(feed_frame& frame)
{
    if (failed_) {
        std::rethrow_exception(failed_);
    }
    if (ahead_.rgba.empty()) {
        return false;
    }
    feed_frame current = std::move(ahead_);
    ahead_ = feed_frame();
    current.last = !read_ahead_unless_it_fails();
    frame = std::move(current);
    return true;
}

/// The frame at hand is good whatever comes after it: an error waits until that frame has been given.
bool frame_feed::read_ahead_unless_it_fails()
{
    try {
        return read_ahead();
    } catch (...) {
        failed_ = std::current_exception();
        return false;
    }
}

bool frame_feed::read_ahead()
{
    frame_stamp stamp;
    while (source_->advance(stamp)) {
        last_stamp_ = stamp;
        const frame_selector::verdict verdict = selector_.judge(stamp);
        if (verdict == frame_selector::verdict::end) {
            return false;
        }
        if (verdict == frame_selector::verdict::leave_out) {
            // Once stopped, the frame at hand is the last one: no other is looked for.
            if (stop_asked_for() != stop_kind::none) {
                return false;
            }
            continue;
        }
        const cv::Mat image = source_->picture();
        if (image.empty()) {
            ++unreadable_;
            // Of a single picture it is the input that cannot be read, and that is said elsewhere.
            if (source_->facts().announced > 1 && stamp.number > looked_at_) {
                note("cannot read " + source_->name() + "; it is left out");
            }
            continue;
        }
        // The library registers each frame against the one before, pixel for pixel: one size is assumed.
        if (size_.empty()) {
            size_ = image.size();
        } else if (image.size() != size_) {
            throw host_error(exit_code::input_failed, source_->name() + " is of " + shown(image.size())
                                                          + " pixels, the frames before it of " + shown(size_));
        }
        ahead_.rgba = frame_for_library(image, turn_);
        ahead_.stamp = stamp;
        ahead_.place = ++taken_;
        return true;
    }
    ended_ = true;
    return false;
}

std::string frame_feed::damage() const
{
    const int count = source_->passed_over();
    return count == 0
               ? ""
               : std::to_string(count) + (count == 1 ? " frame of " : " frames of ") + facts().files.front()
                     + " cannot be decoded and " + (count == 1 ? "is" : "are") + " left out";
}

std::string frame_feed::early_end() const
{
    // What a video says is only about right, so a few frames less are no sign of damage.
    constexpr double share_expected = 0.9;
    const int announced = facts().announced;
    if (!ended_ || pictures() >= share_expected * announced) {
        return "";
    }
    return facts().files.front() + " ends at frame " + std::to_string(pictures()) + " of "
           + std::to_string(announced) + "; it may have been cut short";
}

}  // namespace tarn::host
