// SPDX-License-Identifier: Apache-2.0
//
// The library's global state before and in main, and the order in which it came about.
#include "global_state_checks.h"

#include <array>
#include <cstddef>
#include <iostream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include "destructor_recorder.h"
#include "tarn_stitch_jni.h"

namespace {

int failures = 0;

void check(bool holds, const char* what)
{
    if (!holds) {
        ++failures;
        std::cerr << "not so: " << what << '\n';
    }
}

bool is_double_identity(const cv::Mat& matrix)
{
    return matrix.size() == cv::Size(3, 3) && matrix.type() == CV_64FC1
           && cv::countNonZero(matrix != cv::Mat::eye(3, 3, CV_64F)) == 0;
}

void check_order_of_construction()
{
    struct global {
        const char* name;
        const void* address;
    };

    const std::array<global, 9> in_order = {{
        {"test_image_path", &test_image_path},
        {"stitch_feature_finder", &stitch_feature_finder},
        {"detector", &detector},
        {"big_stitch_image", &big_stitch_image},
        {"neighbour_homo", &neighbour_homo},
        {"neighbour_keypoints", &neighbour_keypoints},
        {"neighbour_descriptors", &neighbour_descriptors},
        {"big_local_path", &big_local_path},
        {"tarn_stitcher", &tarn_stitcher},
    }};
    std::size_t previous = tarn::not_registered;
    for (const global& each : in_order) {
        const std::size_t position = tarn::construction_position(each.address);
        check(position != tarn::not_registered, each.name);
        const bool first = each.address == &test_image_path;
        check(first || previous < position, (std::string(each.name) + " comes after its predecessor").c_str());
        previous = position;
    }
}

void check_feature_finder()
{
    check(!stitch_feature_finder.empty(), "stitch_feature_finder exists");
    if (stitch_feature_finder.empty()) {
        return;
    }
    const cv::AKAZE& akaze = *stitch_feature_finder;
    check(akaze.getDescriptorType() == cv::AKAZE::DESCRIPTOR_MLDB, "descriptor type MLDB");
    check(akaze.getDescriptorSize() == 0, "descriptor size 0");
    check(akaze.getDescriptorChannels() == 3, "3 descriptor channels");
    check(akaze.getThreshold() == static_cast<double>(0.001f), "threshold 0.001 in single precision");
    check(akaze.getNOctaves() == 4, "4 octaves");
    check(akaze.getNOctaveLayers() == 4, "4 octave layers");
    check(akaze.getDiffusivity() == cv::KAZE::DIFF_PM_G2, "diffusivity PM_G2");
}

void check_detector()
{
    check(!detector.empty(), "detector exists");
    if (detector.empty()) {
        return;
    }
    check(detector->getThreshold() == 30, "detector threshold 30");
    check(detector->getNonmaxSuppression(), "detector suppresses what is no maximum");
    check(detector->getType() == cv::FastFeatureDetector::TYPE_9_16, "detector type 9_16");
}

void check_shared_variables()
{
    check(test_image_path.empty(), "test_image_path is empty");
    check(ERROR_PLACE == "PANORAMA_ERROR_PLACE", "ERROR_PLACE");
    check(big_stitch_image.empty(), "big_stitch_image is empty");
    check(neighbour_homo.empty(), "neighbour_homo is empty");
    check(neighbour_keypoints.empty(), "neighbour_keypoints is empty");
    check(neighbour_keypoints.capacity() == 0, "neighbour_keypoints has no storage");
    check(neighbour_descriptors.empty(), "neighbour_descriptors is empty");
    check(big_stitch_status == 0, "big_stitch_status is 0");
    check(!SP, "SP is false");
    check(big_frame_num == 0, "big_frame_num is 0");
    check(big_work_scale == 0.0f, "big_work_scale is 0");
    check(big_local_path.empty(), "big_local_path is empty");
    check(max_wait_seconds == 20, "max_wait_seconds is 20");
}

void check_task()
{
    const TarnStitcher& task = tarn_stitcher;
    check(task.task_id.empty(), "task_id is empty");
    check(task.local_path.empty(), "local_path is empty");
    check(task.stitcher_status == 0, "stitcher_status is 0");
    check(task.failed_count == 0, "failed_count is 0");
    check(task.failed_thresh == 10, "failed_thresh is 10");
    check(task.last_move_distances.empty(), "last_move_distances is empty");
    check(task.frame_index == 0, "frame_index is 0");
    check(task.big_frame_index == 0, "big_frame_index is 0");
    check(task.last_direction == 0, "last_direction is 0");
    check(task.last_angles == std::vector<float>(4, 90.0f), "last_angles are four times 90");
    check(task.last_scales == std::vector<float>(4, 1.0f), "last_scales are four times 1");
    check(is_double_identity(task.last_check_data.homo), "homo is the identity");
    check(is_double_identity(task.last_check_data.base_homo), "base_homo is the identity");
    check(task.last_stitch_image.empty(), "last_stitch_image is empty");
    check(task.big_stitch_image_path.empty(), "big_stitch_image_path is empty");
}

tarn::early_look look_now()
{
    const bool ready = tarn::construction_position(&tarn_stitcher) != tarn::not_registered;
    return {ready, ready ? tarn::check_global_state() : 0};
}

/// Runs before main; after the library's initialisers in all programs but the one that links this object first.
const tarn::early_look seen_before_main = look_now();

}  // namespace

int tarn::check_global_state()
{
    failures = 0;
    check_order_of_construction();
    check_feature_finder();
    check_detector();
    check_shared_variables();
    check_task();
    return failures;
}

tarn::early_look tarn::look_before_main()
{
    return seen_before_main;
}

int tarn::check_globals_are_usable()
{
    failures = 0;
    // Longer than any string that fits into the object itself: the allocation must survive until exit.
    const std::string long_path = "/nonexistent/" + std::string(1000, 'x') + "/";
    big_local_path = long_path;
    test_image_path = long_path;
    check(big_local_path == long_path, "big_local_path keeps a value");

    cv::Mat checkerboard(200, 200, CV_8UC1);
    for (int y = 0; y < checkerboard.rows; ++y) {
        for (int x = 0; x < checkerboard.cols; ++x) {
            checkerboard.at<unsigned char>(y, x) = static_cast<unsigned char>((x / 20 + y / 20) % 2 * 255);
        }
    }
    stitch_feature_finder->detectAndCompute(checkerboard, cv::noArray(), neighbour_keypoints, neighbour_descriptors);
    check(!neighbour_keypoints.empty(), "stitch_feature_finder finds the corners of a checkerboard");
    check(neighbour_descriptors.rows == static_cast<int>(neighbour_keypoints.size()), "and describes them");
    big_stitch_image = checkerboard;
    neighbour_homo = cv::Mat::eye(3, 3, CV_64F);

    // A new task brings everything back to the state before main, test_image_path apart.
    check(resetStitch("") == 1, "resetStitch answers 1");
    test_image_path.clear();
    const int used = failures;
    return used + check_global_state();
}
