// SPDX-License-Identifier: Apache-2.0
//
// Results on disk: checked before the work starts, and written so that they appear at their place whole or not
// at all.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tarn::host {

/// Makes sure, as far as that can be known before, that `path` can be written: its directory takes a new file,
/// and what stands there already is a file that may be replaced. Changes nothing.
/// @throws host_error (output_failed) with the reason
void check_output_place(const std::string& path);

/// Writes a file: under a temporary name in the same directory, then renamed to its place. Until that last step
/// what stood there is untouched. A new file gets the permissions that the umask leaves, a replaced one keeps
/// its own; where `path` is a symbolic link, the file that it points to is replaced and the link stays.
/// @throws host_error (output_failed) with the reason; nothing is left behind then
void write_whole_file(const std::string& path, const std::vector<unsigned char>& bytes);

/// A file that is written bit by bit, in the same way: it is at its place once finish() has returned, whole, and
/// gone without a trace if that is never called. Memory does not grow with it.
class growing_file {
public:
    /// @throws host_error (output_failed)
    explicit growing_file(const std::string& path);
    ~growing_file();
    growing_file(const growing_file&) = delete;
    growing_file& operator=(const growing_file&) = delete;

    /// Adds to the end. A failure shows in finish().
    void append(const std::string& text);

    /// @throws host_error (output_failed) with the reason, also of an earlier failure
    void finish();

private:
    struct parts;
    std::unique_ptr<parts> parts_;
};

/// `path` with `addition` before its ending: ("a/b.jpg", "-partial") gives "a/b-partial.jpg".
std::string with_addition(const std::string& path, const std::string& addition);

/// A name's ending in small letters: ".jpg" for "a/B.JPG"; "" without one.
std::string small_ending_of(const std::string& path);

/// The place of a file that is or is yet to be, without links and dots on the way to it.
std::string canonical_place(const std::string& path);

/// Whether two paths name the same file, or the same place for a file that is yet to be.
bool same_place(const std::string& one, const std::string& other);

}  // namespace tarn::host
