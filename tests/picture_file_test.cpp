// SPDX-License-Identifier: Apache-2.0
//
// Pictures written into the working directory: their bytes, who may read them, and what they never reach.
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "internal/picture_file.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/worker_stepper.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

class PictureFile : public stitcher_fixture {
protected:
    std::string path(const std::string& name) const
    {
        return directory() + name;
    }

    static mode_t mode_of(const std::string& file)
    {
        struct stat status {};

        EXPECT_EQ(lstat(file.c_str(), &status), 0) << file;
        return status.st_mode;
    }
};

TEST_F(PictureFile, HoldsTheBytesThatTheImageLibraryWouldWrite)
{
    random_input random;
    for (const int type : {CV_8UC3, CV_8UC1, CV_8UC4, CV_16UC3, CV_32FC3}) {
        const cv::Mat image = random.noise(cv::Size(random.integer(1, 200), random.integer(1, 200)), type);
        ASSERT_TRUE(cv::imwrite(path("expected.jpg"), image));
        ASSERT_TRUE(tarn::write_jpeg(path("actual.jpg"), image));
        EXPECT_EQ(bytes_of(path("actual.jpg")), bytes_of(path("expected.jpg"))) << type;
    }
}

TEST_F(PictureFile, LimitOfFileSizesIsAFailureWithoutASignal)
{
    static std::atomic<int> signals;
    signals = 0;
    const auto usual_handler = std::signal(SIGXFSZ, [](int) { ++signals; });
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit small = {100, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);

    const bool is_written = tarn::write_jpeg(path("large.jpg"), key_frame(1));

    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, usual_handler);
    EXPECT_FALSE(is_written);
    EXPECT_EQ(signals, 0);
    EXPECT_TRUE(entries_of(directory()).empty());
    EXPECT_TRUE(tarn::write_jpeg(path("large.jpg"), key_frame(1)));
}

TEST_F(PictureFile, ModeIsWhatTheUmaskLeaves)
{
    for (const mode_t mask : {0U, 022U, 027U, 077U, 0177U}) {
        const mode_t usual = umask(mask);
        EXPECT_TRUE(tarn::write_jpeg(path("new.jpg"), key_frame(1)));
        cv::imwrite(path("usual.jpg"), key_frame(1));
        EXPECT_EQ(umask(usual), mask) << "left as it was";
        EXPECT_EQ(mode_of(path("new.jpg")), mode_t{S_IFREG | (0666U & ~mask)});
        EXPECT_EQ(mode_of(path("new.jpg")), mode_of(path("usual.jpg"))) << "that of cv::imwrite";
        fs::remove(path("new.jpg"));
        fs::remove(path("usual.jpg"));
    }
}

TEST_F(PictureFile, FileBeforeIsReplacedWholeAndNothingElseIsLeft)
{
    std::ofstream(path("a.jpg")) << std::string(1000000, 'x');
    EXPECT_TRUE(tarn::write_jpeg(path("a.jpg"), key_frame(1)));
    EXPECT_EQ(cv::imread(path("a.jpg")).size(), key_frame(1).size());
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"a.jpg"}));
}

TEST_F(PictureFile, LinkIsReplacedAndNotFollowed)
{
    std::ofstream(root() + "precious") << "precious";
    fs::create_symlink(root() + "precious", path("a.jpg"));
    fs::create_symlink(root() + "not there", path("b.jpg"));
    EXPECT_TRUE(tarn::write_jpeg(path("a.jpg"), key_frame(1)));
    EXPECT_TRUE(tarn::write_jpeg(path("b.jpg"), key_frame(1)));
    EXPECT_EQ(fs::file_size(root() + "precious"), 8U);
    EXPECT_FALSE(fs::exists(root() + "not there"));
    EXPECT_TRUE(S_ISREG(mode_of(path("a.jpg"))));
}

TEST_F(PictureFile, FurtherNameOfAFileElsewhereIsReplacedAndTheFileIsLeft)
{
    std::ofstream(root() + "precious") << "precious";
    fs::create_hard_link(root() + "precious", path("a.jpg"));
    EXPECT_TRUE(tarn::write_jpeg(path("a.jpg"), key_frame(1)));
    EXPECT_EQ(fs::file_size(root() + "precious"), 8U);
}

TEST_F(PictureFile, PipeWithoutAReaderIsReplacedAndNotWaitedFor)
{
    ASSERT_EQ(mkfifo(path("a.jpg").c_str(), 0600), 0);
    EXPECT_TRUE(tarn::write_jpeg(path("a.jpg"), key_frame(1)));
    EXPECT_TRUE(S_ISREG(mode_of(path("a.jpg"))));
}

TEST_F(PictureFile, DirectoryOfThatNameStays)
{
    fs::create_directory(path("a.jpg"));
    EXPECT_FALSE(tarn::write_jpeg(path("a.jpg"), key_frame(1)));
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"a.jpg"}));
}

TEST_F(PictureFile, MissingDirectoryAndOverlongNamesAreNoError)
{
    EXPECT_FALSE(tarn::write_jpeg(path("missing/a.jpg"), key_frame(1)));
    EXPECT_FALSE(tarn::write_jpeg(path(std::string(256, 'n')), key_frame(1)));
    EXPECT_FALSE(tarn::write_jpeg(path(std::string(5000, '/') + "a.jpg"), key_frame(1)));
    EXPECT_TRUE(entries_of(directory()).empty());
}

TEST_F(PictureFile, NameOfTheGreatestLengthIsWritten)
{
    const std::string name = std::string(251, 'n') + ".jpg";
    EXPECT_TRUE(tarn::write_jpeg(path(name), key_frame(1)));
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({name}));
}

TEST_F(PictureFile, ImageThatTheFormatDoesNotTakeIsNotWritten)
{
    EXPECT_FALSE(tarn::write_jpeg(path("a.jpg"), cv::Mat(2, 70000, CV_8UC3, cv::Scalar(1, 2, 3))));
    EXPECT_TRUE(entries_of(directory()).empty());
    EXPECT_THROW(tarn::write_jpeg(path("a.jpg"), cv::Mat()), cv::Exception);
}

TEST_F(PictureFile, DescriptorIsClosed)
{
    const int before = dup(0);
    for (int i = 0; i < 10; ++i) {
        tarn::write_jpeg(path("a.jpg"), key_frame(1));
        tarn::write_jpeg(path("missing/a.jpg"), key_frame(1));
    }
    const int after = dup(0);
    EXPECT_EQ(after, before + 1);
    close(before);
    close(after);
}

// The same of whole sweeps.

class PlantedEntries : public worker_fixture {
protected:
    void sweep()
    {
        const rendered_sweep frames = slide(cv::Size(320, 240), moving_right, 12.0, 25);
        for (int i = 0; i < frames.length(); ++i) {
            const int last = i == frames.length() - 1 ? 1 : 0;
            EXPECT_GT(videoStitch(frames.host_frame(i), moving_right, last)[0], 0) << "frame " << i;
        }
        ASSERT_TRUE(wait_for_workers());
        EXPECT_EQ(big_stitch_status, 3);
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), directory() + "big_stitch.jpg");
    }

    std::vector<std::string> names() const
    {
        return {"big_frame1.jpg", "big_frame2.jpg", "big_frame3.jpg", "big_stitch.jpg"};
    }
};

TEST_F(PlantedEntries, LinksOutOfTheWorkingDirectoryAreNotFollowed)
{
    std::ofstream(root() + "precious") << "precious";
    for (const std::string& name : names()) {
        fs::create_symlink(root() + "precious", directory() + name);
    }
    resetStitch(directory().c_str());  // which leaves links alone
    sweep();
    EXPECT_EQ(fs::file_size(root() + "precious"), 8U);
    EXPECT_FALSE(cv::imread(getCurrentPanoramaShow()).empty());
}

TEST_F(PlantedEntries, PipesHoldNobodyUp)
{
    for (const std::string& name : names()) {
        ASSERT_EQ(mkfifo((directory() + name).c_str(), 0600), 0);
    }
    resetStitch(directory().c_str());
    sweep();
    EXPECT_FALSE(cv::imread(getCurrentPanoramaShow()).empty());
}

TEST_F(PlantedEntries, FilesOfASweepHaveTheModeThatTheUmaskLeaves)
{
    const mode_t usual = umask(027);
    sweep();
    umask(usual);
    const std::vector<std::string> written = entries_of(directory());
    EXPECT_GE(written.size(), 5U);
    for (const std::string& name : written) {
        EXPECT_EQ(fs::status(directory() + name).permissions(), fs::perms{0640}) << name;
    }
}

}  // namespace
