// SPDX-License-Identifier: Apache-2.0
//
// The key frames of a sweep with their places, for the finished picture. A sweep whose pipeline fails is gone on with
// by the library begun anew, as often as need be; the pieces hang together by the frame that ends one and begins the
// next.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "picture_store.h"
#include "sweep.h"

namespace tarn::host {

/// A key frame as the input's viewer sees it.
struct collected_key_frame {
    frame_stamp stamp;
    std::size_t picture = 0;  ///< its number in the store
    /// From a pixel of its copy that is at most 300 px wide into the plane that all key frames share; none where the
    /// live path did not place it.
    std::optional<cv::Matx33d> placement;
};

/// From a pixel of the upright frame's copy of at most 300 px in width to one of the turned frame's, which the library
/// works on.
/// @param upright  size of the frame, px
cv::Matx33d turned_copy_from_upright_copy(cv::Size upright, frame_turn turn);

class key_frame_collector : public frame_collector {
public:
    /// @param memory  bytes of pixels that are kept in memory; the others go to files
    explicit key_frame_collector(frame_turn turn, double memory = picture_store::usual_memory);

    void key_frame(const tarn::key_frame& frame, const frame_stamp& stamp) override;
    void frame_taken(const feed_frame& frame, const frame_answer& answer) override;

    /// To be called when the library has failed and is about to be begun anew: the frame taken last becomes a key frame
    /// with which the next piece has to begin.
    /// @returns that frame; none when none has been taken since the last piece began
    std::optional<feed_frame> begin_piece();

    const std::vector<collected_key_frame>& key_frames() const
    {
        return key_frames_;
    }

    const picture_store& pictures() const
    {
        return pictures_;
    }

    /// Pieces so far.
    int pieces() const
    {
        return pieces_;
    }

private:
    void add(const cv::Mat& upright, const frame_stamp& stamp, const std::optional<cv::Matx33d>& plane_from_turned);

    frame_turn turn_;
    picture_store pictures_;
    std::vector<collected_key_frame> key_frames_;
    int pieces_ = 1;

    /// Of the piece at hand. A place in it is of the turned frame's copy in the plane of the piece.
    bool is_linked_ = true;  ///< whether its plane's place in the common one is known
    cv::Matx33d common_from_piece_ = cv::Matx33d::eye();
    std::optional<int> must_begin_with_;               ///< number of the frame, until it has begun
    std::optional<cv::Matx33d> piece_from_key_frame_;  ///< of the last one; none where it was not placed
    std::optional<cv::Matx33d> piece_from_preview_;    ///< as the preview is since then
    cv::Size copy_size_;                               ///< of the turned frame
    std::optional<feed_frame> taken_;                  ///< the frame taken last
    std::optional<cv::Matx33d> piece_from_taken_;
};

}  // namespace tarn::host
