// SPDX-License-Identifier: Apache-2.0
//
// What is read from the index of an MP4 file: how it is turned, and which of its pictures are shown when.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "movie_index.h"
#include "support/directory_fixture.h"

using namespace tarn::host;

namespace {

class MovieIndex : public tarn::test::directory_fixture {
protected:
    void put(const std::string& name, const std::string& content) const
    {
        std::ofstream(at(name), std::ios::binary) << content;
    }
};

using DisplayRotation = MovieIndex;

std::string big_endian(std::uint64_t value, int bytes)
{
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift & 0xff);
    }
    return text;
}

/// A box of an MP4 file.
std::string box(const std::string& type, const std::string& content)
{
    return big_endian(content.size() + 8, 4) + type + content;
}

/// A track with a handler and a display matrix [a b; c d].
std::string track(const std::string& handler, int a, int b, int c, int d, int version = 0)
{
    const auto fixed_point = [](int value) { return big_endian(static_cast<std::uint32_t>(value * 65536), 4); };
    const std::string header = std::string(1, static_cast<char>(version))
                               + std::string(version == 1 ? 51 : 39, 0) + fixed_point(a) + fixed_point(b)
                               + std::string(4, 0) + fixed_point(c) + fixed_point(d) + std::string(24, 0);
    return box("trak", box("edts", "x") + box("tkhd", header)
                           + box("mdia", box("mdhd", "y") + box("hdlr", std::string(8, 0) + handler + "name")));
}

std::string words(const std::vector<std::int64_t>& values)
{
    std::string text;
    for (const std::int64_t value : values) {
        text += big_endian(static_cast<std::uint64_t>(value), 4);
    }
    return text;
}

/// Five pictures, 100 units of 1/1000 s after each other, but for 300 before the last; each is shown 100 units after it
/// is decoded, but for the second and third, which are shown in the other order.
std::string sample_table()
{
    return box("stts", words({0, 2, 3, 100, 2, 300}) + "unused")
           + box("ctts", words({0x01000000, 4, 1, 100, 1, 200, 1, 0, 2, 100}));
}

/// A movie, in units of 1/100 s, of one track of those pictures with such an edit list box, if any.
std::string movie(const std::string& edit_list, const std::string& table = sample_table(),
                  std::int64_t units_per_second = 100)
{
    return box("ftyp", "isom")
           + box("moov", box("mvhd", words({0, 0, 0, units_per_second, 0}))
                             + box("trak", (edit_list.empty() ? "" : box("edts", edit_list))
                                               + box("mdia", box("mdhd", words({0, 0, 0, 1000, 0, 0}))
                                                                 + box("hdlr", std::string(8, 0) + "videname")
                                                                 + box("minf", box("stbl", table)))));
}

struct edit {
    std::int64_t duration;
    std::int64_t begin;
    std::int64_t rate = 0x10000;
};

std::string edit_list(const std::vector<edit>& edits, int version = 0)
{
    const int word = version == 1 ? 8 : 4;
    std::string content = words({version << 24, static_cast<std::int64_t>(edits.size())});
    for (const edit& one : edits) {
        content += big_endian(static_cast<std::uint64_t>(one.duration), word)
                   + big_endian(static_cast<std::uint64_t>(one.begin), word) + words({one.rate});
    }
    return box("elst", content);
}

class ShownPictures : public MovieIndex {
protected:
    shown_pictures shown(const std::string& movie) const
    {
        put("a.mp4", movie);
        return pictures_shown(at("a.mp4"));
    }

    void expect_times(const std::string& movie, const std::vector<double>& times, bool edited) const
    {
        const shown_pictures found = shown(movie);
        ASSERT_EQ(found.times.size(), times.size());
        for (std::size_t i = 0; i < times.size(); ++i) {
            EXPECT_DOUBLE_EQ(found.times[i], times[i]);
        }
        EXPECT_EQ(found.edited, edited);
    }

    void expect_unknown(const std::string& movie, bool edited = true) const
    {
        const shown_pictures found = shown(movie);
        EXPECT_TRUE(found.times.empty());
        EXPECT_EQ(found.edited, edited);
    }
};

const std::vector<double> all_times = {0.1, 0.2, 0.3, 0.4, 0.7};

}  // namespace

TEST_F(DisplayRotation, IsReadFromTheMatrixOfTheFirstVideoTrack)
{
    struct matrix_and_turns {
        int a, b, c, d, quarter_turns;
    };

    for (const matrix_and_turns& one :
         {matrix_and_turns{1, 0, 0, 1, 0}, matrix_and_turns{0, 1, -1, 0, 1}, matrix_and_turns{-1, 0, 0, -1, 2},
          matrix_and_turns{0, -1, 1, 0, 3}, matrix_and_turns{-1, 0, 0, 1, 0} /* a mirror is no turn */}) {
        for (const int version : {0, 1}) {
            put("a.mp4", box("ftyp", "isom") + box("mdat", std::string(100, 'm'))
                             + box("moov", box("mvhd", "z") + track("soun", -1, 0, 0, -1)
                                               + track("vide", one.a, one.b, one.c, one.d, version)
                                               + track("vide", -1, 0, 0, -1)));
            EXPECT_EQ(display_quarter_turns(at("a.mp4")), one.quarter_turns);
        }
    }
}

TEST_F(DisplayRotation, BoxesOf64BitLengthAndUpToTheEndOfTheFileAreFollowed)
{
    const std::string movie = box("moov", track("vide", 0, 1, -1, 0));
    put("long.mp4", big_endian(1, 4) + "mdat" + big_endian(16 + 5, 8) + "media" + movie);
    EXPECT_EQ(display_quarter_turns(at("long.mp4")), 1);
    put("open.mp4", box("ftyp", "isom") + big_endian(0, 4) + movie.substr(4));
    EXPECT_EQ(display_quarter_turns(at("open.mp4")), 1);
}

TEST_F(DisplayRotation, OtherAndDamagedFilesHaveNone)
{
    EXPECT_FALSE(display_quarter_turns(at("none.mp4")));
    put("empty.mp4", "");
    EXPECT_FALSE(display_quarter_turns(at("empty.mp4")));
    put("text.mp4", "This is no video, but it is long enough to be read as one.");
    EXPECT_FALSE(display_quarter_turns(at("text.mp4")));
    for (const std::string& size : {big_endian(7, 4), big_endian(0xffffffff, 4), big_endian(1, 4)}) {
        put("size.mp4", box("ftyp", "isom") + size + "moov" + std::string(8, '\xff'));
        EXPECT_FALSE(display_quarter_turns(at("size.mp4")));
    }
    put("sound.mp4", box("moov", track("soun", 0, 1, -1, 0)));
    EXPECT_FALSE(display_quarter_turns(at("sound.mp4")));

    // Cut off anywhere: an answer, or none, but always an end.
    const std::string whole = box("ftyp", "isom") + box("moov", track("vide", 0, 1, -1, 0));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        put("cut.mp4", whole.substr(0, length));
        EXPECT_FALSE(display_quarter_turns(at("cut.mp4"))) << length;
    }
    put("whole.mp4", whole);
    EXPECT_EQ(display_quarter_turns(at("whole.mp4")), 1);
}

TEST_F(DisplayRotation, IsNotLookedForBehindMoreBoxesThanAnyRecordingHas)
{
    const std::string track_of_movie = box("moov", track("vide", 0, 1, -1, 0));
    std::string filling;
    for (int i = 0; i < 10'000; ++i) {
        filling += box("free", "");
    }
    put("many.mp4", box("ftyp", "isom") + filling + track_of_movie);
    EXPECT_EQ(display_quarter_turns(at("many.mp4")), 1);
    std::string longer;
    for (int i = 0; i < 20; ++i) {
        longer += filling;
    }
    put("too_many.mp4", box("ftyp", "isom") + longer + track_of_movie);
    EXPECT_EQ(display_quarter_turns(at("too_many.mp4")), std::nullopt);
}

TEST_F(ShownPictures, AreAllWithoutAnEditListAndWithOneThatLeavesThem)
{
    expect_times(movie(""), all_times, false);
    for (const int version : {0, 1}) {
        expect_times(movie(edit_list({}, version)), all_times, false);
        expect_times(movie(edit_list({{90, 100}}, version)), all_times, false);
        expect_times(movie(edit_list({{61, 100}}, version)), all_times, false);
        expect_times(movie(edit_list({{50, -1}, {90, 100}}, version)), all_times, false);
        expect_times(movie(edit_list({{0xffffffff, 0}}, version)), all_times, false);
    }
}

TEST_F(ShownPictures, AreThoseOfTheTrim)
{
    for (const int version : {0, 1}) {
        expect_times(movie(edit_list({{90, 101}}, version)), {0.2, 0.3, 0.4, 0.7}, true);
        expect_times(movie(edit_list({{60, 100}}, version)), {0.1, 0.2, 0.3, 0.4}, true);
        expect_times(movie(edit_list({{20, 200}}, version)), {0.2, 0.3}, true);
        expect_times(movie(edit_list({{21, 200}}, version)), {0.2, 0.3, 0.4}, true);
        expect_times(movie(edit_list({{50, -1}, {7, -1}, {20, 200}}, version)), {0.2, 0.3}, true);
        expect_times(movie(edit_list({{20, 450}}, version)), {}, true);
        expect_times(movie(edit_list({{20, 0x7fffffff}}, version)), {}, true);
    }
    // The end is rounded to the media's units: 99.6, 100.4 and 100.5 after 200.
    const std::string table = sample_table();
    expect_times(movie(edit_list({{996, 200}}), table, 10000), {0.2}, true);
    expect_times(movie(edit_list({{1004, 200}}), table, 10000), {0.2}, true);
    expect_times(movie(edit_list({{1005, 200}}), table, 10000), {0.2, 0.3}, true);
}

TEST_F(ShownPictures, AreNotKnownOfAnUnusualEditList)
{
    for (const int version : {0, 1}) {
        expect_unknown(movie(edit_list({{20, 100}, {20, 400}}, version)));
        expect_unknown(movie(edit_list({{20, 100}, {20, -1}}, version)));
        expect_unknown(movie(edit_list({{90, -1}}, version)));
        expect_unknown(movie(edit_list({{90, -2}}, version)));
        expect_unknown(movie(edit_list({{0, 100}}, version)));
        expect_unknown(movie(edit_list({{90, 100, 0x8000}}, version)));
        expect_unknown(movie(edit_list({{90, 100, 0}}, version)));
        expect_unknown(movie(edit_list(std::vector<edit>(20, {90, -1}), version)));
    }
    expect_unknown(movie(edit_list({{90, 100}}, 2)));
    expect_unknown(movie(edit_list({{90, 100}}), sample_table(), 0));
}

TEST_F(ShownPictures, DamagedEditListsClaimNothing)
{
    // Cut off in the box, which stays within its bounds.
    const std::string content = edit_list({{20, 100}}, 1).substr(8);
    for (std::size_t length = 0; length < content.size(); ++length) {
        expect_unknown(movie(box("elst", content.substr(0, length))));
    }
    expect_unknown(movie(box("elst", words({0, 0xffffffff, 20, 100, 0x10000}))));
    expect_unknown(movie(box("elst", words({0x01000000, 0x0ccccccd, 20, 100, 0x10000}))));
    // No number is too large.
    expect_times(movie(box("elst", words({0x01000000, 1, -1, -1, 0x7fffffff, -1, 0x10000}))), {}, true);
    expect_times(movie(box("elst", words({0x01000000, 1, -1, -1, 0, 0, 0x10000}))), all_times, false);
}

TEST_F(ShownPictures, OfFragmentsAreNotListedWhateverTheEdits)
{
    for (const std::string& list : {edit_list({{90, 100}}), edit_list({{20, 100}, {20, 400}})}) {
        expect_unknown(movie(list, box("stts", words({0, 0}))), false);
    }
}

TEST_F(ShownPictures, OfAMovieCutOffAnywhereAreAllOrNone)
{
    const std::string whole = movie(edit_list({{20, 200}}));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        expect_unknown(whole.substr(0, length), false);
    }
    expect_times(whole, {0.2, 0.3}, true);
}
