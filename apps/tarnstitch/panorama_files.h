// SPDX-License-Identifier: Apache-2.0
//
// The files that a sweep ends in: the panorama, or the part of it, and the preview.
#pragma once

#include <string>
#include <vector>

#include "sweep.h"

namespace tarn::host {

/// What has become of the files.
struct written_files {
    std::string partial;              ///< where a part of a panorama was written; "" if none was
    std::vector<std::string> errors;  ///< one line for each file that could not be written
};

/// Names, checks and writes the outputs.
struct panorama_files {
    /// Takes the names asked for, "" for the panorama's default and for no preview, and checks their endings.
    /// @throws host_error (output_failed for an ending, usage for one name given twice)
    panorama_files(const std::string& input, const std::string& output_name, const std::string& preview_name);

    /// Checks that no output is one of the input's files.
    /// @throws host_error (output_failed)
    void check_against_inputs(const std::vector<std::string>& input_files) const;

    /// Checks that the outputs can be written where they are to be.
    /// @throws host_error (output_failed)
    void check_places() const;

    /// Writes what the sweep gave: the panorama under its own name if it is complete, else under the partial
    /// one, so that an earlier whole one stays; and the preview, as `result` holds it. Each file is tried,
    /// whatever became of the other.
    written_files write(const sweep_result& result) const;

    std::string panorama;
    std::string partial;  ///< the panorama's name with "-partial" before its ending
    std::string preview;  ///< "" for none
};

}  // namespace tarn::host
