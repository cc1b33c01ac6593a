// SPDX-License-Identifier: Apache-2.0
#include "spare_frames.h"

#include <array>
#include <utility>

#include "shared_access.h"

namespace tarn {

namespace {

// Two, since one of them is always the task's last frame. One that a worker or the host holds on to is its alone
// as soon as another is needed. Never destroyed: frames may come as long as the process lives.
std::array<cv::Mat, 2>& kept_frames()
{
    static auto& frames = *new std::array<cv::Mat, 2>;
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
    std::array<cv::Mat, 2>& kept = kept_frames();
    for (const cv::Mat& frame : kept) {
        if (frame.size() == size && frame.type() == type && is_only_header(frame)) {
            return frame;
        }
    }
    std::swap(kept[0], kept[1]);  // the one taken longest ago goes
    kept[1].release();
    kept[1].create(size, type);
    return kept[1];
}

void release_spare_frames()
{
    kept_frames().fill(cv::Mat());
}

}  // namespace tarn
