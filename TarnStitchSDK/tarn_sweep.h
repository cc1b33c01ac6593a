// SPDX-License-Identifier: Apache-2.0
//
// One sweep of the camera, from its first frame to its panorama: all that a host in C++ needs, and what every
// binding is made from.
//
//     tarn::sweep sweep = tarn::sweep::begin();
//     for each frame of the camera:
//         tarn::frame_answer answer = sweep.feed({pixels, width, height, stride, tarn::pixel_format::rgba});
//         tell the user tarn::advice_for(answer.code); show sweep.preview()
//     tarn::panorama result = sweep.finish();
//     result.save("panorama.jpg");
//
// One at a time: the library works on one sweep per process. Beginning another one ends the one before, wherever it
// was; its methods then throw sweep_error (over). So does a call of resetStitch: a host uses the session or the
// functions of tarn_stitch_jni.h, not both.
//
// Threads: every method may be called from any thread at any time.
//   feed                while another call is inside, or somebody waits to begin or to cancel: not taken, at once;
//                       code_lost, reason::busy, or code_pipeline_failed where the pipeline has failed anyway
//   finish              waits for the call inside, then goes on
//   begin, cancel       wait for the call inside; one that waits for workers is told to give up first
//   all others          never wait for a frame: they see what there was after the last call that has returned
// Callbacks run on the thread of the call that they were given to, without a lock of the library's. They may call
// whatever does not wait for that call to return (all but feed, finish, begin), and cancel, which takes effect
// when the call returns. What they throw leaves the method; the sweep goes on.
//
// Waits: every one is bounded, but for a disk that does not answer while a directory itself is made, emptied or
// removed. Workers that have not moved for three times max_wait_seconds never will.
//
// Failure: what becomes of a frame or of the panorama is a value. What is thrown is a sweep_error, for a wrong
// argument, a sweep that is over, a directory or a file; and std::bad_alloc, where not even an answer can be made.
// Moving and destroying never throw.
//
// Orientation: frames are taken as the sensor of a device held upright delivers them, lying on their side: the
// panorama is rotated by 90 degrees clockwise against the frames, the preview is not.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_answer.h"
#include "high_res_worker.h"
#include "preview_limit.h"
#include "vocabulary.h"

namespace tarn {

/// How the bytes of a pixel lie. Alpha is ignored.
enum class pixel_format : int { rgba = 1, bgra = 2, bgr = 3, gray = 4 };

/// A frame where it lies. Only read, and not needed any more when the call returns.
struct frame_view {
    const void* pixels = nullptr;  ///< first byte of the top row
    int width = 0;                 ///< px, 1 to 16384
    int height = 0;                ///< px, 1 to 16384
    std::size_t row_stride = 0;    ///< bytes from row to row, at least width times the bytes of a pixel; 0: no padding.
                                   ///< The last row needs none behind it
    pixel_format format = pixel_format::rgba;  ///< how its bytes lie
};

/// An 8-bit image of 4 channels (R,G,B,A), 3 (B,G,R) or 1 as a frame. @throws sweep_error (bad_argument) otherwise
frame_view view_of(const cv::Mat& image);

/// How many bytes of memory a frame spans, from its first pixel to its last one: what a buffer must hold.
/// @throws sweep_error (bad_argument) for a frame that feed would refuse
std::size_t size_in_bytes(const frame_view& frame);

/// A frame that was given to a worker, for a host that wants to do something with it later.
struct key_frame {
    cv::Mat image;   ///< full size, CV_8UC3, B,G,R; shared with the workers: never write it
    int number = 0;  ///< 1, 2, 3, … in the sweep
    /// False for a last frame, which is composed without being registered live: then the next two say nothing, the first
    /// being the identity and the second 0 x 0.
    bool placed = false;
    /// The frame, scaled to `working_size`, into the plane of the sweep's first frame, scaled likewise. Fixed for the
    /// whole sweep, however the preview grows.
    cv::Matx33d plane_from_frame = cv::Matx33d::eye();
    cv::Size working_size;  ///< of the live path's copy: at most 300 px wide
};

/// The preview panorama.
struct preview_view {
    cv::Mat pixels;            ///< CV_8UC3, B,G,R; empty before the first frame; its pixels never change
    bool has_outline = false;  ///< whether there is an outline
    corners outline{};         ///< of the frame taken last
    bool frozen = false;       ///< has reached its greatest size (preview_limit.h): the sweep goes on, it does not grow
};

/// Where a sweep stands.
struct sweep_status {
    int key_frames = 0;                        ///< given to workers so far
    int under_way = 0;                         ///< of these, those whose turn is not over
    pipeline_state pipeline = pipeline_empty;  ///< what the workers are at
    int first_failed_key_frame = 0;            ///< that could not be joined, from 1; 0 if all could
    reason why = reason::none;                 ///< why it could not
};

/// When the worker of a key frame came to which point of its work, in the order of that work. A point that it did not
/// come to, or not yet, is the clock's own beginning, instant().
struct worker_turn {
    using instant = std::chrono::steady_clock::time_point;  ///< the clock by which it is told

    int key_frame = 0;     ///< from 1
    instant begun{};       ///< the worker runs
    instant prepared{};    ///< the frame is described, and its file written; the wait for the turn begins
    instant taken{};       ///< the turn begins: the frame is to be registered
    instant registered{};  ///< it is known where the frame lies in the panorama, or that nothing tells; not of the
                           ///< first one, which is the panorama
    instant ended{};       ///< the worker's work is over, however it ended
};

/// The overlap of key frames with which the library begins.
constexpr float usual_key_frame_overlap = 0.7f;

/// What a sweep begins with.
struct sweep_options {
    /// Where the sweep keeps its files until it ends, when it removes them and the directory. "": a private directory,
    /// made and removed by the sweep. Otherwise one that is empty or missing; a missing one is made, parents included,
    /// with mode 0700. One in which anything lies is refused.
    std::string directory;
    /// Where a private directory is made. "": the system's directory for temporary files.
    std::string private_parent;

    /// Key frames that may be under way at once, that of the frame that is handed over included. 0: as many as come,
    /// for a camera, whose frames cannot wait. For a file 1 or more: feed waits for room first, and for the workers
    /// when the pipeline seems to have failed, since one that was waiting for its turn may bring it back; finish waits
    /// for all of them before it hands a last frame over.
    int most_under_way = 0;
    /// Called again and again while feed or finish waits for workers, with the number of key frames under way; false
    /// ends the wait: the frame is not handed over, a finish gives what there is.
    std::function<bool(int under_way)> while_waiting = nullptr;

    /// Is given each key frame as it goes to its worker, before feed or finish returns.
    std::function<void(const key_frame&)> on_key_frame = nullptr;

    /// Is given the log of each call, as the interface's functions write it to standard output, which stays untouched.
    /// None: nothing is written.
    std::function<void(const std::string& text)> on_log = nullptr;

    /// Overlap with the last key frame, as frame_answer::overlap, below which a frame becomes one; more than 0, less
    /// than 1. More than the usual value means more key frames, nearer to each other: more work and memory, and a
    /// panorama that may hold where the usual one breaks, or becomes a wedge.
    float key_frame_overlap = usual_key_frame_overlap;
};

/// How much of the sweep a panorama holds.
enum class panorama_extent : int {
    missing = 0,  ///< there is none
    partial = 1,  ///< it ends where a key frame could not be joined, or the wait was ended
    whole = 2,  ///< it reaches to the end of the sweep; a key frame on the way may be missing (first_failed_key_frame)
};

/// The end of a sweep.
struct panorama {
    panorama_extent extent = panorama_extent::missing;  ///< how much of the sweep it holds
    reason why = reason::none;                          ///< why it is not whole; of a whole one reason::disk
                                                        ///< where its file could not be written
    int first_failed_key_frame = 0;  ///< that could not be joined, from 1; 0 if all could. May be set though the
                                     ///< panorama goes on behind it
    int key_frames = 0;              ///< given to workers
    frame_answer last_frame;         ///< the answer for the last frame, if there was one
    cv::Mat image;                   ///< CV_8UC3, B,G,R, continuous; empty if missing
    std::vector<composed_key_frame> composed;  ///< the key frames in it, in the order of their turns, and how they lie
    std::string file;  ///< its JPEG in the sweep's directory, which goes with the sweep; "" if it is not
                       ///< whole or the file could not be written

    /// The image as a JPEG, the very bytes that the library writes. Any thread. @throws sweep_error (no_panorama,
    /// no_memory)
    std::vector<unsigned char> jpeg() const;

    /// Writes that JPEG to a file, which appears whole or not at all and replaces one that is there. Its mode is what
    /// the process's umask gives. @throws sweep_error (no_panorama, no_memory, disk)
    void save(const std::string& path) const;
};

/// Writes bytes into a file as panorama::save does, for whoever holds those of panorama::jpeg. Any thread.
/// @throws sweep_error (no_memory, disk)
void save_bytes(const std::string& path, const std::vector<unsigned char>& bytes);

/// How a sweep is to be ended.
struct finish_options {
    const frame_view* last_frame = nullptr;     ///< is composed without being registered, wherever it lies; or none
    direction_code hint = direction_undecided;  ///< the direction of the sweep, for the last frame
    /// Told of the key frames whose turns are over, again and again, and when the wait is over; false ends the wait,
    /// and what there is by then is the result.
    std::function<bool(int done, int key_frames)> on_progress = nullptr;
};

/// The kinds of sweep_error.
enum class sweep_problem : int {
    bad_argument = 1,  ///< the text names the argument and its value
    over = 2,          ///< the sweep was finished with, cancelled, or another one was begun after it
    directory_not_empty = 3,
    directory_unusable = 4,  ///< cannot be made, or not be read and written; or is one that nobody may empty
    no_panorama = 5,
    no_memory = 6,
    disk = 7,
    process_ends = 8,  ///< or it was forked off, or another copy of the library in it has the sweep
};

/// What is thrown for a wrong argument, a sweep that is over, a directory or a file.
class sweep_error : public std::runtime_error {
public:
    /// @param problem  which kind of failure it is
    /// @param text     what(): one line that names what is wrong
    sweep_error(sweep_problem problem, const std::string& text);

    /// Which kind of failure it is.
    sweep_problem problem() const noexcept
    {
        return problem_;
    }

private:
    sweep_problem problem_;
};

/// A sweep: the handle by which a host holds it. Moving one is the owner's thread's business.
class sweep {
public:
    /// Begins a sweep and ends the one before.
    /// @throws sweep_error (bad_argument, directory_not_empty, directory_unusable, no_memory, process_ends); the sweep
    ///         before goes on then, unless the directory was its own, or lay in that one, or held nothing else
    static sweep begin(sweep_options options = {});

    /// Ends the sweep as cancel does.
    ~sweep();
    sweep(sweep&& other) noexcept;             ///< leaves `other` without a sweep
    sweep& operator=(sweep&& other) noexcept;  ///< ends the sweep that it held
    sweep(const sweep&) = delete;
    sweep& operator=(const sweep&) = delete;

    /// Registers one frame, in typically a few milliseconds. All frames of a sweep should have one size.
    /// @param frame  only read, and not needed any more when the call returns
    /// @param hint   the direction in which the camera is meant to move; motion against it is rejected
    /// @throws sweep_error (over, bad_argument)
    frame_answer feed(const frame_view& frame, direction_code hint = direction_undecided);

    /// Waits for the workers and hands the panorama out. May be called again, when no frame came after the first time:
    /// the answer is the same, unless a last frame is named once more, which is one more key frame. A frame that is fed
    /// after a finish goes on with the sweep.
    /// @throws sweep_error (over, bad_argument)
    panorama finish(const finish_options& options = {});

    /// Ends the sweep for good: its workers leave without trace, its files and its directory are removed. A feed or
    /// finish that is inside returns within moments, with reason::cancelled. Does nothing if the sweep is over. Never
    /// throws.
    void cancel() noexcept;

    /// Whether the sweep is the current one.
    bool is_current() const noexcept;

    /// @throws sweep_error (over; process_ends), as the methods below
    sweep_status status() const;

    /// What the workers of the sweep have taken their time for so far, by the numbers of the key frames; those that have
    /// not begun are missing.
    std::vector<worker_turn> worker_turns() const;

    /// Waits until at most so many key frames are under way.
    /// @param most           0 or more
    /// @param time_out       none: as long as workers move
    /// @param while_waiting  called again and again, with the number of key frames under way; false ends the wait
    /// @returns false if it is not so when the time is over or the wait was ended, or the workers do not move any more
    bool wait_for_room(int most, std::chrono::milliseconds time_out = std::chrono::milliseconds::max(),
                       const std::function<bool(int under_way)>& while_waiting = {});

    /// The preview panorama after the last call that has returned, and where the frame taken last lies in it.
    preview_view preview() const;

    /// The directory in which the sweep keeps its files, with a "/" at its end.
    std::string directory() const;

private:
    struct state;
    explicit sweep(std::shared_ptr<state> held);
    std::shared_ptr<state> state_;
};

}  // namespace tarn
