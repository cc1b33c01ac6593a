// SPDX-License-Identifier: Apache-2.0
//
// Videos of all kinds, made by the ffmpeg program, which is then asked what it shows of them: each picture must be the
// same to the last byte, and come at the same time. What it decodes is made R,G,B,A by libswscale's scaler of the kind
// "bicubic", the whole picture at once, and turned after that.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/md5.h>
}

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "frame_feed.h"
#include "frame_turn.h"
#include "host_error.h"
#include "support/directory_fixture.h"
#include "video_source.h"

using namespace tarn::host;

namespace {

constexpr int enough_pixels = 1'000'000;

struct shown_picture {
    int number = 0;
    double seconds = 0.0;
    std::string sum;
};

/// Of the pixels as R,G,B,A.
std::string md5_of(const cv::Mat& image)
{
    cv::Mat whole;
    cv::cvtColor(image, whole, cv::COLOR_BGR2RGBA);
    std::array<unsigned char, 16> sum{};
    av_md5_sum(sum.data(), whole.data, whole.total() * whole.elemSize());
    std::string text;
    for (const unsigned char byte : sum) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

/// All that a source gives, from a moment on.
std::vector<shown_picture> pictures_of(const std::string& file, double start = 0.0, frame_turn turn = frame_turn::none)
{
    const std::unique_ptr<frame_source> source = open_video(file, enough_pixels);
    std::vector<shown_picture> pictures;
    if (source) {
        source->skip_to(start);
        for (frame_stamp stamp; source->advance(stamp);) {
            if (stamp.seconds >= start - 1e-6) {
                pictures.push_back({stamp.number, stamp.seconds, md5_of(source->picture(turn))});
            }
        }
    }
    return pictures;
}

bool run(const std::string& command)
{
    return std::system(("ffmpeg -nostdin -hide_banner -loglevel error -y " + command).c_str()) == 0;
}

bool has_ffmpeg()
{
    static const bool has = std::system("ffmpeg -version >/dev/null 2>&1") == 0;
    return has;
}

/// A kind of video, and how ffmpeg makes it of a moving test picture.
struct kind {
    const char* name;
    const char* file;
    const char* made_by;   ///< options of the input, "|", options of the output; "; " begins a further step
    bool repeats = false;  ///< whether it has numbers without a picture, which ffmpeg shows as longer waits
};

/// The upper left part of a display matrix, and the name of what it does.
struct display_matrix {
    const char* name;
    int a, b, c, d;
};

constexpr std::array<display_matrix, 8> matrices = {{{"upright", 1, 0, 0, 1},
                                                     {"turned_90", 0, 1, -1, 0},
                                                     {"turned_180", -1, 0, 0, -1},
                                                     {"turned_270", 0, -1, 1, 0},
                                                     {"mirrored", -1, 0, 0, 1},
                                                     {"mirrored_90", 0, -1, -1, 0},
                                                     {"mirrored_180", 1, 0, 0, -1},
                                                     {"mirrored_270", 0, 1, 1, 0}}};

/// Whether the fuzz target over videos begins with one of this kind, too.
bool is_seed(const std::string& name)
{
    const std::filesystem::directory_iterator seeds(TARN_VIDEO_SEEDS_DIR);
    return std::any_of(begin(seeds), end(seeds), [&name](const auto& one) { return one.path().stem() == name; });
}

class Video : public tarn::test::directory_fixture {
protected:
    void SetUp() override
    {
        directory_fixture::SetUp();
        if (!has_ffmpeg()) {
            GTEST_SKIP() << "there is no ffmpeg";
        }
    }

    /// What ffmpeg shows of a file.
    std::vector<shown_picture> expected(const std::string& file) const
    {
        const std::string list = at("expected.txt");
        if (!run("-i '" + file
                 + "' -map 0:v:0 -vf scale=flags=bicubic,format=rgba"
                   " -fps_mode passthrough -enc_time_base -1 -f framemd5 '"
                 + list + "'")) {
            return {};
        }
        std::vector<shown_picture> pictures;
        double unit = 0.0;
        double first = 0.0;
        std::ifstream lines(list);
        for (std::string line; std::getline(lines, line);) {
            int numerator = 0;
            int denominator = 0;
            if (std::sscanf(line.c_str(), "#tb 0: %d/%d", &numerator, &denominator) == 2) {
                unit = static_cast<double>(numerator) / denominator;
            }
            long long pts = 0;
            std::array<char, 64> sum{};
            if (std::sscanf(line.c_str(), "0, %*d, %lld, %*d, %*d, %63s", &pts, sum.data()) == 2) {
                const double seconds = static_cast<double>(pts) * unit;
                first = pictures.empty() ? seconds : first;
                pictures.push_back({static_cast<int>(pictures.size()) + 1, seconds - first, sum.data()});
            }
        }
        return pictures;
    }

    static void expect_same(const std::vector<shown_picture>& shown, const std::vector<shown_picture>& expected)
    {
        ASSERT_EQ(shown.size(), expected.size());
        ASSERT_FALSE(shown.empty());
        for (std::size_t i = 0; i < shown.size(); ++i) {
            EXPECT_EQ(shown[i].number, expected[i].number) << i;
            EXPECT_NEAR(shown[i].seconds, expected[i].seconds, 1e-6) << i;
            EXPECT_EQ(shown[i].sum, expected[i].sum) << "picture " << i + 1;
        }
    }

    /// From a moment on pictures are the same, with the same numbers and times.
    static void expect_same_from(double start, const std::string& file, const std::vector<shown_picture>& shown)
    {
        SCOPED_TRACE(start);
        std::vector<shown_picture> rest;
        std::copy_if(shown.begin(), shown.end(), std::back_inserter(rest),
                     [start](const shown_picture& one) { return one.seconds >= start - 1e-6; });
        const std::vector<shown_picture> from_there = pictures_of(file, start);
        ASSERT_EQ(from_there.size(), rest.size());
        ASSERT_FALSE(rest.empty());
        for (std::size_t i = 0; i < rest.size(); ++i) {
            EXPECT_EQ(from_there[i].number, rest[i].number);
            EXPECT_DOUBLE_EQ(from_there[i].seconds, rest[i].seconds);
            EXPECT_EQ(from_there[i].sum, rest[i].sum) << "picture " << rest[i].number;
        }
    }
};

class EveryKind : public Video, public testing::WithParamInterface<kind> {
protected:
    /// @returns whether the file could be made: an encoder may be missing
    bool make() const
    {
        const std::string directory = at("");
        std::string steps = GetParam().made_by;
        for (bool more = true; more;) {
            const std::size_t end = steps.find("; ");
            more = end != std::string::npos;
            std::string step = steps.substr(0, end);
            steps.erase(0, more ? end + 2 : end);
            const std::size_t input = step.find('|');
            if (input != std::string::npos) {
                step.replace(input, 1, " -f lavfi -i testsrc2=s=322x242:r=25:d=2 ");
            }
            std::string command = "cd '";
            command.append(directory).append("' && ffmpeg -nostdin -hide_banner -loglevel error -y ").append(step);
            if (std::system(command.c_str()) != 0) {
                return false;
            }
        }
        return true;
    }
};

constexpr const char* x264 = "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4";

std::string name_of(const testing::TestParamInfo<kind>& info)
{
    return info.param.name;
}

}  // namespace

TEST_P(EveryKind, IsShownAsAPlayerShowsIt)
{
    if (!make()) {
        GTEST_SKIP() << "ffmpeg cannot make it";
    }
    const std::string file = at(GetParam().file);
    const std::vector<shown_picture> shown = pictures_of(file);
    std::vector<shown_picture> wanted = expected(file);
    if (GetParam().repeats) {
        constexpr double rate = 25.0;
        ASSERT_LT(wanted.size(), rate * wanted.back().seconds + 1.0) << "it has none";
        for (shown_picture& one : wanted) {
            one.number = static_cast<int>(std::lround(one.seconds * rate)) + 1;
        }
    }
    expect_same(shown, wanted);
    for (const double start : {0.5, 1.0, 1.37}) {
        if (start <= shown.back().seconds) {
            expect_same_from(start, file, shown);
        }
    }
}

TEST_P(EveryKind, IsASeedOfTheFuzzTarget)
{
    EXPECT_TRUE(is_seed(GetParam().name)) << "none in " TARN_VIDEO_SEEDS_DIR;
}

INSTANTIATE_TEST_SUITE_P(
    Of, EveryKind,
    testing::Values(
        kind{"h264", "a.mp4", x264}, kind{"h264_without_b_frames", "a.mp4", "|-c:v libx264 -bf 0 -g 12 a.mp4"},
        kind{"h264_open_gop", "a.mkv",
             "|-c:v libx264 -pix_fmt yuv420p -x264-params open-gop=1:keyint=12:bframes=3 a.mkv"},
        kind{"hevc_cut_before_an_open_gop", "b.mkv",
             "|-c:v libx265 -x265-params log-level=none:keyint=20:bframes=4:open-gop=1 -pix_fmt yuv420p a.mp4; "
             "-ss 0.9 -i a.mp4 -c copy b.mkv"},
        kind{"h264_cut_before_an_open_gop", "b.mkv",
             "|-c:v libx264 -pix_fmt yuv420p -x264-params open-gop=1:keyint=12:bframes=3 a.mkv; -ss 0.6 -i a.mkv "
             "-c copy b.mkv"},
        kind{"cut_between_key_pictures", "b.mkv",
             "|-c:v libx264 -g 12 -pix_fmt yuv420p a.ts; -ss 0.3 -i a.ts -copyinkf -c copy b.mkv"},
        kind{"ts_cut_between_key_pictures", "b.ts",
             "|-c:v libx264 -g 12 -pix_fmt yuv420p a.ts; -ss 0.3 -i a.ts -copyinkf -c copy b.ts"},
        kind{"fragmented_with_an_index", "a.mp4",
             "|-c:v libx264 -g 12 -movflags frag_keyframe+default_base_moof+global_sidx a.mp4"},
        kind{"fragmented_behind_an_index", "a.mp4", "|-c:v libx264 -g 12 -movflags frag_keyframe a.mp4"},
        kind{"trimmed_begin", "b.mp4", "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4; -ss 0.3 -i a.mp4 -c copy b.mp4"},
        kind{"trimmed_end", "b.mp4", "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4; -i a.mp4 -t 1.7 -c copy b.mp4"},
        kind{"empty_edit", "b.mp4",
             "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4; -itsoffset 0.5 -i a.mp4 -c copy -avoid_negative_ts "
             "disabled "
             "b.mp4"},
        kind{"negative_times", "b.mp4",
             "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4; -i a.mp4 -c copy -movflags negative_cts_offsets "
             "b.mp4"},
        kind{"varying_rate", "a.mp4", "|-vf select='lt(mod(n\\,7)\\,4)' -fps_mode vfr -c:v libx264 -g 12 a.mp4"},
        kind{"fragmented", "a.mp4", "|-c:v libx264 -g 12 -movflags frag_keyframe+empty_moov+default_base_moof a.mp4"},
        kind{"mov", "a.mov", "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mov"},
        kind{"mkv", "a.mkv", "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mkv"},
        kind{"vp8", "a.webm", "|-c:v libvpx -auto-alt-ref 1 -lag-in-frames 16 -g 12 -pix_fmt yuv420p a.webm"},
        kind{"vp9", "a.webm", "|-c:v libvpx-vp9 -cpu-used 8 -g 12 -pix_fmt yuv420p a.webm"},
        kind{"av1", "a.mp4", "|-t 1.6 -c:v libaom-av1 -cpu-used 8 -usage realtime -g 12 -pix_fmt yuv420p a.mp4"},
        kind{"av1_in_webm", "a.webm",
             "|-t 1.6 -c:v libaom-av1 -cpu-used 8 -usage realtime -g 12 -pix_fmt yuv420p a.webm"},
        kind{"hevc", "a.mp4", "|-c:v libx265 -x265-params log-level=none:keyint=12 -pix_fmt yuv420p -tag:v hvc1 a.mp4"},
        kind{"hevc_10_bit", "a.mkv", "|-c:v libx265 -x265-params log-level=none:keyint=12 -pix_fmt yuv420p10le a.mkv"},
        kind{"mpeg4_in_avi", "a.avi", "|-c:v mpeg4 -bf 2 -g 12 a.avi"},
        kind{"repeats_in_avi", "a.avi", "|-vf select='not(eq(mod(n\\,7)\\,3))' -fps_mode passthrough -c:v mjpeg a.avi",
             true},
        kind{"repeats_of_mpeg4_in_avi", "a.avi",
             "|-vf select='not(eq(mod(n\\,7)\\,3))' -fps_mode passthrough -c:v mpeg4 -bf 0 -g 12 a.avi", true},
        kind{"mjpeg_in_avi", "a.avi", "|-c:v mjpeg a.avi"}, kind{"mjpeg_in_mov", "a.mov", "|-c:v mjpeg a.mov"},
        kind{"mpeg_ts", "a.ts", "|-c:v libx264 -g 12 -pix_fmt yuv420p a.ts"},
        kind{"interlaced_ts", "a.ts", "|-vf crop=320:240 -c:v libx264 -flags +ilme+ildct -g 12 -pix_fmt yuv420p a.ts"},
        kind{"mpeg2_ps", "a.mpg", "|-c:v mpeg2video -bf 2 -g 12 a.mpg"},
        kind{"prores", "a.mov", "|-t 0.8 -c:v prores -pix_fmt yuv422p10le a.mov"},
        kind{"dnxhr", "a.mov", "|-t 0.8 -c:v dnxhd -profile:v dnxhr_lb -pix_fmt yuv422p a.mov"},
        kind{"h264_raw", "a.h264", "|-c:v libx264 -bf 0 -g 12 -pix_fmt yuv420p a.h264"},
        kind{"full_range", "a.mp4",
             "|-vf scale=out_range=full -color_range pc -c:v libx264 -g 12 -pix_fmt yuv420p a.mp4"},
        kind{"limited_range", "a.mp4",
             "|-vf scale=out_range=limited -color_range tv -c:v libx264 -g 12 -pix_fmt yuv420p a.mp4"},
        kind{"bt709", "a.mp4",
             "|-vf scale=out_color_matrix=bt709 -colorspace bt709 -c:v libx264 -g 12 -pix_fmt yuv420p a.mp4"},
        kind{"bt601", "a.mp4",
             "|-vf scale=out_color_matrix=bt601 -colorspace smpte170m -c:v libx264 -g 12 -pix_fmt yuv420p "
             "a.mp4"},
        kind{"with_a_cover", "b.mp4",
             "|-c:v libx264 -g 12 -pix_fmt yuv420p a.mp4; -i a.mp4 -f lavfi -i color=red:s=640x480:r=1:d=1 "
             "-map 0 -map 1 -c:v:0 copy -c:v:1 png -disposition:v:1 attached_pic b.mp4"},
        kind{"with_sound", "a.mp4",
             "|-f lavfi -i sine=d=2 -c:v libx264 -g 12 -pix_fmt yuv420p -c:a aac -shortest a.mp4"},
        kind{"odd_size", "a.mkv", "|-vf crop=321:241:0:0:exact=1 -pix_fmt yuv444p -c:v libx264 -g 12 a.mkv"},
        kind{"422", "a.mkv", "|-pix_fmt yuv422p -c:v libx264 -g 12 a.mkv"}),
    name_of);

TEST_F(Video, IsTurnedAndMirroredAsItsDisplayMatrixSays)
{
    ASSERT_TRUE(
        run("-f lavfi -i testsrc2=s=322x242:r=25:d=0.5 -c:v libx264 -g 5 -pix_fmt yuv420p '" + at("a.mp4") + "'"));
    std::ifstream stream(at("a.mp4"), std::ios::binary);
    std::string movie{std::istreambuf_iterator<char>(stream), {}};
    constexpr std::size_t matrix_offset = 44;  // in a track header of version 0, behind its name
    const std::size_t matrix = movie.find("tkhd") + matrix_offset;
    const auto put = [&movie](std::size_t at, int whole) {
        for (std::size_t i = 0; i < 4; ++i) {
            movie[at + i] = static_cast<char>(static_cast<unsigned>(whole * 65536) >> (24 - 8 * i) & 0xff);
        }
    };
    for (const auto& [name, a, b, c, d] : matrices) {
        SCOPED_TRACE(name);
        put(matrix, a);
        put(matrix + 4, b);
        put(matrix + 12, c);
        put(matrix + 16, d);
        const std::string file = at("b.mp4");
        std::ofstream(file, std::ios::binary) << movie;
        const std::vector<shown_picture> shown = pictures_of(file);
        expect_same(shown, expected(file));
        expect_same_from(0.3, file, shown);
        EXPECT_TRUE(is_seed(name));
    }
}

TEST_F(Video, ThatWasPutTogetherOfSeveralGoesOnBehindEach)
{
    const std::string file = at("both.ts");
    std::ofstream both(file, std::ios::binary);
    for (const char* const part : {"one.ts", "other.ts"}) {
        ASSERT_TRUE(
            run("-f lavfi -i testsrc2=s=322x242:r=25:d=1 -c:v libx264 -g 5 -pix_fmt yuv420p '" + at(part) + "'"));
        both << std::ifstream(at(part), std::ios::binary).rdbuf();
    }
    both.close();
    const std::vector<shown_picture> shown = pictures_of(file);
    ASSERT_EQ(shown.size(), 50U);
    EXPECT_EQ(shown.back().number, 50);
    EXPECT_NEAR(shown.back().seconds, 1.96, 1e-6);
    for (const double start : {0.5, 0.96, 1.0, 1.5}) {
        expect_same_from(start, file, shown);
    }
}

TEST_F(Video, GivesPicturesThatStayAsTheyAre)
{
    // More than a converter keeps, of which every other one is held; a height that ends within a band, and full range.
    ASSERT_TRUE(run("-f lavfi -i testsrc2=s=322x250:r=25:d=1 -pix_fmt yuvj420p -c:v libx264 '" + at("a.mp4") + "'"));
    for (const frame_turn turn : {frame_turn::none, frame_turn::clockwise, frame_turn::counter_clockwise}) {
        const std::unique_ptr<frame_source> source = open_video(at("a.mp4"), enough_pixels);
        ASSERT_TRUE(source);
        std::vector<cv::Mat> held;
        std::vector<std::string> sums;
        for (frame_stamp stamp; source->advance(stamp);) {
            const cv::Mat picture = source->picture(turn);
            sums.push_back(md5_of(preview_for_viewer(picture, turn)));
            if (stamp.number % 2 == 0) {
                held.push_back(picture);
            }
        }
        const std::vector<shown_picture> shown = expected(at("a.mp4"));
        ASSERT_EQ(sums.size(), shown.size());
        for (std::size_t i = 0; i < shown.size(); ++i) {
            EXPECT_EQ(sums[i], shown[i].sum) << i;
            if (i % 2 == 1) {
                EXPECT_EQ(md5_of(preview_for_viewer(held[i / 2], turn)), shown[i].sum) << i;
            }
        }
    }
}

TEST_F(Video, IsTheSameWithAnyNumberOfThreads)
{
    ASSERT_TRUE(
        run("-f lavfi -i testsrc2=s=322x242:r=25:d=1 -c:v libx264 -g 12 -pix_fmt yuv420p '" + at("a.mp4") + "'"));
    const std::vector<shown_picture> shown = expected(at("a.mp4"));
    // More than there are processors, whatever their number is on this machine.
    for (const int threads : {1, 2, 3, 5, 16, 40}) {
        SCOPED_TRACE(threads);
        cv::setNumThreads(threads);
        expect_same(pictures_of(at("a.mp4")), shown);
    }
    cv::setNumThreads(-1);
}
