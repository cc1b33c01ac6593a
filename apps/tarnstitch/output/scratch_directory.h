// SPDX-License-Identifier: Apache-2.0
//
// A private temporary directory, and what lies in a directory.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

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

/// The paths of what lies in a directory, as far as it can be read; in no order. Listed before it is returned, so that
/// the caller may move or remove what it names.
std::vector<std::filesystem::path> entries_of(const std::filesystem::path& directory);

}  // namespace tarn::host
