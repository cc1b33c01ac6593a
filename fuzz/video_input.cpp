// SPDX-License-Identifier: Apache-2.0
//
// What the command-line host makes of a file that may be a video. Either it is refused with a host_error, or is none,
// or gives pictures: in order, each of a size that was allowed, and of the stretch that was asked for with the same
// numbers however it is reached.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"
#include "host_error.h"
#include "input_bytes.h"
#include "media_logs.h"
#include "private_directory.h"
#include "target.h"
#include "video_source.h"

using namespace tarn::fuzz;
using namespace tarn::host;

namespace {

constexpr int most_pixels = 1 << 18;
constexpr int most_pictures = 200;

std::vector<frame_stamp> stamps_of(const std::string& file, double start)
{
    std::vector<frame_stamp> stamps;
    const std::unique_ptr<frame_source> source = open_video(file, most_pixels);
    if (!source) {
        return stamps;
    }
    check(source->facts().announced >= 0 && source->facts().rate >= 0.0, "an input announces what can be");
    source->skip_to(start);
    for (frame_stamp stamp; stamps.size() < most_pictures && source->advance(stamp);) {
        check(stamp.number >= 1 && stamp.seconds >= 0.0, "pictures have numbers and times");
        check(stamps.empty() || stamp.number > stamps.back().number, "numbers rise");
        check(stamps.empty() || stamp.seconds >= stamps.back().seconds, "times do not go back");
        check(source->passed_over() >= 0, "missing pictures are counted");
        stamps.push_back(stamp);
        if (stamps.size() <= 8) {
            const cv::Mat picture = source->picture(frame_turn::counter_clockwise);
            check(picture.empty() || (picture.type() == CV_8UC3 && picture.total() <= most_pixels),
                  "a picture is of the library's kind, and no larger than allowed");
        }
    }
    return stamps;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    silence_media_logs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string file = private_directory() + "video";
    std::FILE* const stream = std::fopen(file.c_str(), "wb");
    check(stream != nullptr && std::fwrite(data, 1, size, stream) == size && std::fclose(stream) == 0,
          "the input can be written");
    try {
        const std::vector<frame_stamp> stamps = stamps_of(file, 0.0);
        if (!stamps.empty()) {
            const std::vector<frame_stamp> later = stamps_of(file, stamps[stamps.size() / 2].seconds);
            check(!later.empty(), "what lies before a moment does not hide what lies behind it");
        }
    } catch (const host_error& error) {
        check(error.code() == exit_code::input_failed && error.what()[0] != '\0', "a refusal says why");
    }
    std::remove(file.c_str());
    return 0;
}
