// SPDX-License-Identifier: Apache-2.0
//
// The state of a task and the variables it shares with its workers: defaults, construction, move.
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "support/stitcher_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;

// The types are part of the interface.
static_assert(std::is_same_v<decltype(TarnStitcher::task_id), std::string>);
static_assert(std::is_same_v<decltype(TarnStitcher::local_path), std::string>);
static_assert(std::is_same_v<decltype(TarnStitcher::stitcher_status), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::failed_count), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::failed_thresh), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_move_distances), std::vector<float>>);
static_assert(std::is_same_v<decltype(TarnStitcher::iou_thresh), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::area_thresh), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::angle_thresh), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::inline_thresh), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::matches_thresh), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::check_match_conf), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::frame_index), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_warp_points), std::vector<cv::Point2f>>);
static_assert(std::is_same_v<decltype(TarnStitcher::big_frame_index), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::total_shift_x), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::total_shift_y), float>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_frame), cv::Mat>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_stitch_image), cv::Mat>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_direction), int>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_angles), std::vector<float>>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_scales), std::vector<float>>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_stitch_image_path), std::string>);
static_assert(std::is_same_v<decltype(TarnStitcher::last_check_data), stitch_data>);
static_assert(std::is_same_v<decltype(TarnStitcher::big_stitch_image_path), std::string>);
static_assert(std::is_same_v<decltype(TarnStitcher::test_image_path), std::string>);
static_assert(std::is_same_v<decltype(stitch_data::scaled_gray_frame), cv::Mat>);
static_assert(std::is_same_v<decltype(stitch_data::work_scale), float>);
static_assert(std::is_same_v<decltype(stitch_data::good_keypoints), std::vector<cv::Point2f>>);
static_assert(std::is_same_v<decltype(stitch_data::descriptors), cv::Mat>);
static_assert(std::is_same_v<decltype(stitch_data::homo), cv::Mat>);
static_assert(std::is_same_v<decltype(stitch_data::base_homo), cv::Mat>);
static_assert(std::is_same_v<decltype(test_image_path), std::string>);
static_assert(std::is_same_v<decltype(stitch_feature_finder), cv::Ptr<cv::AKAZE>>);
static_assert(std::is_same_v<decltype(detector), cv::Ptr<cv::FastFeatureDetector>>);
static_assert(std::is_same_v<decltype(ERROR_PLACE), const std::string>);
static_assert(std::is_same_v<decltype(big_stitch_image), cv::Mat>);
static_assert(std::is_same_v<decltype(neighbour_homo), cv::Mat>);
static_assert(std::is_same_v<decltype(neighbour_keypoints), std::vector<cv::KeyPoint>>);
static_assert(std::is_same_v<decltype(neighbour_descriptors), cv::Mat>);
static_assert(std::is_same_v<decltype(big_stitch_status), int>);
static_assert(std::is_same_v<decltype(SP), bool>);
static_assert(std::is_same_v<decltype(big_frame_num), int>);
static_assert(std::is_same_v<decltype(big_work_scale), float>);
static_assert(std::is_same_v<decltype(big_local_path), std::string>);
static_assert(std::is_same_v<decltype(max_wait_seconds), int>);
static_assert(std::is_same_v<decltype(tarn_stitcher), TarnStitcher>);

static_assert(!std::is_polymorphic_v<TarnStitcher>);
static_assert(!std::is_default_constructible_v<TarnStitcher>);
static_assert(std::is_constructible_v<TarnStitcher, std::string>);
static_assert(std::is_move_assignable_v<TarnStitcher>);
static_assert(!std::is_copy_assignable_v<TarnStitcher>);
static_assert(std::is_default_constructible_v<stitch_data>);
static_assert(std::is_move_assignable_v<stitch_data>);

bool is_double_identity(const cv::Mat& matrix)
{
    return matrix.type() == CV_64F && matrix.size() == cv::Size(3, 3)
           && cv::norm(matrix, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF) == 0.0;
}

void expect_defaults(const TarnStitcher& task, const std::string& path)
{
    EXPECT_EQ(task.task_id, "");
    EXPECT_EQ(task.local_path, path);
    EXPECT_EQ(task.stitcher_status, 0);
    EXPECT_EQ(task.failed_count, 0);
    EXPECT_EQ(task.failed_thresh, 10);
    EXPECT_TRUE(task.last_move_distances.empty());
    EXPECT_EQ(task.iou_thresh, 0.7f);
    EXPECT_EQ(task.area_thresh, 0.5f);
    EXPECT_EQ(task.angle_thresh, 10.0f);
    EXPECT_EQ(task.inline_thresh, 0.1f);
    EXPECT_EQ(task.matches_thresh, 10);
    EXPECT_EQ(task.check_match_conf, 0.2f);
    EXPECT_EQ(task.frame_index, 0);
    EXPECT_TRUE(task.last_warp_points.empty());
    EXPECT_EQ(task.big_frame_index, 0);
    EXPECT_EQ(task.total_shift_x, 0.0f);
    EXPECT_EQ(task.total_shift_y, 0.0f);
    EXPECT_TRUE(task.last_frame.empty());
    EXPECT_TRUE(task.last_stitch_image.empty());
    EXPECT_EQ(task.last_direction, 0);
    EXPECT_EQ(task.last_angles, std::vector<float>({90.0f, 90.0f, 90.0f, 90.0f}));
    EXPECT_EQ(task.last_scales, std::vector<float>({1.0f, 1.0f, 1.0f, 1.0f}));
    EXPECT_EQ(task.last_stitch_image_path, "");
    EXPECT_TRUE(task.last_check_data.scaled_gray_frame.empty());
    EXPECT_TRUE(task.last_check_data.good_keypoints.empty());
    EXPECT_TRUE(task.last_check_data.descriptors.empty());
    EXPECT_TRUE(is_double_identity(task.last_check_data.homo));
    EXPECT_TRUE(is_double_identity(task.last_check_data.base_homo));
    EXPECT_EQ(task.big_stitch_image_path, "");
    EXPECT_EQ(task.test_image_path, "");
}

void expect_shared_state_of_a_new_task(const std::string& path)
{
    EXPECT_TRUE(big_stitch_image.empty());
    EXPECT_TRUE(neighbour_homo.empty());
    EXPECT_TRUE(neighbour_keypoints.empty());
    EXPECT_EQ(neighbour_keypoints.capacity(), 0U);
    EXPECT_TRUE(neighbour_descriptors.empty());
    EXPECT_EQ(big_stitch_status, 0);
    EXPECT_FALSE(SP);
    EXPECT_EQ(big_frame_num, 0);
    EXPECT_EQ(big_work_scale, 0.0f);
    EXPECT_EQ(big_local_path, path);
}

void write_file(const std::string& path)
{
    std::ofstream(path) << "content";
}

class StitcherState : public tarn::test::stitcher_fixture {};

TEST_F(StitcherState, EveryDefaultOfANewTask)
{
    expect_defaults(TarnStitcher(directory()), directory());
}

TEST_F(StitcherState, WorkScaleOfANewRecordIsZero)
{
    EXPECT_EQ(stitch_data().work_scale, 0.0f);
}

TEST_F(StitcherState, HomographiesOfANewRecordAreTwoSeparateDoubleIdentities)
{
    const stitch_data record;
    EXPECT_TRUE(is_double_identity(record.homo));
    EXPECT_TRUE(is_double_identity(record.base_homo));
    EXPECT_NE(record.homo.data, record.base_homo.data);
    EXPECT_NE(record.homo.data, stitch_data().homo.data);
}

TEST_F(StitcherState, LastAnglesAndScalesHoldFourValues)
{
    const TarnStitcher task("");
    EXPECT_EQ(task.last_angles, std::vector<float>(4, 90.0f));
    EXPECT_EQ(task.last_scales, std::vector<float>(4, 1.0f));
}

TEST_F(StitcherState, MembersStandInTheirOrderOfDeclaration)
{
    const TarnStitcher task("");
    const std::vector<const void*> members = {&task.task_id,
                                              &task.local_path,
                                              &task.stitcher_status,
                                              &task.failed_count,
                                              &task.failed_thresh,
                                              &task.last_move_distances,
                                              &task.iou_thresh,
                                              &task.area_thresh,
                                              &task.angle_thresh,
                                              &task.inline_thresh,
                                              &task.matches_thresh,
                                              &task.check_match_conf,
                                              &task.frame_index,
                                              &task.last_warp_points,
                                              &task.big_frame_index,
                                              &task.total_shift_x,
                                              &task.total_shift_y,
                                              &task.last_frame,
                                              &task.last_stitch_image,
                                              &task.last_direction,
                                              &task.last_angles,
                                              &task.last_scales,
                                              &task.last_stitch_image_path,
                                              &task.last_check_data,
                                              &task.big_stitch_image_path,
                                              &task.test_image_path};
    for (std::size_t i = 1; i < members.size(); ++i)
        EXPECT_TRUE(std::less<>()(members[i - 1], members[i])) << i;

    const stitch_data& record = task.last_check_data;
    const std::vector<const void*> fields = {&record.scaled_gray_frame, &record.work_scale, &record.good_keypoints,
                                             &record.descriptors,       &record.homo,       &record.base_homo};
    for (std::size_t i = 1; i < fields.size(); ++i)
        EXPECT_TRUE(std::less<>()(fields[i - 1], fields[i])) << i;
}

TEST_F(StitcherState, ConstructionResetsWhatWorkersShare)
{
    big_stitch_image = cv::Mat(2, 2, CV_8UC3);
    neighbour_homo = cv::Mat::eye(3, 3, CV_64F);
    neighbour_keypoints.resize(100);
    neighbour_descriptors = cv::Mat(2, 2, CV_32F);
    big_stitch_status = 4;
    SP = true;
    big_frame_num = 7;
    big_work_scale = 0.5f;
    big_local_path = "elsewhere/";

    const TarnStitcher task(directory());
    expect_shared_state_of_a_new_task(directory());
}

TEST_F(StitcherState, ConstructionReleasesWhatWorkersShare)
{
    cv::Mat panorama(2, 2, CV_8UC3);
    big_stitch_image = panorama;
    ASSERT_EQ(panorama.u->refcount, 2);
    const TarnStitcher task("");
    EXPECT_EQ(panorama.u->refcount, 1);
}

TEST_F(StitcherState, ConstructionLeavesWhatBelongsToNoTask)
{
    test_image_path = "frame.jpg";
    max_wait_seconds = 3;
    const cv::AKAZE* const finder = stitch_feature_finder.get();
    const cv::FastFeatureDetector* const corners = detector.get();

    const TarnStitcher task(directory());

    EXPECT_EQ(test_image_path, "frame.jpg");
    EXPECT_EQ(max_wait_seconds, 3);
    EXPECT_EQ(stitch_feature_finder.get(), finder);
    EXPECT_EQ(detector.get(), corners);
}

TEST_F(StitcherState, ConstructionEmptiesADirectoryTreeButKeepsTheDirectory)
{
    fs::create_directories(directory() + "one/two/three");
    write_file(directory() + "file");
    write_file(directory() + ".hidden");
    write_file(directory() + "one/file");
    write_file(directory() + "one/two/three/file");

    const TarnStitcher task(directory());

    EXPECT_TRUE(fs::is_directory(directory()));
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>());
}

TEST_F(StitcherState, ConstructionWithAMissingDirectoryDoesNotCreateIt)
{
    const std::string missing = root() + "missing/";
    const TarnStitcher task(missing);
    EXPECT_EQ(task.local_path, missing);
    EXPECT_EQ(big_local_path, missing);
    EXPECT_FALSE(fs::exists(missing));
}

TEST_F(StitcherState, ConstructionWithTheEmptyPathDeletesNothingAndCreatesNothing)
{
    // Nothing of the task's directory, and nothing of the current one, which an empty path could be taken for.
    write_file(directory() + "kept");
    fs::create_directory(root() + "current");
    write_file(root() + "current/kept");
    const fs::path before = fs::current_path();
    fs::current_path(root() + "current");

    const TarnStitcher task("");

    EXPECT_EQ(entries_of("."), std::vector<std::string>({"kept"}));
    fs::current_path(before);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"kept"}));
    EXPECT_EQ(entries_of(root()), std::vector<std::string>({"current", "sweep"}));
    expect_defaults(task, "");
    expect_shared_state_of_a_new_task("");
}

TEST_F(StitcherState, DestructionTouchesNeitherTheDirectoryNorWhatWorkersShare)
{
    {
        const TarnStitcher task(directory());
        write_file(directory() + "kept");
        big_stitch_status = 3;
        big_frame_num = 2;
        big_stitch_image = cv::Mat(2, 2, CV_8UC3);
    }
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"kept"}));
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_FALSE(big_stitch_image.empty());
    EXPECT_EQ(big_local_path, directory());
}

TEST_F(StitcherState, MoveTakesEveryMemberAndNothingElse)
{
    TarnStitcher from(directory());
    from.task_id = "task";
    from.stitcher_status = 3;
    from.failed_count = 1;
    from.failed_thresh = 2;
    from.last_move_distances = {1.0f, 2.0f};
    from.iou_thresh = 0.1f;
    from.area_thresh = 0.2f;
    from.angle_thresh = 0.3f;
    from.inline_thresh = 0.4f;
    from.matches_thresh = 5;
    from.check_match_conf = 0.6f;
    from.frame_index = 7;
    from.last_warp_points = {{1.0f, 2.0f}};
    from.big_frame_index = 8;
    from.total_shift_x = 9.0f;
    from.total_shift_y = 10.0f;
    from.last_frame = cv::Mat(1, 2, CV_8UC3);
    from.last_stitch_image = cv::Mat(3, 4, CV_8UC3);
    from.last_direction = 4;
    from.last_angles = {80.0f};
    from.last_scales = {2.0f};
    from.last_stitch_image_path = "preview";
    from.last_check_data.scaled_gray_frame = cv::Mat(5, 6, CV_8UC1);
    from.last_check_data.work_scale = 0.5f;
    from.last_check_data.good_keypoints = {{3.0f, 4.0f}};
    from.last_check_data.descriptors = cv::Mat(7, 8, CV_32F);
    from.big_stitch_image_path = "panorama";
    from.test_image_path = "frame";
    const float* const distances = from.last_move_distances.data();
    const float* const angles = from.last_angles.data();
    const cv::Point2f* const keypoints = from.last_check_data.good_keypoints.data();
    const uchar* const frame = from.last_frame.data;
    const uchar* const preview = from.last_stitch_image.data;
    const uchar* const gray = from.last_check_data.scaled_gray_frame.data;
    const uchar* const descriptors = from.last_check_data.descriptors.data;
    const uchar* const homo = from.last_check_data.homo.data;
    const uchar* const base_homo = from.last_check_data.base_homo.data;

    TarnStitcher to("");
    write_file(directory() + "kept");
    big_stitch_status = 3;
    big_frame_num = 1;
    big_local_path = "elsewhere/";
    TarnStitcher& result = (to = std::move(from));

    EXPECT_EQ(&result, &to);
    EXPECT_EQ(to.task_id, "task");
    EXPECT_EQ(to.local_path, directory());
    EXPECT_EQ(to.stitcher_status, 3);
    EXPECT_EQ(to.failed_count, 1);
    EXPECT_EQ(to.failed_thresh, 2);
    EXPECT_EQ(to.last_move_distances.data(), distances);
    EXPECT_EQ(to.iou_thresh, 0.1f);
    EXPECT_EQ(to.area_thresh, 0.2f);
    EXPECT_EQ(to.angle_thresh, 0.3f);
    EXPECT_EQ(to.inline_thresh, 0.4f);
    EXPECT_EQ(to.matches_thresh, 5);
    EXPECT_EQ(to.check_match_conf, 0.6f);
    EXPECT_EQ(to.frame_index, 7);
    EXPECT_EQ(to.last_warp_points, std::vector<cv::Point2f>({{1.0f, 2.0f}}));
    EXPECT_EQ(to.big_frame_index, 8);
    EXPECT_EQ(to.total_shift_x, 9.0f);
    EXPECT_EQ(to.total_shift_y, 10.0f);
    EXPECT_EQ(to.last_frame.data, frame);
    EXPECT_EQ(to.last_stitch_image.data, preview);
    EXPECT_EQ(to.last_direction, 4);
    EXPECT_EQ(to.last_angles.data(), angles);
    EXPECT_EQ(to.last_scales, std::vector<float>({2.0f}));
    EXPECT_EQ(to.last_stitch_image_path, "preview");
    EXPECT_EQ(to.last_check_data.scaled_gray_frame.data, gray);
    EXPECT_EQ(to.last_check_data.work_scale, 0.5f);
    EXPECT_EQ(to.last_check_data.good_keypoints.data(), keypoints);
    EXPECT_EQ(to.last_check_data.descriptors.data, descriptors);
    EXPECT_EQ(to.last_check_data.homo.data, homo);
    EXPECT_EQ(to.last_check_data.base_homo.data, base_homo);
    EXPECT_EQ(to.big_stitch_image_path, "panorama");
    EXPECT_EQ(to.test_image_path, "frame");

    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"kept"}));
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 1);
    EXPECT_EQ(big_local_path, "elsewhere/");
}

TEST_F(StitcherState, FeatureFinderHasItsParameters)
{
    EXPECT_EQ(stitch_feature_finder->getDescriptorType(), cv::AKAZE::DESCRIPTOR_MLDB);
    EXPECT_EQ(stitch_feature_finder->getDescriptorSize(), 0);
    EXPECT_EQ(stitch_feature_finder->getDescriptorChannels(), 3);
    EXPECT_EQ(stitch_feature_finder->getThreshold(), static_cast<double>(0.001f));
    EXPECT_EQ(stitch_feature_finder->getNOctaves(), 4);
    EXPECT_EQ(stitch_feature_finder->getNOctaveLayers(), 4);
    EXPECT_EQ(stitch_feature_finder->getDiffusivity(), cv::KAZE::DIFF_PM_G2);
}

TEST_F(StitcherState, CornerDetectorHasItsParameters)
{
    EXPECT_EQ(detector->getThreshold(), 30);
    EXPECT_TRUE(detector->getNonmaxSuppression());
    EXPECT_EQ(detector->getType(), cv::FastFeatureDetector::TYPE_9_16);
}

TEST_F(StitcherState, ErrorPlaceHasItsText)
{
    EXPECT_EQ(ERROR_PLACE, "PANORAMA_ERROR_PLACE");
}

// The state before main. The check runs in a process of its own, in which no other test has run.
TEST(StitcherStateAtLoad, EverythingHasItsInitialValue)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            expect_defaults(tarn_stitcher, "");
            expect_shared_state_of_a_new_task("");
            EXPECT_EQ(test_image_path, "");
            EXPECT_EQ(max_wait_seconds, 20);
            EXPECT_FALSE(stitch_feature_finder.empty());
            EXPECT_FALSE(detector.empty());
            EXPECT_STREQ(getCurrentPanoramaShow(), "");
            EXPECT_STREQ(getTestCurrentPanoramaShow(), "");
            EXPECT_TRUE(getCurrentPanoramsShowMat().empty());
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
