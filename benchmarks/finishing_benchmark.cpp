// SPDX-License-Identifier: Apache-2.0
//
// The finished picture beside those that OpenCV's own stitcher makes of the same key frames, and Hugin's tools where they
// are installed: whether there is one, how exact its geometry is, what ghosts, joints and steps it has, how long it
// takes and how much memory. Each runs in a process of its own; its answer is looked at when its time is over. Clips beyond the samples are named on the command
// line; a table in Markdown goes to standard output.
//
//     finishing_benchmark [--threads=N] [--pictures=DIRECTORY] [--lengths] [--alone] [--only=RIVAL] [--limit=SECONDS]
//                         [VIDEO[:TRUTH.csv]]...
//     finishing_benchmark --large[=KEY_FRAMES]
//
// --large makes a picture of key frames of 12 megapixels, 60 without a number, that are drawn when they are asked for,
// and tells how much memory that takes, and how long it goes on without asking whether the user wants no more.
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching.hpp>
#include <opencv2/stitching/detail/warpers.hpp>
#include <opencv2/videoio.hpp>

#include "live_key_frames.h"
#include "picture_quality.h"
#include "support/rendered_sweep.h"
#include "tarn_finishing.h"

namespace {

using tarn::finishing::key_frame;
constexpr double unknown = -1.0;

/// What one rival shows on one clip.
struct figures {
    int used = 0;  ///< key frames that are placed; 0: there is no picture
    double seconds = unknown;
    double cpu_seconds = unknown;
    double megabytes = unknown;  ///< the most that was resident beyond the key frames
    double geometry = unknown;   ///< median over neighbours of the mean distance of corners, % of a frame's width
    double ghosting = unknown;   ///< these three: picture_quality.h
    double gradient_jump = unknown;
    double exposure_step = unknown;
    int width = 0;
    int height = 0;
};

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Of all threads of the process so far, and of the programs that it has run.
double process_cpu_seconds()
{
    rusage programs{};
    getrusage(RUSAGE_CHILDREN, &programs);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC + seconds(programs.ru_utime) + seconds(programs.ru_stime);
}

double resident_megabytes(const char* key)
{
    double kilobytes = 0.0;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key, 0) == 0) {
            kilobytes = std::stod(line.substr(line.find_first_of("0123456789")));
        }
    }
    return kilobytes / 1024.0;
}

struct clip {
    std::string name;
    std::vector<key_frame> key_frames;
    std::vector<cv::Mat> pictures;
    std::vector<cv::Matx33d> truth;  ///< of the key frames; empty where it is not known
    bool reached_the_end = true;
};

std::vector<cv::Matx33d> read_truth(const std::string& path)
{
    std::vector<cv::Matx33d> result;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string field;
        std::getline(fields, field, ',');
        cv::Matx33d homography;
        for (double& value : homography.val) {
            std::getline(fields, field, ',');
            value = std::stod(field);
        }
        result.push_back(homography);
    }
    return result;
}

clip read_clip(const std::string& argument)
{
    clip result;
    const std::size_t colon = argument.find(':');
    const std::string path = argument.substr(0, colon);
    const std::size_t slash = path.find_last_of('/');
    result.name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    result.name = result.name.substr(0, result.name.find_last_of('.'));
    std::vector<cv::Mat> frames;
    cv::VideoCapture video(path);
    for (cv::Mat frame; video.read(frame);) {
        frames.push_back(frame.clone());
    }
    const auto sweep = tarn::test::live_key_frames(frames);
    result.reached_the_end = sweep.reached_the_end;
    result.key_frames = sweep.key_frames;
    const auto truth = colon == std::string::npos ? std::vector<cv::Matx33d>() : read_truth(argument.substr(colon + 1));
    for (const key_frame& frame : result.key_frames) {
        result.pictures.push_back(frame.image());
        if (!truth.empty()) {
            result.truth.push_back(truth.at(static_cast<std::size_t>(frame.number)));
        }
    }
    return result;
}

/// The homography from a key frame to its neighbour as a maker's picture has it. Places on a cylinder are not a
/// homography of the frame, so both makers are asked for cameras instead.
using neighbour_homography = std::function<bool(int i, int j, cv::Matx33d& j_from_i)>;

double geometry_of(const clip& from, const neighbour_homography& found)
{
    std::vector<double> errors;
    const cv::Size size = from.pictures[0].size();
    for (std::size_t k = 1; k < from.truth.size(); ++k) {
        cv::Matx33d homography;
        if (found && found(static_cast<int>(k), static_cast<int>(k) - 1, homography)) {
            errors.push_back(
                100.0 / size.width
                * tarn::test::mean_corner_error(homography, from.truth[k - 1].inv() * from.truth[k], size));
        }
    }
    return errors.empty() ? unknown : median(errors);
}

/// Our own cameras.
void finish_cameras(const tarn::finishing::finishing_result& result, neighbour_homography& homography, cv::Size size)
{
    homography = [result, size](int i, int j, cv::Matx33d& j_from_i) {
        const auto& a = result.frames[static_cast<std::size_t>(i)];
        const auto& b = result.frames[static_cast<std::size_t>(j)];
        if (a.placement == tarn::finishing::placed_by::nothing || b.placement == tarn::finishing::placed_by::nothing) {
            return false;
        }
        const double side = std::max(size.width, size.height);
        const double focal = result.focal_length > 0 ? result.focal_length : 1.0;
        const cv::Matx33d pixel_from_ray(side * focal, 0, (size.width - 1) / 2.0, 0, side * focal,
                                         (size.height - 1) / 2.0, 0, 0, 1);
        j_from_i = pixel_from_ray * b.camera.inv() * a.camera * pixel_from_ray.inv();
        return true;
    };
}

/// Where corners of one frame lie in another, as a homography.
using way_between_frames = std::function<std::vector<cv::Point2f>(const std::vector<cv::Point2f>& of_i)>;

cv::Matx33d homography_of(const way_between_frames& way, cv::Size size)
{
    const auto width = static_cast<float>(size.width - 1);
    const auto height = static_cast<float>(size.height - 1);
    const std::vector<cv::Point2f> corners = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    return cv::Matx33d(cv::getPerspectiveTransform(corners, way(corners)));
}

/// Those of OpenCV's stitcher.
void stitcher_cameras(cv::Stitcher& stitcher, neighbour_homography& homography, cv::Size size)
{
    const auto cameras = stitcher.cameras();
    const auto component = stitcher.component();
    const double scale = stitcher.workScale();
    const bool affine = stitcher.estimator().dynamicCast<cv::detail::AffineBasedEstimator>() != nullptr;
    homography = [=](int i, int j, cv::Matx33d& j_from_i) {
        const auto position = [&](int index) {
            return std::find(component.begin(), component.end(), index) - component.begin();
        };
        const auto at_i = position(i);
        const auto at_j = position(j);
        const auto count = static_cast<std::ptrdiff_t>(component.size());
        if (at_i == count || at_j == count) {
            return false;
        }
        if (affine) {
            // Where its warper draws a frame is not what its matrix says, but for a rotation.
            const auto drawn = [&](std::ptrdiff_t at, const cv::Point2f& p, bool back) {
                const cv::detail::CameraParams& camera = cameras[static_cast<std::size_t>(at)];
                cv::Mat internal;
                cv::Mat place;
                camera.K().convertTo(internal, CV_32F);
                camera.R.convertTo(place, CV_32F);
                cv::detail::AffineWarper warper(1.0F);
                return back ? warper.warpPointBackward(p, internal, place) : warper.warpPoint(p, internal, place);
            };
            j_from_i = homography_of(
                [&](std::vector<cv::Point2f> points) {
                    for (cv::Point2f& p : points) {
                        p = drawn(at_j, drawn(at_i, p * scale, false), true) / scale;
                    }
                    return points;
                },
                size);
            return true;
        }
        const auto reference_from_pixel = [&](std::ptrdiff_t at) {
            const cv::detail::CameraParams& camera = cameras[static_cast<std::size_t>(at)];
            cv::Mat rotation;
            camera.R.convertTo(rotation, CV_64F);
            const cv::Matx33d work_from_full(scale, 0, 0, 0, scale, 0, 0, 0, 1);
            return cv::Matx33d(cv::Matx33d(rotation) * cv::Matx33d(cv::Mat(camera.K())).inv() * work_from_full);
        };
        j_from_i = reference_from_pixel(at_j).inv() * reference_from_pixel(at_i);
        return true;
    };
}

/// @param map_file  where to write where the jumps are, 16 times as bright; "" for nowhere
void measure_quality(const clip& from, const cv::Mat& picture, figures& own, const std::string& map_file)
{
    const tarn::bench::picture_quality quality = tarn::bench::quality_of(picture, from.pictures);
    if (quality.known) {
        own.ghosting = quality.ghosting;
        own.gradient_jump = quality.gradient_jump;
        own.exposure_step = quality.exposure_step;
        if (!map_file.empty()) {
            constexpr double brighter = 16.0;
            cv::Mat map;
            quality.jumps.convertTo(map, CV_8U, brighter);
            cv::imwrite(map_file, map);
        }
    }
}

using maker = std::function<bool(const clip&, cv::Mat& picture, figures& own, neighbour_homography& homography)>;

bool finish_clip(const clip& from, cv::Mat& picture, figures& own, neighbour_homography& homography)
{
    const auto result = tarn::finishing::finish(from.key_frames);
    if (result.outcome != tarn::finishing::status::ok) {
        return false;
    }
    picture = result.picture;
    for (const auto& frame : result.frames) {
        own.used += frame.placement != tarn::finishing::placed_by::nothing ? 1 : 0;
    }
    finish_cameras(result, homography, from.pictures[0].size());
    return true;
}

maker stitcher_of(cv::Stitcher::Mode mode)
{
    return [mode](const clip& from, cv::Mat& picture, figures& own, neighbour_homography& homography) {
        const auto stitcher = cv::Stitcher::create(mode);
        if (stitcher->stitch(from.pictures, picture) != cv::Stitcher::OK) {
            return false;
        }
        own.used = static_cast<int>(stitcher->component().size());
        stitcher_cameras(*stitcher, homography, from.pictures[0].size());
        return true;
    };
}

/// What a command prints; "" when it fails.
std::string output_of(const std::string& command)
{
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return text;
    }
    std::array<char, 256> part{};
    while (std::fgets(part.data(), part.size(), pipe) != nullptr) {
        text += part.data();
    }
    return pclose(pipe) == 0 ? text : "";
}

bool runs(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
}

/// Points by Hugin's tool, one of which a line has.
std::vector<cv::Point2f> hugin_points(const std::string& directory, const std::string& how, int image,
                                      const std::vector<cv::Point2f>& points)
{
    const std::string file = directory + "/points";
    std::ofstream out(file);
    for (const cv::Point2f& p : points) {
        out << p.x << ' ' << p.y << '\n';
    }
    out.close();
    std::istringstream in(
        output_of("pano_trafo " + how + directory + "/all.pto " + std::to_string(image) + " <" + file));
    std::vector<cv::Point2f> result(points.size());
    for (cv::Point2f& p : result) {
        in >> p.x >> p.y;
    }
    return result;
}

/// A directory for the frames that Hugin's tools read. Stays until the geometry is known.
struct hugin_directory {
    std::string path = (std::filesystem::temp_directory_path() / "hugin_chain_XXXXXX").string();

    hugin_directory()
    {
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
    }

    ~hugin_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    hugin_directory(const hugin_directory&) = delete;
    hugin_directory& operator=(const hugin_directory&) = delete;
};

/// Hugin's chain, by a script beside this source, within so many seconds.
maker hugin_within(unsigned limit)
{
    return [limit](const clip& from, cv::Mat& picture, figures& own, neighbour_homography& homography) {
        const auto directory = std::make_shared<hugin_directory>();
        for (std::size_t k = 0; k < from.pictures.size(); ++k) {
            std::array<char, 32> name{};
            std::snprintf(name.data(), name.size(), "/%04zu.bmp", k);
            cv::imwrite(directory->path + name.data(), from.pictures[k]);
        }
        if (!runs("timeout " + std::to_string(limit) + " " TARN_HUGIN_CHAIN " " + directory->path)) {
            return false;
        }
        picture = cv::imread(directory->path + "/picture.tif", cv::IMREAD_COLOR);
        for (const auto& entry : std::filesystem::directory_iterator(directory->path)) {
            own.used += entry.path().filename().string().rfind("part", 0) == 0 ? 1 : 0;
        }
        const cv::Size size = from.pictures[0].size();
        homography = [directory, size](int i, int j, cv::Matx33d& j_from_i) {
            j_from_i = homography_of(
                [&](const std::vector<cv::Point2f>& points) {
                    return hugin_points(directory->path, "-r ", j, hugin_points(directory->path, "", i, points));
                },
                size);
            return true;
        };
        return !picture.empty();
    };
}

/// The largest of the programs that this process has run, in megabytes. They begin as a copy of it.
double largest_program_megabytes()
{
    rusage programs{};
    getrusage(RUSAGE_CHILDREN, &programs);
    return static_cast<double>(programs.ru_maxrss) / 1024.0;
}

figures in_own_process(const clip& from, const maker& make, int threads, const std::string& picture_file,
                       unsigned limit)
{
    std::array<int, 2> ends{};
    figures result;
    if (pipe(ends.data()) != 0) {
        return result;
    }
    const pid_t child = fork();
    if (child == 0) {
        figures own;
        cv::setNumThreads(threads);
        alarm(limit);
        const double before = resident_megabytes("VmRSS");
        const double cpu_before = process_cpu_seconds();
        const auto begin = std::chrono::steady_clock::now();
        cv::Mat picture;
        neighbour_homography homography;
        bool is_made = false;
        try {
            is_made = make(from, picture, own, homography);
        } catch (const std::exception&) {
            is_made = false;
        }
        alarm(0);
        own.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        own.cpu_seconds = process_cpu_seconds() - cpu_before;
        const double programs = largest_program_megabytes();
        own.megabytes = programs > resident_megabytes("VmHWM") ? programs : resident_megabytes("VmHWM") - before;
        if (is_made) {
            own.width = picture.cols;
            own.height = picture.rows;
            own.geometry = geometry_of(from, homography);
            measure_quality(from, picture, own, picture_file.empty() ? "" : picture_file + "-jumps.png");
            if (!picture_file.empty()) {
                cv::imwrite(picture_file + ".jpg", picture);
            }
        } else {
            own.used = 0;
        }
        homography = nullptr;
        const bool is_written = write(ends[1], &own, sizeof own) == sizeof own;
        _exit(is_written ? 0 : 1);
    }
    close(ends[1]);
    if (child < 0 || read(ends[0], &result, sizeof result) != sizeof result) {
        result = figures();
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return result;
}

std::string number(double value, int digits)
{
    if (value < 0) {
        return "–";
    }
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(digits);
    text << value;
    return text.str();
}

struct rival {
    const char* name;
    maker make;
};

/// Looks at the clock whenever it could be cancelled. The time in which key frames are read does not count.
class cancel_looks {
public:
    using clock = std::chrono::steady_clock;

    bool look(tarn::finishing::stage now)
    {
        const double gap = std::chrono::duration<double>(clock::now() - before_).count() - reading_;
        if (gap > longest_.at(static_cast<std::size_t>(stage_))) {
            longest_.at(static_cast<std::size_t>(stage_)) = gap;
        }
        stage_ = now;
        reading_ = 0.0;
        before_ = clock::now();
        return true;
    }

    template <typename Read>
    cv::Mat read(const Read& how)
    {
        const clock::time_point begin = clock::now();
        const cv::Mat picture = how();
        reading_ += std::chrono::duration<double>(clock::now() - begin).count();
        return picture;
    }

    void tell() const
    {
        for (std::size_t which = 0; which < longest_.size(); ++which) {
            std::printf("longest time between two looks, %s: %.2f s\n",
                        name_of(static_cast<tarn::finishing::stage>(which)), longest_.at(which));
        }
    }

private:
    std::array<double, 6> longest_{};
    tarn::finishing::stage stage_ = tarn::finishing::stage::reading;
    double reading_ = 0.0;
    clock::time_point before_ = clock::now();
};

int finish_large(int count)
{
    const cv::Size window(800, 600);
    const cv::Size frame_size(4000, 3000);
    constexpr int step = 130;  // px of the plane
    const cv::Mat& plane = tarn::test::textured_plane({window.width + step * (count - 1), window.height}, 11);
    cancel_looks looks;
    std::vector<key_frame> key_frames;
    for (int i = 0; i < count; ++i) {
        const double working_scale = 300.0 / window.width;
        const cv::Matx33d place(1, 0, working_scale * step * i, 0, 1, 0, 0, 0, 1);
        const auto drawn = [&plane, i, window, frame_size] {
            cv::Mat frame;
            cv::resize(plane(cv::Rect({step * i, 0}, window)), frame, frame_size, 0, 0, cv::INTER_CUBIC);
            return frame;
        };
        key_frames.push_back({i, cv::Mat(place), [&looks, drawn] { return looks.read(drawn); }});
    }
    tarn::finishing::finishing_options options;
    options.progress = [&looks](tarn::finishing::stage now, double) { return looks.look(now); };
    const double before = resident_megabytes("VmRSS");
    const double cpu_before = process_cpu_seconds();
    const auto begin = std::chrono::steady_clock::now();
    const auto result = tarn::finishing::finish(key_frames, options);
    looks.look(tarn::finishing::stage::reading);
    std::printf("%s, %d key frames of %d Mpx: %dx%d\n", name_of(result.outcome), count, frame_size.area() / 1000000,
                result.picture.cols, result.picture.rows);
    std::printf("%.1f s, of processors %.1f s, key frames drawn included\n",
                std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(),
                process_cpu_seconds() - cpu_before);
    std::printf("most memory: %.0f MB, of which %.0f MB were there before\n", resident_megabytes("VmHWM"), before);
    looks.tell();
    return result.outcome == tarn::finishing::status::ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> clips;
    std::string pictures;
    int threads = cv::getNumThreads();
    bool lengths = false;
    bool alone = false;    // without rivals
    std::string only;      // one of them, or ourselves
    unsigned limit = 600;  // s: who takes longer has failed
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--threads=", 0) == 0) {
            threads = std::stoi(argument.substr(10));
        } else if (argument.rfind("--pictures=", 0) == 0) {
            pictures = argument.substr(11) + "/";
        } else if (argument.rfind("--limit=", 0) == 0) {
            limit = static_cast<unsigned>(std::stoul(argument.substr(8)));
        } else if (argument == "--lengths") {
            lengths = true;
        } else if (argument.rfind("--large", 0) == 0) {
            constexpr int many = 60;
            return finish_large(argument.size() > 8 ? std::stoi(argument.substr(8)) : many);
        } else if (argument.rfind("--only=", 0) == 0) {
            only = argument.substr(7);
        } else if (argument == "--alone") {
            alone = true;
        } else if (argument.rfind("--", 0) != 0) {
            clips.push_back(argument);
        }
    }
    if (clips.empty()) {
        const std::string samples = TARN_SAMPLES_DIR "/";
        clips = {samples + "hall_slide.mp4:" + samples + "hall_slide.gt.csv", samples + "parking_pan.mp4",
                 samples + "river_pan.mp4"};
    }
    cv::setNumThreads(1);  // until the processes that are measured are on their own: one with threads cannot be forked
    std::vector<rival> rivals = {{"finishing", finish_clip},
                                 {"PANORAMA", stitcher_of(cv::Stitcher::PANORAMA)},
                                 {"SCANS", stitcher_of(cv::Stitcher::SCANS)}};
    if (runs(TARN_HUGIN_CHAIN)) {
        rivals.push_back({"Hugin", hugin_within(limit)});
    } else {
        std::fprintf(stderr, "Hugin's tools are not installed (hugin-tools, enblend): without them\n");
    }
    std::printf(
        "| clip | by | key frames | in the picture | s | CPU s | MB | geometry, %% | ghosting | jump | step, %% "
        "| size |\n");
    std::printf("| --- | --- | --: | --: | --: | --: | --: | --: | --: | --: | --: | --- |\n");
    bool all_whole = true;
    for (const std::string& argument : clips) {
        clip whole = read_clip(argument);
        std::vector<std::size_t> counts = {whole.key_frames.size()};
        if (lengths) {
            counts = {8, 10, 12, 20, 30, 40, 60};
        }
        for (const std::size_t count : counts) {
            clip part = whole;
            if (count > part.key_frames.size()) {
                continue;
            }
            part.key_frames.resize(count);
            part.pictures.resize(count);
            part.truth.resize(std::min(count, part.truth.size()));
            for (const rival& one : rivals) {
                const bool is_rival = std::strcmp(one.name, "finishing") != 0;
                const bool is_for_lengths = !is_rival || std::strcmp(one.name, "PANORAMA") == 0;
                if ((alone && is_rival) || (lengths && !is_for_lengths) || (!only.empty() && only != one.name)) {
                    continue;
                }
                const std::string file =
                    pictures.empty() ? "" : pictures + part.name + "-" + std::to_string(count) + "-" + one.name;
                const figures own = in_own_process(part, one.make, threads, file, limit);
                std::printf("| %s | %s | %zu%s | %d | %s | %s | %s | %s | %s | %s | %s | %dx%d |\n", part.name.c_str(),
                            one.name, count, part.reached_the_end ? "" : " (lost)", own.used,
                            number(own.seconds, 2).c_str(), number(own.cpu_seconds, 2).c_str(),
                            number(own.megabytes, 0).c_str(), number(own.geometry, 4).c_str(),
                            number(own.ghosting, 2).c_str(), number(own.gradient_jump, 2).c_str(),
                            number(own.exposure_step, 1).c_str(), own.width, own.height);
                std::fflush(stdout);
                all_whole =
                    all_whole && (std::strcmp(one.name, "finishing") != 0 || own.used == static_cast<int>(count));
            }
        }
    }
    return all_whole ? 0 : 1;
}
