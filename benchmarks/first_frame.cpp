// SPDX-License-Identifier: Apache-2.0
//
// How long it takes to the first frame of a stretch: from opening a video to its picture, as tarnstitch reads it. Prints
// the frame's number, its time, a checksum of its pixels, and the seconds that it took. From the beginning, all frames
// before it are decoded.
//
//     first_frame VIDEO SECONDS [from-the-beginning]
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <string>

#include <opencv2/core.hpp>

#include "frame_source.h"
#include "media_logs.h"

namespace {

using clock_type = std::chrono::steady_clock;

/// 64 bits of FNV-1a.
std::uint64_t checksum(const cv::Mat& image)
{
    constexpr std::uint64_t basis = 14695981039346656037U;
    constexpr std::uint64_t prime = 1099511628211U;
    std::uint64_t sum = basis;
    for (int y = 0; y < image.rows; ++y) {
        const unsigned char* const row = image.ptr(y);
        for (std::size_t x = 0; x < static_cast<std::size_t>(image.cols) * image.elemSize(); ++x) {
            sum = (sum ^ row[x]) * prime;
        }
    }
    return sum;
}

int look(const std::string& video, double start, bool from_the_beginning)
{
    const clock_type::time_point begun = clock_type::now();
    const std::unique_ptr<tarn::host::frame_source> source =
        tarn::host::open_frame_source({video}, {}, std::numeric_limits<int>::max());
    if (!from_the_beginning) {
        source->skip_to(start);
    }
    constexpr double rounding = 1e-6;
    tarn::host::frame_stamp stamp;
    do {
        if (!source->advance(stamp)) {
            std::fprintf(stderr, "%s ends before %g s\n", video.c_str(), start);
            return 1;
        }
    } while (stamp.seconds < start - rounding);
    const cv::Mat picture = source->picture(source->facts().as_recorded);
    const double seconds = std::chrono::duration<double>(clock_type::now() - begun).count();
    std::printf("%d %.6f %016llx %.3f\n", stamp.number, stamp.seconds,
                static_cast<unsigned long long>(checksum(picture)), seconds);
    return picture.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: first_frame VIDEO SECONDS [from-the-beginning]\n");
        return 2;
    }
    try {
        tarn::host::silence_media_logs();
        return look(argv[1], std::atof(argv[2]), argc > 3);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
