// SPDX-License-Identifier: Apache-2.0
//
// The directory of a sweep: found fit or refused before the library, which empties it, hears of it.
#pragma once

#include <string>

#include "tarn_sweep.h"

namespace tarn {

/// A directory that is empty, ready for a sweep. Unless `keep` is called, what was made for it is removed again.
class session_directory {
public:
    /// Makes a private directory (options.directory is empty) or sees to the named one.
    /// @throws sweep_error (bad_argument, directory_not_empty, directory_unusable)
    explicit session_directory(const sweep_options& options);
    ~session_directory();
    session_directory(const session_directory&) = delete;
    session_directory& operator=(const session_directory&) = delete;

    /// Absolute, free of links, with a "/" at its end.
    const std::string& path() const
    {
        return path_;
    }

    /// From now on the directory is the sweep's.
    void keep()
    {
        topmost_made_.clear();
    }

private:
    void make_private(const std::string& parent);
    void see_to(const std::string& directory);
    void make_missing(const std::string& directory);
    void check() const;
    void remove_what_was_made() const noexcept;

    std::string path_;
    std::string asked_for_;     ///< as the host wrote it, for texts
    std::string topmost_made_;  ///< the first of the directories that were made; "" if none was
    std::string innermost_made_;
};

/// Whether a sweep can only have its directory when that of another one is gone: it is the same one, or lies in it, or
/// holds nothing else; whatever they are called, by their devices and inodes. The second one exists, or the answer is
/// false.
bool touches_directory(const sweep_options& options, const std::string& directory);

}  // namespace tarn
