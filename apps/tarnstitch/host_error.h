// SPDX-License-Identifier: Apache-2.0
//
// How the program ends: its exit codes, and the error that carries one.
#pragma once

#include <stdexcept>
#include <string>

namespace tarn::host {

/// The program's exit codes, as --help documents them.
enum class exit_code {
    done = 0,            ///< everything asked for was written
    not_stitched = 1,    ///< the sweep could not be stitched to its end
    usage = 2,           ///< the command line makes no sense
    input_failed = 3,    ///< the input is missing, unreadable or without frames
    output_failed = 4,   ///< an output, or a temporary file, cannot be written
    short_of_means = 5,  ///< the machine gave too little memory, time, threads or files: the same may succeed later
    stopped = 130,       ///< the user stopped it; what there was until then is written
};

/// Ends the program with one line on standard error, what(), and an exit code.
class host_error : public std::runtime_error {
public:
    host_error(exit_code code, const std::string& line) : std::runtime_error(line), code_(code)
    {
    }

    exit_code code() const
    {
        return code_;
    }

private:
    exit_code code_;
};

}  // namespace tarn::host
