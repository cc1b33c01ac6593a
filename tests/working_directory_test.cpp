// SPDX-License-Identifier: Apache-2.0
//
// Testing for the working directory, emptying it, naming what lies in it. All in private directories.
#include <atomic>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "internal/shared_state.h"
#include "support/directory_fixture.h"
#include "support/stitcher_fixture.h"
#include "tarn_stitcher.h"
#include "working_directory.h"

namespace {

namespace fs = std::filesystem;

class WorkingDirectory : public tarn::test::directory_fixture {
protected:
    std::string directory(const std::string& name) const
    {
        fs::create_directories(directory_ / name);
        return at(name);
    }

    std::string file(const std::string& name) const
    {
        fs::create_directories((directory_ / name).parent_path());
        std::ofstream(directory_ / name) << "content";
        return at(name);
    }

    static bool exists(const std::string& place)
    {
        return fs::symlink_status(place).type() != fs::file_type::not_found;
    }

    // A directory with a file and a directory in it, `depth` levels deep, each name of `name_length`
    // characters: longer than any path may be. Answers whether it could be made.
    static bool make_deep_tree(const std::string& top, int depth, size_t name_length)
    {
        const std::string name(name_length, 'd');
        int here = open(top.c_str(), O_RDONLY | O_DIRECTORY);
        for (int i = 0; i < depth && here >= 0; ++i) {
            const int made = openat(here, "file", O_WRONLY | O_CREAT, 0600);
            int next = -1;
            if (made >= 0 && mkdirat(here, name.c_str(), 0700) == 0) {
                next = openat(here, name.c_str(), O_RDONLY | O_DIRECTORY);
            }
            close(made);
            close(here);
            here = next;
        }
        close(here);
        return here >= 0;
    }

private:
};

using IsFloderexit = WorkingDirectory;
using DeleteFile = WorkingDirectory;

TEST_F(IsFloderexit, DirectoryWithOrWithoutTrailingSlash)
{
    const std::string made = directory("some");
    EXPECT_TRUE(isFloderexit(made.c_str()));
    EXPECT_TRUE(isFloderexit((made + "/").c_str()));
}

TEST_F(IsFloderexit, MissingDirectoryFileAndEmptyPathAreNone)
{
    EXPECT_FALSE(isFloderexit(at("missing").c_str()));
    EXPECT_FALSE(isFloderexit(file("file").c_str()));
    EXPECT_FALSE(isFloderexit((file("file") + "/").c_str()));
    EXPECT_FALSE(isFloderexit(""));
}

TEST_F(IsFloderexit, LinkIsFollowed)
{
    fs::create_symlink(directory("target"), at("link"));
    EXPECT_TRUE(isFloderexit(at("link").c_str()));
    fs::create_symlink(at("missing"), at("broken"));
    EXPECT_FALSE(isFloderexit(at("broken").c_str()));
}

TEST_F(IsFloderexit, DirectoryThatMayNotBeReadIsNone)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may read every directory";
    }
    const std::string made = directory("secret");
    ASSERT_EQ(chmod(made.c_str(), 0200), 0);
    EXPECT_FALSE(isFloderexit(made.c_str()));
    chmod(made.c_str(), 0700);
}

TEST_F(IsFloderexit, OverlongPathsAreNone)
{
    EXPECT_FALSE(isFloderexit(std::string(1000, 'x').c_str()));
    EXPECT_FALSE(isFloderexit(("/" + std::string(3 * PATH_MAX, 'x')).c_str()));
}

TEST_F(IsFloderexit, NoHandleStaysOpen)
{
    const std::string made = directory("some");
    const int before = dup(0);
    for (int i = 0; i < 100; ++i) {
        isFloderexit(made.c_str());
    }
    const int after = dup(0);
    EXPECT_EQ(after, before + 1);
    close(before);
    close(after);
}

std::string joined(const std::string& directory, const std::string& name)
{
    std::vector<char> buffer(directory.size() + name.size() + 2, '#');
    getFilePath(directory.c_str(), name.c_str(), buffer.data());
    return buffer.data();
}

TEST(GetFilePath, DirectoryWithoutTrailingSlashGetsExactlyOne)
{
    EXPECT_EQ(joined("/data/sweep", "a.jpg"), "/data/sweep/a.jpg");
    EXPECT_EQ(joined("sweep", "a.jpg"), "sweep/a.jpg");
}

TEST(GetFilePath, DirectoryWithTrailingSlashGetsNoSecondOne)
{
    EXPECT_EQ(joined("/data/sweep/", "a.jpg"), "/data/sweep/a.jpg");
    EXPECT_EQ(joined("/", "a.jpg"), "/a.jpg");
    EXPECT_EQ(joined("sweep//", "a.jpg"), "sweep//a.jpg");
}

TEST(GetFilePath, EmptyDirectoryGetsOneSlash)
{
    EXPECT_EQ(joined("", "a.jpg"), "/a.jpg");
}

TEST(GetFilePath, EmptyNameLeavesTheDirectoryAndItsSlash)
{
    EXPECT_EQ(joined("sweep", ""), "sweep/");
    EXPECT_EQ(joined("sweep/", ""), "sweep/");
}

TEST(GetFilePath, PathsOfAnyLengthFitTheCallersBuffer)
{
    for (const size_t length : {254U, 255U, 256U, 257U, 4096U, 100000U}) {
        const std::string directory(length, 'd');
        EXPECT_EQ(joined(directory, "name"), directory + "/name");
    }
}

TEST_F(DeleteFile, RegularFileIsRemoved)
{
    const std::string made = file("file");
    deleteFile(made.c_str());
    EXPECT_FALSE(exists(made));
}

TEST_F(DeleteFile, FileThatMayNotBeWrittenIsRemoved)
{
    const std::string made = file("file");
    ASSERT_EQ(chmod(made.c_str(), 0400), 0);
    deleteFile(made.c_str());
    EXPECT_FALSE(exists(made));
}

TEST_F(DeleteFile, DirectoryTreeIsEmptiedButItsTopStays)
{
    const std::string top = directory("top");
    file("top/a.jpg");
    file("top/.hidden");
    file("top/sub/b.jpg");
    file("top/sub/sub/c.jpg");
    directory("top/empty");
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_directory(top));
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, TrailingSlashMakesNoDifference)
{
    const std::string top = directory("top");
    file("top/sub/b.jpg");
    deleteFile((top + "/").c_str());
    EXPECT_TRUE(fs::is_directory(top));
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, NeighboursOfTheDirectoryStay)
{
    const std::string top = directory("top");
    const std::string neighbour = file("top2");
    file("top/file");
    deleteFile(top.c_str());
    EXPECT_TRUE(exists(neighbour));
}

TEST_F(DeleteFile, EmptyDirectoryStays)
{
    const std::string top = directory("top");
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_directory(top));
}

TEST_F(DeleteFile, SymbolicLinkIsLeftAloneAndSoIsItsTarget)
{
    const std::string target = file("target");
    fs::create_symlink(target, at("link"));
    deleteFile(at("link").c_str());
    EXPECT_TRUE(exists(at("link")));
    EXPECT_TRUE(exists(target));

    file("directory/file");
    fs::create_symlink(at("directory"), at("link2"));
    deleteFile(at("link2").c_str());
    EXPECT_TRUE(exists(at("link2")));
    EXPECT_TRUE(exists(at("directory/file")));
}

TEST_F(DeleteFile, LinksInsideTheTreeAreLeftAloneAndNeverFollowed)
{
    file("precious/file");
    file("top/sub/file");
    file("top/file");
    fs::create_symlink(at("precious"), at("top/to_directory"));
    fs::create_symlink(at("precious/file"), at("top/sub/to_file"));
    fs::create_symlink(at("missing"), at("top/broken"));
    deleteFile(at("top").c_str());
    EXPECT_TRUE(exists(at("precious/file")));
    EXPECT_TRUE(exists(at("top/to_directory")));
    EXPECT_TRUE(exists(at("top/broken")));
    EXPECT_TRUE(exists(at("top/sub/to_file")));  // and so its directory stays
    EXPECT_FALSE(exists(at("top/sub/file")));
    EXPECT_FALSE(exists(at("top/file")));
}

TEST_F(DeleteFile, HardLinkIsAFileLikeAnyOther)
{
    const std::string other = file("other");
    directory("top");
    fs::create_hard_link(other, at("top/file"));
    deleteFile(at("top").c_str());
    EXPECT_TRUE(exists(other));
    EXPECT_FALSE(exists(at("top/file")));
}

TEST_F(DeleteFile, PipesAndSocketsAreLeftAlone)
{
    directory("top");
    ASSERT_EQ(mkfifo(at("top/pipe").c_str(), 0600), 0);
    const int socket_handle = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(socket_handle, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socket_path = at("top/socket");
    const bool is_short_enough = socket_path.size() < sizeof(address.sun_path);
    if (is_short_enough) {
        socket_path.copy(address.sun_path, socket_path.size());
        ASSERT_EQ(bind(socket_handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }
    file("top/file");

    deleteFile(at("top/pipe").c_str());
    EXPECT_TRUE(exists(at("top/pipe")));
    deleteFile(at("top").c_str());
    EXPECT_TRUE(exists(at("top/pipe")));
    EXPECT_EQ(exists(socket_path), is_short_enough);
    EXPECT_FALSE(exists(at("top/file")));
    close(socket_handle);
}

TEST_F(DeleteFile, MissingPathIsNoError)
{
    deleteFile(at("missing").c_str());
    deleteFile(at("missing/").c_str());
    deleteFile("");
}

TEST_F(DeleteFile, UnusualNamesAreNamesLikeAnyOther)
{
    const std::string top = directory("top");
    for (const char* name :
         {"...", "..a", ".b", " ", "with space", "line\nbreak", "-rf", "*", "\xff\xfe", "a\\b"}) {
        file(std::string("top/") + name);
    }
    directory("top/.dir");
    directory("top/.. ");
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, NamesOf255Characters)
{
    const std::string top = directory("top");
    file("top/" + std::string(NAME_MAX, 'f'));
    file("top/" + std::string(NAME_MAX, 'd') + "/" + std::string(NAME_MAX, 'f'));
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, PathsAroundAndAbove256Characters)
{
    const std::string top = directory("top");
    for (size_t length = 250; length <= 262; ++length) {
        // The file's path has just so many characters.
        const size_t left = length - top.size() - 2;
        file("top/" + std::string(left / 2, 'd') + "/" + std::string(left - left / 2, 'f'));
        deleteFile(top.c_str());
        ASSERT_TRUE(fs::is_empty(top)) << length;
    }
}

TEST_F(DeleteFile, TreeWithPathsLongerThanTheSystemTakes)
{
    // 40 names of 200 characters: twice PATH_MAX.
    const std::string top = directory("top");
    ASSERT_TRUE(make_deep_tree(top, 40, 200));
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_directory(top));
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, PathLongerThanTheSystemTakesIsNoError)
{
    deleteFile(std::string(3 * PATH_MAX, 'x').c_str());
    deleteFile((at("missing/") + std::string(3 * PATH_MAX, 'x')).c_str());
}

TEST_F(DeleteFile, HundredsOfLevels)
{
    const std::string top = directory("top");
    ASSERT_TRUE(make_deep_tree(top, 250, 1));
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, TreeDeeperThanTheProcessHasDescriptorsOrStack)
{
    // On a thread with the smallest of stacks and with few descriptors left.
    const std::string top = directory("top");
    ASSERT_TRUE(make_deep_tree(top, 3000, 1));
    rlimit kept{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &kept), 0);
    const int lowest_free = dup(0);
    close(lowest_free);
    const rlimit few = {static_cast<rlim_t>(lowest_free) + 3, kept.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{128} * 1024);
    pthread_t thread{};
    const auto empty_it = [](void* path) -> void* {
        deleteFile(static_cast<const char*>(path));
        return nullptr;
    };
    std::string path_of_thread = top;
    ASSERT_EQ(pthread_create(&thread, &attributes, empty_it, path_of_thread.data()), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);

    setrlimit(RLIMIT_NOFILE, &kept);
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, BranchesBelowADirectoryThatStaysAreEmptied)
{
    // Up from a directory that stays, the next one is not forgotten, nor is the one that stays visited again.
    const std::string top = directory("top");
    for (const char* branch : {"a", "b", "c"}) {
        const std::string name = std::string("top/") + branch;
        file(name + "/1/2/file");
        file(name + "/3/file");
        fs::create_symlink("nowhere", at(name + "/1/link"));
    }
    deleteFile(top.c_str());
    for (const char* branch : {"a", "b", "c"}) {
        const std::string name = std::string("top/") + branch;
        EXPECT_TRUE(exists(at(name + "/1/link")));
        EXPECT_FALSE(exists(at(name + "/1/2")));
        EXPECT_FALSE(exists(at(name + "/3")));
    }
}

TEST_F(DeleteFile, MoreFilesThanOneReadOfTheDirectoryReturns)
{
    // They are deleted while the directory is being read.
    const std::string top = directory("top");
    for (int i = 0; i < 1500; ++i) {
        std::ofstream(at("top/big_frame" + std::to_string(i) + ".jpg"));
    }
    deleteFile(top.c_str());
    EXPECT_TRUE(fs::is_empty(top));
}

TEST_F(DeleteFile, DirectoryThatMayNotBeReadStaysAsItIs)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may read every directory";
    }
    const std::string top = directory("top");
    file("top/secret/file");
    file("top/file");
    ASSERT_EQ(chmod(at("top/secret").c_str(), 0300), 0);
    deleteFile(top.c_str());
    chmod(at("top/secret").c_str(), 0700);
    EXPECT_TRUE(exists(at("top/secret/file")));
    EXPECT_FALSE(exists(at("top/file")));
}

TEST_F(DeleteFile, NoHandleStaysOpen)
{
    const std::string top = directory("top");
    const int before = dup(0);
    for (int i = 0; i < 20; ++i) {
        file("top/a/b/c/file");
        fs::create_symlink(at("missing"), at("top/a/link" + std::to_string(i)));
        deleteFile(top.c_str());
    }
    const int after = dup(0);
    EXPECT_EQ(after, before + 1);
    close(before);
    close(after);
}

class RemoveLocalPath : public tarn::test::stitcher_fixture {};

TEST_F(RemoveLocalPath, DirectoryIsEmptiedAndRemoved)
{
    std::ofstream(directory() + "file") << "content";
    fs::create_directories(directory() + "sub/sub");
    tarn_stitcher.remove_local_path();
    EXPECT_FALSE(fs::exists(directory()));
}

TEST_F(RemoveLocalPath, PathWithoutTrailingSlashServesAsWell)
{
    std::ofstream(directory() + "file") << "content";
    tarn_stitcher.local_path.pop_back();
    tarn_stitcher.remove_local_path();
    EXPECT_FALSE(fs::exists(directory()));
}

TEST_F(RemoveLocalPath, MissingDirectoryIsNoError)
{
    tarn_stitcher.local_path = root() + "missing/";
    tarn_stitcher.remove_local_path();
    EXPECT_FALSE(fs::exists(root() + "missing/"));
    EXPECT_TRUE(fs::exists(root()));
}

TEST_F(RemoveLocalPath, EmptyPathRemovesNothing)
{
    tarn_stitcher.local_path = "";
    tarn_stitcher.remove_local_path();
    EXPECT_TRUE(fs::exists(directory()));
}

TEST_F(RemoveLocalPath, RegularFileAtThePathStays)
{
    std::ofstream(root() + "file") << "content";
    tarn_stitcher.local_path = root() + "file";
    tarn_stitcher.remove_local_path();
    EXPECT_TRUE(fs::exists(root() + "file"));
}

TEST_F(RemoveLocalPath, DirectoryWithALinkInItStays)
{
    fs::create_symlink(root(), directory() + "link");
    std::ofstream(directory() + "file") << "content";
    tarn_stitcher.remove_local_path();
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>{"link"});
}

TEST_F(RemoveLocalPath, PathItselfIsKept)
{
    const std::string before = tarn_stitcher.local_path;
    tarn_stitcher.remove_local_path();
    EXPECT_EQ(tarn_stitcher.local_path, before);
}

TEST(WorkingDirectoryLock, OneThreadAtATimeHoldsIt)
{
    constexpr int turns_given_away = 20000;
    std::atomic<bool> is_trying = false;
    std::atomic<bool> is_held_elsewhere = false;
    std::thread other;
    {
        const auto held_here = tarn::lock_directory();
        other = std::thread([&] {
            is_trying = true;
            const auto lock = tarn::lock_directory();
            is_held_elsewhere = true;
        });
        while (!is_trying) {
            std::this_thread::yield();
        }
        for (int i = 0; i < turns_given_away && !is_held_elsewhere; ++i) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(is_held_elsewhere);
    }
    other.join();
    EXPECT_TRUE(is_held_elsewhere);
}

TEST(WorkingDirectoryLock, MayBeNestedOnOneThread)
{
    const auto outer = tarn::lock_directory();
    const auto inner = tarn::lock_directory();
}

}  // namespace
