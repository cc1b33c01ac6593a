// SPDX-License-Identifier: Apache-2.0
//
// Decoding videos, with what has to be known about OpenCV's back-ends for it.
#include "video_source.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <opencv2/videoio/registry.hpp>

#include "avi_chunks.h"
#include "movie_index.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

using clock = std::chrono::steady_clock;

bool media_logs_are_wanted()
{
    return std::getenv("OPENCV_LOG_LEVEL") != nullptr;
}

/// Of the back-ends that take a file name some do other things with it: one looks for cameras, one would read
/// "shot7.mp4" as one of a sequence shot7, shot8, ...
bool decodes_video_files(cv::VideoCaptureAPIs backend)
{
    static constexpr std::array decoders = {cv::CAP_FFMPEG, cv::CAP_GSTREAMER,    cv::CAP_AVFOUNDATION,
                                            cv::CAP_MSMF,   cv::CAP_OPENCV_MJPEG, cv::CAP_INTEL_MFX};
    return std::find(decoders.begin(), decoders.end(), backend) != decoders.end();
}

/// The turn by which upright frames become what the sensor recorded, when that had to be turned by so many
/// quarters, clockwise, to be upright. Frames that were recorded upright tell nothing of how the device was held.
frame_turn turn_as_recorded(int quarter_turns)
{
    return quarter_turns == 3 ? frame_turn::clockwise : frame_turn::counter_clockwise;
}

/// A property that a back-end may not know, or know wrong; 0 then.
double believable(double value, double most)
{
    return value > 0.0 && value <= most ? value : 0.0;
}

class video_source : public frame_source {
public:
    /// @param quarter_turns  by which frames are turned here, clockwise; nothing to leave it to the back-end
    video_source(const cv::VideoCapture& capture, const std::string& name, std::optional<int> quarter_turns,
                 bool live)
        : capture_(capture), quarter_turns_(quarter_turns.value_or(0))
    {
        // Back-ends differ in their default, so it is set either way.
        capture_.set(cv::CAP_PROP_ORIENTATION_AUTO, quarter_turns ? 0.0 : 1.0);
        facts_.files = {name};
        facts_.has_times = true;
        facts_.live = live;
        if (!live) {
            constexpr double most_pictures = 1e8;
            constexpr double most_per_second = 1e4;
            recorded_ = static_cast<int>(believable(capture_.get(cv::CAP_PROP_FRAME_COUNT), most_pictures));
            facts_.announced = recorded_;
            facts_.rate = believable(capture_.get(cv::CAP_PROP_FPS), most_per_second);
            std::error_code error;
            facts_.rereadable = fs::is_regular_file(name, error);
            facts_.as_recorded = turn_as_recorded(quarter_turns_);
            if (facts_.rereadable) {
                shown_pictures shown = pictures_shown(name);
                times_ = std::move(shown.times);
                if (shown.edited) {
                    facts_.announced = static_cast<int>(times_.size());
                }
                constant_rate_ = is_avi(name);
            }
        }
    }

    const source_facts& facts() const override
    {
        return facts_;
    }

    bool advance(frame_stamp& stamp) override
    {
        // A picture that cannot be decoded looks like the end to some decoders; those behind it may be sound.
        constexpr int most_damaged = 100;
        int tries = number_ + gaps_ < recorded_ ? most_damaged : 1;
        while (!grab()) {
            if (--tries == 0) {
                const int missing = facts_.announced - number_ - gaps_;
                if (missing > 0 && repeats_among(number_ + gaps_ + 1, missing) == missing) {
                    facts_.announced = number_ + gaps_;  // nothing is missing
                }
                return false;
            }
        }
        ++number_;
        stamp.seconds = facts_.live ? seconds_since_start() : seconds_in_file();
        stamp.number = number_ + gaps_;
        return true;
    }

    cv::Mat picture() override
    {
        cv::Mat image;
        try {
            capture_.retrieve(image);
        } catch (const cv::Exception&) {
            image.release();
        }
        if (image.empty() || quarter_turns_ == 0) {
            return image;
        }
        static constexpr std::array turn_codes = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180,
                                                  cv::ROTATE_90_COUNTERCLOCKWISE};
        cv::Mat turned;
        cv::rotate(image, turned, turn_codes.at(static_cast<std::size_t>(quarter_turns_) - 1));
        return turned;
    }

    std::string name() const override
    {
        return "frame " + std::to_string(number_ + gaps_) + " of " + facts_.files.front();
    }

    int passed_over() const override
    {
        return damaged_;
    }

private:
    bool grab()
    {
        try {
            return capture_.grab();
        } catch (const cv::Exception&) {
            return false;
        }
    }

    double seconds_since_start()
    {
        const clock::time_point now = clock::now();
        if (number_ == 1) {
            begun_ = now;
        }
        return std::chrono::duration<double>(now - begun_).count();
    }

    /// The time stamp of the picture just grabbed. A decoder says nothing of a picture that it cannot decode: it
    /// goes on to the next, which leaves a gap in the time stamps. So does a rate that varies.
    double seconds_in_file()
    {
        const double by_number = facts_.rate > 0.0 ? (number_ - 1) / facts_.rate : 0.0;
        constexpr double milliseconds = 1000.0;
        double seconds = capture_.get(cv::CAP_PROP_POS_MSEC) / milliseconds;
        if (number_ == 1) {
            first_ = seconds;
        }
        seconds -= first_;
        if (!std::isfinite(seconds) || (number_ > 1 && seconds <= last_)) {
            seconds = std::max(by_number, last_);  // a stream without times
        } else if (number_ > 1) {
            const int skipped = pictures_between(seconds - last_);
            if (number_ + gaps_ + skipped <= facts_.announced) {
                damaged_ += skipped - repeats_among(number_ + gaps_, skipped);
                gaps_ += skipped;
            }
        }
        last_ = seconds;
        return seconds;
    }

    /// How many pictures the container has between the one just grabbed and the one before, as far as it tells: only
    /// a list of their times, or a rate that cannot vary, shows that a gap is more than a pause.
    int pictures_between(double gap) const
    {
        if (!times_.empty()) {
            const std::size_t before = static_cast<std::size_t>(number_ + gaps_) - 2;
            constexpr double nearly = 0.0005;  // s; what rounding the time stamps may make of them
            for (std::size_t now = before + 1; now < times_.size(); ++now) {
                const double listed = times_[now] - times_[before];
                if (listed > gap + nearly) {
                    break;
                }
                if (listed >= gap - nearly) {
                    return static_cast<int>(now - before) - 1;
                }
            }
            return 0;
        }
        if (!constant_rate_ || facts_.rate <= 0.0) {
            return 0;
        }
        constexpr double most_believable = 1e6;
        return std::max(0, static_cast<int>(std::lround(std::min(gap * facts_.rate, most_believable))) - 1);
    }

    /// How many of so many pictures, from the one of this number on, are the one before once more. A decoder gives
    /// none for them, as for a damaged one.
    int repeats_among(int number, int count)
    {
        if (!constant_rate_ || count <= 0) {
            return 0;
        }
        if (!repeated_) {
            repeated_ = repeated_pictures(facts_.files.front());
        }
        // Numbers begin with the first picture that could be decoded.
        const double before_first = believable(first_ * facts_.rate, static_cast<double>(repeated_->size()));
        const std::size_t begin =
            static_cast<std::size_t>(std::lround(before_first)) + static_cast<std::size_t>(number) - 1;
        const std::size_t end = std::min(begin + static_cast<std::size_t>(count), repeated_->size());
        int repeats = 0;
        for (std::size_t i = begin; i < end; ++i) {
            repeats += (*repeated_)[i] ? 1 : 0;
        }
        return repeats;
    }

    cv::VideoCapture capture_;
    source_facts facts_;
    int quarter_turns_;
    std::vector<double> times_;   ///< of all pictures, as the container lists them; empty if it does not
    bool constant_rate_ = false;  ///< whether the container knows no other: an AVI
    std::optional<std::vector<bool>> repeated_;  ///< its repeated_pictures, once they have been needed
    int recorded_ = 0;                           ///< pictures that the container has, shown or not
    int number_ = 0;                             ///< pictures that were decoded
    int gaps_ = 0;                               ///< pictures between them that were not
    int damaged_ = 0;                            ///< those of them that could not be
    double first_ = 0.0;
    double last_ = 0.0;
    clock::time_point begun_;
};

}  // namespace

std::unique_ptr<frame_source> open_video(const std::string& path)
{
    const std::string name = as_path(path);
    const quiet_decoder quiet;
    cv::VideoCapture capture;
    for (const cv::VideoCaptureAPIs backend : cv::videoio_registry::getStreamBackends()) {
        if (!decodes_video_files(backend)) {
            continue;
        }
        try {
            if (capture.open(name, backend)) {
                break;
            }
        } catch (const cv::Exception&) {
            continue;  // a back-end that cannot be loaded
        }
    }
    if (!capture.isOpened()) {
        return nullptr;
    }
    std::error_code error;
    const std::optional<int> turns =
        fs::is_regular_file(path, error) ? display_quarter_turns(path) : std::nullopt;
    return std::make_unique<video_source>(capture, path, turns, false);
}

std::unique_ptr<frame_source> open_camera(const std::string& name)
{
    const quiet_decoder quiet;
    cv::VideoCapture capture;
    try {
        const std::optional<int> number = camera_number(name);
        if (number) {
            capture.open(*number, cv::CAP_ANY);
        } else {
            capture.open(name, cv::CAP_V4L2);
        }
    } catch (const cv::Exception&) {
        return nullptr;
    }
    return capture.isOpened() ? std::make_unique<video_source>(capture, name, 0, true) : nullptr;
}

std::optional<int> camera_number(const std::string& name)
{
    constexpr const char* scheme = "camera:";
    constexpr std::size_t most_digits = 4;
    const std::size_t length = std::char_traits<char>::length(scheme);
    const std::string digits = name.size() > length ? name.substr(length) : "";
    if (name.compare(0, length, scheme) != 0 || digits.empty() || digits.size() > most_digits
        || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoi(digits);
}

void silence_media_logs()
{
    if (!media_logs_are_wanted()) {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    }
    constexpr const char* quiet = "-8";
    setenv("OPENCV_FFMPEG_LOGLEVEL", quiet, 0);
}

quiet_decoder::quiet_decoder()
{
    if (!media_logs_are_wanted()) {
        silence_.emplace(STDERR_FILENO);
    }
}

}  // namespace tarn::host
