// SPDX-License-Identifier: Apache-2.0
//
// What a report needs of a sweep, collected while it goes: a few numbers of each frame, a small picture of each key
// frame, and the pictures between which the sweep came apart.
#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "found_matches.h"
#include "frame_turn.h"
#include "sweep.h"

namespace tarn::host {

/// A frame's numbers. Angles, scales and the direction are the library's, of its own orientation.
struct reported_frame {
    frame_stamp stamp;
    answer_code code = code_normal;
    bool taken = false;
    bool measured = false;  ///< compared with the frame taken before, and with the last key frame
    int key_frame = 0;      ///< its number, from 1; 0 if it is none
    direction_code direction = direction_undecided;
    float move = 0.0f;     ///< px of a frame 300 px wide
    float overlap = 0.0f;  ///< with the last key frame, 0 to 1
    int inliers = 0;
    std::array<float, 4> angles{};
    std::array<float, 4> scales{};
    double milliseconds = 0.0;  ///< in the library
    double done = 0.0;          ///< seconds since the sweep began, when its call had returned
};

/// A key frame's picture and place.
struct reported_key_frame {
    int number = 0;                      ///< from 1
    std::size_t frame = 0;               ///< its place among the frames
    std::vector<unsigned char> picture;  ///< JPEG, upright, its longer side 320 px
    cv::Size size;                       ///< of the whole frame, upright
    bool placed = false;
    std::array<cv::Point2f, 4> in_plane{};  ///< its corners in the first frame's plane, as the library has it
};

/// Two neighbouring frames between which the sweep came apart, as the library got them.
struct reported_gap {
    int frame_before = 0;       ///< number of the last frame taken
    int frame_after = 0;        ///< number of the first one rejected
    int frames = 0;             ///< rejected in a row
    reason why = reason::none;  ///< why the first one was
    cv::Mat before;             ///< CV_8UC3, B,G,R, at most 300 px wide
    cv::Mat after;
};

class report_collector : public sweep_observer {
public:
    /// @param workers  key frames that may be on their way at once
    report_collector(frame_turn turn, int workers);

    void frame_done(const frame_record& frame) override;

    void waiting(int) override
    {
    }

    frame_turn turn() const
    {
        return turn_;
    }

    const std::vector<reported_frame>& frames() const
    {
        return frames_;
    }

    const std::vector<reported_key_frame>& key_frames() const
    {
        return key_frames_;
    }

    /// When the sweep began, on the clock of worker_turn.
    worker_turn::instant begun() const
    {
        return begun_;
    }

    /// From the plane of the first frame to the preview, as it was in the end.
    cv::Point2f preview_from_plane() const
    {
        return preview_from_plane_;
    }

    /// The longest run of frames that did not fit, if ten or more ever came in a row.
    const std::optional<reported_gap>& gap() const
    {
        return gap_;
    }

    /// The key frame as a worker took it; empty where that is too long ago.
    cv::Mat worker_picture(int key_frame) const;

private:
    void add_key_frame(const frame_record& frame);
    void follow_gap(const frame_record& frame);

    struct kept_picture {
        int key_frame;
        cv::Mat picture;
    };

    frame_turn turn_;
    std::size_t pictures_kept_;
    worker_turn::instant begun_ = std::chrono::steady_clock::now();
    std::vector<reported_frame> frames_;
    std::vector<reported_key_frame> key_frames_;
    std::deque<kept_picture> worker_pictures_;  ///< of the newest key frames
    cv::Point2f preview_from_plane_;

    int last_taken_ = 0;  ///< number of the frame
    cv::Mat last_taken_pixels_;
    reported_gap open_gap_;  ///< no frames while they are taken
    cv::Mat first_rejected_pixels_;
    std::optional<reported_gap> gap_;
};

}  // namespace tarn::host
