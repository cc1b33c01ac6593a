// SPDX-License-Identifier: Apache-2.0
#include "internal/directory_identity.h"

#include <algorithm>
#include <optional>
#include <sys/stat.h>

namespace tarn {

namespace {

std::optional<directory_identity> identity_of(const std::string& path)
{
    struct stat status {};

    if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    return directory_identity{status.st_dev, status.st_ino};
}

// The path without its last name; "." or "/" when there is no more of it.
std::string directory_above(std::string path)
{
    const bool is_absolute = path.front() == '/';
    path.erase(path.find_last_not_of('/') + 1);
    const std::size_t slash = path.find_last_of('/');
    path.erase(slash == std::string::npos ? 0 : slash);
    path.erase(path.find_last_not_of('/') + 1);
    if (path.empty()) {
        return is_absolute ? "/" : ".";
    }
    return path;
}

}  // namespace

std::vector<directory_identity> directories_towards(const std::string& path)
{
    std::vector<directory_identity> way;
    if (path.empty()) {
        return way;
    }
    const auto add = [&way](const std::optional<directory_identity>& directory) {
        if (directory && std::find(way.begin(), way.end(), *directory) == way.end()) {
            way.push_back(*directory);
        }
    };
    // Those that the path names: it may lead through a directory that it does not lie in, and one that may not be
    // entered does not tell what is above it.
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        add(identity_of(path.substr(0, slash)));
    }
    std::string place = path;
    std::optional<directory_identity> here = identity_of(place);
    while (!here && place != "." && place != "/") {
        place = directory_above(place);
        here = identity_of(place);
    }
    std::optional<directory_identity> below;
    while (here && !(here == below)) {  // the root is above itself
        add(here);
        below = here;
        place += "/..";
        here = identity_of(place);
    }
    return way;
}

directories_lie how_directories_lie(const std::string& old_path, const std::string& new_path,
                                    const std::vector<directory_identity>& way)
{
    const std::optional<directory_identity> removed = old_path.empty() ? std::nullopt : identity_of(old_path);
    if (!removed || std::find(way.begin(), way.end(), *removed) == way.end()) {
        return directories_lie::apart;
    }
    return identity_of(new_path) == removed ? directories_lie::as_one : directories_lie::new_inside_old;
}

}  // namespace tarn
