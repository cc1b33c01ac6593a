// SPDX-License-Identifier: Apache-2.0
#include "frame_intake.h"

#include <algorithm>
#include <array>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "shared_access.h"

namespace tarn {

namespace {

constexpr int working_width = 300;  // px

// Whether this header is the only one of its pixels. Whoever has let go of them is done with them.
bool is_only_header(const cv::Mat& image)
{
    return image.u != nullptr && load_acquire(image.u->refcount) == 1;
}

// The full-size images of the last frames, to be used again once nobody holds them: the pages of a new one cost
// more time than its pixels. Two, since one of them is always the task's last frame; one that a worker holds on to
// is its alone as soon as another is needed.
class spare_frames {
public:
    // An image of that size and type whose content nobody needs.
    cv::Mat take(cv::Size size, int type)
    {
        for (cv::Mat& kept : kept_) {
            if (kept.size() == size && kept.type() == type && is_only_header(kept)) {
                return kept;
            }
        }
        std::swap(kept_[0], kept_[1]);  // the older one goes
        kept_[1].release();
        kept_[1].create(size, type);
        return kept_[1];
    }

    void clear()
    {
        kept_.fill(cv::Mat());
    }

private:
    std::array<cv::Mat, 2> kept_;
};

// Never destroyed: frames may come as long as the process lives.
spare_frames& spares()
{
    static auto& frames = *new spare_frames;
    return frames;
}

// Shrinks to `target_height` pixels of *width*: the parameter's name is the older one.
void image_resize(const cv::Mat& input, cv::Mat& output, int target_height)
{
    float scale = 1.0f;
    if (input.cols > target_height) {
        scale = static_cast<float>(target_height) / static_cast<float>(input.cols);
    }
    cv::resize(input, output, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
}

}  // namespace

camera_frame::camera_frame(const cv::Mat& bgr) : images_(new images{cv::Mat(), bgr})
{
}

camera_frame camera_frame::from_host(const cv::Mat& rgba)
{
    if (rgba.dims > 2 || rgba.empty() || rgba.type() != CV_8UC4) {
        // No frame as hosts are told to hand in; the image library decides what becomes of it.
        cv::Mat bgr;
        cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
        return camera_frame(bgr);
    }
    camera_frame frame(spares().take(rgba.size(), CV_8UC3));
    images& both = *frame.images_;
    both.rgba = rgba;
    // Short enough that no thread waits long for another one's last piece.
    constexpr int pieces = 8;
    for (int i = 0; i < pieces; ++i) {
        const cv::Range rows(rgba.rows * i / pieces, rgba.rows * (i + 1) / pieces);
        if (!rows.empty()) {
            frame.conversion_.emplace_back([&both, rows] {
                cv::Mat part = both.bgr.rowRange(rows);
                cv::cvtColor(both.rgba.rowRange(rows), part, cv::COLOR_RGBA2BGR);
            });
        }
    }
    return frame;
}

int camera_frame::rows() const
{
    return images_->bgr.rows;
}

int camera_frame::type() const
{
    return images_->bgr.type();
}

cv::Mat camera_frame::working_copy() const
{
    cv::Mat copy;
    if (images_->rgba.empty()) {
        image_resize(images_->bgr, copy, working_width);
        return copy;
    }
    // Channels are shrunk one by one, so their order may change afterwards.
    cv::Mat rgba_copy;
    image_resize(images_->rgba, rgba_copy, working_width);
    cv::cvtColor(rgba_copy, copy, cv::COLOR_RGBA2BGR);
    return copy;
}

const cv::Mat& camera_frame::bgr()
{
    for (deferred_work& piece : conversion_) {
        piece.finish();
    }
    return images_->bgr;
}

std::vector<deferred_work>& camera_frame::conversion()
{
    return conversion_;
}

void release_spare_frames()
{
    spares().clear();
}

}  // namespace tarn
