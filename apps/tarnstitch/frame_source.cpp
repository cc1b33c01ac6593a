// SPDX-License-Identifier: Apache-2.0
//
// The kinds of input, and how one is told from the other.
#include "frame_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <opencv2/videoio/registry.hpp>

#include "display_rotation.h"
#include "host_error.h"
#include "image_files.h"
#include "output_file.h"
#include "standard_streams.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::input_failed, line);
}

bool media_logs_are_wanted()
{
    return std::getenv("OPENCV_LOG_LEVEL") != nullptr;
}

/// Silences standard error around a decoder: decoders print warnings of their own, where the caller has a line
/// for a file that cannot be read.
class quiet_decoder {
public:
    quiet_decoder()
    {
        if (!media_logs_are_wanted()) {
            silence_.emplace(STDERR_FILENO);
        }
    }

private:
    std::optional<silenced_descriptor> silence_;
};

/// Image files, each a picture.
class image_source : public frame_source {
public:
    image_source(std::vector<std::string> files, bool upright)
        : files_(std::move(files)),
          read_flags_(cv::IMREAD_COLOR | (upright ? 0 : static_cast<int>(cv::IMREAD_IGNORE_ORIENTATION)))
    {
    }

    bool read(source_frame& frame) override
    {
        if (next_ == files_.size()) {
            return false;
        }
        frame.name = files_[next_++];
        const quiet_decoder quiet;
        try {
            frame.image = cv::imread(frame.name, read_flags_);
        } catch (const cv::Exception&) {
            frame.image = cv::Mat();  // a size beyond the image library's limits, a broken header
        }
        return true;
    }

    int announced() const override
    {
        return static_cast<int>(files_.size());
    }

    const std::vector<std::string>& files() const override
    {
        return files_;
    }

private:
    std::vector<std::string> files_;
    int read_flags_;
    std::size_t next_ = 0;
};

/// Of the back-ends that take a file name some do other things with it: one looks for cameras, one would read
/// "shot7.mp4" as one of a sequence shot7, shot8, ...
bool decodes_video_files(cv::VideoCaptureAPIs backend)
{
    static constexpr std::array decoders = {cv::CAP_FFMPEG, cv::CAP_GSTREAMER,    cv::CAP_AVFOUNDATION,
                                            cv::CAP_MSMF,   cv::CAP_OPENCV_MJPEG, cv::CAP_INTEL_MFX};
    return std::find(decoders.begin(), decoders.end(), backend) != decoders.end();
}

/// A video file.
class video_source : public frame_source {
public:
    video_source(const std::string& file, bool upright) : files_({file})
    {
        // A name such as "a:b.mp4" would be taken for a protocol's; with a directory before it, it is not.
        const std::string path = fs::path(file).has_parent_path() ? file : "./" + file;
        const quiet_decoder quiet;
        for (const cv::VideoCaptureAPIs backend : cv::videoio_registry::getStreamBackends()) {
            if (!decodes_video_files(backend)) {
                continue;
            }
            try {
                if (capture_.open(path, backend)) {
                    break;
                }
            } catch (const cv::Exception&) {
                continue;  // a back-end that cannot be loaded
            }
        }
        std::error_code error;
        std::optional<int> turns;
        if (!upright) {
            turns = 0;
        } else if (fs::is_regular_file(file, error)) {
            turns = display_quarter_turns(file);
        }
        quarter_turns_ = turns.value_or(0);
        // Back-ends differ in their default, so it is set either way.
        capture_.set(cv::CAP_PROP_ORIENTATION_AUTO, turns ? 0.0 : 1.0);
    }

    bool is_open() const
    {
        return capture_.isOpened();
    }

    bool read(source_frame& frame) override
    {
        try {
            if (!capture_.read(frame.image) || frame.image.empty()) {
                return false;
            }
        } catch (const cv::Exception&) {
            return false;
        }
        static constexpr std::array turn_codes = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180,
                                                  cv::ROTATE_90_COUNTERCLOCKWISE};
        if (quarter_turns_ > 0) {
            cv::Mat turned;
            cv::rotate(frame.image, turned, turn_codes.at(static_cast<std::size_t>(quarter_turns_) - 1));
            frame.image = turned;
        }
        frame.name = "frame " + std::to_string(++number_) + " of " + files_.front();
        return true;
    }

    int announced() const override
    {
        // Estimated from the length by some back-ends, negative or huge for streams without one.
        const double count = capture_.get(cv::CAP_PROP_FRAME_COUNT);
        constexpr double most_believable = 1e8;
        return count > 0.0 && count < most_believable ? static_cast<int>(count) : 0;
    }

    const std::vector<std::string>& files() const override
    {
        return files_;
    }

private:
    std::vector<std::string> files_;
    cv::VideoCapture capture_;
    int quarter_turns_ = 0;  ///< by which this class turns frames, clockwise; the back-end then does not
    int number_ = 0;
};

std::unique_ptr<frame_source> open_images(std::vector<std::string> files, const source_settings& settings,
                                          const std::string& none_found)
{
    files.erase(std::remove_if(files.begin(), files.end(),
                               [&settings](const std::string& file) {
                                   return std::any_of(
                                       settings.left_out.begin(), settings.left_out.end(),
                                       [&file](const std::string& other) { return same_place(file, other); });
                               }),
                files.end());
    if (files.empty()) {
        fail(none_found);
    }
    return std::make_unique<image_source>(std::move(files), settings.upright);
}

std::unique_ptr<frame_source> open_file(const std::string& input, const source_settings& settings)
{
    std::error_code error;
    const bool regular =
        fs::is_regular_file(input, error);  // anything else, a pipe perhaps, is opened but once
    if (regular) {
        const int descriptor = open(input.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor == -1) {
            fail("cannot read " + input + ": " + std::generic_category().message(errno));
        }
        close(descriptor);
        if (fs::file_size(input, error) == 0) {
            fail(input + " is empty");
        }
    }
    if (has_image_ending(input)) {
        return std::make_unique<image_source>(std::vector<std::string>{input}, settings.upright);
    }
    auto video = std::make_unique<video_source>(input, settings.upright);
    if (video->is_open()) {
        return video;
    }
    if (regular && cv::haveImageReader(input)) {
        return std::make_unique<image_source>(std::vector<std::string>{input}, settings.upright);
    }
    fail(input + " is neither a video nor an image that can be read");
}

}  // namespace

std::unique_ptr<frame_source> open_frame_source(const std::string& input, const source_settings& settings)
{
    std::error_code error;
    const fs::file_status status = fs::status(input, error);
    if (status.type() == fs::file_type::none) {
        fail("cannot read " + input + ": " + error.message());
    }
    if (fs::is_directory(status)) {
        return open_images(images_in_directory(input), settings, "there are no images in " + input);
    }
    if (fs::exists(status)) {
        return open_file(input, settings);
    }
    numbered_name name;
    if (parse_numbered_name(input, name)) {
        return open_images(numbered_images(name), settings, "there are no files " + input);
    }
    fail("there is no file or directory " + input);
}

std::string name_of_input(const std::string& input)
{
    std::error_code error;
    fs::path path(input);
    numbered_name name;
    std::string result;
    if (fs::is_directory(path, error)) {
        result = fs::canonical(path, error).filename().string();
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

void silence_media_logs()
{
    if (!media_logs_are_wanted()) {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    }
    constexpr const char* quiet = "-8";
    setenv("OPENCV_FFMPEG_LOGLEVEL", quiet, 0);
}

}  // namespace tarn::host
