// SPDX-License-Identifier: Apache-2.0
#include "internal/spare_frames.h"

#include <array>
#include <mutex>
#include <utility>

#include "shared_access.h"

namespace tarn {

namespace {

// Two, since one of them is always the task's last frame. One that a worker or the host holds on to is its alone
// as soon as another is needed.
struct kept_frames {
    std::mutex mutex;  // for hosts whose calls overlap
    std::array<cv::Mat, 2> frames;
};

// Never destroyed: frames may come as long as the process lives.
kept_frames& kept()
{
    static auto& frames = *new kept_frames;
    return frames;
}

// Whoever has let go of its header is done with the pixels: the count is read no earlier than that.
bool is_only_header(const cv::Mat& image)
{
    return image.u != nullptr && load_acquire(image.u->refcount) == 1;
}

}  // namespace

cv::Mat take_spare_frame(cv::Size size, int type)
{
    const std::lock_guard<std::mutex> lock(kept().mutex);
    std::array<cv::Mat, 2>& frames = kept().frames;
    for (const cv::Mat& frame : frames) {
        if (frame.size() == size && frame.type() == type && is_only_header(frame)) {
            return frame;
        }
    }
    std::swap(frames[0], frames[1]);  // the one that was new longest ago goes
    frames[1].release();
    frames[1].create(size, type);
    return frames[1];
}

void release_spare_frames()
{
    const std::lock_guard<std::mutex> lock(kept().mutex);
    kept().frames.fill(cv::Mat());
}

}  // namespace tarn
