// SPDX-License-Identifier: Apache-2.0
//
// A sweep as the library holds it, and the state that it shares with its workers.
//
// Conventions of the whole library
// --------------------------------
// Pixels        x is the column, y the row, y grows downward; the centre of the top-left pixel is (0, 0).
//               Coordinates become pixel indices by truncation toward zero.
// Corners       of a frame or quadrilateral: top-left, top-right, bottom-right, bottom-left; those of a frame of
//               w x h pixels are (0, 0), (w, 0), (w, h), (0, h).
// Homographies  3 x 3, CV_64F, mapping a frame's coordinates into those of a reference frame or the panorama.
// Angles        single-precision degrees.
// Directions    0 undecided; 1 and 2 vertical motion, down and up; 3 and 4 horizontal motion, right and left:
//               the motion, as get_direction (motion.h) sees it, of the frame's corners when they are mapped
//               into the frame before, that is, of the camera.
// Images        8 bits, 3 channels in B,G,R order inside the library; 4 channels R,G,B,A where the host hands
//               frames in. A pixel of three zero bytes counts as empty.
// Memory        cv::Mat headers share pixels by reference count. Pixels that were handed over once, in either
//               direction, are never written again.
// Threads       Every host entry point (tarn_stitch_jni.h), the constructor and the member functions belong to
//               one thread at a time, the host's. Workers run beside it (high_res_worker.h) and meet it in
//               module_globals.h, as internal/shared_state.h orders it.
// Not checked   That working directories end in "/" (file names are appended directly); that a directory holds
//               nothing of value (it is emptied); corner lists shorter than four in the geometry functions.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include "descriptor_matching.h"
#include "high_res_worker.h"
#include "module_globals.h"
#include "motion.h"
#include "projection.h"
#include "quadrilateral.h"
#include "seam.h"
#include "shared_access.h"
#include "working_copy.h"
#include "working_directory.h"

/// What is kept of the frame accepted last, against which the next one is registered.
struct stitch_data {
    cv::Mat scaled_gray_frame;                ///< the frame, at most 300 px wide, CV_8UC1
    float work_scale = 0.0f;                  ///< factor between the tracked and the scaled frame; set before use
    std::vector<cv::Point2f> good_keypoints;  ///< corners found in scaled_gray_frame
    cv::Mat descriptors;                      ///< unused by the live path
    /// The frame into the preview panorama.
    cv::Mat homo = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, 0, 0, 1);
    /// The frame into the last key frame.
    cv::Mat base_homo = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, 0, 0, 1);

    stitch_data() = default;
    /// Moves every member.
    stitch_data& operator=(stitch_data&&) = default;
    ~stitch_data() = default;
};

/// One sweep, from its first frame to its panorama. The library keeps one, the global tarn_stitcher;
/// constructing another one starts a new sweep just the same, since all share the variables below.
class TarnStitcher {
public:
    std::string task_id;      ///< never written after construction
    std::string local_path;   ///< working directory, with its trailing "/"
    int stitcher_status = 0;  ///< 0 new, 1 a frame is being registered, 3 the newest frame is done with
    int failed_count = 0;     ///< consecutive rejected frames
    int failed_thresh = 10;   ///< rejections from which on code 0 is given; also the speed window, in frames
    std::vector<float> last_move_distances;     ///< px of the scaled frame, one per accepted frame, newest last
    float iou_thresh = 0.7f;                    ///< overlap with the last key frame below which a frame becomes one
    float area_thresh = 0.5f;                   ///< least part of the reference frame that a frame must cover
    float angle_thresh = 10.0f;                 ///< degrees: greatest tilt of a frame's edges from frame to frame
    float inline_thresh = 0.1f;                 ///< least share of RANSAC inliers
    int matches_thresh = 10;                    ///< least number of corners and of tracked points
    float check_match_conf = 0.2f;              ///< kept for hosts; the worker uses a constant of its own
    int frame_index = 0;                        ///< frames with enough corners so far
    std::vector<cv::Point2f> last_warp_points;  ///< corners of the last key frame in the preview
    int big_frame_index = 0;                    ///< frames handed to workers so far
    float total_shift_x = 0.0f;                 ///< px by which the preview must grow to the left at the next key frame
    float total_shift_y = 0.0f;                 ///< px by which it must grow upwards
    cv::Mat last_frame;                         ///< newest frame with enough corners, full size, B,G,R
    cv::Mat last_stitch_image;                  ///< the preview panorama, CV_8UC3
    int last_direction = 0;  ///< direction of the last accepted frame, 0 to 4; the first one seen, even of a
                             ///< frame that is rejected later, while it is 0
    std::vector<float> last_angles = std::vector<float>(4, 90.0f);  ///< degrees, of the last measured frame
    std::vector<float> last_scales = std::vector<float>(4, 1.0f);   ///< side ratios of the last measured frame
    std::string last_stitch_image_path;                             ///< unused
    stitch_data last_check_data;                                    ///< the tracking reference
    std::string big_stitch_image_path;                              ///< path of the panorama; "" until it is written
    std::string test_image_path;  ///< unused; the host reads the global of the same name

    /// Starts a new sweep in the directory `input_path` (with a trailing "/"; "" for none): resets everything
    /// that workers share, so that workers of an earlier sweep end without trace, and empties the directory if
    /// it exists. Never creates it.
    TarnStitcher(std::string input_path);  // NOLINT(google-explicit-constructor): a path may stand for a sweep
    /// Moves every member; the shared variables are not touched.
    TarnStitcher& operator=(TarnStitcher&&) = default;
    /// Touches neither the working directory nor the shared variables.
    ~TarnStitcher() = default;

    /// Empties and removes the working directory, if it exists.
    void remove_local_path();

    /// Registers one frame of the sweep and grows the preview: the whole live path.
    ///
    /// @param input_frame  CV_8UC3, B,G,R, any size; its pixels are shared with the worker and with last_frame,
    ///                     so the caller must not write them any more
    /// @param direction    the host's hint, 0 to 4; motion opposite to it is rejected. 0: any motion is welcome
    /// @param is_last_one  not 0: finish the sweep with this frame, waiting for the workers and writing the file
    /// @returns two ints in storage of the calling thread's, overwritten by the next call: the result code (-1 to 6,
    ///          see videoStitch) and 0
    /// @throws cv::Exception and whatever else OpenCV or the start of a thread raises;
    ///         stitcher_status may be left at 1
    int* ofcheck_stitch(cv::Mat& input_frame, const int direction, const int is_last_one);

    /// Waits, for max_wait_seconds at most, until the worker with the given index has had its turn, writes the
    /// panorama to big_local_path + "big_stitch.jpg" and stores that path in big_stitch_image_path.
    /// @returns false if the pipeline had failed before the call; true otherwise, whether or not a file was
    ///          written: after a time-out, or a failure during the wait, the path is left as it was
    bool get_big_image(int last_big_frame_index);
};
