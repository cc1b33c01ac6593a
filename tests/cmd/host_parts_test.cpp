// SPDX-License-Identifier: Apache-2.0
//
// The parts of the command-line host, each as a function. The whole program is tested by the scripts beside
// this file.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "frame_source.h"
#include "host_error.h"
#include "image_files.h"
#include "option_documents.h"
#include "options.h"
#include "output_file.h"
#include "scratch_directory.h"
#include "standard_streams.h"
#include "support/directory_fixture.h"

using namespace tarn::host;
namespace fs = std::filesystem;

namespace {

class with_directory : public tarn::test::directory_fixture {
protected:
    void put(const std::string& name, const std::string& content = "x") const
    {
        std::ofstream(at(name)) << content;
    }

    std::string content(const std::string& name) const
    {
        std::ifstream file(at(name));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::vector<std::string> names(const std::vector<std::string>& paths) const
    {
        std::vector<std::string> result;
        result.reserve(paths.size());
        for (const std::string& path : paths) {
            result.push_back(fs::path(path).filename().string());
        }
        return result;
    }

    std::size_t entries() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory_), fs::directory_iterator()));
    }
};

using NumberedImages = with_directory;
using DirectoryImages = with_directory;
using OutputFile = with_directory;
using InputName = with_directory;

/// Makes the directory the one for temporary files.
class ScratchDirectory : public with_directory {
protected:
    void SetUp() override
    {
        with_directory::SetUp();
        const char* const named = std::getenv("TMPDIR");
        before_ = named != nullptr ? std::optional<std::string>(named) : std::nullopt;
        setenv("TMPDIR", directory_.c_str(), 1);
    }

    void TearDown() override
    {
        if (before_) {
            setenv("TMPDIR", before_->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
        with_directory::TearDown();
    }

private:
    std::optional<std::string> before_;
};

options parsed(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "tarnstitch");
    return parse_options(static_cast<int>(arguments.size()), arguments.data());
}

std::vector<unsigned char> bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

// What follows runs in processes of their own, so that the test's streams stay as they are.

[[noreturn]] void open_closed_descriptors()
{
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        close(descriptor);
    }
    open_standard_descriptors();
    const int next = open("/dev/null", O_RDONLY);
    _exit(next > STDERR_FILENO && write(STDOUT_FILENO, "x", 1) == 1 ? 0 : 1);
}

[[noreturn]] void silence_and_come_back()
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 || dup2(ends[1], STDOUT_FILENO) == -1) {
        _exit(1);
    }
    std::cout << "before;" << std::flush;
    {
        const silenced_descriptor silence(STDOUT_FILENO);
        std::cout << "stream, not flushed";
        std::printf("stdio, not flushed");
        if (write(STDOUT_FILENO, "direct", 6) != 6) {
            _exit(1);
        }
    }
    std::cout << "after" << std::flush;
    std::array<char, 100> text{};
    const ssize_t length = read(ends[0], text.data(), text.size());
    _exit(length > 0 && std::string(text.data(), static_cast<std::size_t>(length)) == "before;after" ? 0 : 1);
}

/// A pseudo-terminal. Its screen is -1 where there are none, as in a root without /dev/pts.
struct pseudo_terminal {
    int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    int screen = -1;

    pseudo_terminal()
    {
        if (terminal != -1 && grantpt(terminal) == 0 && unlockpt(terminal) == 0) {
            screen = open(ptsname(terminal), O_RDWR | O_NOCTTY);
        }
    }
};

/// On a terminal that Ctrl-S, or what does the same, has halted. Whoever waits there is ended by a signal.
[[noreturn]] void leave_the_status_line_of_a_halted_terminal(const pseudo_terminal& made)
{
    constexpr unsigned patience = 20;  // s
    alarm(patience);
    const auto [terminal, screen] = made;
    if (dup2(screen, STDERR_FILENO) == -1) {
        _exit(1);
    }
    show_status_line("status");
    if (tcflow(screen, TCOOFF) != 0) {
        _exit(1);
    }
    leave_status_line();
    tcflow(screen, TCOON);
    leave_status_line();
    std::string shown;
    std::array<char, 100> text{};
    while (shown.find('\n') == std::string::npos) {
        const ssize_t length = read(terminal, text.data(), text.size());
        shown.append(text.data(), static_cast<std::size_t>(std::max<ssize_t>(0, length)));
    }
    _exit(shown.find("status\r\n") != std::string::npos ? 0 : 1);
}

[[noreturn]] void say_and_exit(const std::string& text)
{
    say(text);
    _exit(0);
}

}  // namespace

TEST(NaturalOrder, NumbersCompareByValue)
{
    EXPECT_TRUE(natural_less("frame2.png", "frame10.png"));
    EXPECT_FALSE(natural_less("frame10.png", "frame2.png"));
    EXPECT_TRUE(natural_less("a9b10", "a10b9"));
}

TEST(NaturalOrder, NumbersLongerThanAnyIntegerTypeCompareByValue)
{
    EXPECT_TRUE(natural_less("99999999999999999999999999999998", "99999999999999999999999999999999"));
    EXPECT_TRUE(natural_less("99999999999999999999999999999999", "100000000000000000000000000000000"));
}

TEST(NaturalOrder, LeadingZerosOnlyDecideBetweenOtherwiseEqualNames)
{
    EXPECT_TRUE(natural_less("2", "02"));
    EXPECT_FALSE(natural_less("02", "2"));
    EXPECT_TRUE(natural_less("02", "3"));
    EXPECT_TRUE(natural_less("0", "00"));
}

TEST(NaturalOrder, PrefixComesFirst)
{
    EXPECT_TRUE(natural_less("frame", "frame1"));
    EXPECT_TRUE(natural_less("", "a"));
    EXPECT_FALSE(natural_less("", ""));
}

TEST(NaturalOrder, BytesAboveAsciiComeAfterAscii)
{
    EXPECT_TRUE(natural_less("z", "\xc3\xa9"));
}

TEST(NaturalOrder, IsAStrictWeakOrderOverRandomNames)
{
    std::mt19937 random(20240611);
    const std::string letters = "0012a.";
    std::vector<std::string> some(60);
    for (std::string& name : some) {
        for (std::size_t length = random() % 6; length > 0; --length) {
            name += letters[random() % letters.size()];
        }
    }
    for (const std::string& a : some) {
        EXPECT_FALSE(natural_less(a, a)) << a;
        for (const std::string& b : some) {
            EXPECT_FALSE(natural_less(a, b) && natural_less(b, a)) << a << " " << b;
            EXPECT_TRUE(a == b || natural_less(a, b) || natural_less(b, a)) << a << " " << b;
            for (const std::string& c : some) {
                EXPECT_FALSE(natural_less(a, b) && natural_less(b, c) && !natural_less(a, c))
                    << a << " " << b << " " << c;
            }
        }
    }
}

TEST(NumberedName, TakesAPatternApart)
{
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name("some dir/frame_%04d.png", name));
    EXPECT_EQ(name.directory, "some dir/");
    EXPECT_EQ(name.before, "frame_");
    EXPECT_EQ(name.after, ".png");
    EXPECT_EQ(name.width, 4U);
    EXPECT_TRUE(name.zero_padded);
}

TEST(NumberedName, DoubledPercentStandsForItself)
{
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name("100%%_%d%%.jpg", name));
    EXPECT_EQ(name.before, "100%_");
    EXPECT_EQ(name.after, "%.jpg");
}

TEST(NumberedName, PercentInTheDirectoryIsLiteral)
{
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name("50%d/%d.jpg", name));
    EXPECT_EQ(name.directory, "50%d/");
    EXPECT_FALSE(parse_numbered_name("50%d/frame.jpg", name));
}

TEST(NumberedName, AnythingElseIsNoPattern)
{
    numbered_name name;
    for (const char* text :
         {"", "frame.png", "%s.png", "%", "frame%", "%4", "%d%d.png", "%-4d.png", "%0999999d.png", "%n.png"}) {
        EXPECT_FALSE(parse_numbered_name(text, name)) << text;
    }
}

TEST_F(NumberedImages, ComeByRisingNumberWithGapsAndMoreDigitsThanTheWidth)
{
    for (const char* name : {"f0002.png", "f0010.png", "f0001.png", "f9999.png", "f10000.png", "f1.png", "f00003.png",
                             "f0004.jpg", "g0005.png", "f00a6.png", "f.png", "f-007.png"}) {
        put(name);
    }
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name(at("f%04d.png"), name));
    EXPECT_EQ(names(numbered_images(name)),
              (std::vector<std::string>{"f0001.png", "f0002.png", "f0010.png", "f9999.png", "f10000.png"}));
}

TEST_F(NumberedImages, WithoutAWidthHaveNoLeadingZeros)
{
    for (const char* name : {"0.jpg", "2.jpg", "10.jpg", "01.jpg", "00.jpg"}) {
        put(name);
    }
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name(at("%d.jpg"), name));
    EXPECT_EQ(names(numbered_images(name)), (std::vector<std::string>{"0.jpg", "2.jpg", "10.jpg"}));
}

TEST_F(NumberedImages, MissingDirectoryIsAnInputError)
{
    numbered_name name;
    ASSERT_TRUE(parse_numbered_name(at("none/%d.jpg"), name));
    EXPECT_THROW(numbered_images(name), host_error);
}

TEST_F(DirectoryImages, AreVisibleImagesInNaturalOrder)
{
    for (const char* name : {"2.JPG", "10.png", "1.Tiff", ".3.jpg", "._4.jpg", "notes.txt", "clip.mp4", "5", "jpg"}) {
        put(name);
    }
    fs::create_directory(at("6.jpg"));
    EXPECT_EQ(names(images_in_directory(directory_.string())), (std::vector<std::string>{"1.Tiff", "2.JPG", "10.png"}));
}

TEST_F(InputName, IsTheStemOfAFileAndTheWholeNameOfADirectory)
{
    fs::create_directory(at("a.b"));
    put("river pan.tar.mp4");
    EXPECT_EQ(name_of_input(at("river pan.tar.mp4")), "river pan.tar");
    EXPECT_EQ(name_of_input(at("a.b")), "a.b");
    EXPECT_EQ(name_of_input(at("a.b/")), "a.b");
    EXPECT_EQ(name_of_input(at("a.b/.")), "a.b");
    EXPECT_EQ(name_of_input("/"), "sweep");
}

TEST_F(InputName, OfASequenceIsWhatStandsBeforeTheNumber)
{
    fs::create_directory(at("stills"));
    EXPECT_EQ(name_of_input(at("hall_%04d.png")), "hall");
    EXPECT_EQ(name_of_input(at("stills/%04d.png")), "stills");
    put("literal%d.png");
    EXPECT_EQ(name_of_input(at("literal%d.png")), "literal%d");
}

TEST_F(OutputFile, NewFileGetsWhatTheUmaskLeaves)
{
    const mode_t before = umask(0027);
    write_whole_file(at("new.jpg"), bytes("new"));
    umask(before);
    EXPECT_EQ(content("new.jpg"), "new");
    EXPECT_EQ(fs::status(at("new.jpg")).permissions(), static_cast<fs::perms>(0640));
    EXPECT_EQ(entries(), 1U);
}

TEST_F(OutputFile, ReplacedFileKeepsItsPermissions)
{
    put("old.jpg", "old");
    fs::permissions(at("old.jpg"), static_cast<fs::perms>(0604));
    write_whole_file(at("old.jpg"), bytes("new"));
    EXPECT_EQ(content("old.jpg"), "new");
    EXPECT_EQ(fs::status(at("old.jpg")).permissions(), static_cast<fs::perms>(0604));
    EXPECT_EQ(entries(), 1U);
}

TEST_F(OutputFile, SymbolicLinkStaysAndItsTargetIsReplaced)
{
    put("target.jpg", "old");
    fs::create_symlink("target.jpg", at("link.jpg"));
    write_whole_file(at("link.jpg"), bytes("new"));
    EXPECT_TRUE(fs::is_symlink(at("link.jpg")));
    EXPECT_EQ(content("target.jpg"), "new");
}

TEST_F(OutputFile, LinkWhoseTargetIsMissingStaysAndItsTargetIsMade)
{
    fs::create_directory(at("elsewhere"));
    fs::create_symlink("elsewhere/between.jpg", at("link.jpg"));
    fs::create_symlink("target.jpg", at("elsewhere/between.jpg"));
    EXPECT_TRUE(same_place(at("link.jpg"), at("elsewhere/target.jpg")));
    check_output_place(at("link.jpg"));
    write_whole_file(at("link.jpg"), bytes("new"));
    EXPECT_TRUE(fs::is_symlink(at("link.jpg")));
    EXPECT_EQ(content("elsewhere/target.jpg"), "new");
    fs::create_symlink("loop.jpg", at("loop.jpg"));
    EXPECT_THROW(check_output_place(at("loop.jpg")), host_error);
}

TEST_F(OutputFile, NameOfTheGreatestLengthCanBeWritten)
{
    const std::string name = std::string(251, 'n') + ".jpg";
    check_output_place(at(name));
    write_whole_file(at(name), bytes("new"));
    EXPECT_EQ(content(name), "new");
}

TEST_F(OutputFile, CheckLeavesNothingAndChangesNothing)
{
    put("old.jpg", "old");
    check_output_place(at("old.jpg"));
    check_output_place(at("new.jpg"));
    EXPECT_EQ(content("old.jpg"), "old");
    EXPECT_EQ(entries(), 1U);
}

TEST_F(OutputFile, PlacesThatCannotBeWrittenAreRefused)
{
    put("file");
    fs::create_directory(at("dir.jpg"));
    ASSERT_EQ(mkfifo(at("pipe.jpg").c_str(), 0600), 0);
    for (const std::string& place : {std::string(), at("dir.jpg"), at("none/a.jpg"), at("file/a.jpg"), at("pipe.jpg"),
                                     at("new/"), at(std::string(300, 'n') + ".jpg"), std::string("/proc/a.jpg")}) {
        EXPECT_THROW(check_output_place(place), host_error) << place;
    }
    EXPECT_EQ(entries(), 3U);
}

TEST_F(OutputFile, FailedWriteLeavesWhatWasThere)
{
    fs::create_directory(at("dir.jpg"));
    EXPECT_THROW(write_whole_file(at("dir.jpg"), bytes("new")), host_error);
    EXPECT_TRUE(fs::is_directory(at("dir.jpg")));
    EXPECT_EQ(entries(), 1U);
}

TEST_F(OutputFile, AdditionGoesBeforeTheEnding)
{
    EXPECT_EQ(with_addition("a.b/c.d.jpg", "-partial"), "a.b/c.d-partial.jpg");
    EXPECT_EQ(with_addition("c.JPEG", "-partial"), "c-partial.JPEG");
}

TEST_F(OutputFile, SamePlaceIsSeenThroughDotsAndLinks)
{
    put("a.jpg");
    fs::create_symlink("a.jpg", at("link.jpg"));
    EXPECT_TRUE(same_place(at("a.jpg"), at("./a.jpg")));
    EXPECT_TRUE(same_place(at("a.jpg"), at("link.jpg")));
    EXPECT_TRUE(same_place(at("yet to be.jpg"), at("../" + directory_.filename().string() + "/yet to be.jpg")));
    EXPECT_TRUE(same_place("yet to be.jpg", "./yet to be.jpg"));
    EXPECT_FALSE(same_place(at("a.jpg"), at("b.jpg")));
}

TEST_F(ScratchDirectory, IsPrivateEndsInASlashAndGoesWithAllThatIsInIt)
{
    std::string path;
    {
        const scratch_directory scratch;
        path = scratch.path();
        EXPECT_EQ(path.back(), '/');
        EXPECT_TRUE(fs::path(path).is_absolute());
        EXPECT_EQ(fs::path(path).parent_path().parent_path(), directory_);
        EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
        fs::create_directory(path + "below");
        std::ofstream(path + "below/file") << "x";
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(entries(), 0U);
}

TEST_F(ScratchDirectory, LeavesWhatALinkInItPointsTo)
{
    fs::create_directory(at("kept"));
    put("kept/file");
    {
        const scratch_directory scratch;
        fs::create_directory_symlink(at("kept"), scratch.path() + "link");
    }
    EXPECT_EQ(content("kept/file"), "x");
}

TEST_F(ScratchDirectory, CannotBeMadeWhereThereIsNoDirectory)
{
    setenv("TMPDIR", at("none").c_str(), 1);
    EXPECT_THROW(scratch_directory(), host_error);
}

TEST(StandardStreamsDeathTest, ClosedDescriptorsAreOpenedSoThatNoFileTakesTheirNumbers)
{
    EXPECT_EXIT(open_closed_descriptors(), testing::ExitedWithCode(0), "");
}

TEST(StandardStreamsDeathTest, SilencedDescriptorSwallowsAllOutputAndComesBack)
{
    EXPECT_EXIT(silence_and_come_back(), testing::ExitedWithCode(0), "");
}

TEST(StandardStreamsDeathTest, StatusLineIsLeftWithoutWaitingForAHaltedTerminal)
{
    const pseudo_terminal made;
    if (made.screen == -1) {
        GTEST_SKIP() << "there is no pseudo-terminal";
    }
    EXPECT_EXIT(leave_the_status_line_of_a_halted_terminal(made), testing::ExitedWithCode(0), "");
    close(made.screen);
    close(made.terminal);
}

TEST(StandardStreamsDeathTest, MessageIsOneLineWhateverIsInIt)
{
    EXPECT_EXIT(say_and_exit("a\nb\tc\x7f \xc3\xa9"), testing::ExitedWithCode(0),
                "^tarnstitch: a\\?b\\?c\\? \xc3\xa9\n$");
}

TEST(Options, AllAreRead)
{
    const options all = parsed(
        {"1.png",     "2.png",    "--start",     "1:30",        "--end",      "1:00:00.5",  "--step",    "3",
         "--fps",     "12.5",     "-o",          "a.jpg",       "--quality",  "80",         "--crop",    "--preview",
         "b.png",     "--frames", "c.csv",       "--keep-work", "d",          "--json",     "--log",     "e",
         "--turn",    "cw",       "--direction", "left",        "--no-retry", "--realtime", "--workers", "3",
         "--threads", "4",        "--skip-done", "--finish",    "--show",     "-q"});
    EXPECT_EQ(all.inputs, (std::vector<std::string>{"1.png", "2.png"}));
    EXPECT_EQ(all.selection.start, 90.0);
    EXPECT_EQ(all.selection.end, 3600.5);
    EXPECT_EQ(all.selection.step, 3);
    EXPECT_EQ(all.selection.fps, 12.5);
    EXPECT_EQ(all.output, "a.jpg");
    EXPECT_EQ(all.quality, 80);
    EXPECT_TRUE(all.crop);
    EXPECT_TRUE(all.finish);
    EXPECT_EQ(all.cut_of_finished, finished_crop::full);
    EXPECT_EQ(all.preview, "b.png");
    EXPECT_EQ(all.frames, "c.csv");
    EXPECT_EQ(all.keep_work, "d");
    EXPECT_TRUE(all.json_summary);
    EXPECT_EQ(all.log, "e");
    EXPECT_EQ(all.turn, turn_choice::clockwise);
    EXPECT_EQ(all.direction, camera_motion::left);
    EXPECT_FALSE(all.retry);
    EXPECT_TRUE(all.realtime);
    EXPECT_EQ(all.workers, 3);
    EXPECT_EQ(all.threads, 4);
    EXPECT_TRUE(all.skip_done);
    EXPECT_TRUE(all.show);
    EXPECT_TRUE(all.quiet);
}

TEST(Options, WordsStandForWhatTheySay)
{
    EXPECT_EQ(parsed({"a.mp4", "--turn", "auto"}).turn, turn_choice::automatic);
    EXPECT_EQ(parsed({"a.mp4", "--turn", "ccw"}).turn, turn_choice::counter_clockwise);
    EXPECT_EQ(parsed({"a.mp4", "--turn", "none"}).turn, turn_choice::none);
    EXPECT_TRUE(parsed({"a.mp4", "--crop=full"}).crop);
    EXPECT_EQ(parsed({"a.mp4", "--crop=full"}).cut_of_finished, finished_crop::full);
    EXPECT_TRUE(parsed({"a.mp4", "--crop=auto"}).crop);
    EXPECT_EQ(parsed({"a.mp4", "--crop=auto"}).cut_of_finished, finished_crop::generous);
    EXPECT_FALSE(parsed({"a.mp4", "--crop=none"}).crop);
    EXPECT_EQ(parsed({"a.mp4", "--crop=none"}).cut_of_finished, finished_crop::none);
    EXPECT_EQ(parsed({"a.mp4", "--direction", "right"}).direction, camera_motion::right);
    EXPECT_EQ(parsed({"a.mp4", "--direction", "up"}).direction, camera_motion::up);
    EXPECT_EQ(parsed({"a.mp4", "--direction", "down"}).direction, camera_motion::down);
    EXPECT_EQ(parsed({"a.mp4", "--direction", "none"}).direction, camera_motion::any);
}

TEST(Options, DefaultsAreTheDocumentedOnes)
{
    const options all = parsed({"in.mp4"});
    EXPECT_FALSE(all.selection.needs_times());
    EXPECT_EQ(all.selection.step, 1);
    for (const std::string& name : {all.output, all.preview, all.frames, all.keep_work, all.log}) {
        EXPECT_EQ(name, "");
    }
    EXPECT_EQ(all.quality, 0);
    EXPECT_FALSE(all.crop || all.finish || all.json_summary || all.realtime || all.show || all.quiet);
    EXPECT_TRUE(all.retry);
    EXPECT_EQ(all.turn, turn_choice::automatic);
    EXPECT_EQ(all.direction, camera_motion::any);
    EXPECT_EQ(all.workers, 0);
    EXPECT_EQ(all.threads, 0);
    EXPECT_EQ(default_workers(1), 1);
    EXPECT_EQ(default_workers(5), 5);
    EXPECT_EQ(default_workers(64), 6);
}

TEST(Options, InputThatStartsWithADashFollowsTwoDashes)
{
    EXPECT_EQ(parsed({"--", "-in.mp4"}).inputs, std::vector<std::string>{"-in.mp4"});
    EXPECT_EQ(parsed({"a", "--", "--crop", "--"}).inputs, (std::vector<std::string>{"a", "--crop", "--"}));
}

TEST(Options, InputThatLooksLikeSomethingElseIsAnInput)
{
    for (const char* name : {"-", "-5", "[a,b]", "{}", "a=b", "a;b"}) {
        EXPECT_EQ(parsed({name, "--crop"}).inputs, std::vector<std::string>{name});
        EXPECT_EQ(parsed({"a", "-o", name, "b"}).output, name);
    }
}

TEST(Options, AreKnownByTheNamesThatWereUsed)
{
    const options all = parsed({"a.mp4", "-qo", "b.jpg", "--step=2"});
    EXPECT_EQ(all.as_written("--output"), "-o");
    EXPECT_EQ(all.as_written("--quiet"), "-q");
    EXPECT_EQ(all.as_written("--step"), "--step");
    EXPECT_EQ(all.as_written("--log"), "--log");  // not used
    EXPECT_TRUE(all.quiet);
    EXPECT_EQ(all.output, "b.jpg");
    EXPECT_EQ(all.selection.step, 2);
}

TEST(Options, MistakesAreSaidInASentenceByTheOptionsOwnName)
{
    struct mistake {
        std::vector<const char*> arguments;
        const char* sentence;
    };

    const std::vector<mistake> mistakes = {
        {{}, "there is no INPUT: a video, a camera, or images"},
        {{"--crop"}, "there is no INPUT: a video, a camera, or images"},
        {{"--"}, "there is no INPUT: a video, a camera, or images"},
        {{"a.mp4", ""}, "an INPUT needs a name, and one is empty"},

        {{"a.mp4", "--none"}, "there is no option --none"},
        {{"a.mp4", "--none=2"}, "there is no option --none"},
        {{"a.mp4", "--ouput", "b"}, "there is no option --ouput; do you mean --output?"},
        {{"a.mp4", "--worker", "2"}, "there is no option --worker; do you mean --workers?"},
        {{"a.mp4", "--Crop"}, "there is no option --Crop; do you mean --crop?"},
        {{"a.mp4", "-x"}, "there is no option -x"},
        {{"a.mp4", "-xyz"}, "there is no option -xyz"},
        {{"a.mp4", "-qx"}, "there is no option -x (in -qx)"},
        {{"a.mp4", "-q5"}, "there is no option -5 (in -q5)"},
        {{"a.mp4", "---crop"}, "there is no option ---crop; do you mean --crop?"},

        {{"a.mp4", "-o"}, "-o needs a value: -o FILE"},
        {{"a.mp4", "--turn"}, "--turn needs a value: auto, ccw, cw or none"},
        {{"a.mp4", "-qo"}, "-o needs a value: -o FILE"},
        {{"a.mp4", "--output"}, "--output needs a value: --output FILE"},
        {{"a.mp4", "--output="}, "--output needs a value: --output FILE"},
        {{"a.mp4", "-o", "--preview=b.png"}, "-o needs a value: -o FILE"},
        {{"--log", "-q", "a.mp4"}, "--log needs a value: --log FILE"},
        {{"--log", "--", "a.mp4"}, "--log needs a value: --log FILE"},
        {{"a.mp4", "--preview", ""}, "--preview needs a name: --preview FILE"},

        {{"a.mp4", "-o", "a.jpg", "-o", "b.jpg"}, "-o is given more than once"},
        {{"a.mp4", "-o", "a.jpg", "--output=b.jpg"}, "--output is given more than once"},
        {{"a.mp4", "--step", "2", "--step", "2"}, "--step is given more than once"},
        {{"a.mp4", "--crop=yes"}, "--crop is full, auto or none, not yes"},
        {{"a.mp4", "--no-retry="}, "--no-retry takes no value"},

        {{"a.mp4", "--direction", "sideways"}, "--direction is right, left, up, down or none, not sideways"},
        {{"a.mp4", "--direction", "7"}, "--direction is right, left, up, down or none, not 7"},
        {{"a.mp4", "--direction", ""}, "--direction is right, left, up, down or none, not empty"},
        {{"a.mp4", "--turn", "left"}, "--turn is auto, ccw, cw or none, not left"},

        {{"a.mp4", "--workers", "0"}, "--workers is a whole number from 1 to 16, not 0"},
        {{"a.mp4", "--threads", "0"}, "--threads is a whole number from 1 to 256, not 0"},
        {{"a.mp4", "--threads", "257"}, "--threads is a whole number from 1 to 256, not 257"},
        {{"a.mp4", "--workers", "17"}, "--workers is a whole number from 1 to 16, not 17"},
        {{"a.mp4", "--workers", "-1"}, "--workers is a whole number from 1 to 16, not -1"},
        {{"a.mp4", "--workers", "two"}, "--workers is a whole number from 1 to 16, not two"},
        {{"a.mp4", "--workers", "2x"}, "--workers is a whole number from 1 to 16, not 2x"},
        {{"a.mp4", "--quality", "0"}, "--quality is a whole number from 1 to 100, not 0"},
        {{"a.mp4", "--quality", "101"}, "--quality is a whole number from 1 to 100, not 101"},
        {{"a.mp4", "--quality", "9.5"}, "--quality is a whole number from 1 to 100, not 9.5"},
        {{"a.mp4", "--step", "0"}, "--step is a whole number from 1 to 1000000, not 0"},
        {{"a.mp4", "--step", "99999999999999999999"},
         "--step is a whole number from 1 to 1000000, not 99999999999999999999"},
        {{"a.mp4", "--fps", "0"}, "--fps is a number from 0.001 to 1000, not 0"},
        {{"a.mp4", "--fps", "-1"}, "--fps is a number from 0.001 to 1000, not -1"},
        {{"a.mp4", "--fps", "nan"}, "--fps is a number from 0.001 to 1000, not nan"},
        {{"a.mp4", "--fps", "-nan"}, "--fps is a number from 0.001 to 1000, not -nan"},
        {{"a.mp4", "--fps", "inf"}, "--fps is a number from 0.001 to 1000, not inf"},
        {{"a.mp4", "--fps", "2x"}, "--fps is a number from 0.001 to 1000, not 2x"},
        {{"a.mp4", "--fps", "0x1p3"}, "--fps is a number from 0.001 to 1000, not 0x1p3"},

        {{"a.mp4", "--start", "later"}, "--start is a time, in seconds or as h:mm:ss, not later"},
        {{"a.mp4", "--start", "-1"}, "--start is a time, in seconds or as h:mm:ss, not -1"},
        {{"a.mp4", "--end", "1:60"}, "--end is a time, in seconds or as h:mm:ss, not 1:60"},
        {{"a.mp4", "--end", ""}, "--end is a time, in seconds or as h:mm:ss, not empty"},

        {{"a.mp4", "--start", "5", "--end", "5"}, "--end must be later than --start"},
        {{"a.mp4", "--quality", "90", "-o", "a.PNG"}, "--quality is for JPEG, and a.PNG is without loss"},
    };
    for (const auto& [arguments, sentence] : mistakes) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        try {
            parsed(arguments);
            ADD_FAILURE() << "accepted";
        } catch (const host_error& error) {
            EXPECT_EQ(error.what(), std::string(sentence) + " (see tarnstitch --help)");
            EXPECT_EQ(error.code(), exit_code::usage);
        }
    }
}

TEST(Options, HelpNamesEveryOptionAndExitCodeInLinesThatFitATerminal)
{
    const std::string text = help_text();
    for (const option_row& row : option_table()) {
        const std::string names = row.names;
        EXPECT_NE(text.find(names.substr(names.find(',') + 1)), std::string::npos) << names;
    }
    std::size_t start = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
        EXPECT_LE(end - start, 100U) << text.substr(start, end - start);
        start = end + 1;
    }
    for (const char* code : {"  0  ", "  1  ", "  2  ", "  3  ", "  4  ", "  5  ", "  130  "}) {
        EXPECT_NE(text.find(code), std::string::npos) << code;
    }
}
