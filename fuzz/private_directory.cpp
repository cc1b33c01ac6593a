// SPDX-License-Identifier: Apache-2.0
#include "private_directory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace tarn::fuzz {

namespace fs = std::filesystem;

namespace {

void remove_private_directory()
{
    remove_tree(private_directory());
}

std::string make_private_directory()
{
    const std::string parent = fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string();
    std::string pattern = parent + "/tarn-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror(pattern.c_str());
        std::exit(1);
    }
    return pattern + "/";
}

}  // namespace

const std::string& private_directory()
{
    static const std::string& path = *new std::string([] {
        std::atexit(&remove_private_directory);
        return make_private_directory();
    }());
    return path;
}

void remove_tree(const std::string& path)
{
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(path, error))) {
        fs::permissions(path, fs::perms::owner_all, error);
        for (const auto& entry : fs::directory_iterator(path, error)) {
            remove_tree(entry.path().string());
        }
    }
    fs::remove(path, error);
}

std::string description_of_tree(const std::string& path)
{
    std::vector<std::string> lines;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        struct stat status {};

        lstat(entry->path().c_str(), &status);
        std::ostringstream line;
        line << entry->path().string() << ' ' << std::oct << status.st_mode;
        if (S_ISREG(status.st_mode)) {
            std::ifstream file(entry->path(), std::ios::binary);
            line << ' ' << std::string(std::istreambuf_iterator<char>(file), {});
        } else if (S_ISLNK(status.st_mode)) {
            line << " -> " << fs::read_symlink(entry->path(), error).string();
        }
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

}  // namespace tarn::fuzz
