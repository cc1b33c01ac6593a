// SPDX-License-Identifier: Apache-2.0
//
// What the live path decides about a frame: is it taken, is it a key frame, how well does it fit, and which numbers
// does it leave behind. No image is made or read here, no thread started, nothing shared; any thread.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_geometry.h"
#include "vocabulary.h"

namespace tarn {

/// Points of the reference frame and where they lie in this one, pair by pair, px of the working copies.
struct tracked_points {
    points neighbour_points;
    points matched_frame_points;
};

/// What a frame is compared with.
struct judged_reference {
    cv::Mat homo;       ///< of the frame taken last, into the preview; 3 x 3, CV_64F
    cv::Mat base_homo;  ///< of the frame taken last, into the last key frame; 3 x 3, CV_64F
    cv::Size preview;   ///< its size so far
};

/// The thresholds of a task (tarn_stitcher.h).
struct judging_limits {
    int matches;
    float area;
    float angle;    ///< degrees
    float inliers;  ///< share
    float overlap;
    int rejections;  ///< in a row; also the length of the speed window, by design
};

/// Numbers of the task that change while a frame is judged, in place, and stay changed when it is rejected in the
/// end or an error is raised: by design.
struct judged_numbers {
    int& last_direction;  ///< taken over from the frame while it is 0
    std::vector<float>& last_angles;
    std::vector<float>& last_scales;
    float& total_shift_x;
    float& total_shift_y;
    points& last_warp_points;  ///< moved along with the preview's origin
};

/// A frame placed in the preview, and the extent of the two together.
struct placement {
    cv::Mat H;                 ///< this frame into the preview, moved so that nothing lies left of or above it
    points transpose_corners;  ///< the frame's corners there
    cv::Point2f base_shift;    ///< by which this frame moves the preview's origin
    float left_x = 0.0f;
    float top_y = 0.0f;
    float warp_width = 0.0f;
    float warp_height = 0.0f;
    float stitch_width = 0.0f;
    float stitch_height = 0.0f;
};

enum class key_frame_rule {
    none,
    new_ground,   ///< shows little of the last key frame
    turns_round,  ///< shows some less of it, after a change of direction
};

struct frame_verdict {
    reason why = reason::none;       ///< none: the frame is taken
    answer_code code = code_normal;  ///< of a frame that is taken
    int inliers = 0;
    bool measured = false;       ///< far enough that the next three are known
    float move_distance = 0.0f;  ///< px, of the frame's centre
    float overlap = 0.0f;        ///< with the last key frame
    int move_direction = direction_undecided;

    // Of a frame that is taken.
    placement place;
    cv::Mat base_homo;  ///< into the last key frame, or the identity when it becomes that itself
    key_frame_rule key_frame = key_frame_rule::none;
    int worker_direction = direction_undecided;  ///< what a key frame's worker is told
    std::vector<float> move_distances;           ///< the speed window with this frame's distance
};

/// Whether a count is below a limit of the task's. A negative limit lies above every count.
bool is_below(int limit, std::size_t count);

/// Judges a frame by how its points have moved since the reference frame. The order of the tests is fixed: enough
/// points; a plausible quadrilateral; enough inliers; the hint; convex in the preview; of sane size there.
///
/// @param reference       the frame taken last
/// @param frame           the working copy; only its size is used
/// @param tracks          of equal lengths
/// @param direction       the host's hint
/// @param limits          the task's
/// @param move_distances  the speed window so far, newest last
/// @param numbers         changed in place
/// @throws cv::Exception when no homography is found, or for homographies of the reference that are none
frame_verdict judge(const judged_reference& reference, const cv::Mat& frame, const tracked_points& tracks,
                    int direction, const judging_limits& limits, const std::vector<float>& move_distances,
                    const judged_numbers& numbers);

/// The code of the frame that is the `count`th in a row to be rejected.
answer_code code_of_rejection(int count, int failed_thresh);

}  // namespace tarn
