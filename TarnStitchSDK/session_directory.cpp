// SPDX-License-Identifier: Apache-2.0
#include "internal/session_directory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn {

namespace {

namespace fs = std::filesystem;

constexpr mode_t owner_only = 0700;

[[noreturn]] void refuse(const std::string& directory, const std::string& what)
{
    throw sweep_error(sweep_problem::directory_unusable, "the directory " + directory + " " + what);
}

std::string text_of(int error)
{
    return std::generic_category().message(error);
}

// Which file a path leads to.
struct identity {
    dev_t device;
    ino_t inode;

    bool operator==(const identity& other) const
    {
        return device == other.device && inode == other.inode;
    }
};

std::optional<identity> identity_of(const std::string& path)
{
    struct stat status {};

    if (stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return identity{status.st_dev, status.st_ino};
}

// The path without links, "." and "..", which must exist; "" otherwise.
std::string resolved(const std::string& path)
{
    struct free_it {
        void operator()(char* text) const
        {
            std::free(text);
        }
    };

    const std::unique_ptr<char, free_it> text(realpath(path.c_str(), nullptr));
    return text ? text.get() : "";
}

// The directory in which a path's last part lies.
std::string parent_of(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// `outer` or one of the directories above `inner` is the other one; of a path that is missing, those above it that
// exist count.
bool holds(const identity& outer, std::string inner)
{
    std::string existing = resolved(inner);
    while (existing.empty()) {
        const std::string above = parent_of(inner);
        if (above == inner) {
            return false;
        }
        inner = above;
        existing = resolved(inner);
    }
    while (true) {
        if (identity_of(existing) == outer) {
            return true;
        }
        if (existing == "/") {
            return false;
        }
        existing = parent_of(existing);
    }
}

// The name of something that lies in a directory and is not called `but`; none if there is nothing, or if it cannot be
// read: `error` then says why.
std::optional<std::string> any_entry(const std::string& directory, int& error, const std::string& but = "")
{
    struct close_it {
        void operator()(DIR* stream) const
        {
            closedir(stream);
        }
    };

    const std::unique_ptr<DIR, close_it> stream(opendir(directory.c_str()));
    if (!stream) {
        error = errno;
        return std::nullopt;
    }
    errno = 0;
    while (const dirent* entry = readdir(stream.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0 && entry->d_name != but) {
            return entry->d_name;
        }
    }
    error = errno;
    return std::nullopt;
}

// A directory has nothing in it but what leads to one below it.
bool has_nothing_beside(const std::string& directory, const std::string& below)
{
    const std::string top = resolved(directory) + "/";
    const std::string path = resolved(below);
    if (top == "//" || path.compare(0, top.size(), top) != 0) {
        return false;
    }
    const std::string entry = path.substr(top.size(), path.find('/', top.size()) - top.size());
    int error = 0;
    return !any_entry(top, error, entry) && error == 0;
}

void check_text(const char* name, const std::string& path)
{
    if (path.find('\0') != std::string::npos) {
        throw sweep_error(sweep_problem::bad_argument, std::string(name) + " has a zero byte in it");
    }
}

std::string parent_for_private(const std::string& asked_for)
{
    if (!asked_for.empty()) {
        return asked_for;
    }
    std::error_code error;
    std::string parent = fs::temp_directory_path(error).string();
    if (error) {
        throw sweep_error(sweep_problem::directory_unusable,
                          "there is no directory for temporary files: " + error.message());
    }
    return parent;
}

}  // namespace

session_directory::session_directory(const sweep_options& options)
{
    check_text("directory", options.directory);
    check_text("private_parent", options.private_parent);
    try {
        if (options.directory.empty()) {
            make_private(parent_for_private(options.private_parent));
        } else {
            see_to(options.directory);
        }
    } catch (...) {
        remove_what_was_made();
        throw;
    }
}

session_directory::~session_directory()
{
    remove_what_was_made();
}

void session_directory::make_private(const std::string& parent)
{
    asked_for_ = parent;
    const std::string existing = resolved(parent);
    if (existing.empty()) {
        refuse(parent, "for a private one cannot be entered: " + text_of(errno));
    }
    std::string pattern = existing + (existing.back() == '/' ? "" : "/") + "tarnstitch-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        refuse(parent, "cannot hold a private one: " + text_of(errno));
    }
    topmost_made_ = pattern;
    innermost_made_ = pattern;
    path_ = pattern + "/";
    asked_for_ = path_;
    check();
}

void session_directory::see_to(const std::string& directory)
{
    asked_for_ = directory;
    make_missing(directory);
    path_ = resolved(directory);
    if (path_.empty()) {
        refuse(directory, "cannot be entered: " + text_of(errno));
    }
    if (path_ == "/") {
        refuse(directory, "is the root of the file system, which nobody may empty");
    }
    path_ += "/";
    check();
}

// Makes the directory with those above it that are missing.
void session_directory::make_missing(const std::string& directory)
{
    size_t end = directory.find_first_not_of('/');
    while (end != std::string::npos) {
        end = directory.find('/', end);
        const std::string part = directory.substr(0, end);
        if (mkdir(part.c_str(), owner_only) == 0) {
            innermost_made_ = resolved(part);
            if (topmost_made_.empty()) {
                topmost_made_ = innermost_made_;
            }
        } else if (const int error = errno; error != EEXIST && !identity_of(part)) {
            refuse(directory, "cannot be made: " + text_of(error));
        }
        end = end == std::string::npos ? end : directory.find_first_not_of('/', end);
    }
}

void session_directory::check() const
{
    struct stat status {};

    if (stat(path_.c_str(), &status) != 0) {
        refuse(asked_for_, errno == ENOTDIR ? "is not one" : "cannot be entered: " + text_of(errno));
    }
    int error = 0;
    const std::optional<std::string> entry = any_entry(path_, error);
    if (entry) {
        throw sweep_error(sweep_problem::directory_not_empty,
                          "the directory " + asked_for_ + " is not empty: \"" + *entry + "\" lies in it");
    }
    if (error != 0) {
        refuse(asked_for_, "cannot be read: " + text_of(error));
    }
    if (faccessat(AT_FDCWD, path_.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
        refuse(asked_for_, "cannot be read and written: " + text_of(errno));
    }
}

// From the inside out, and no further than something lies in the way.
void session_directory::remove_what_was_made() const noexcept
{
    if (topmost_made_.empty()) {
        return;
    }
    try {
        for (std::string made = innermost_made_; made.size() >= topmost_made_.size() && rmdir(made.c_str()) == 0;) {
            made = parent_of(made);
        }
    } catch (const std::exception&) {
        // Memory is short: empty directories stay.
    }
}

bool touches_directory(const sweep_options& options, const std::string& directory)
{
    const std::optional<identity> other = identity_of(directory);
    if (!other) {
        return false;
    }
    const std::string asked_for =
        options.directory.empty() ? parent_for_private(options.private_parent) : options.directory;
    if (holds(*other, asked_for)) {
        return true;
    }
    // A private directory is a new one, so what lies beside it does not matter.
    const std::optional<identity> own = identity_of(asked_for);
    return own && !options.directory.empty() && holds(*own, directory) && has_nothing_beside(asked_for, directory);
}

}  // namespace tarn
