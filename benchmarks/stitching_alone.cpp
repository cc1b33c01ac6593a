// SPDX-License-Identifier: Apache-2.0
//
// The stitching of a video by itself: all pictures are read into memory as tarnstitch reads them, then a sweep is timed
// from its begin to its panorama. Prints seconds on the wall, seconds of processors, and the panorama's size.
//
//     stitching_alone VIDEO UNDER_WAY    as many key frames under way at most as UNDER_WAY says
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <limits>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_source.h"
#include "tarn_sweep.h"

namespace {

double seconds_of_processors()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

int stitch(const char* video, int under_way)
{
    const std::unique_ptr<tarn::host::frame_source> source =
        tarn::host::open_frame_source({video}, {}, std::numeric_limits<int>::max());
    std::vector<cv::Mat> frames;
    tarn::host::frame_stamp stamp;
    while (source->advance(stamp)) {
        frames.push_back(source->picture(source->facts().as_recorded));
    }

    const double processors_before = seconds_of_processors();
    const auto begun = std::chrono::steady_clock::now();
    tarn::sweep_options options;
    options.most_under_way = under_way;
    tarn::sweep sweep = tarn::sweep::begin(options);
    for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
        sweep.feed(tarn::view_of(frames[i]));
    }
    tarn::finish_options ending;
    const tarn::frame_view last = tarn::view_of(frames.back());
    ending.last_frame = &last;
    const tarn::panorama panorama = sweep.finish(ending);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    std::printf("%.3f %.3f %dx%d\n", seconds, seconds_of_processors() - processors_before, panorama.image.cols,
                panorama.image.rows);
    return panorama.extent == tarn::panorama_extent::whole ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: stitching_alone VIDEO UNDER_WAY\n");
        return 2;
    }
    try {
        return stitch(argv[1], std::atoi(argv[2]));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
