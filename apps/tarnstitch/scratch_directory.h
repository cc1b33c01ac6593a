// SPDX-License-Identifier: Apache-2.0
//
// The private temporary directory in which the library works.
#pragma once

#include <string>

namespace tarn::host {

/// A new directory, open to this user alone, under $TMPDIR (or /tmp). It goes with the object, and when the
/// program is interrupted. The library empties the directory that it is given, so it must never be one in which
/// somebody keeps files: this one has just come into being.
class scratch_directory {
public:
    /// @throws host_error (output_failed) when no directory can be made
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;

    /// Absolute, with the trailing "/" that the library wants: it appends file names directly.
    const std::string& path() const
    {
        return path_;
    }

private:
    std::string path_;
};

}  // namespace tarn::host
