// SPDX-License-Identifier: Apache-2.0
//
// The directory in which a sweep keeps its files: testing for it, emptying it, naming what lies in it.
//
// All functions take NUL-terminated paths in the file system's own encoding, follow no symbolic link inside a
// tree that they delete, and report no failure: an entry that cannot be removed stays. They may be called from
// any thread; two calls must not work on the same tree at once (internal/shared_state.h has a lock for that).
#pragma once

namespace tarn {

/// The name of the panorama's file in a sweep's directory.
inline constexpr const char* panorama_file_name = "big_stitch.jpg";

}  // namespace tarn

/// True when `path` is a directory that can be opened for reading. (The spelling is the interface's.)
bool isFloderexit(const char* path);

/// Joins a directory and an entry's name into `filepath`, with exactly one "/" between them; a `path` that
/// ends in "/" gets no second one, an empty `path` gets one.
///
/// `filepath` is the caller's and must have room for strlen(path) + strlen(filename) + 2 characters; it must
/// not overlap the other two. Nothing is checked.
void getFilePath(const char* path, const char* filename, char* filepath);

/// Deletes what lies at `path`: a regular file is removed; a directory is emptied but stays itself; anything
/// else (a symbolic link, a device, a socket, nothing) is left alone. A directory inside the tree that holds
/// something left alone stays as well.
///
/// Paths inside the tree may be of any length, and the tree of any depth: three file descriptors are open at most.
void deleteFile(const char* path);
