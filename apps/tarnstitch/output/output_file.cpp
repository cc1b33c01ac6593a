// SPDX-License-Identifier: Apache-2.0
//
// Output files: the checks before, the temporary name, the rename.
#include "output_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "host_error.h"
#include "interruption.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw host_error(exit_code::output_failed, "cannot write " + path + ": " + reason);
}

std::string reason_of(int error_number)
{
    return std::generic_category().message(error_number);
}

/// Where the file itself stands, or will stand: the end of the symbolic links at `path`, if it is one. There need not
/// be a file yet.
fs::path real_place(const std::string& path)
{
    constexpr int most_links = 40;
    fs::path place = path;
    std::error_code error;
    for (int i = 0; i < most_links && fs::is_symlink(fs::symlink_status(place, error)); ++i) {
        const fs::path target = fs::read_symlink(place, error);
        place = target.is_absolute() ? target : place.parent_path() / target;
    }
    return place;
}

fs::path directory_of(const fs::path& place)
{
    return place.has_parent_path() ? place.parent_path() : fs::path(".");
}

/// A new file under a short hidden name, which goes with the object unless it was renamed to its place. The
/// name does not build on the target's, which may be as long as a name can be.
class temporary_file {
public:
    temporary_file(const fs::path& directory, const std::string& shown_path)
    {
        std::random_device entropy;
        interruption_hold hold;
        do {
            char name[32];
            std::snprintf(name, sizeof name, ".tarnstitch-%08x", static_cast<unsigned>(entropy()));
            path_ = (directory / name).string();
            // With mode 0666 the file gets what the umask leaves, as any program's output does.
            descriptor_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        } while (descriptor_ == -1 && errno == EEXIST);
        if (descriptor_ == -1) {
            fail(shown_path, reason_of(errno));
        }
        hold.remove_when_interrupted(path_);
    }

    ~temporary_file()
    {
        close_descriptor();
        if (!renamed_) {
            interruption_hold hold;
            unlink(path_.c_str());
            hold.keep_when_interrupted(path_);
        }
    }

    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    /// @returns 0, or the number of the error
    int write_all(const void* bytes, std::size_t size) const
    {
        std::size_t done = 0;
        while (done < size) {
            const ssize_t written = write(descriptor_, static_cast<const char*>(bytes) + done, size - done);
            if (written > 0) {
                done += static_cast<std::size_t>(written);
            } else if (written == 0 || errno != EINTR) {
                return written == 0 ? ENOSPC : errno;
            }
        }
        return 0;
    }

    /// Gives the file the permissions of the one that it is going to replace, if there is one.
    void take_mode_of(const fs::path& place) const
    {
        struct stat standing = {};
        if (stat(place.c_str(), &standing) == 0) {
            // A file system without permissions refuses, and has none to keep.
            static_cast<void>(fchmod(descriptor_, standing.st_mode & 0777));
        }
    }

    /// @returns 0, or the number of the error
    int move_to(const fs::path& place)
    {
        // Some file systems find out only now that they are full. Some cannot sync, which is no failure.
        if (fsync(descriptor_) != 0 && errno != EINVAL && errno != ENOSYS) {
            return errno;
        }
        const int close_error = close_descriptor();
        if (close_error != 0) {
            return close_error;
        }
        interruption_hold hold;
        if (rename(path_.c_str(), place.c_str()) != 0) {
            return errno;
        }
        renamed_ = true;
        hold.keep_when_interrupted(path_);
        return 0;
    }

private:
    int close_descriptor()
    {
        const int error = (descriptor_ != -1 && close(descriptor_) != 0) ? errno : 0;
        descriptor_ = -1;
        return error;
    }

    std::string path_;
    int descriptor_ = -1;
    bool renamed_ = false;
};

/// The last step of a file that has been written.
void put_into_place(temporary_file& file, const fs::path& place, const std::string& shown_path)
{
    file.take_mode_of(place);
    const int error = file.move_to(place);
    if (error != 0) {
        fail(shown_path, reason_of(error));
    }
}

}  // namespace

void check_output_place(const std::string& path)
{
    if (path.empty()) {
        throw host_error(exit_code::output_failed, "cannot write an output without a name");
    }
    const fs::path place = real_place(path);
    const fs::path directory = directory_of(place);

    std::error_code error;
    const fs::file_status directory_status = fs::status(directory, error);
    if (directory_status.type() == fs::file_type::not_found) {
        fail(path, "there is no directory " + directory.string());
    }
    if (directory_status.type() == fs::file_type::none) {
        fail(path, error.message());
    }
    if (!fs::is_directory(directory_status)) {
        fail(path, directory.string() + " is not a directory");
    }

    const fs::file_status status = fs::status(place, error);
    if (status.type() == fs::file_type::none) {
        fail(path, error.message());
    }
    if (fs::is_directory(status) || !place.has_filename()) {
        fail(path, "it is a directory");
    }
    if (fs::exists(status)) {
        // Renaming onto a device or a pipe would replace it, and a write-protected file is meant to stay.
        if (!fs::is_regular_file(status)) {
            fail(path, "it is not a regular file");
        }
        if (access(place.c_str(), W_OK) != 0) {
            fail(path, reason_of(errno));
        }
    }
    const temporary_file proof(directory, path);
}

void write_whole_file(const std::string& path, const std::vector<unsigned char>& bytes)
{
    const fs::path place = real_place(path);
    temporary_file file(directory_of(place), path);
    const int write_error = file.write_all(bytes.data(), bytes.size());
    if (write_error != 0) {
        fail(path, reason_of(write_error));
    }
    put_into_place(file, place, path);
}

struct growing_file::parts {
    explicit parts(const std::string& wanted)
        : path(wanted), place(real_place(wanted)), file(directory_of(place), wanted)
    {
    }

    void write_out()
    {
        if (error == 0) {
            error = file.write_all(pending.data(), pending.size());
        }
        pending.clear();
    }

    std::string path;
    fs::path place;
    temporary_file file;
    std::string pending;  ///< not written yet: lines are short
    int error = 0;        ///< the number of the first error
};

growing_file::growing_file(const std::string& path) : parts_(std::make_unique<parts>(path))
{
}

growing_file::~growing_file() = default;

void growing_file::append(const std::string& text)
{
    constexpr std::size_t enough = 1 << 16;
    parts_->pending += text;
    if (parts_->pending.size() >= enough) {
        parts_->write_out();
    }
}

void growing_file::finish()
{
    parts_->write_out();
    if (parts_->error != 0) {
        fail(parts_->path, reason_of(parts_->error));
    }
    put_into_place(parts_->file, parts_->place, parts_->path);
}

std::string with_addition(const std::string& path, const std::string& addition)
{
    const fs::path whole(path);
    return (whole.parent_path() / (whole.stem().string() + addition + whole.extension().string())).string();
}

std::string small_ending_of(const std::string& path)
{
    std::string ending = fs::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return ending;
}

std::string canonical_place(const std::string& path)
{
    std::error_code error;
    const fs::path absolute = fs::absolute(real_place(path), error);
    const fs::path canonical = fs::weakly_canonical(absolute, error);
    return (error ? absolute : canonical).string();
}

bool same_place(const std::string& one, const std::string& other)
{
    std::error_code error;
    if (fs::equivalent(one, other, error)) {
        return true;
    }
    return canonical_place(one) == canonical_place(other);
}

}  // namespace tarn::host
