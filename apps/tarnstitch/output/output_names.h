// SPDX-License-Identifier: Apache-2.0
//
// The names of the files that a run may write.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace tarn::host {

/// A file that a run may write.
struct named_output {
    std::string what;  ///< the option that asks for it, or what it is
    std::string file;
};

/// All of them, but for the working files.
std::vector<named_output> named_outputs(const options& asked);

/// Where the panorama goes, once it is whole.
std::string name_of_panorama(const options& asked);

/// Where the finished picture goes, if it is asked for.
std::string name_of_finished_picture(const options& asked);

/// Where the record of a run lies: "river.jpg.json" for "river.jpg".
std::string record_place(const std::string& panorama);

/// Whether a file is to be a JPEG, by its ending.
bool is_jpeg_name(const std::string& path);

/// Whether --keep-work may put a file of this name into its directory: "big_stitch.jpg", "big_frame12.jpg".
bool is_working_name(const std::string& name);

/// Whether it is a key frame's: "big_frame12.jpg".
bool is_working_frame_name(const std::string& name);

/// The directory for working files, without a "/" at its end.
std::string kept_directory(const options& asked);

/// Checks names against each other, and the endings of all but the preview, which may be of any format of pictures.
/// @throws host_error (usage): an ending that cannot be written, one name given twice, or a working file's
void check_output_names(const options& asked);

}  // namespace tarn::host
