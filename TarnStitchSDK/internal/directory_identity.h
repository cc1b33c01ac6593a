// SPDX-License-Identifier: Apache-2.0
//
// Directories told apart by what they are rather than by how their paths are spelt.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace tarn {

/// What tells one directory from all others of the system.
struct directory_identity {
    dev_t device;
    ino_t inode;

    bool operator==(const directory_identity& other) const
    {
        return device == other.device && inode == other.inode;
    }
};

/// The directories on the way to a path: the one that it names, or where there is none yet the nearest above it that
/// exists; all those above that one; and those that its spelling leads through. Empty for a path of which nothing can be
/// found out. Links are followed. Throws
/// nothing but std::bad_alloc. Any thread.
std::vector<directory_identity> directories_towards(const std::string& path);

/// How two working directories lie.
enum class directories_lie {
    apart,
    as_one,          ///< two spellings of one directory
    new_inside_old,  ///< the new one is below the old one, or would be, or its path leads through it
};

/// @param old_path  the directory that is about to be removed
/// @param new_path  the directory that is about to be used; need not exist. `way` is directories_towards(new_path)
directories_lie how_directories_lie(const std::string& old_path, const std::string& new_path,
                                    const std::vector<directory_identity>& way);

/// deleteFile (working_directory.h) of a directory, but the directories `kept` stay, emptied.
void empty_directory_but(const char* path, const std::vector<directory_identity>& kept);

}  // namespace tarn
