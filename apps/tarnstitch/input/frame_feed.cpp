// SPDX-License-Identifier: Apache-2.0
//
// Reading ahead, with one size for all.
#include "frame_feed.h"

#include <array>
#include <cstdio>
#include <new>
#include <system_error>
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

cv::Mat picture_of(frame_source& source, frame_turn turn)
{
    const auto fail = [&source] {
        throw host_error(exit_code::input_failed, "there is not enough memory for " + source.name());
    };
    try {
        return source.picture(turn);
    } catch (const std::bad_alloc&) {
        fail();
    } catch (const cv::Exception& error) {
        if (error.code != cv::Error::StsNoMem) {
            throw;
        }
        fail();
    }
    return {};
}

}  // namespace

frame_feed::frame_feed(std::unique_ptr<frame_source> source, const frame_selection& selection, frame_turn turn,
                       int looked_at, std::size_t ahead)
    : source_(std::move(source)), selector_(selection), turn_(turn), looked_at_(looked_at), facts_(source_->facts()),
      expected_(selector_.expected(facts_.announced, facts_.rate)), most_ready_(ahead)
{
    source_->skip_to(selection.start);
    take_step();
    if (ahead_.failed) {
        std::rethrow_exception(ahead_.failed);
    }
    if (ahead_.frame.bgr.empty()) {
        if (stop_asked_for() != stop_kind::none && !ahead_.ended) {
            throw host_error(exit_code::stopped, "stopped before the first frame; nothing is written");
        }
        const std::string& file = facts_.files.front();
        const bool none_selected = pictures() > ahead_.unreadable;
        std::string reason = "no frame can be read from " + file;
        if (none_selected && ahead_.ended) {
            std::array<char, 64> at{};
            std::snprintf(at.data(), at.size(), "%.2f s", ahead_.last_stamp.seconds);
            reason = file + " ends before --start: its last frame is at " + at.data();
        } else if (none_selected) {
            reason = "no frame of " + file + " lies between --start and --end";
        }
        throw host_error(exit_code::input_failed, reason);
    }
    if (most_ready_ > 0 && facts_.rereadable) {
        try {
            reader_ = std::thread([this] { read_all(); });
        } catch (const std::system_error&) {
            most_ready_ = 0;  // there is none to be had, and it goes without
        }
    }
}

frame_feed::~frame_feed()
{
    if (reader_.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            closed_ = true;
        }
        changed_.notify_all();
        reader_.join();
    }
}

bool frame_feed::next(feed_frame& frame)
{
    if (ahead_.failed) {
        std::rethrow_exception(ahead_.failed);
    }
    if (ahead_.frame.bgr.empty()) {
        return false;
    }
    feed_frame current = std::move(ahead_.frame);
    ahead_.frame = feed_frame();
    // The frame at hand is good whatever comes after it: an error waits until that frame has been given.
    take_step();
    current.last = ahead_.frame.bgr.empty();
    frame = std::move(current);
    return true;
}

void frame_feed::take_step()
{
    if (reader_.joinable()) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return !ready_.empty(); });
        ahead_ = std::move(ready_.front());
        ready_.pop_front();
        lock.unlock();
        changed_.notify_all();
    } else {
        ahead_ = read_on();
    }
    facts_.announced = ahead_.announced;
    for (const std::string& remark : ahead_.remarks) {
        note(remark);
    }
}

void frame_feed::read_all()
{
    for (bool goes_on = true; goes_on;) {
        step now = read_on();
        goes_on = !now.frame.bgr.empty();
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || ready_.size() < most_ready_; });
        if (closed_) {
            return;
        }
        ready_.push_back(std::move(now));
        lock.unlock();
        changed_.notify_all();
    }
}

frame_feed::step frame_feed::read_on()
{
    step now = reached_;
    try {
        read_frame(now);
    } catch (...) {
        now.failed = std::current_exception();
    }
    now.passed_over = source_->passed_over();
    now.announced = source_->facts().announced;
    reached_.last_stamp = now.last_stamp;
    reached_.unreadable = now.unreadable;
    reached_.frame.place = now.frame.place;
    return now;
}

void frame_feed::read_frame(step& now)
{
    frame_stamp stamp;
    while (source_->advance(stamp)) {
        now.last_stamp = stamp;
        const frame_selector::verdict verdict = selector_.judge(stamp);
        if (verdict == frame_selector::verdict::end) {
            return;
        }
        if (verdict == frame_selector::verdict::leave_out) {
            // Once stopped, the frame at hand is the last one: no other is looked for.
            if (stop_asked_for() != stop_kind::none) {
                return;
            }
            continue;
        }
        const cv::Mat image = picture_of(*source_, turn_);
        if (image.empty()) {
            ++now.unreadable;
            // Of a single picture it is the input that cannot be read, and that is said elsewhere.
            if (source_->facts().announced > 1 && stamp.number > looked_at_) {
                now.remarks.push_back("cannot read " + source_->name() + "; it is left out");
            }
            continue;
        }
        const cv::Size size = turn_ == frame_turn::none ? image.size() : cv::Size(image.rows, image.cols);
        // The library registers each frame against the one before, pixel for pixel: one size is assumed.
        if (size_.empty()) {
            size_ = size;
        } else if (size != size_) {
            throw host_error(exit_code::input_failed, source_->name() + " is of " + shown(size)
                                                          + " pixels, the frames before it of " + shown(size_));
        }
        now.frame.bgr = image;
        now.frame.stamp = stamp;
        ++now.frame.place;
        return;
    }
    now.ended = true;
}

std::string frame_feed::damage() const
{
    const int count = ahead_.passed_over;
    return count == 0 ? ""
                      : std::to_string(count) + (count == 1 ? " frame of " : " frames of ") + facts().files.front()
                            + " cannot be decoded and " + (count == 1 ? "is" : "are") + " left out";
}

std::string frame_feed::early_end() const
{
    // What a video says is only about right, so a few frames less are no sign of damage.
    constexpr double share_expected = 0.9;
    const int announced = facts().announced;
    if (!ahead_.ended || pictures() >= share_expected * announced) {
        return "";
    }
    return facts().files.front() + " ends at frame " + std::to_string(pictures()) + " of " + std::to_string(announced)
           + "; it may have been cut short";
}

}  // namespace tarn::host
