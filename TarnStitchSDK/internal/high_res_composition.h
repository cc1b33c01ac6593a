// SPDX-License-Identifier: Apache-2.0
//
// Laying one high-resolution frame onto the panorama: first the frame is merged with what lies under it, beside
// the panorama; then the panorama grows, in its own storage if it can. Any thread.
#pragma once

#include <optional>

#include <opencv2/core.hpp>

namespace tarn {

/// A frame merged with the panorama under it, and where both lie in the grown panorama.
struct merged_frame {
    cv::Mat region;               ///< the frame's bounding box as the grown panorama shows it, CV_8UC3
    cv::Rect frame_place;         ///< of the region
    cv::Rect old_place;           ///< of the panorama so far
    cv::Size grown_size;          ///< of the grown panorama
    cv::Mat panorama_from_frame;  ///< the frame into the grown panorama, 3 x 3, CV_64F
};

/// Merges a frame with the panorama: where the panorama has content it stays, except along the outline, where
/// fill_contours hides the joint. The panorama is to grow as far as the frame needs; everything else in it is
/// black.
///
/// @param panorama             CV_8UC3; read only
/// @param frame                the prepared frame, CV_8UC3; read only
/// @param panorama_from_frame  the frame into `panorama`, 3 x 3, CV_64F; may reach to negative coordinates
/// @returns nothing when a side of the grown panorama would exceed 10000 px
/// @throws cv::Exception for images of another type, a frame that is mapped to nowhere, or a lack of memory
std::optional<merged_frame> merge_frame(const cv::Mat& panorama, const cv::Mat& frame,
                                        const cv::Mat& panorama_from_frame);

/// Whether the panorama can grow where it is: the storage that it is a view of has the room, and nobody else uses
/// any of it.
///
/// @param headers  how many headers of the storage the caller answers for, `panorama` among them. There must be
///                 no other one that somebody could copy meanwhile.
bool can_grow_in_place(const cv::Mat& panorama, const merged_frame& merged, int headers);

/// The grown panorama, a larger view of the panorama's own storage: takes time for the frame's box
/// and for what is new, not for the panorama. To be called only when can_grow_in_place says so.
cv::Mat grow_in_place(const cv::Mat& panorama, const merged_frame& merged);

/// The grown panorama in new storage, with room to grow further to the sides to which it grew, by half of its
/// length there; what a sweep costs for copies is thus in proportion to its panorama. The room takes address space
/// only, until it is used.
/// @throws cv::Exception for a lack of memory
cv::Mat grow_in_new_storage(const cv::Mat& panorama, const merged_frame& merged);

}  // namespace tarn
