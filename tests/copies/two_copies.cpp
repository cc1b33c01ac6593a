// SPDX-License-Identifier: Apache-2.0
//
// Two copies of the shared library in one process, the second one loaded in the middle of a sweep of the first.
// Loaded locally, each stitches as if it were alone; loaded globally, the second one refuses and the first goes on.
//
//     two_copies LIBRARY local|global
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "support/rendered_sweep.h"
#include "tarn_c.h"

namespace {

namespace fs = std::filesystem;

constexpr int frames = 24;

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

void require(bool holds, const char* what)
{
    if (!holds) {
        fail(what);
    }
}

/// The functions of one copy, by their names as the library shows them.
class library {
public:
    library(const fs::path& file, int scope) : handle_(dlopen(file.c_str(), RTLD_NOW | scope))
    {
        if (handle_ == nullptr) {
            fail(dlerror());
        }
        find("tarn_sweep_begin", begin);
        find("tarn_sweep_feed", feed);
        find("tarn_sweep_finish", finish);
        find("tarn_panorama_jpeg", jpeg);
        find("tarn_last_error", last_error);
        find("_Z11resetStitchPKc", reset);
        find("_Z11videoStitchN2cv3MatEii", video);
    }

    decltype(&tarn_sweep_begin) begin = nullptr;
    decltype(&tarn_sweep_feed) feed = nullptr;
    decltype(&tarn_sweep_finish) finish = nullptr;
    decltype(&tarn_panorama_jpeg) jpeg = nullptr;
    decltype(&tarn_last_error) last_error = nullptr;
    int (*reset)(const char*) = nullptr;
    int* (*video)(cv::Mat, int, int) = nullptr;

private:
    template <typename Function>
    void find(const char* name, Function& function)
    {
        function = reinterpret_cast<Function>(dlsym(handle_, name));
        if (function == nullptr) {
            fail(dlerror());
        }
    }

    void* handle_;
};

cv::Mat frame(int index)
{
    constexpr int step = 16;  // px
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(768, 256));
    return plane(cv::Rect(index * step, 0, 320, 240)).clone();
}

/// One sweep with a private directory.
class sweep {
public:
    explicit sweep(const library& of) : of_(of)
    {
        tarn_sweep_options options;
        TARN_INIT(options);
        options.most_under_way = 100;
        require(of_.begin(&options, &handle_) == TARN_OK, "a sweep could not be begun");
    }

    void feed(int from, int to)
    {
        for (int i = from; i < to; ++i) {
            const cv::Mat pixels = frame(i);
            tarn_image image;
            TARN_INIT(image);
            image.pixels = pixels.data;
            image.width = pixels.cols;
            image.height = pixels.rows;
            image.row_stride = pixels.step;
            image.format = TARN_FORMAT_BGR;
            tarn_answer answer;
            TARN_INIT(answer);
            require(of_.feed(handle_, &image, TARN_DIRECTION_UNDECIDED, &answer) == TARN_OK, of_.last_error());
            require(answer.taken != 0, "a frame was not taken");
        }
    }

    std::vector<unsigned char> finish()
    {
        tarn_panorama* panorama = nullptr;
        const unsigned char* bytes = nullptr;
        std::size_t count = 0;
        require(of_.finish(handle_, nullptr, &panorama) == TARN_OK, of_.last_error());
        require(of_.jpeg(panorama, &bytes, &count) == TARN_OK, of_.last_error());
        return {bytes, bytes + count};
    }

private:
    const library& of_;
    tarn_sweep* handle_ = nullptr;
};

std::vector<unsigned char> panorama_of_an_undisturbed_sweep(const library& of)
{
    sweep alone(of);
    alone.feed(0, frames);
    return alone.finish();
}

void expect_refusals(const library& second, const fs::path& place)
{
    tarn_sweep_options options;
    TARN_INIT(options);
    tarn_sweep* handle = nullptr;
    require(second.begin(&options, &handle) == TARN_ERROR_PROCESS_ENDS, "the second copy began a sweep");
    require(std::string(second.last_error()).find("another copy") != std::string::npos, "it does not say why");
    require(second.reset((place / "second/").c_str()) == 1, "reset answers something else");
    require(!fs::exists(place / "second"), "the second copy began a task");
    const int* const answer = second.video(tarn::test::host_frame_from(frame(0)), 0, 0);
    require(answer[0] == -1 && answer[1] == 0, "the second copy registered a frame");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fail("usage: two_copies LIBRARY local|global");
    }
    const bool is_local = std::string(argv[2]) == "local";
    const int scope = is_local ? RTLD_LOCAL : RTLD_GLOBAL;
    std::string place = (fs::temp_directory_path() / "tarnstitch_copies_XXXXXX").string();
    require(mkdtemp(place.data()) != nullptr, "no directory can be made");
    fs::copy_file(argv[1], fs::path(place) / "copy.so");

    const library first(argv[1], scope);
    const std::vector<unsigned char> undisturbed = panorama_of_an_undisturbed_sweep(first);

    sweep disturbed(first);
    disturbed.feed(0, frames / 2);
    const library second(fs::path(place) / "copy.so", scope);
    if (is_local) {
        require(panorama_of_an_undisturbed_sweep(second) == undisturbed, "the second copy's panorama differs");
    } else {
        expect_refusals(second, place);
    }
    disturbed.feed(frames / 2, frames);
    require(disturbed.finish() == undisturbed, "the first copy's panorama differs");
    fs::remove_all(place);
    std::puts("as if each were alone");
}
