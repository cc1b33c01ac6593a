// SPDX-License-Identifier: Apache-2.0
//
// Pictures as a camera's driver delivers them, and the clock beside it.
#include "camera_source.h"

#include <chrono>
#include <cstddef>

#include <opencv2/videoio.hpp>

#include "media_logs.h"

namespace tarn::host {

namespace {

using clock = std::chrono::steady_clock;

// Of OpenCV's ways to a camera, one would write a list of its plug-ins into the user's home directory. Linux has one
// that all others come down to.
#ifdef __linux__
constexpr int numbered_cameras = cv::CAP_V4L2;
#else
constexpr int numbered_cameras = cv::CAP_ANY;
#endif

class camera_source : public frame_source {
public:
    camera_source(const cv::VideoCapture& capture, const std::string& name) : capture_(capture)
    {
        facts_.files = {name};
        facts_.has_times = true;
        facts_.live = true;
    }

    const source_facts& facts() const override
    {
        return facts_;
    }

    bool advance(frame_stamp& stamp) override
    {
        try {
            if (!capture_.grab()) {
                return false;
            }
        } catch (const cv::Exception&) {
            return false;
        }
        const clock::time_point now = clock::now();
        if (number_++ == 0) {
            begun_ = now;
        }
        stamp = {number_, std::chrono::duration<double>(now - begun_).count()};
        return true;
    }

    cv::Mat picture(frame_turn turn) override
    {
        cv::Mat image;
        try {
            capture_.retrieve(image);
        } catch (const cv::Exception&) {
            image.release();
        }
        return frame_for_library(image, turn);
    }

    std::string name() const override
    {
        return "frame " + std::to_string(number_) + " of " + facts_.files.front();
    }

    int passed_over() const override
    {
        return 0;
    }

private:
    cv::VideoCapture capture_;
    source_facts facts_;
    int number_ = 0;
    clock::time_point begun_;
};

}  // namespace

std::unique_ptr<frame_source> open_camera(const std::string& name)
{
    const quiet_decoder quiet;
    cv::VideoCapture capture;
    try {
        const std::optional<int> number = camera_number(name);
        if (number) {
            capture.open(*number, numbered_cameras);
        } else {
            capture.open(name, cv::CAP_V4L2);
        }
    } catch (const cv::Exception&) {
        return nullptr;
    }
    return capture.isOpened() ? std::make_unique<camera_source>(capture, name) : nullptr;
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

}  // namespace tarn::host
