// SPDX-License-Identifier: Apache-2.0
//
// Which image files make up a sweep, and in which order.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarn::host {

/// The order in which people number files: runs of digits compare as numbers ("frame2" before "frame10",
/// "2" before "02"), everything else byte by byte. A strict weak order in which only equal names are equal.
bool natural_less(std::string_view one, std::string_view other);

/// Whether a file name has an ending under which still images go.
bool has_image_ending(const std::string& name);

/// The images of a directory (not of those below it) in natural order, known by their endings; hidden files
/// are none.
/// @throws host_error (input_failed) when the directory cannot be read
std::vector<std::string> images_in_directory(const std::string& directory);

/// A numbered file name, "frame%04d.png", taken apart.
struct numbered_name {
    std::string directory;     ///< as given, "" for the current one
    std::string before;        ///< what stands before the number
    std::string after;         ///< what stands after it
    std::size_t width = 0;     ///< digits that the number has at least
    bool zero_padded = false;  ///< filled with zeros up to `width`
};

/// Reads a pattern with exactly one %d (or %4d, %04d, %i) in its last component; "%%" stands for "%".
/// @returns false when it is none
bool parse_numbered_name(const std::string& pattern, numbered_name& name);

/// The files that a pattern names, by rising number. The numbers may start anywhere and leave gaps.
/// @throws host_error (input_failed) when the directory cannot be read
std::vector<std::string> numbered_images(const numbered_name& name);

/// Whether a file is a JPEG whose data ends before its end marker: a copy that was cut short. Decoders fill up what
/// is missing and say nothing.
bool is_cut_jpeg(const std::string& file);

}  // namespace tarn::host
