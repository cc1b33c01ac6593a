// SPDX-License-Identifier: Apache-2.0
#include "working_directory.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

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

// Works on descriptors rather than paths: no path inside the tree is ever spelt out, so none can be too long, and
// a directory that is exchanged for a link in the meantime leads nowhere.
void empty_directory(int descriptor)  // NOLINT(misc-no-recursion): as deep as the tree
{
    const directory_stream directory = stream_of(descriptor);
    if (!directory) {
        return;
    }
    const int here = dirfd(directory.get());
    while (const dirent* entry = readdir(directory.get())) {
        const char* name = entry->d_name;
        if (is_dot_or_dot_dot(name)) {
            continue;
        }

        struct stat status {};

        if (fstatat(here, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISREG(status.st_mode)) {
            unlinkat(here, name, 0);
        } else if (S_ISDIR(status.st_mode)) {
            empty_directory(openat(here, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            unlinkat(here, name, AT_REMOVEDIR);
        }
    }
}

// Never destroyed: a worker may still be at its file when the process ends.
std::recursive_mutex& working_directory_mutex()
{
    static auto& mutex = *new std::recursive_mutex;
    return mutex;
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
    struct stat status {};

    if (lstat(path, &status) != 0) {
        return;
    }
    if (S_ISREG(status.st_mode)) {
        std::remove(path);
    } else if (S_ISDIR(status.st_mode)) {
        empty_directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
}

namespace tarn {

working_directory_lock::working_directory_lock() : lock_(working_directory_mutex())
{
}

}  // namespace tarn
