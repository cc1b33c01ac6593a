// SPDX-License-Identifier: Apache-2.0
//
// What a run leaves for the next one with --skip-done: its summary beside the panorama, with all that tells whether the
// same is asked for again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "options.h"

namespace tarn::host {

/// A file by its content. One that is no regular file, or cannot be read, has none.
struct file_identity {
    std::string
        what;  ///< of an output: "panorama", "preview", "finished", "frames", "report", "log" or "working file"; "" for an input
    std::string file;
    std::int64_t bytes = -1;    ///< negative for what has no content of its own: a camera, a pipe
    std::int64_t modified = 0;  ///< nanoseconds since the beginning of 1970
    std::string sha256 = {};    ///< in hexadecimal; "" if the content is not known
};

/// Looks at files, and reads each regular one from beginning to end.
std::vector<file_identity> identities_of(const std::vector<std::string>& files);

/// The outputs of a run as they are now: of the panorama, the preview and the finished picture those with the names
/// given, unless these are empty, and all others that were asked for, but for
/// the report.
std::vector<file_identity> outputs_of(const options& asked, const std::string& panorama, const std::string& preview,
                                      const std::string& finished);

/// The report, which comes after all other outputs, of which it tells.
file_identity identity_of_report(const std::string& file);

/// Where the record of a run lies: "river.jpg.json" for "river.jpg".
std::string record_place(const std::string& panorama);

/// Whether nothing is left to do: whether the record tells of a run to the end by this version of the program, with
/// these options but for those that change no pixel, of the very input, and the outputs are still what it left. Of an
/// input whose size and time are as they were it is not asked whether its content is.
/// @param input_files  that would be read
/// @param record       is given the record's text, with "skipped" set, when the answer is yes
bool is_done(const options& asked, const std::string& panorama, const std::vector<std::string>& input_files,
             std::string& record);

}  // namespace tarn::host
