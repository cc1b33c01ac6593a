// SPDX-License-Identifier: Apache-2.0
//
// The window of --show: the preview as it grows, with the outline of the current frame in it.
#pragma once

#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "sweep.h"

namespace tarn::host {

/// Makes sure that a window can be opened. In a process of its own, because some window systems' libraries end the
/// program that finds no display.
/// @throws host_error (usage) with the reason: no display, or a build without windows
void check_display();

/// The picture that the window shows: the preview upright, on a canvas that also holds the outline where the frame
/// reaches beyond it; green, or red when the frame was rejected. CV_8UC3.
cv::Mat window_picture(const frame_record& frame, frame_turn turn);

/// Keys: q asks for the end of the sweep, Esc gives it up; so does closing the window.
class preview_window : public sweep_observer {
public:
    explicit preview_window(frame_turn turn);
    ~preview_window() override;

    void frame_done(const frame_record& frame) override;
    void waiting(int key_frames) override;

private:
    void look_at_keys() const;

    frame_turn turn_;
    bool open_ = false;
};

}  // namespace tarn::host
