// SPDX-License-Identifier: Apache-2.0
//
// How sweeps begin and end: the directory that a sweep makes, takes or refuses, and the one sweep that there is at a
// time.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

#include "support/sweep_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::sweep;
using tarn::sweep_options;
using tarn::sweep_problem;

class SweepBegin : public sweep_fixture {
protected:
    static sweep_options in(const std::string& directory)
    {
        sweep_options result;
        result.directory = directory;
        return result;
    }

    std::string at(const std::string& name) const
    {
        return root() + name;
    }

    static void write_file(const std::string& path)
    {
        std::ofstream(path) << "a user's";
    }

    static mode_t mode_of(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    }
};

// ---------------------------------------------------------------------------------------- private directories

TEST_F(SweepBegin, PrivateDirectoryIsMadeAndRemovedWithItsFiles)
{
    std::string directory;
    {
        sweep one = sweep::begin(options());
        directory = one.directory();
        EXPECT_EQ(directory.rfind(fs::canonical(root()).string() + "/tarnstitch-", 0), 0U) << directory;
        EXPECT_EQ(directory.back(), '/');
        EXPECT_EQ(mode_of(directory), 0700U);
        EXPECT_EQ(tarn_stitcher.local_path, directory);
        feed(one, 0, 6);
        one.finish();
        EXPECT_NE(entries_of(directory).size(), 0U);
    }
    EXPECT_FALSE(fs::exists(directory));
    EXPECT_TRUE(private_directories().empty());
}

TEST_F(SweepBegin, PrivateDirectoryLiesInTheSystemsOneForTemporaryFiles)
{
    const char* const before = std::getenv("TMPDIR");
    const std::string kept = before == nullptr ? "" : before;
    setenv("TMPDIR", root().c_str(), 1);
    const std::string directory = sweep::begin().directory();
    setenv("TMPDIR", at("missing").c_str(), 1);
    refusal(sweep_problem::directory_unusable, [] { sweep::begin(); });
    before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", kept.c_str(), 1);
    EXPECT_EQ(directory.rfind(fs::canonical(root()).string() + "/", 0), 0U) << directory;
}

TEST_F(SweepBegin, TwoPrivateDirectoriesAreNotTheSame)
{
    const std::string first = sweep::begin(options()).directory();
    const std::string second = sweep::begin(options()).directory();
    EXPECT_NE(first, second);
}

TEST_F(SweepBegin, ParentOfAPrivateDirectoryMustBeThere)
{
    sweep_options wrong;
    wrong.private_parent = at("missing");
    EXPECT_NE(refusal(sweep_problem::directory_unusable, [&] { sweep::begin(wrong); }).find(at("missing")),
              std::string::npos);
    EXPECT_FALSE(fs::exists(at("missing")));
    write_file(at("file"));
    wrong.private_parent = at("file");
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(wrong); });
}

// ------------------------------------------------------------------------------------------ named directories

TEST_F(SweepBegin, MissingDirectoryIsMadeWhole)
{
    const mode_t before = umask(022);
    {
        const sweep one = sweep::begin(in(at("a/b//c")));
        EXPECT_EQ(one.directory(), fs::canonical(root()).string() + "/a/b/c/");
        for (const char* const name : {"a", "a/b", "a/b/c"}) {
            EXPECT_EQ(mode_of(at(name)), 0700U) << name;
        }
    }
    umask(before);
    EXPECT_FALSE(fs::exists(at("a/b/c")));
    EXPECT_TRUE(fs::exists(at("a/b"))) << "what lies above is not the sweep's";
}

TEST_F(SweepBegin, EmptyDirectoryIsTakenAndRemoved)
{
    ASSERT_TRUE(fs::create_directory(at("mine")));
    {
        sweep one = sweep::begin(in(at("mine/")));
        feed(one, 0, 1);
        ASSERT_TRUE(wait_for_turns(1));
        EXPECT_TRUE(fs::exists(at("mine/big_frame1.jpg")));
    }
    EXPECT_FALSE(fs::exists(at("mine")));
}

TEST_F(SweepBegin, DirectoryInWhichAnythingLiesIsRefused)
{
    for (const char* const name : {"photo.jpg", ".hidden", "folder/"}) {
        const std::string directory = at("album/");
        ASSERT_TRUE(fs::create_directory(directory));
        const std::string entry = directory + name;
        entry.back() == '/' ? static_cast<void>(fs::create_directory(entry)) : write_file(entry);
        const std::string text = refusal(sweep_problem::directory_not_empty, [&] { sweep::begin(in(directory)); });
        EXPECT_NE(text.find(directory), std::string::npos) << text;
        EXPECT_NE(text.find(fs::path(name).begin()->string()), std::string::npos) << text;
        EXPECT_TRUE(fs::exists(entry));
        fs::remove_all(directory);
    }
    ASSERT_TRUE(fs::create_directory(at("links")));
    fs::create_symlink("/nowhere", at("links/dangling"));
    refusal(sweep_problem::directory_not_empty, [&] { sweep::begin(in(at("links"))); });
}

TEST_F(SweepBegin, RootIsRefusedWhateverItIsCalled)
{
    fs::create_symlink("/", at("link"));
    for (const std::string& name : {std::string("/"), std::string("//"), std::string("/.."), at("link")}) {
        refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(name)); });
    }
}

TEST_F(SweepBegin, WhatIsNoDirectoryIsRefused)
{
    write_file(at("file"));
    for (const char* const name : {"file", "file/", "file/below"}) {
        const std::string text = refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at(name))); });
        EXPECT_NE(text.find(at(name)), std::string::npos) << text;
    }
    EXPECT_TRUE(fs::is_regular_file(at("file")));
    fs::create_symlink(at("missing"), at("dangling"));
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("dangling"))); });
    fs::create_symlink("circle", at("circle"));
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("circle"))); });
}

TEST_F(SweepBegin, DirectoryThatCannotBeWrittenIsRefused)
{
    const bool is_root = geteuid() == 0;
    ASSERT_EQ(chmod(root().c_str(), 0755), 0);
    ASSERT_TRUE(fs::create_directory(at("other")));
    ASSERT_EQ(chmod(at("other").c_str(), 0500), 0);
    if (is_root) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("other"))); });
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("other/below"))); });
    if (is_root) {
        ASSERT_EQ(seteuid(0), 0);
    }
}

TEST_F(SweepBegin, WhatWasMadeForARefusedDirectoryIsRemoved)
{
    const std::string too_long(300, 'x');
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("a/b/" + too_long))); });
    EXPECT_FALSE(fs::exists(at("a")));
    ASSERT_TRUE(fs::create_directory(at("a")));
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("a/b/" + too_long))); });
    EXPECT_TRUE(fs::is_empty(at("a")));
}

TEST_F(SweepBegin, LinkToADirectoryIsFollowedAndStays)
{
    ASSERT_TRUE(fs::create_directory(at("target")));
    fs::create_directory_symlink(at("target"), at("link"));
    {
        const sweep one = sweep::begin(in(at("link")));
        EXPECT_EQ(one.directory(), fs::canonical(at("target")).string() + "/");
    }
    EXPECT_FALSE(fs::exists(at("target")));
    EXPECT_TRUE(fs::is_symlink(at("link")));
}

TEST_F(SweepBegin, RelativeDirectoryIsResolvedAtOnce)
{
    const fs::path before = fs::current_path();
    fs::current_path(root());
    std::optional<sweep> one(sweep::begin(in("relative/./below")));
    fs::current_path(before);
    EXPECT_EQ(one->directory(), fs::canonical(root()).string() + "/relative/below/");
    feed(*one, 0, 1);
    ASSERT_TRUE(wait_for_turns(1));
    EXPECT_TRUE(fs::exists(at("relative/below/big_frame1.jpg")));
    one.reset();
    EXPECT_FALSE(fs::exists(at("relative/below")));
}

TEST_F(SweepBegin, WhatIsLinkedIntoTheDirectoryIsNotDeleted)
{
    ASSERT_TRUE(fs::create_directory(at("album")));
    write_file(at("album/photo.jpg"));
    {
        const sweep one = sweep::begin(in(at("mine")));
        fs::create_directory_symlink(at("album"), one.directory() + "link");
    }
    EXPECT_TRUE(fs::exists(at("album/photo.jpg")));
}

// ------------------------------------------------------------------------------------------ one after the other

TEST_F(SweepBegin, NewSweepEndsTheOneBefore)
{
    sweep first = sweep::begin(options());
    const std::string directory = first.directory();
    feed(first, 0, 3);
    sweep second = sweep::begin(options());
    EXPECT_FALSE(fs::exists(directory));
    expect_over(first);
    EXPECT_TRUE(second.is_current());
    EXPECT_TRUE(second.preview().pixels.empty());
    EXPECT_EQ(second.status().key_frames, 0);
    EXPECT_TRUE(feed(second, 0, 1).front().taken);
}

TEST_F(SweepBegin, RefusedBeginLeavesTheSweepBeforeAlone)
{
    sweep one = sweep::begin(options());
    feed(one, 0, 3);
    write_file(at("file"));
    ASSERT_TRUE(fs::create_directory(at("album")));
    write_file(at("album/photo.jpg"));
    refusal(sweep_problem::directory_not_empty, [&] { sweep::begin(in(at("album"))); });
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(in(at("file"))); });
    sweep_options wrong = options();
    wrong.most_under_way = -1;
    EXPECT_NE(refusal(sweep_problem::bad_argument, [&] { sweep::begin(wrong); }).find("-1"), std::string::npos);
    for (const float overlap : {0.0f, -0.5f, 1.0f, std::numeric_limits<float>::quiet_NaN()}) {
        wrong = options();
        wrong.key_frame_overlap = overlap;
        EXPECT_NE(refusal(sweep_problem::bad_argument, [&] { sweep::begin(wrong); }).find("key_frame_overlap"),
                  std::string::npos);
    }
    wrong = in(at("zero") + std::string(1, '\0') + "byte");
    refusal(sweep_problem::bad_argument, [&] { sweep::begin(wrong); });
    EXPECT_FALSE(fs::exists(at("zero")));
    EXPECT_TRUE(one.is_current());
    feed(one, 3, 6);
    EXPECT_EQ(one.finish().extent, tarn::panorama_extent::whole);
}

TEST_F(SweepBegin, SameDirectoryIsFreeForTheNextSweep)
{
    fs::create_directory_symlink(root(), at("same"));
    sweep one = sweep::begin(in(at("mine")));
    feed(one, 0, 6);
    sweep two = sweep::begin(in(at("same/mine")));
    expect_over(one);
    EXPECT_TRUE(fs::is_empty(two.directory()));
    feed(two, 0, 6);
    EXPECT_EQ(two.finish().extent, tarn::panorama_extent::whole);
}

TEST_F(SweepBegin, DirectoryInsideTheOneBeforeIsMadeAnew)
{
    sweep one = sweep::begin(in(at("outer")));
    ASSERT_TRUE(fs::create_directory(at("outer/inner")));
    write_file(at("outer/inner/left"));
    sweep two = sweep::begin(in(at("outer/inner/more")));
    expect_over(one);
    EXPECT_EQ(entries_of(at("outer")), std::vector<std::string>{"inner"});
    EXPECT_TRUE(fs::is_empty(two.directory()));
    EXPECT_TRUE(feed(two, 0, 1).front().taken);
}

TEST_F(SweepBegin, DirectoryAroundTheOneBeforeIsFreeUnlessMoreLiesThere)
{
    ASSERT_TRUE(fs::create_directory(at("outer")));
    sweep one = sweep::begin(in(at("outer/inner")));
    sweep two = sweep::begin(in(at("outer")));
    expect_over(one);
    two.cancel();

    ASSERT_TRUE(fs::create_directory(at("outer")));
    sweep three = sweep::begin(in(at("outer/inner")));
    write_file(at("outer/photo.jpg"));
    refusal(sweep_problem::directory_not_empty, [&] { sweep::begin(in(at("outer"))); });
    EXPECT_TRUE(three.is_current());
    EXPECT_TRUE(fs::exists(at("outer/photo.jpg")));
}

TEST_F(SweepBegin, PrivateParentInsideTheDirectoryBeforeGoesWithIt)
{
    sweep one = sweep::begin(in(at("outer")));
    sweep_options inside;
    inside.private_parent = at("outer");
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(inside); });
    expect_over(one);
}

TEST_F(SweepBegin, ResetByTheHostEndsTheSweep)
{
    sweep one = sweep::begin(options());
    feed(one, 0, 3);
    const std::string mine = one.directory();
    resetStitch(directory().c_str());
    EXPECT_FALSE(fs::exists(mine));
    write_file(directory() + "host's");
    expect_over(one);
    one = sweep::begin(in(at("other")));
    EXPECT_TRUE(one.is_current());
}

TEST_F(SweepBegin, EndOfASweepThatWasReplacedTouchesNothing)
{
    ASSERT_TRUE(fs::create_directory(at("mine")));
    {
        const sweep one = sweep::begin(in(at("mine")));
        resetStitch((at("mine") + "/").c_str());
        write_file(at("mine/host's"));
    }
    EXPECT_TRUE(fs::exists(at("mine/host's"))) << "by now the directory is the host's";
    EXPECT_EQ(tarn_stitcher.local_path, at("mine") + "/");
}

TEST_F(SweepBegin, CancelledSweepIsOverForGood)
{
    sweep one = sweep::begin(options());
    feed(one, 0, 6);
    const cv::Mat preview = one.preview().pixels;
    one.cancel();
    expect_over(one);
    EXPECT_TRUE(private_directories().empty());
    EXPECT_TRUE(getCurrentPanoramsShowMat().empty());
    EXPECT_FALSE(preview.empty()) << "what was handed out stays";
    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(tarn::look_at_pipeline().panorama.empty());
}

TEST_F(SweepBegin, MovingKeepsTheSweepAndAssignmentEndsTheOneHeld)
{
    sweep one = sweep::begin(options());
    sweep other = std::move(one);
    EXPECT_TRUE(other.is_current());
    expect_over(one);  // NOLINT(bugprone-use-after-move): what is left behind has no sweep
    one = std::move(other);
    EXPECT_TRUE(one.is_current());
    sweep& itself = one;
    one = std::move(itself);
    EXPECT_TRUE(one.is_current());
    const std::string before = one.directory();
    one = sweep::begin(options());
    EXPECT_TRUE(one.is_current());
    EXPECT_FALSE(fs::exists(before));
    EXPECT_EQ(private_directories().size(), 1U);
}

TEST_F(SweepBegin, MovedFromSweepIsOverWhenThereIsNoOther)
{
    std::optional<sweep> one(sweep::begin(options()));
    std::optional<sweep> other(std::move(*one));
    other.reset();
    expect_over(*one);
}

}  // namespace
