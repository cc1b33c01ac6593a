// SPDX-License-Identifier: Apache-2.0
//
// The kinds of input, and how one is told from the other.
#include "frame_source.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "camera_source.h"
#include "host_error.h"
#include "image_files.h"
#include "image_source.h"
#include "input_mistakes.h"
#include "output_file.h"
#include "video_source.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::input_failed, line);
}

bool is_regular(const std::string& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error);
}

void leave_out_files(std::vector<std::string>& files, const std::vector<std::string>& left_out)
{
    const auto is_left_out = [&left_out](const std::string& file) {
        return std::any_of(left_out.begin(), left_out.end(),
                           [&file](const std::string& other) { return same_place(file, other); });
    };
    files.erase(std::remove_if(files.begin(), files.end(), is_left_out), files.end());
}

std::unique_ptr<frame_source> open_all(std::vector<std::string> files, const std::vector<std::string>& left_out,
                                       int max_pixels, const std::string& none_found)
{
    leave_out_files(files, left_out);
    if (files.empty()) {
        fail(none_found);
    }
    return open_images(std::move(files), max_pixels);
}

/// Fails with the reason when a file cannot be read, or is empty. Anything but a regular file, a pipe perhaps, is
/// opened but once, and not here.
void check_readable(const std::string& file)
{
    if (!is_regular(file)) {
        return;
    }
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor == -1) {
        fail("cannot read " + file + ": " + std::generic_category().message(errno));
    }
    close(descriptor);
    std::error_code error;
    if (fs::file_size(file, error) == 0) {
        fail(file + " is empty");
    }
}

bool is_image(const std::string& file)
{
    return has_image_ending(file) || (is_regular(file) && cv::haveImageReader(file));
}

std::unique_ptr<frame_source> open_file(const std::string& input, int max_pixels)
{
    check_readable(input);
    if (has_image_ending(input)) {
        return open_images({input}, max_pixels);
    }
    std::error_code error;
    auto video = fs::is_character_file(input, error) ? open_camera(input) : open_video(input, max_pixels);
    if (video) {
        return video;
    }
    if (is_image(input)) {
        return open_images({input}, max_pixels);
    }
    fail(fs::is_character_file(input, error) ? input + " is no camera that can be opened"
                                             : input + " is neither a video nor an image that can be read");
}

std::unique_ptr<frame_source> open_one(const std::string& input, const std::vector<std::string>& left_out,
                                       int max_pixels)
{
    std::error_code error;
    const fs::file_status status = fs::status(input, error);
    if (status.type() == fs::file_type::none) {
        fail("cannot read " + input + ": " + error.message());
    }
    if (fs::is_directory(status)) {
        return open_all(images_in_directory(input), left_out, max_pixels, no_images_in(input));
    }
    if (fs::exists(status)) {
        return open_file(input, max_pixels);
    }
    if (camera_number(input)) {
        auto camera = open_camera(input);
        return camera ? std::move(camera) : (fail("there is no " + input + " that can be opened"), nullptr);
    }
    numbered_name name;
    if (parse_numbered_name(input, name)) {
        return open_all(numbered_images(name), left_out, max_pixels, "there are no files " + input);
    }
    fail("there is no file or directory " + input);
}

}  // namespace

std::string as_path(const std::string& file)
{
    return fs::path(file).is_absolute() ? file : "./" + file;
}

void check_size(const std::string& name, const cv::Size& size, int max_pixels)
{
    if (static_cast<std::int64_t>(size.width) * size.height > max_pixels) {
        fail(name + " is of " + std::to_string(size.width) + "x" + std::to_string(size.height)
             + " pixels, more than --max-pixels " + std::to_string(max_pixels) + " allows");
    }
}

std::unique_ptr<frame_source> open_frame_source(const std::vector<std::string>& inputs,
                                                const std::vector<std::string>& left_out, int max_pixels)
{
    if (inputs.size() == 1) {
        return open_one(inputs.front(), left_out, max_pixels);
    }
    std::error_code error;
    for (const std::string& input : inputs) {
        if (!fs::exists(fs::status(input, error))) {
            fail(missing_among(inputs, input));
        }
    }
    for (const std::string& input : inputs) {
        check_readable(input);
        if (fs::is_directory(input, error) || !is_image(input)) {
            fail(not_together(inputs, input));
        }
    }
    std::vector<std::string> files = inputs;
    std::stable_sort(files.begin(), files.end(), natural_less);
    return open_images(std::move(files), max_pixels);
}

std::string name_of_input(const std::string& input)
{
    std::error_code error;
    fs::path path(input);
    numbered_name name;
    std::string result;
    if (fs::is_directory(path, error)) {
        result = fs::canonical(path, error).filename().string();
    } else if (!fs::exists(path, error) && camera_number(input)) {
        result = "camera" + std::to_string(*camera_number(input));
    } else if (!fs::exists(path, error) && parse_numbered_name(input, name)) {
        result = name.before;
        result.erase(result.find_last_not_of("-_. ") + 1);
        if (result.empty()) {
            path = name.directory.empty() ? "." : name.directory;
            result = fs::canonical(path, error).filename().string();
        }
    } else {
        result = path.stem().string();
    }
    return result.empty() ? "sweep" : result;
}

}  // namespace tarn::host
