// SPDX-License-Identifier: Apache-2.0
//
// Exif metadata: what the input knows of its origin, passed on to the outputs. Tags that tell viewers of a projection
// (GPano) are written where there is one that they can name, as the finished picture may have: the panorama has none.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"
#include "panorama_view.h"

namespace tarn::host {

/// The Exif orientation of an image file, 1 to 8; 0 when it has none.
int exif_orientation(const std::string& file);

/// Metadata for the outputs of a sweep.
class output_metadata {
public:
    /// Software; the capture date: the first image's, or a video's own, else the time at which the file was
    /// changed last, or the present for a camera; and where the first image has them its GPS position, make and
    /// model.
    explicit output_metadata(const source_facts& input);
    ~output_metadata();
    output_metadata(const output_metadata&) = delete;
    output_metadata& operator=(const output_metadata&) = delete;

    /// Puts the metadata into an encoded image, where its format can hold them (JPEG, PNG, TIFF, WebP), without
    /// touching its pixels.
    /// @returns false when the format can hold them and yet it failed; the image is then as it was
    /// @param view  what viewers are told as well; nothing where it has no projection
    bool add_to(std::vector<unsigned char>& encoded_image, const panorama_view& view = {}) const;

private:
    struct tags;
    std::unique_ptr<tags> tags_;
};

}  // namespace tarn::host
