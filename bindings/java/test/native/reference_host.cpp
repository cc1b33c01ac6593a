// SPDX-License-Identifier: Apache-2.0
//
// The C++ host that the Java one is compared with, and the decoder that feeds both the same frames.
//
//   reference_host frames VIDEO              writes the frames to standard output: width and height as 32-bit
//                                            integers in network order, then the frames, R,G,B,A, until the end
//   reference_host images VIDEO DIRECTORY    writes every second frame, upright, as a numbered PNG file
//   reference_host stitch VIDEO DIRECTORY    stitches them; the directory gets codes.txt (a code per line, frame
//                                            by frame), panorama.jpg and preview.png
//
// Except in the images the frames are turned to lie on their side, as a camera's sensor delivers them.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "tarn_sweep.h"

namespace fs = std::filesystem;

namespace {

class sensor {
public:
    explicit sensor(const std::string& video) : video_(video)
    {
    }

    bool read(cv::Mat& rgba)
    {
        cv::Mat frame;
        if (!video_.read(frame)) {
            return false;
        }
        cv::rotate(frame, frame, cv::ROTATE_90_COUNTERCLOCKWISE);
        cv::cvtColor(frame, rgba, cv::COLOR_BGR2RGBA);
        return true;
    }

private:
    cv::VideoCapture video_;
};

bool write_bytes(const void* bytes, std::size_t size)
{
    return std::fwrite(bytes, 1, size, stdout) == size;
}

int write_frames(const std::string& video)
{
    sensor camera(video);
    cv::Mat rgba;
    bool first = true;
    while (camera.read(rgba)) {
        if (first) {
            const std::uint32_t size[] = {htonl(static_cast<std::uint32_t>(rgba.cols)),
                                          htonl(static_cast<std::uint32_t>(rgba.rows))};
            if (!write_bytes(size, sizeof size)) {
                return EXIT_FAILURE;
            }
            first = false;
        }
        if (!write_bytes(rgba.data, rgba.total() * rgba.elemSize())) {
            return EXIT_FAILURE;
        }
    }
    return first ? EXIT_FAILURE : EXIT_SUCCESS;
}

int write_images(const std::string& path, const fs::path& directory)
{
    cv::VideoCapture video(path);
    cv::Mat frame;
    for (int i = 0; video.read(frame); ++i) {
        char name[24];  // for any number
        std::snprintf(name, sizeof name, "frame%04d.png", i);
        if (i % 2 == 0 && !cv::imwrite((directory / name).string(), frame)) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

int stitch(const std::string& video, const fs::path& directory)
{
    std::ofstream codes(directory / "codes.txt");
    tarn::sweep sweep = tarn::sweep::begin();
    sensor camera(video);
    cv::Mat rgba;
    cv::Mat next;
    camera.read(next);
    while (cv::swap(rgba, next), camera.read(next)) {
        codes << sweep.feed(tarn::view_of(rgba)).code << '\n';
        sweep.wait_for_room(2);
    }
    const tarn::frame_view last = tarn::view_of(rgba);
    tarn::finish_options options;
    options.last_frame = &last;
    const tarn::panorama panorama = sweep.finish(options);
    codes << panorama.last_frame.code << '\n';
    panorama.save(directory / "panorama.jpg");
    const bool written = cv::imwrite((directory / "preview.png").string(), sweep.preview().pixels);
    return written && codes.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::string what = argc > 1 ? argv[1] : "";
    try {
        if (what == "frames" && argc == 3) {
            return write_frames(argv[2]);
        }
        if (what == "images" && argc == 4) {
            return write_images(argv[2], argv[3]);
        }
        if (what == "stitch" && argc == 4) {
            return stitch(argv[2], argv[3]);
        }
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return EXIT_FAILURE;
    }
    std::cerr << "usage: reference_host frames VIDEO | images VIDEO DIRECTORY | stitch VIDEO DIRECTORY\n";
    return 2;
}
