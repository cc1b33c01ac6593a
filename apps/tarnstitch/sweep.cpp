// SPDX-License-Identifier: Apache-2.0
//
// Feeding the library and waiting for its workers.
#include "sweep.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <thread>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "host_error.h"
#include "interruption.h"
#include "tarn_stitch_jni.h"

namespace tarn::host {

namespace {

constexpr auto poll_interval = std::chrono::milliseconds(2);

/// A worker waits at most twice for max_wait_seconds before it gives up, so when no turn has ended for three
/// times as long none is going to: one was never started (no thread to be had), or waits for a base panorama
/// that failed.
std::chrono::seconds patience()
{
    return std::chrono::seconds(3 * static_cast<std::int64_t>(load_acquire(max_wait_seconds)));
}

/// A task in the working directory, ended with the object: the library leaves the directory for good, so that
/// no worker writes there any more.
class library_task {
public:
    explicit library_task(const std::string& directory)
    {
        resetStitch(directory.c_str());
    }

    ~library_task()
    {
        resetStitch("");
    }

    library_task(const library_task&) = delete;
    library_task& operator=(const library_task&) = delete;
};

/// Key frames handed over whose turn is not over.
int key_frames_on_their_way()
{
    return tarn_stitcher.big_frame_index - look_at_pipeline().turns_over;
}

std::vector<unsigned char> bytes_of_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A JPEG that was cut short (by a full disk) lacks the marker at its end.
bool is_whole_jpeg(const std::vector<unsigned char>& bytes)
{
    const std::size_t size = bytes.size();
    return size > 4 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[size - 2] == 0xff
           && bytes[size - 1] == 0xd9;
}

bool user_gives_up()
{
    return stop_asked_for() == stop_kind::give_up;
}

std::array<float, 4> four_of(const std::vector<float>& values)
{
    std::array<float, 4> result{};
    std::copy_n(values.begin(), std::min(values.size(), result.size()), result.begin());
    return result;
}

/// The corners of the frame taken last in the preview. The reference's homography already counts the growth that
/// the preview owes it until the next key frame.
std::vector<cv::Point2f> outline_in_preview()
{
    const stitch_data& reference = tarn_stitcher.last_check_data;
    if (reference.scaled_gray_frame.empty() || reference.homo.empty()) {
        return {};
    }
    const auto width = static_cast<float>(reference.scaled_gray_frame.cols);
    const auto height = static_cast<float>(reference.scaled_gray_frame.rows);
    const std::vector<cv::Point2f> frame = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    std::vector<cv::Point2f> corners;
    cv::perspectiveTransform(frame, corners, reference.homo);
    for (cv::Point2f& corner : corners) {
        corner -= cv::Point2f(tarn_stitcher.total_shift_x, tarn_stitcher.total_shift_y);
    }
    return corners;
}

/// How far an outline reaches beyond the sides of a preview: the upper, the right, the lower, the left one. The
/// library itself only keeps count of how far its origin moves, which is to the left and upwards in its own frames.
std::array<float, 4> reach_beyond(const cv::Size& preview, const std::vector<cv::Point2f>& outline)
{
    std::array<float, 4> reach{};
    for (const cv::Point2f& corner : outline) {
        reach[0] = std::max(reach[0], -corner.y);
        reach[1] = std::max(reach[1], corner.x - static_cast<float>(preview.width));
        reach[2] = std::max(reach[2], corner.y - static_cast<float>(preview.height));
        reach[3] = std::max(reach[3], -corner.x);
    }
    return reach;
}

/// The sweep as it goes: what run_sweep tells in steps.
class running_sweep {
public:
    running_sweep(sweep_input& input, const sweep_settings& settings) : input_(input), settings_(settings)
    {
    }

    sweep_result run()
    {
        const library_task task(settings_.working_directory);
        try {
            feed_frame frame;
            bool goes_on = true;
            while (goes_on && input_.next(frame)) {
                const bool input_ends = frame.last;
                last_frame_ = frame.rgba;
                // The input is asked once more after its last frame: an error may have made it the last one.
                goes_on = hand_over(frame) && (input_ends || !frame.last);
            }
        } catch (const host_error& error) {
            result_.outcome = sweep_outcome::input_failed;
            result_.input_error = error.what();
            settle();
        }
        result_.key_frames = tarn_stitcher.big_frame_index;
        if (result_.outcome != sweep_outcome::given_up) {
            collect_panorama();
            collect_preview();
        }
        keep_working_files();
        return result_;
    }

private:
    /// Waits until at most `limit` key frames are on their way.
    /// @returns false when they have stopped moving instead
    bool wait_for_workers(int limit, bool also_until_failure)
    {
        using clock = std::chrono::steady_clock;
        int last_seen = key_frames_on_their_way();
        clock::time_point last_progress = clock::now();
        while (last_seen > limit) {
            if ((also_until_failure && look_at_pipeline().status == pipeline_failed) || user_gives_up()) {
                return true;
            }
            if (clock::now() - last_progress > patience()) {
                return false;
            }
            for (sweep_observer* const observer : settings_.observers) {
                observer->waiting(last_seen);
            }
            std::this_thread::sleep_for(poll_interval);
            const int now_on_their_way = key_frames_on_their_way();
            if (now_on_their_way != last_seen) {
                last_seen = now_on_their_way;
                last_progress = clock::now();
            }
        }
        return true;
    }

    /// Holds back while enough key frames are on their way: every wait of the workers' protocol gives up after a
    /// while, and each worker holds a frame, so that a file fed as fast as it can be read would fail in the end.
    bool hold_back(int workers)
    {
        return wait_for_workers(workers - 1, true);
    }

    /// Waits until no key frame is on its way. Only then is a failure final: a worker that was already waiting for
    /// its turn takes it all the same, and its success brings the pipeline back.
    /// @returns whether the pipeline works
    bool settle()
    {
        return wait_for_workers(0, false) && look_at_pipeline().status != pipeline_failed;
    }

    /// Hands one frame over, the last one until its panorama is there. Makes it the last one when the user wants
    /// the sweep to end.
    /// @returns false when nothing may follow: the pipeline has failed for good, or the user has given up
    bool hand_over(feed_frame& frame)
    {
        if (!hold_back(settings_.workers)) {
            return broken_at(frame);
        }
        frame.last = frame.last || stop_asked_for() != stop_kind::none;
        // The library's own wait for the last worker is a short one, and shows nothing: so all others first.
        if (frame.last && !hold_back(1)) {
            return broken_at(frame);
        }
        if (user_gives_up()) {
            result_.outcome = sweep_outcome::given_up;
            return false;
        }
        ++result_.frames;
        result_.last_frame = frame.stamp.number;
        int code = answer_to(frame);
        if (code == lowest_code) {
            if (!settle()) {
                count(frame, code, false);
                return broken_at(frame);
            }
            // The pipeline has come back. The frame was dropped, unless it was the last one and had been given
            // to a worker already.
            if (result_.key_frames == tarn_stitcher.big_frame_index) {
                code = answer_to(frame);
            }
        }
        const bool works = !frame.last || finish(frame);
        count(frame, code, taken_ && works);
        return works;
    }

    /// One call of the library.
    int answer_to(const feed_frame& frame)
    {
        using clock = std::chrono::steady_clock;
        const cv::Mat reference_before = tarn_stitcher.last_check_data.scaled_gray_frame;
        result_.key_frames = tarn_stitcher.big_frame_index;
        const clock::time_point begun = clock::now();
        const int code = videoStitch(frame.rgba, settings_.direction_hint, frame.last ? 1 : 0)[0];
        spent_ = clock::now() - begun;
        if (!after_fitted_) {
            after_fitted_ = frame.stamp;
        }
        if (tarn_stitcher.big_frame_index > result_.key_frames) {
            key_stamps_.push_back({frame.stamp, last_fitted_, *after_fitted_});
        }
        // The code does not tell a frame that fitted from one of the first few that did not: both are 1. A
        // frame that fitted is the one against which the next is registered.
        taken_ = frame.last ? code != lowest_code
                            : tarn_stitcher.last_check_data.scaled_gray_frame.data != reference_before.data;
        registered_ = taken_ && !frame.last && !reference_before.empty();
        if (taken_) {
            last_fitted_ = frame.stamp;
            after_fitted_.reset();
        }
        return std::clamp(code, lowest_code, highest_code);
    }

    /// Counts a frame and tells the observers of it.
    void count(const feed_frame& frame, int code, bool taken)
    {
        ++result_.by_code[static_cast<std::size_t>(code - lowest_code)];
        result_.taken += taken ? 1 : 0;
        if (settings_.observers.empty()) {
            return;
        }
        frame_record record;
        record.stamp = frame.stamp;
        record.place = frame.place;
        record.last = frame.last;
        record.code = code;
        record.taken = taken;
        record.key_frame = tarn_stitcher.big_frame_index > result_.key_frames;
        record.key_frames = tarn_stitcher.big_frame_index;
        record.milliseconds = std::chrono::duration<double, std::milli>(spent_).count();
        record.direction = tarn_stitcher.last_direction;
        record.registered = registered_;
        if (registered_ && !tarn_stitcher.last_move_distances.empty()) {
            record.move_distance = tarn_stitcher.last_move_distances.back();
        }
        record.angles = four_of(tarn_stitcher.last_angles);
        record.scales = four_of(tarn_stitcher.last_scales);
        record.preview = getCurrentPanoramsShowMat();
        record.outline = outline_in_preview();
        record.beyond = reach_beyond(record.preview.size(), record.outline);
        for (sweep_observer* const observer : settings_.observers) {
            observer->frame_done(record);
        }
    }

    /// Sees to it that the panorama is written: the library waits for the last worker just so long, and answers
    /// "normal" whether it has written a file or not.
    bool finish(const feed_frame& frame)
    {
        if (*getCurrentPanoramaShow() == '\0') {
            if (!settle()) {
                return broken_at(frame);
            }
            tarn_stitcher.get_big_image(tarn_stitcher.big_frame_index);
        }
        return *getCurrentPanoramaShow() != '\0' || broken_at(frame);
    }

    bool broken_at(const feed_frame& frame)
    {
        result_.outcome = user_gives_up() ? sweep_outcome::given_up : sweep_outcome::pipeline_failed;
        result_.broken_at_frame = frame.stamp.number;
        return false;
    }

    void collect_panorama()
    {
        const pipeline_snapshot pipeline = look_at_pipeline();
        result_.failed_key_frame = pipeline.first_failed_frame;
        if (pipeline.first_failed_frame >= 1
            && static_cast<std::size_t>(pipeline.first_failed_frame) <= key_stamps_.size()) {
            const key_frame_stamps& failed =
                key_stamps_[static_cast<std::size_t>(pipeline.first_failed_frame) - 1];
            result_.failed_frame = failed.own.number;
            result_.failed_seconds = failed.own.seconds;
            result_.fitted_seconds = failed.last_fitted.seconds;
            result_.misfit_seconds = failed.after_fitted.seconds;
        }
        result_.panorama = pipeline.panorama;
        if (result_.outcome == sweep_outcome::complete) {
            result_.panorama_file = bytes_of_file(getCurrentPanoramaShow());
            if (is_whole_jpeg(result_.panorama_file)) {
                return;
            }
        }
        // What was composed so far; or a whole panorama whose file could not be written in the temporary
        // directory, encoded just as the library does it.
        result_.panorama_file.clear();
        if (!pipeline.panorama.empty()) {
            cv::imencode(".jpg", pipeline.panorama, result_.panorama_file);
        }
    }

    /// The library starts a preview with the first frame that it can track. When only the last frame is left
    /// for the panorama (a single picture, a blank wall before it) there is none, and the panorama is that
    /// frame. So is the preview then, in the size in which it would have started.
    void collect_preview()
    {
        result_.preview = getCurrentPanoramsShowMat();
        if (!result_.preview.empty() || last_frame_.empty()) {
            return;
        }
        constexpr int preview_frame_width = 300;
        cv::cvtColor(last_frame_, result_.preview, cv::COLOR_RGBA2BGR);
        if (result_.preview.cols > preview_frame_width) {
            const double scale = static_cast<double>(preview_frame_width) / result_.preview.cols;
            cv::Mat small;
            cv::resize(result_.preview, small, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
            result_.preview = small;
        }
    }

    /// Moves the working files out before the library removes them with their directory. What cannot be moved shows
    /// when it is looked for.
    void keep_working_files() const
    {
        namespace fs = std::filesystem;
        if (settings_.kept_files.empty()) {
            return;
        }
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(settings_.working_directory, error)) {
            std::error_code ignored;
            fs::rename(entry.path(), fs::path(settings_.kept_files) / entry.path().filename(), ignored);
        }
    }

    /// The frame that a key frame was, and where the sweep had come apart before it, if it had.
    struct key_frame_stamps {
        frame_stamp own;
        frame_stamp last_fitted;   ///< the last frame before that was taken
        frame_stamp after_fitted;  ///< the first frame after that
    };

    sweep_input& input_;
    const sweep_settings& settings_;
    sweep_result result_;
    cv::Mat last_frame_;
    std::vector<key_frame_stamps> key_stamps_;
    frame_stamp last_fitted_;                  ///< the last frame that was taken
    std::optional<frame_stamp> after_fitted_;  ///< the first frame after that
    // On the frame that answer_to handed over:
    bool taken_ = false;       ///< whether the library took it
    bool registered_ = false;  ///< whether that was by comparing it with the one before
    std::chrono::steady_clock::duration spent_{};
};

}  // namespace

sweep_result run_sweep(sweep_input& input, const sweep_settings& settings)
{
    return running_sweep(input, settings).run();
}

}  // namespace tarn::host
