// SPDX-License-Identifier: Apache-2.0
//
// Says in time that a panorama comes near the greatest size that the library can make.
#pragma once

#include "sweep.h"

namespace tarn::host {

/// Watches the preview, which grows as the panorama does, and says it once.
class size_watch : public sweep_observer {
public:
    /// @param frame_width  of a frame as the library gets it, px
    explicit size_watch(int frame_width) : frame_width_(frame_width)
    {
    }

    void frame_done(const frame_record& frame) override;

    void waiting(int /*key_frames*/) override
    {
    }

private:
    int frame_width_;
    bool said_ = false;
};

/// About how long the panorama is, px, whose preview has this size.
/// @param frame_width  of a frame as the library gets it, px
int panorama_side(cv::Size preview, int frame_width);

}  // namespace tarn::host
