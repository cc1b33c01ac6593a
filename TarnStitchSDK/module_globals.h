// SPDX-License-Identifier: Apache-2.0
//
// The variables of the module: what a sweep shares with its workers, and what they use.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

// The variables that a sweep shares with its workers, in the order in which they are constructed. As inline
// variables of one header they are constructed in this order in every program, and before the global
// tarn_stitcher, whose constructor resets them, in whatever order the objects are linked. Visible whatever the
// host's own flags say: with hidden ones, a host of the shared library would get a second set of its own.
#pragma GCC visibility push(default)

/// Path of the frame file that a worker wrote last; "" before the first one. Not reset with the sweep.
inline std::string test_image_path;

/// Detector and descriptor of the high-resolution frames. Safe to use from several threads at once.
inline cv::Ptr<cv::AKAZE> stitch_feature_finder =
    cv::AKAZE::create(cv::AKAZE::DESCRIPTOR_MLDB, 0, 3, 0.001f, 4, 4, cv::KAZE::DIFF_PM_G2);

/// Part of the interface; nothing in the library uses it.
inline cv::Ptr<cv::FastFeatureDetector> detector =
    cv::FastFeatureDetector::create(30, true, cv::FastFeatureDetector::TYPE_9_16);

/// Part of the interface; nothing in the library uses it.
static const std::string ERROR_PLACE = "PANORAMA_ERROR_PLACE";  // NOLINT(misc-definitions-in-headers)

/// The high-resolution panorama so far, CV_8UC3. May be a view of a larger image, which is not continuous: a host that
/// reads its pixels goes by rows, or clones it.
inline cv::Mat big_stitch_image;

/// The frame composed last into big_stitch_image.
inline cv::Mat neighbour_homo;

/// Keypoints of the frame composed last, in pixels of its detection copy.
inline std::vector<cv::KeyPoint> neighbour_keypoints;

/// Their descriptors, one per row, CV_32F; bytes after the sphere has been switched on.
inline cv::Mat neighbour_descriptors;

/// State of the high-resolution pipeline: 0, 2, 3 or 4 (high_res_worker.h).
inline int big_stitch_status = 0;

/// Whether the sphere has been switched on: every later frame of the sweep is projected onto it.
inline bool SP = false;

/// Number of worker turns over: the ticket.
inline int big_frame_num = 0;

/// Factor from the full high-resolution frame to its detection copy: of the current turn's frame, or of one that
/// was described during that turn. Each worker calculates with its own.
inline float big_work_scale = 0.0f;

/// The working directory as the workers see it; file names are appended directly.
inline std::string big_local_path;

/// Seconds after which a wait for a worker's turn gives up. The host may change it, in mid-sweep by
/// tarn::set_max_wait_seconds; a new sweep does not.
inline int max_wait_seconds = 20;

#pragma GCC visibility pop
