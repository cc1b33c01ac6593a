// SPDX-License-Identifier: Apache-2.0
//
// What the library answers on this machine, for comparison with what it answers as WebAssembly: feeds raw frames, and
// writes the answers as lines of JSON, with how long frames took, the preview as raw B,G,R, and the panorama's JPEG.
//
//     native_answers FRAMES WIDTH HEIGHT THREADS OUT
//
// FRAMES holds R,G,B,A without padding, lying on their side. OUT gets .jsonl, .preview, .jpg.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tarn_c.h"

namespace {

void write_four(std::ostream& out, const char* name, const float* values, int count)
{
    out << ",\"" << name << "\":[";
    for (int i = 0; i < count; ++i) {
        out << (i == 0 ? "" : ",") << values[i];
    }
    out << "]";
}

void write_pixels(const std::string& path, const tarn_image& image)
{
    std::ofstream out(path, std::ios::binary);
    const int header[2] = {image.width, image.height};
    out.write(reinterpret_cast<const char*>(header), sizeof(header));
    for (int y = 0; y < image.height; ++y) {
        out.write(static_cast<const char*>(image.pixels) + static_cast<std::ptrdiff_t>(y) * image.row_stride,
                  static_cast<std::streamsize>(image.width) * 3);
    }
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 6) {
        return 2;
    }
    tarn_image frame;
    TARN_INIT(frame);
    frame.width = std::atoi(argv[2]);
    frame.height = std::atoi(argv[3]);
    frame.format = TARN_FORMAT_RGBA;
    cv::setNumThreads(std::atoi(argv[4]));
    const std::string out = argv[5];

    tarn_sweep* sweep = nullptr;
    tarn_sweep_options options;
    TARN_INIT(options);
    options.most_under_way = 3;
    if (tarn_sweep_begin(&options, &sweep) != TARN_OK) {
        std::cerr << tarn_last_error() << '\n';
        return 1;
    }
    std::ifstream in(argv[1], std::ios::binary);
    std::ofstream lines(out + ".jsonl");
    lines.precision(9);
    std::vector<char> pixels(static_cast<std::size_t>(frame.width) * frame.height * 4);
    bool ends_open = false;
    while (in.read(pixels.data(), static_cast<std::streamsize>(pixels.size()))) {
        frame.pixels = pixels.data();
        tarn_answer answer;
        TARN_INIT(answer);
        if (tarn_sweep_feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer) != TARN_OK) {
            std::cerr << tarn_last_error() << '\n';
            return 1;
        }
        ends_open = answer.taken != 0 && answer.key_frame == 0;
        lines << "{\"codeNumber\":" << answer.code << ",\"whyNumber\":" << answer.why << ",\"taken\":" << answer.taken
              << ",\"keyFrame\":" << answer.key_frame << ",\"keyFrames\":" << answer.key_frames
              << ",\"registered\":" << answer.registered << ",\"directionNumber\":" << answer.direction
              << ",\"moveDistance\":" << answer.move_distance << ",\"cornersFound\":" << answer.corners_found
              << ",\"cornersTracked\":" << answer.corners_tracked << ",\"inliers\":" << answer.inliers
              << ",\"overlap\":" << answer.overlap << ",\"placed\":" << answer.placed;
        write_four(lines, "outline", answer.outline, 8);
        write_four(lines, "angles", answer.angles, 4);
        write_four(lines, "scales", answer.scales, 4);
        lines << ",\"milliseconds\":" << answer.milliseconds << "}\n";
    }
    tarn_picture* preview = nullptr;
    tarn_image view;
    TARN_INIT(view);
    if (tarn_sweep_preview(sweep, &preview, nullptr) == TARN_OK && tarn_picture_view(preview, &view) == TARN_OK) {
        write_pixels(out + ".preview", view);
    }
    tarn_panorama* panorama = nullptr;
    tarn_finish_options finish;
    TARN_INIT(finish);
    finish.last_frame = ends_open ? &frame : nullptr;
    const unsigned char* jpeg = nullptr;
    std::size_t bytes = 0;
    if (tarn_sweep_finish(sweep, &finish, &panorama) == TARN_OK
        && tarn_panorama_jpeg(panorama, &jpeg, &bytes) == TARN_OK) {
        std::ofstream(out + ".jpg", std::ios::binary)
            .write(reinterpret_cast<const char*>(jpeg), static_cast<std::streamsize>(bytes));
    }
    tarn_picture_free(preview);
    tarn_panorama_free(panorama);
    tarn_sweep_free(sweep);
    return 0;
}
