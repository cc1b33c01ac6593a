// SPDX-License-Identifier: Apache-2.0
//
// Results on disk: checked before the work starts, and written so that they appear at their place whole or not
// at all.
#pragma once

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

/// `path` with `addition` before its ending: ("a/b.jpg", "-partial") gives "a/b-partial.jpg".
std::string with_addition(const std::string& path, const std::string& addition);

/// Whether two paths name the same file, or the same place for a file that is yet to be.
bool same_place(const std::string& one, const std::string& other);

}  // namespace tarn::host
