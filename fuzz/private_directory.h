// SPDX-License-Identifier: Apache-2.0
//
// A directory of the fuzzing process's own, removed when it ends in order.
#pragma once

#include <string>

namespace tarn::fuzz {

/// Its path, with a trailing "/"; made at the first call, in the memory file system where there is one.
const std::string& private_directory();

/// Deletes a tree, directories without permissions included. The caller must own it.
void remove_tree(const std::string& path);

/// Everything below `path` as text, one line per entry: kind, permissions, size, content or target of the link.
std::string description_of_tree(const std::string& path);

}  // namespace tarn::fuzz
