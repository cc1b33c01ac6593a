// SPDX-License-Identifier: Apache-2.0
//
// A private temporary directory.
#pragma once

#include <string>

namespace tarn::host {

/// Where temporary directories are made: $TMPDIR (or /tmp).
std::string temporary_parent();

/// A new directory, open to this user alone, in temporary_parent(). It goes with the object, and when the
/// program is interrupted.
class scratch_directory {
public:
    /// @throws host_error (output_failed) when no directory can be made
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;

    /// Absolute, with a "/" at its end.
    const std::string& path() const
    {
        return path_;
    }

private:
    std::string path_;
};

}  // namespace tarn::host
