// SPDX-License-Identifier: Apache-2.0
//
// Working directories in which something is wrong: full, out of entries, read-only, another user's, with difficult
// names. The sweep goes on live, what was written before stays, and nothing lands elsewhere. File systems are mounted
// by processes of their own, in a mount namespace of their own, which takes root.
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "fault_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

/// Tried in a process of its own: root in a container may have no right to it.
bool may_mount()
{
    static const bool may = [] {
        const pid_t child = fork();
        if (child == 0) {
            const bool mounted =
                unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
            _exit(mounted ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        int status = EXIT_FAILURE;
        return child != -1 && waitpid(child, &status, 0) == child && status == EXIT_SUCCESS;
    }();
    return may;
}

class WorkingDirectoryFault : public fault_fixture {
protected:
    /// Mounts a small file system on the working directory, for this process alone.
    void mount_here(const char* options) const
    {
        require(unshare(CLONE_NEWNS) == 0, "a mount namespace of its own (needs CAP_SYS_ADMIN)");
        require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
        require(mount("tarn", directory().c_str(), "tmpfs", 0, options) == 0, "a small file system");
    }

    /// A sweep that goes on whatever becomes of its files, and ends with its path set, as the interface has it.
    void sweep_goes_on()
    {
        for (std::size_t i = 0; i < frames().size(); ++i) {
            require(feed(i) > 0, "frame " + std::to_string(i) + " is taken");
        }
        require(wait_for_workers(), "workers end");
        require(tarn::look_at_pipeline().status == 3, "the pipeline is well");
        require(getCurrentPanoramaShow() == directory() + "big_stitch.jpg", "the path");
    }

    /// Every file in the working directory is a whole picture of the library's.
    int whole_files() const
    {
        for (const std::string& name : entries_of(directory())) {
            require(name.front() != '.', "nothing is left behind: " + name);
            require(!cv::imread(directory() + name).empty(), "a whole picture: " + name);
        }
        return static_cast<int>(entries_of(directory()).size());
    }
};

TEST_F(WorkingDirectoryFault, FullDiskKeepsWhatFitsAndTheSweepGoesOn)
{
    if (!may_mount()) {
        GTEST_SKIP() << "needs the right to mount a small file system";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        mount_here("size=128k");
        sweep_goes_on();
        const int files = whole_files();
        require(files >= 1, "the first frame's file fits");
        require(files < tarn_stitcher.big_frame_index + 1, "not all of them fit");
    });
}

TEST_F(WorkingDirectoryFault, DiskThatFillsUpBeforeThePanoramaIsReplacedKeepsTheEarlierOne)
{
    if (!may_mount()) {
        GTEST_SKIP() << "needs the right to mount a small file system";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        mount_here("size=4m");
        sweep_goes_on();
        const std::vector<unsigned char> panorama = bytes_of(getCurrentPanoramaShow());
        {
            std::ofstream filler(directory() + "filler", std::ios::binary);
            while (filler << std::string(65536, 'x') << std::flush) {
            }
        }
        // A further last frame: another panorama, for which there is no room.
        require(videoStitch(frames().back(), moving_right, 1)[0] == 1, "a further last frame");
        require(wait_for_workers(), "workers end");
        require(bytes_of(getCurrentPanoramaShow()) == panorama, "the earlier panorama is whole");
    });
}

TEST_F(WorkingDirectoryFault, QuotaOfEntriesKeepsWhatFitsAndTheSweepGoesOn)
{
    if (!may_mount()) {
        GTEST_SKIP() << "needs the right to mount a small file system";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        mount_here("size=4m,nr_inodes=4");
        sweep_goes_on();
        require(whole_files() <= 3, "no more than the quota");
    });
}

TEST_F(WorkingDirectoryFault, ReadOnlyFileSystemLeavesTheSweepGoingOn)
{
    if (!may_mount()) {
        GTEST_SKIP() << "needs the right to mount a small file system";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        mount_here("size=4m");
        require(mount("tarn", directory().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "read-only");
        resetStitch(directory().c_str());
        sweep_goes_on();
        require(whole_files() == 0, "nothing is written");
    });
}

TEST_F(WorkingDirectoryFault, DirectoryThatTurnsReadOnlyInMidSweepKeepsWhatWasWritten)
{
    if (!may_mount()) {
        GTEST_SKIP() << "needs the right to mount a small file system";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        mount_here("size=4m");
        for (std::size_t i = 0; i < frames().size(); ++i) {
            require(feed(i) > 0, "frame " + std::to_string(i));
            if (tarn_stitcher.big_frame_index == 2) {
                require(wait_for_workers(), "workers end");
                mount("tarn", directory().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
            }
        }
        require(wait_for_workers(), "workers end");
        require(whole_files() == 2, "the first two frames' files");
    });
}

TEST_F(WorkingDirectoryFault, AnotherUsersDirectoryIsNotTakenAndNothingInItIsTouched)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        const std::string theirs = root() + "theirs/";
        fs::create_directory(theirs);
        std::ofstream(theirs + "precious") << "precious";
        const std::string mine = root() + "mine/";
        fs::create_directory(mine);
        constexpr uid_t one_user = 1234;
        constexpr uid_t other_user = 65534;
        require(chown(theirs.c_str(), one_user, one_user) == 0 && chmod(theirs.c_str(), 0700) == 0, "theirs");
        require(chown(mine.c_str(), other_user, other_user) == 0, "mine");
        require(chown(root().c_str(), other_user, other_user) == 0, "above");
        require(chown(directory().c_str(), other_user, other_user) == 0, "the current one");
        require(seteuid(other_user) == 0, "another user");

        require(resetStitch(mine.c_str()) == 1, "1");
        require(tarn_stitcher.local_path == mine, "its own directory is taken");
        require(resetStitch(theirs.c_str()) == 1, "1");
        require(tarn_stitcher.local_path == mine, "another user's is not: the old task stays");
        require(!fs::exists(mine), "though its directory is gone, as for every new path");

        require(seteuid(0) == 0, "root again");
        require(fs::file_size(theirs + "precious") == 8, "nothing is touched");
        require(entries_of(theirs).size() == 1, "nothing is written");
    });
}

TEST_F(WorkingDirectoryFault, ReadableDirectoryOfAnotherUserLeavesTheSweepGoingOnWithoutFiles)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        std::ofstream(directory() + "precious") << "precious";
        require(chmod(root().c_str(), 0755) == 0 && chmod(directory().c_str(), 0755) == 0, "readable");
        require(seteuid(65534) == 0, "another user");
        resetStitch(directory().c_str());
        sweep_goes_on();
        require(seteuid(0) == 0, "root again");
        require(entries_of(directory()) == std::vector<std::string>({"precious"}), "nothing is touched or written");
    });
}

TEST_F(WorkingDirectoryFault, DifficultNamesAreNamesLikeAnyOther)
{
    const std::vector<unsigned char> expected = whole_sweep(directory());
    ASSERT_FALSE(expected.empty());
    for (const char* name : {"with space", " ", "it's \"quoted\"", "Überblick – 日本 🏔", "line\nbreak",
                             "$HOME `id` *", "%s%n%04d", "-rf", "back\\slash", "\xff\xfe\x80", "a.jpg", "..."}) {
        SCOPED_TRACE(name);
        const std::string path = root() + name + "/";
        fs::create_directory(path);
        EXPECT_TRUE(whole_sweep(path) == expected);
        EXPECT_EQ(std::string(getCurrentPanoramaShow()), path + "big_stitch.jpg");
    }
}

TEST_F(WorkingDirectoryFault, PathOf4000CharactersIsAPathLikeAnyOther)
{
    const std::vector<unsigned char> expected = whole_sweep(directory());
    ASSERT_FALSE(expected.empty());
    for (const std::size_t length : {std::size_t{255}, std::size_t{256}, std::size_t{257}, std::size_t{4000}}) {
        std::string path = root();
        while (path.size() < length) {
            const std::size_t left = length - path.size();
            const std::size_t name = left > 202 ? 200 : left - 1;
            path += name == 0 ? "/" : std::string(name, 'd') + "/";
        }
        fs::create_directories(path);
        ASSERT_EQ(path.size(), length);
        EXPECT_TRUE(whole_sweep(path) == expected) << length;
    }
}

TEST_F(WorkingDirectoryFault, PathLongerThanTheSystemTakesKeepsTheOldTask)
{
    ASSERT_GT(feed(0), 0);
    const cv::Mat preview = getCurrentPanoramsShowMat();
    EXPECT_EQ(resetStitch((root() + std::string(5000, 'd') + "/").c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(getCurrentPanoramsShowMat().data, preview.data);
}

}  // namespace
