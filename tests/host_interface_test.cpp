// SPDX-License-Identifier: Apache-2.0
//
// The host's entry points: starting tasks, handing frames in, fetching results.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "support/counted_sleep.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using tarn::test::counted_sleep;

void write_file(const std::string& path)
{
    std::ofstream(path) << "content";
}

unsigned mode_of(const std::string& path)
{
    struct stat record = {};
    EXPECT_EQ(lstat(path.c_str(), &record), 0) << path;
    return record.st_mode & 07777U;
}

/// While one lives, a process of root's has the rights of an ordinary user, whose the tree `place` becomes.
class ordinary_user {
public:
    explicit ordinary_user(const std::string& place) : was_root_(geteuid() == 0)
    {
        if (was_root_) {
            EXPECT_EQ(lchown(place.c_str(), nobody, nobody), 0);
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
                EXPECT_EQ(lchown(entry.path().c_str(), nobody, nobody), 0);
            }
            EXPECT_EQ(seteuid(nobody), 0);
        }
    }

    ~ordinary_user()
    {
        if (was_root_) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

    ordinary_user(const ordinary_user&) = delete;
    ordinary_user& operator=(const ordinary_user&) = delete;

private:
    static constexpr uid_t nobody = 65534;
    bool was_root_;
};

/// A frame with enough detail for the live path, as a host hands it over.
cv::Mat good_frame(int offset = 0)
{
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(768, 512));
    return tarn::test::host_frame_from(plane(cv::Rect(40 + offset, 40, 240, 180)));
}

/// A frame whose conversion succeeds and whose step raises: too flat for the working copy to have a row.
cv::Mat frame_that_throws()
{
    return {1, 2000, CV_8UC4, cv::Scalar(10, 20, 30, 255)};
}

/// What one call of videoStitch printed: the text before its closing line, and the number in that line. The number
/// is empty when the closing line is not exactly as it must be.
struct call_log {
    std::string text;
    std::string seconds;
};

call_log split_log(const std::string& output)
{
    const std::string spent = "main thread: videoStitch finish, total spent";
    const std::size_t at = output.rfind(spent);
    if (at == std::string::npos || output.back() != '\n')
        return {output, ""};
    const std::string number = output.substr(at + spent.size(), output.size() - 1 - at - spent.size());
    const bool is_number =
        !number.empty() && number.find_first_not_of("0123456789.e+-") == std::string::npos && number[0] != '-';
    return {output.substr(0, at), is_number ? number : ""};
}

bool starts_with(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool is_one_line(const std::string& text)
{
    return !text.empty() && text.back() == '\n';
}

class ResetStitch : public tarn::test::stitcher_fixture {};

TEST_F(ResetStitch, EmptyPathInstallsATaskWithoutDirectoryAndAnswers1)
{
    fs::create_directory(root() + "current");
    write_file(root() + "current/kept");
    const fs::path before = fs::current_path();
    fs::current_path(root() + "current");
    resetStitch("");
    tarn_stitcher.frame_index = 5;

    EXPECT_EQ(resetStitch(""), 1);

    EXPECT_EQ(entries_of("."), std::vector<std::string>({"kept"}));
    fs::current_path(before);
    EXPECT_EQ(tarn_stitcher.local_path, "");
    EXPECT_EQ(big_local_path, "");
    EXPECT_EQ(tarn_stitcher.frame_index, 0);
}

TEST_F(ResetStitch, NullPathIsTakenAsTheEmptyOne)
{
    EXPECT_EQ(resetStitch(nullptr), 1);
    EXPECT_EQ(tarn_stitcher.local_path, "");
    EXPECT_FALSE(fs::exists(directory())) << "the path changed, so the old directory goes";
}

TEST_F(ResetStitch, CurrentPathIsEmptiedButNotRemoved)
{
    // A directory that was removed and made anew would have the mode 0200.
    fs::permissions(directory(), fs::perms(0750));
    write_file(directory() + "big_frame1.jpg");
    fs::create_directory(directory() + "sub");
    tarn_stitcher.frame_index = 5;

    EXPECT_EQ(resetStitch(directory().c_str()), 1);

    EXPECT_EQ(entries_of(directory()), std::vector<std::string>());
    EXPECT_EQ(mode_of(directory()), 0750U);
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(tarn_stitcher.frame_index, 0);
}

TEST_F(ResetStitch, OtherExistingPathIsEmptiedAndTheOldDirectoryRemoved)
{
    const std::string other = root() + "other/";
    fs::create_directory(other);
    fs::permissions(other, fs::perms(0710));
    write_file(other + "old");
    write_file(directory() + "old");

    EXPECT_EQ(resetStitch(other.c_str()), 1);

    EXPECT_FALSE(fs::exists(directory()));
    EXPECT_EQ(entries_of(other), std::vector<std::string>());
    EXPECT_EQ(mode_of(other), 0710U);
    EXPECT_EQ(tarn_stitcher.local_path, other);
    EXPECT_EQ(big_local_path, other);
}

TEST_F(ResetStitch, MissingDirectoryIsCreatedWithMode0200Exactly)
{
    const std::string missing = root() + "missing/";
    const mode_t before = umask(0);
    EXPECT_EQ(resetStitch(missing.c_str()), 1);
    umask(before);

    ASSERT_TRUE(fs::is_directory(missing));
    EXPECT_EQ(mode_of(missing), 0200U);
    EXPECT_EQ(tarn_stitcher.local_path, missing);
    EXPECT_EQ(big_local_path, missing);
}

TEST_F(ResetStitch, PathsAreComparedByteForByte)
{
    // Without its last "/" the same directory counts as another: it is removed and made anew.
    const std::string same = directory().substr(0, directory().size() - 1);
    EXPECT_EQ(resetStitch(same.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, same);
    ASSERT_TRUE(fs::is_directory(same));
    EXPECT_EQ(mode_of(same), 0200U);
}

TEST_F(ResetStitch, AnotherSpellingOfTheDirectoryServesAnOrdinaryUser)
{
    fs::permissions(directory(), fs::perms(0750));
    fs::create_directory_symlink(directory(), root() + "link");
    write_file(directory() + "big_frame1.jpg");
    for (const std::string& same : {directory() + "/", root() + "link", root() + "./link/", directory()}) {
        const ordinary_user nobody(root());
        EXPECT_EQ(resetStitch(same.c_str()), 1);
        EXPECT_EQ(tarn_stitcher.local_path, same);
        EXPECT_EQ(entries_of(directory()), std::vector<std::string>());
        EXPECT_EQ(mode_of(directory().substr(0, directory().size() - 1)), 0750U) << same;
        write_file(directory() + "big_frame1.jpg");
        EXPECT_TRUE(fs::exists(directory() + "big_frame1.jpg")) << same;
    }
}

TEST_F(ResetStitch, DirectoryInsideTheOldOneIsHadAndTheOldOneStays)
{
    const std::string inside = directory() + "a/b/";
    fs::create_directories(inside);
    fs::permissions(inside, fs::perms(0710));
    fs::create_directories(directory() + "a/c");
    write_file(directory() + "big_frame1.jpg");
    write_file(inside + "old");

    EXPECT_EQ(resetStitch(inside.c_str()), 1);

    EXPECT_EQ(tarn_stitcher.local_path, inside);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"a"}));
    EXPECT_EQ(entries_of(directory() + "a"), std::vector<std::string>({"b"}));
    EXPECT_EQ(entries_of(inside), std::vector<std::string>());
    EXPECT_EQ(mode_of(inside.substr(0, inside.size() - 1)), 0710U);
}

TEST_F(ResetStitch, MissingDirectoryInsideTheOldOneIsMade)
{
    write_file(directory() + "big_frame1.jpg");
    const std::string inside = directory() + "./2/";
    EXPECT_EQ(resetStitch(inside.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, inside);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"2"}));
}

TEST_F(ResetStitch, PathThroughTheOldDirectoryIsFollowed)
{
    const std::string other = root() + "other/";
    fs::create_directory(other);
    fs::create_directory_symlink(other, directory() + "link");
    write_file(directory() + "big_frame1.jpg");
    const std::string through = directory() + "link/";
    EXPECT_EQ(resetStitch(through.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, through);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"link"}));

    fs::create_directory(root() + "third");
    const std::string up_again = directory() + "../third/";
    resetStitch(directory().c_str());
    EXPECT_EQ(resetStitch(up_again.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, up_again);
    EXPECT_TRUE(fs::is_directory(up_again));
}

TEST_F(ResetStitch, DirectoryInsideTheOldOneThatMayNotBeEnteredStays)
{
    const std::string inside = directory() + "2/";
    fs::create_directory(inside);
    const ordinary_user nobody(root());
    fs::permissions(inside, fs::perms(0200));
    EXPECT_EQ(resetStitch(inside.c_str()), 1);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"2"}));
    EXPECT_EQ(mode_of(inside.substr(0, inside.size() - 1)), 0200U);
    fs::permissions(inside, fs::perms(0700));
}

TEST_F(ResetStitch, DirectoryBelowAMissingOneInsideTheOldOneCostsNothing)
{
    EXPECT_EQ(resetStitch((directory() + "no/parent/").c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>());
}

TEST_F(ResetStitch, DirectoryAroundTheOldOneIsEmptied)
{
    const std::string around = root() + "around/";
    fs::create_directories(around + "old");
    resetStitch((around + "old/").c_str());
    write_file(around + "old/big_frame1.jpg");
    EXPECT_EQ(resetStitch(around.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, around);
    EXPECT_EQ(entries_of(around), std::vector<std::string>());
}

TEST_F(ResetStitch, RelativeSpellingsAreFollowedToTheirDirectories)
{
    const fs::path before = fs::current_path();
    fs::current_path(directory());
    EXPECT_EQ(resetStitch("inside"), 1);
    fs::current_path(before);
    EXPECT_EQ(tarn_stitcher.local_path, "inside");
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"inside"}));
}

TEST_F(ResetStitch, FailedMkdirKeepsTheOldTaskUntouched)
{
    tarn_stitcher.frame_index = 5;
    tarn_stitcher.last_angles = {1.0f, 2.0f, 3.0f, 4.0f};
    tarn_stitcher.last_stitch_image = cv::Mat(2, 3, CV_8UC3, cv::Scalar(1, 2, 3));
    tarn_stitcher.stitcher_status = 3;
    big_stitch_status = 3;
    big_frame_num = 2;
    big_work_scale = 0.25f;
    const auto generation = tarn::current_generation();
    const uchar* const preview = tarn_stitcher.last_stitch_image.data;

    EXPECT_EQ(resetStitch((root() + "no/parent/").c_str()), 1);

    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(tarn_stitcher.frame_index, 5);
    EXPECT_EQ(tarn_stitcher.last_angles, std::vector<float>({1.0f, 2.0f, 3.0f, 4.0f}));
    EXPECT_EQ(getCurrentPanoramsShowMat().data, preview);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
    EXPECT_EQ(big_work_scale, 0.25f);
    EXPECT_EQ(big_local_path, directory());
    EXPECT_EQ(tarn::current_generation(), generation);
    EXPECT_FALSE(fs::exists(root() + "no"));
    EXPECT_FALSE(fs::exists(directory())) << "the old directory is removed before the new one is tried";
}

TEST_F(ResetStitch, PathOfARegularFileKeepsTheOldTask)
{
    write_file(root() + "file");
    tarn_stitcher.frame_index = 5;
    EXPECT_EQ(resetStitch((root() + "file").c_str()), 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 5);
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_TRUE(fs::is_regular_file(root() + "file"));
}

TEST_F(ResetStitch, PathMuchLongerThanAnyBufferIsSafe)
{
    const std::string name(200, 'n');
    std::string path = root();
    for (int i = 0; i < 8; ++i)
        path += name + "/";
    fs::create_directories(path);
    write_file(path + "file");
    EXPECT_EQ(resetStitch(path.c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, path);
    EXPECT_EQ(entries_of(path), std::vector<std::string>());
    write_file(path + "file");
    EXPECT_EQ(resetStitch(""), 1);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(ResetStitch, BusyTaskIsWaitedForWith11SleepsOf100MillisecondsAndThenReplaced)
{
    for (const int busy : {1, 2}) {
        resetStitch(directory().c_str());
        tarn_stitcher.stitcher_status = busy;
        const counted_sleep count;
        EXPECT_EQ(resetStitch(directory().c_str()), 1);
        EXPECT_EQ(count.sleeps(), std::vector<unsigned>(11, 100000U)) << busy;
        EXPECT_EQ(tarn_stitcher.stitcher_status, 0) << busy;
    }
}

TEST_F(ResetStitch, WaitEndsAsSoonAsTheFrameIsFinished)
{
    tarn_stitcher.stitcher_status = 1;
    const counted_sleep count([](int number) {
        if (number == 4)
            tarn_stitcher.stitcher_status = 3;
    });
    resetStitch(directory().c_str());
    EXPECT_EQ(count.sleeps().size(), 4U);
}

TEST_F(ResetStitch, NoWaitWhenNoFrameIsBeingRegistered)
{
    for (const int idle : {0, 3, 4, -1}) {
        tarn_stitcher.stitcher_status = idle;
        const counted_sleep count;
        resetStitch(directory().c_str());
        EXPECT_TRUE(count.sleeps().empty()) << idle;
    }
}

TEST_F(ResetStitch, WaitsBeforeItTouchesAnyDirectory)
{
    write_file(directory() + "kept");
    tarn_stitcher.stitcher_status = 1;
    std::vector<std::string> seen;
    const counted_sleep count([&](int number) {
        if (number == 11)
            seen = entries_of(directory());
    });
    resetStitch((root() + "other/").c_str());
    EXPECT_EQ(seen, std::vector<std::string>({"kept"}));
}

TEST_F(ResetStitch, HundredTimesInARow)
{
    const std::string other = root() + "other/";
    for (int i = 0; i < 100; ++i) {
        fs::create_directories(i % 2 == 0 ? other : directory());
        ASSERT_EQ(resetStitch((i % 2 == 0 ? other : directory()).c_str()), 1);
    }
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(entries_of(root()), std::vector<std::string>({"sweep"}));
}

class VideoStitch : public tarn::test::stitcher_fixture {
protected:
    void SetUp() override
    {
        stitcher_fixture::SetUp();
        hold_workers();
    }
};

TEST_F(VideoStitch, FrameIsConvertedFromRgbaToBgr)
{
    const cv::Mat rgba = good_frame();
    EXPECT_EQ(videoStitch(rgba, 0, 0)[0], 1);

    const cv::Mat preview = getCurrentPanoramsShowMat();
    ASSERT_EQ(preview.type(), CV_8UC3);
    ASSERT_EQ(preview.size(), rgba.size());
    for (const cv::Point at : {cv::Point(0, 0), cv::Point(100, 50), cv::Point(239, 179)}) {
        const auto in = rgba.at<cv::Vec4b>(at);
        EXPECT_EQ(preview.at<cv::Vec3b>(at), cv::Vec3b(in[2], in[1], in[0]));
    }
}

TEST_F(VideoStitch, HostsPixelsAreNeitherChangedNorKept)
{
    cv::Mat rgba = good_frame();
    const cv::Mat copy = rgba.clone();
    videoStitch(rgba, 0, 0);
    EXPECT_EQ(cv::norm(rgba, copy, cv::NORM_INF), 0.0);
    EXPECT_EQ(rgba.u->refcount, 1);

    rgba = cv::Scalar::all(0);
    EXPECT_EQ(cv::countNonZero(getCurrentPanoramsShowMat().reshape(1) == 0), 0);
    EXPECT_EQ(cv::countNonZero(tarn_stitcher.last_frame.reshape(1) == 0), 0);
}

TEST_F(VideoStitch, FrameOfThreeChannelsIsTakenAsRgb)
{
    cv::Mat rgb;
    cv::cvtColor(good_frame(), rgb, cv::COLOR_RGBA2RGB);
    EXPECT_EQ(videoStitch(rgb, 0, 0)[0], 1);
    const auto in = rgb.at<cv::Vec3b>(9, 9);
    EXPECT_EQ(getCurrentPanoramsShowMat().at<cv::Vec3b>(9, 9), cv::Vec3b(in[2], in[1], in[0]));
}

TEST_F(VideoStitch, FrameOfOneChannelIsTakenAsGray)
{
    cv::Mat gray;
    cv::cvtColor(good_frame(), gray, cv::COLOR_RGBA2GRAY);
    EXPECT_EQ(videoStitch(gray, 0, 0)[0], 1);
    const cv::Mat preview = getCurrentPanoramsShowMat();
    ASSERT_EQ(preview.type(), CV_8UC3);
    EXPECT_EQ(preview.at<cv::Vec3b>(9, 9), cv::Vec3b::all(gray.at<uchar>(9, 9)));
}

TEST_F(VideoStitch, OneLineOfLogPerFrameInExactlyThisForm)
{
    videoStitch(good_frame(), 0, 0);
    const call_log log = split_log(take_output());
    EXPECT_EQ(log.text, "input_frame shape is 180*180, type is 16");
    EXPECT_NE(log.seconds, "");
}

TEST_F(VideoStitch, TimeSpentIsPrintedInSecondsWithSixSignificantDigits)
{
    videoStitch(good_frame(), 0, 0);
    const std::string number = split_log(take_output()).seconds;
    ASSERT_NE(number, "");
    const double seconds = std::stod(number);
    EXPECT_GT(seconds, 0.0);
    std::ostringstream printed;
    printed << seconds;
    EXPECT_EQ(printed.str(), number);
}

TEST_F(VideoStitch, ResultIsOneStaticArrayWhoseSecondValueIs0)
{
    int* const first = videoStitch(good_frame(), 0, 0);
    EXPECT_EQ(first[0], 1);
    EXPECT_EQ(first[1], 0);
    tarn_stitcher.stitcher_status = 1;
    int* const second = videoStitch(good_frame(), 0, 0);
    EXPECT_EQ(second, first);
    EXPECT_EQ(second[0], 0);
    EXPECT_EQ(second[1], 0);
}

TEST_F(VideoStitch, ResultArrayIsNotTheFrameStepsOwn)
{
    int* const result = videoStitch(good_frame(), 0, 0);
    cv::Mat bgr;
    cv::cvtColor(good_frame(), bgr, cv::COLOR_RGBA2BGR);
    tarn_stitcher.stitcher_status = 1;
    EXPECT_EQ(tarn_stitcher.ofcheck_stitch(bgr, 0, 0)[0], 0);
    EXPECT_EQ(result[0], 1) << "the frame step wrote into the host's array";
}

TEST_F(VideoStitch, ErrorOfTheFrameStepIsLoggedAndKeepsTheResult)
{
    tarn_stitcher.stitcher_status = 1;
    ASSERT_EQ(videoStitch(good_frame(), 0, 0)[0], 0);
    tarn_stitcher.stitcher_status = 0;
    take_output();

    int* const result = videoStitch(frame_that_throws(), 0, 0);

    EXPECT_EQ(result[0], 0) << "the result of the frame before";
    EXPECT_EQ(result[1], 0);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
    const call_log log = split_log(take_output());
    EXPECT_TRUE(starts_with(log.text, "input_frame shape is 1*1, type is 16"
                                      "stitch: When checkimage encounter an errorOpenCV"))
        << log.text;
    EXPECT_TRUE(is_one_line(log.text));
    EXPECT_NE(log.seconds, "");
}

TEST_F(VideoStitch, ErrorTextFollowsDirectlyAndIsTheExceptionsOwn)
{
    on_worker_stage([](tarn::worker_stage stage, int) {
        if (stage == tarn::worker_stage::launching)
            throw std::runtime_error("what it says");
    });
    videoStitch(good_frame(), 0, 0);
    const call_log log = split_log(take_output());
    EXPECT_EQ(log.text, "input_frame shape is 180*180, type is 16"
                        "stitch: When checkimage encounter an errorwhat it says\n");
    EXPECT_NE(log.seconds, "");
}

TEST_F(VideoStitch, ErrorOfTheColourConversionIsHandledLikeOneOfTheFrameStep)
{
    videoStitch(good_frame(), 0, 0);
    for (const cv::Mat& hostile :
         {cv::Mat(), cv::Mat(20, 20, CV_8UC2), cv::Mat(20, 20, CV_64FC4), cv::Mat(20, 20, CV_8SC4)}) {
        tarn_stitcher.stitcher_status = 1;
        take_output();
        const int* const result = videoStitch(hostile, 0, 0);
        EXPECT_EQ(result[0], 1);
        EXPECT_EQ(result[1], 0);
        EXPECT_EQ(tarn_stitcher.stitcher_status, 3);
        const call_log log = split_log(take_output());
        EXPECT_TRUE(starts_with(log.text, "stitch: When checkimage encounter an errorOpenCV")) << log.text;
        EXPECT_TRUE(is_one_line(log.text));
        EXPECT_NE(log.seconds, "");
    }
}

TEST_F(VideoStitch, OtherThingsThrownAreNotCaught)
{
    on_worker_stage([](tarn::worker_stage stage, int) {
        if (stage == tarn::worker_stage::launching)
            throw 42;
    });
    EXPECT_THROW(videoStitch(good_frame(), 0, 0), int);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 1);
}

TEST_F(VideoStitch, FrameAfterAnErrorIsRegisteredAsUsual)
{
    videoStitch(frame_that_throws(), 0, 0);
    EXPECT_EQ(videoStitch(good_frame(), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.frame_index, 1);
    videoStitch(frame_that_throws(), 0, 0);
    EXPECT_EQ(videoStitch(good_frame(3), 0, 0)[0], 1);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
}

TEST_F(VideoStitch, ResultSurvivesANewTask)
{
    tarn_stitcher.stitcher_status = 1;
    ASSERT_EQ(videoStitch(good_frame(), 0, 0)[0], 0);
    tarn_stitcher.stitcher_status = 3;
    resetStitch("");
    EXPECT_EQ(videoStitch(frame_that_throws(), 0, 0)[0], 0);
    EXPECT_EQ(videoStitch(good_frame(), 0, 0)[0], 1);
    resetStitch("");
    EXPECT_EQ(videoStitch(frame_that_throws(), 0, 0)[0], 1);
}

// In a process of its own, in which no frame has been handed in before.
TEST(VideoStitchFirstCall, ErrorInTheVeryFirstCallAnswersTwoZeros)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const int* result = videoStitch(frame_that_throws(), 0, 0);
            const bool zeros_after_step = result[0] == 0 && result[1] == 0;
            result = videoStitch(cv::Mat(), 0, 0);
            const bool zeros_after_conversion = result[0] == 0 && result[1] == 0;
            std::exit(zeros_after_step && zeros_after_conversion ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

class Getters : public tarn::test::stitcher_fixture {};

TEST_F(Getters, PreviewBeforeAnyFrameIsEmpty)
{
    EXPECT_TRUE(getCurrentPanoramsShowMat().empty());
    const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels[0], 0);
    EXPECT_EQ(pixels[1], 0);
}

TEST_F(Getters, PreviewMatrixSharesThePixels)
{
    tarn_stitcher.last_stitch_image = cv::Mat(4, 5, CV_8UC3, cv::Scalar(1, 2, 3));
    const cv::Mat preview = getCurrentPanoramsShowMat();
    EXPECT_EQ(preview.data, tarn_stitcher.last_stitch_image.data);
    EXPECT_EQ(preview.u->refcount, 2);
    resetStitch(directory().c_str());
    EXPECT_EQ(preview.at<cv::Vec3b>(3, 4), cv::Vec3b(1, 2, 3)) << "outlives the task";
}

TEST_F(Getters, PreviewPixelsArePackedWithTheSizeBehindThem)
{
    tarn_stitcher.last_stitch_image = cv::Mat(2, 3, CV_8UC3, cv::Scalar(0x10, 0x20, 0x30));
    tarn_stitcher.last_stitch_image.at<cv::Vec3b>(1, 0) = cv::Vec3b(1, 2, 3);
    const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(static_cast<unsigned>(pixels[0]), 0xFF302010U);
    EXPECT_EQ(static_cast<unsigned>(pixels[3]), 0xFF030201U);
    EXPECT_EQ(pixels[6], 3);
    EXPECT_EQ(pixels[7], 2);
    const std::unique_ptr<int[]> again(nativeCarrier_getCurrentPanoramaShow());
    EXPECT_NE(pixels, again) << "each call makes an array of its own";
}

TEST_F(Getters, PanoramaPathIsTheTasks)
{
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
    tarn_stitcher.big_stitch_image_path = "/somewhere/big_stitch.jpg";
    EXPECT_STREQ(getCurrentPanoramaShow(), "/somewhere/big_stitch.jpg");
    resetStitch(directory().c_str());
    EXPECT_STREQ(getCurrentPanoramaShow(), "");
}

TEST_F(Getters, TestPathIsTheModulesAndNotTheMember)
{
    tarn_stitcher.test_image_path = "member";
    EXPECT_STREQ(getTestCurrentPanoramaShow(), "");
    test_image_path = "module";
    EXPECT_STREQ(getTestCurrentPanoramaShow(), "module");
    resetStitch(directory().c_str());
    EXPECT_STREQ(getTestCurrentPanoramaShow(), "module") << "a new task leaves it";
}

TEST_F(Getters, TestPathIsThatOfTheFrameFileWrittenLast)
{
    videoStitch(good_frame(), 0, 0);
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_EQ(getTestCurrentPanoramaShow(), directory() + "big_frame1.jpg");
    EXPECT_TRUE(fs::is_regular_file(directory() + "big_frame1.jpg"));
}

TEST_F(Getters, GettersNeitherWaitNorLog)
{
    tarn_stitcher.stitcher_status = 1;
    big_stitch_status = 2;
    const counted_sleep count;
    take_output();
    getCurrentPanoramaShow();
    getTestCurrentPanoramaShow();
    getCurrentPanoramsShowMat();
    const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
    EXPECT_TRUE(count.sleeps().empty());
    EXPECT_EQ(take_output(), "");
    EXPECT_EQ(tarn_stitcher.stitcher_status, 1);
}

}  // namespace
