// SPDX-License-Identifier: Apache-2.0
#include "working_directory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "internal/directory_identity.h"

namespace {

struct close_directory {
    void operator()(DIR* directory) const
    {
        closedir(directory);
    }
};

using directory_stream = std::unique_ptr<DIR, close_directory>;

directory_stream stream_of(int descriptor)
{
    directory_stream stream(descriptor < 0 ? nullptr : fdopendir(descriptor));
    if (!stream && descriptor >= 0) {
        close(descriptor);
    }
    return stream;
}

bool is_dot_or_dot_dot(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// A directory on the way from the top of a tree to the one that is being emptied.
struct open_level {
    dev_t device;
    ino_t inode;
    std::vector<std::string> subdirectories;  // those still to be emptied; the last one is next
};

// Takes the regular files out of a directory and lists its subdirectories. Closes the descriptor.
open_level clear_of_files(int descriptor)
{
    open_level level{};
    const directory_stream directory = stream_of(descriptor);

    struct stat status {};

    if (!directory || fstat(dirfd(directory.get()), &status) != 0) {
        return level;
    }
    level.device = status.st_dev;
    level.inode = status.st_ino;
    const int here = dirfd(directory.get());
    while (const dirent* entry = readdir(directory.get())) {
        const char* name = entry->d_name;
        if (is_dot_or_dot_dot(name) || fstatat(here, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISREG(status.st_mode)) {
            unlinkat(here, name, 0);
        } else if (S_ISDIR(status.st_mode)) {
            level.subdirectories.emplace_back(name);
        }
    }
    return level;
}

class owned_descriptor {
public:
    explicit owned_descriptor(int descriptor) : descriptor_(descriptor)
    {
    }

    ~owned_descriptor()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    owned_descriptor(owned_descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1))
    {
    }

    owned_descriptor& operator=(owned_descriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    owned_descriptor(const owned_descriptor&) = delete;
    owned_descriptor& operator=(const owned_descriptor&) = delete;

    int get() const
    {
        return descriptor_;
    }

private:
    int descriptor_;
};

owned_descriptor open_from(const owned_descriptor& directory, const char* name)
{
    return owned_descriptor(openat(directory.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Works on descriptors rather than paths: no path inside the tree is ever spelt out, so none can be too long, and
// a directory that is exchanged for a link in the meantime leads nowhere. It goes down and up again with a few of
// them open, so that a tree may be deeper than the process has descriptors or stack.
void empty_directory(owned_descriptor here, const std::vector<tarn::directory_identity>& kept)
{
    const auto is_kept = [&](const char* name) {
        struct stat status {};

        return !kept.empty() && fstatat(here.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0
               && std::find(kept.begin(), kept.end(), tarn::directory_identity{status.st_dev, status.st_ino})
                      != kept.end();
    };

    std::vector<open_level> levels;
    levels.push_back(clear_of_files(dup(here.get())));
    while (true) {
        if (!levels.back().subdirectories.empty()) {
            owned_descriptor below = open_from(here, levels.back().subdirectories.back().c_str());
            open_level next = clear_of_files(dup(below.get()));
            if (!next.subdirectories.empty()) {
                levels.push_back(std::move(next));
                here = std::move(below);
                continue;
            }
        } else {
            levels.pop_back();
            if (levels.empty()) {
                return;
            }
            here = open_from(here, "..");

            struct stat status {};

            if (fstat(here.get(), &status) != 0 || status.st_dev != levels.back().device
                || status.st_ino != levels.back().inode) {
                return;  // somebody has moved the directory away; what lies around it now is none of ours
            }
        }
        const char* const emptied = levels.back().subdirectories.back().c_str();
        if (!is_kept(emptied)) {
            unlinkat(here.get(), emptied, AT_REMOVEDIR);  // fails for a directory that holds something left alone
        }
        levels.back().subdirectories.pop_back();
    }
}

}  // namespace

bool isFloderexit(const char* path)
{
    return directory_stream(opendir(path)) != nullptr;
}

void getFilePath(const char* path, const char* filename, char* filepath)
{
    const size_t length = std::strlen(path);
    std::strcpy(filepath, path);
    if (length == 0 || path[length - 1] != '/') {
        std::strcat(filepath, "/");
    }
    std::strcat(filepath, filename);
}

void deleteFile(const char* path)
{
    tarn::empty_directory_but(path, {});
}

void tarn::empty_directory_but(const char* path, const std::vector<directory_identity>& kept)
{
    struct stat status {};

    if (lstat(path, &status) != 0) {
        return;
    }
    if (S_ISREG(status.st_mode)) {
        std::remove(path);
    } else if (S_ISDIR(status.st_mode)) {
        try {
            empty_directory(owned_descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)), kept);
        } catch (const std::bad_alloc&) {
            // What has not been reached stays, as where permissions are missing.
        }
    }
}
