// SPDX-License-Identifier: Apache-2.0
//
// What a run leaves for the next one with --skip-done: its summary beside the panorama, with all that tells whether the
// same is asked for again.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
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
    std::int64_t changed = 0;   ///< likewise, of the file or what is noted of it: nobody can set this one back
    std::string sha256 = {};    ///< in hexadecimal; "" if the content is not known
};

/// What a sweep's input files are: how they lay there before they were opened, and their digests, which are made beside
/// the sweep.
class input_identities {
public:
    input_identities() = default;
    /// Leaves at once, whatever is not read yet.
    ~input_identities();
    input_identities(const input_identities&) = delete;
    input_identities& operator=(const input_identities&) = delete;

    /// Notes how files are now, for those that are about to be opened. What has no name of a file is passed over.
    void look_at(const std::vector<std::string>& names);

    /// Begins to read the files of an input through. One that was not looked at is looked at now.
    /// @param beside  in a thread, while the caller goes on; or else not before they are asked for
    void begin(const std::vector<std::string>& files, bool beside);

    /// Waits for the digests. Those that a stop has cut short are missing; so is that of a file which is not any more
    /// what it was when it was looked at, whose name goes to `changed`.
    std::vector<file_identity> take(std::vector<std::string>& changed);

private:
    void read();

    std::vector<file_identity> looked_at_;
    std::vector<file_identity> files_;
    std::atomic<bool> left_{false};
    std::thread reader_;
};

/// The outputs of a run as they are now: of the panorama, the preview and the finished picture those with the names
/// given, unless these are empty, and all others that were asked for, but for
/// the report.
std::vector<file_identity> outputs_of(const options& asked, const std::string& panorama, const std::string& preview,
                                      const std::string& finished);

/// The report, which comes after all other outputs, of which it tells.
file_identity identity_of_report(const std::string& file);

/// What an earlier run with --skip-done has left and still is what its record, beside the panorama, tells.
std::vector<std::string> outputs_of_earlier_run(const std::string& panorama);

/// Whether nothing is left to do: whether the record tells of a run to the end by this version of the program, with
/// these options but for those that change no pixel, of the very input, and the outputs are still what it left. Of an
/// input whose size and times are as they were it is not asked whether its content is.
/// @param input_files  that would be read
/// @param record       is given the record's text, with "skipped" set, when the answer is yes
bool is_done(const options& asked, const std::string& panorama, const std::vector<std::string>& input_files,
             std::string& record);

}  // namespace tarn::host
