// SPDX-License-Identifier: Apache-2.0
//
// Reading one frame ahead, with one size for all.
#include "frame_feed.h"

#include <utility>

#include "host_error.h"
#include "standard_streams.h"

namespace tarn::host {

namespace {

std::string shown(const cv::Size& size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

}  // namespace

frame_feed::frame_feed(std::unique_ptr<frame_source> source, frame_turn turn)
    : source_(std::move(source)), turn_(turn)
{
    if (!read_ahead()) {
        throw host_error(exit_code::input_failed, "no frame can be read from " + source_->files().front());
    }
}

bool frame_feed::next(feed_frame& frame)
{
    if (ahead_.rgba.empty()) {
        return false;
    }
    feed_frame current = std::move(ahead_);
    ahead_ = feed_frame();
    current.last = !read_ahead();
    frame = std::move(current);
    return true;
}

bool frame_feed::read_ahead()
{
    source_frame picture;
    while (source_->read(picture)) {
        ++pictures_;
        if (picture.image.empty()) {
            ++unreadable_;
            if (source_->announced() > 1) {  // otherwise it is the input that cannot be read
                say("cannot read " + picture.name + "; it is left out");
            }
            continue;
        }
        // The library registers each frame against the one before, pixel for pixel: one size is assumed.
        if (size_.empty()) {
            size_ = picture.image.size();
        } else if (picture.image.size() != size_) {
            throw host_error(exit_code::input_failed, picture.name + " is of " + shown(picture.image.size())
                                                          + " pixels, the frames before it of " + shown(size_));
        }
        ahead_.rgba = frame_for_library(picture.image, turn_);
        ahead_.number = pictures_;
        ahead_.name = picture.name;
        return true;
    }
    ended_ = true;
    return false;
}

std::string frame_feed::early_end() const
{
    // What a video says is only about right, so a few frames less are no sign of damage.
    constexpr double share_expected = 0.9;
    const int announced = source_->announced();
    if (!ended_ || pictures_ >= share_expected * announced) {
        return "";
    }
    return source_->files().front() + " ends at frame " + std::to_string(pictures_) + " of "
           + std::to_string(announced) + "; it may have been cut short";
}

}  // namespace tarn::host
