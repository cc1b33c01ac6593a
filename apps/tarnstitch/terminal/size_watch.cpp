// SPDX-License-Identifier: Apache-2.0
//
// From the preview's size to the panorama's.
#include "size_watch.h"

#include <algorithm>

#include "report.h"
#include "standard_streams.h"
#include "working_copy.h"

namespace tarn::host {

int panorama_side(cv::Size preview, int frame_width)
{
    const int in_panorama = std::min(frame_width, greatest_frame_width);
    const int in_preview = std::min(frame_width, working_width);
    return cvRound(static_cast<double>(std::max(preview.width, preview.height)) * in_panorama / in_preview);
}

void size_watch::frame_done(const frame_record& frame)
{
    if (said_ || frame.answer.key_frame == 0 || frame.preview.pixels.empty()) {
        return;
    }
    const std::string line = note_on_size(panorama_side(frame.preview.pixels.size(), frame_width_));
    if (!line.empty()) {
        said_ = true;
        note(line);
    }
}

}  // namespace tarn::host
