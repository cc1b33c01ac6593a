// SPDX-License-Identifier: Apache-2.0
//
// What a host in C++ gets of the frames that the Python tests feed: reads them as raw B,G,R pixels from standard input,
// hands them all but the last to a sweep, which it finishes with that one, and writes answers.txt, a line of numbers
// for each, panorama.jpg, preview.bgr and its size into a directory.
// usage: reference_host WIDTH HEIGHT DIRECTORY
#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include "tarn_sweep.h"

namespace {

void write(std::ostream& file, const tarn::frame_answer& answer)
{
    file << answer.code << ' ' << static_cast<int>(answer.why) << ' ' << answer.taken << ' ' << answer.key_frame << ' '
         << answer.key_frames << ' ' << answer.registered << ' ' << answer.direction << ' ' << answer.move_distance
         << ' ' << answer.corners_found << ' ' << answer.corners_tracked << ' ' << answer.inliers << ' '
         << answer.overlap << ' ' << answer.placed;
    for (const cv::Point2f& corner : answer.outline) {
        file << ' ' << corner.x << ' ' << corner.y;
    }
    for (const float angle : answer.angles) {
        file << ' ' << angle;
    }
    for (const float scale : answer.scales) {
        file << ' ' << scale;
    }
    file << '\n';
}

void run(int width, int height, const std::string& directory)
{
    tarn::sweep_options options;
    options.most_under_way = 2;
    tarn::sweep sweep = tarn::sweep::begin(options);
    std::ofstream answers(directory + "/answers.txt");
    answers.precision(std::numeric_limits<double>::max_digits10);
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    std::vector<char> pixels(size);
    std::vector<char> next(size);
    const auto count = static_cast<std::streamsize>(size);
    tarn::frame_view frame = {pixels.data(), width, height, 0, tarn::pixel_format::bgr};
    std::cin.read(pixels.data(), count);
    while (std::cin.read(next.data(), count)) {
        frame.pixels = pixels.data();
        write(answers, sweep.feed(frame));
        pixels.swap(next);
    }
    frame.pixels = pixels.data();
    const tarn::panorama made = sweep.finish({&frame});
    write(answers, made.last_frame);
    made.save(directory + "/panorama.jpg");
    const cv::Mat preview = sweep.preview().pixels.clone();
    std::ofstream(directory + "/preview.bgr")
        .write(reinterpret_cast<const char*>(preview.data), static_cast<std::streamsize>(preview.total() * 3));
    std::ofstream(directory + "/preview.txt") << preview.cols << ' ' << preview.rows << '\n';
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 4) {
        std::cerr << "usage: reference_host WIDTH HEIGHT DIRECTORY\n";
        return 2;
    }
    try {
        run(std::stoi(argv[1]), std::stoi(argv[2]), argv[3]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
