// SPDX-License-Identifier: Apache-2.0
//
// The live path once more, as one plain list of steps without any structure: what the shipped one must agree
// with, field by field and bit by bit, over any sequence of frames. It starts no workers but records what they
// would be given. The geometry helpers and the seam are the library's own; other tests cover those.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "tarn_stitcher.h"

namespace tarn::test {

/// What a worker would have been started with.
struct plain_hand_off {
    cv::Mat frame;
    std::vector<float> angles;
    std::vector<float> scales;
    int direction;
    int big_frame_index;
};

class plain_live_path {
public:
    /// Starts from the present state of a task; images are copied.
    explicit plain_live_path(const TarnStitcher& task);

    /// What videoStitch does with a frame that is not the last one, B,G,R here: the result code. An error of
    /// OpenCV leaves the code before.
    int feed(const cv::Mat& frame, int direction);

    /// The same from what the host hands in, R,G,B,A: with the copy and the conversion that this takes.
    int feed_host_frame(const cv::Mat& mat, int direction);

    /// Names of the fields in which a task differs from this; empty when all agree to the last bit.
    std::string differences(const TarnStitcher& task) const;

    // The task's fields, under their own names.
    int stitcher_status;
    int failed_count;
    int failed_thresh;
    std::vector<float> last_move_distances;
    float iou_thresh;
    float area_thresh;
    float angle_thresh;
    float inline_thresh;
    int matches_thresh;
    int frame_index;
    std::vector<cv::Point2f> last_warp_points;
    int big_frame_index;
    float total_shift_x;
    float total_shift_y;
    cv::Mat last_frame;
    cv::Mat last_stitch_image;
    int last_direction;
    std::vector<float> last_angles;
    std::vector<float> last_scales;
    cv::Mat reference_gray;
    float reference_work_scale;
    std::vector<cv::Point2f> reference_keypoints;
    cv::Mat reference_homo;
    cv::Mat reference_base_homo;

    // What the last call of feed() measured, as far as it came.
    std::vector<plain_hand_off> hand_offs;  ///< all so far
    int code = 0;
    cv::Mat frame_motion;  ///< the homography into the reference frame
    int in_count = 0;
    float in_ratio = 0.0f;
    int move_direction = 0;
    float move_distance = 0.0f;
    float maxa = 0.0f;
    float iou = 0.0f;

private:
    int register_frame(cv::Mat input_frame, int direction);
    int reject(int result);
};

}  // namespace tarn::test
