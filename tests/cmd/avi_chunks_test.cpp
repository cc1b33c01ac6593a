// SPDX-License-Identifier: Apache-2.0
//
// Which pictures of an AVI file are the one before once more.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "avi_chunks.h"
#include "support/directory_fixture.h"

using namespace tarn::host;

namespace {

std::string chunk(const std::string& name, const std::string& content)
{
    std::string size;
    for (int shift = 0; shift < 32; shift += 8) {
        size += static_cast<char>(content.size() >> shift & 0xff);
    }
    return name + size + content + (content.size() % 2 == 1 ? "p" : "");
}

std::string list(const std::string& name, const std::string& holds, const std::string& content)
{
    return chunk(name, holds + content);
}

class AviChunks : public tarn::test::directory_fixture {
protected:
    void put(const std::string& name, const std::string& content) const
    {
        std::ofstream(at(name), std::ios::binary) << content;
    }

    std::vector<bool> repeated(const std::string& content) const
    {
        put("a.avi", content);
        return repeated_pictures(at("a.avi"));
    }
};

/// The headers, in which there is a name of a picture that is none, and the index behind the pictures likewise.
std::string avi(const std::string& pictures)
{
    return list("RIFF", "AVI ",
                list("LIST", "hdrl", chunk("00dc", "")) + chunk("JUNK", "00dc" + std::string(5, '\0'))
                    + list("LIST", "movi", pictures) + chunk("idx1", "00dc" + std::string(12, '\0')));
}

const std::string picture = chunk("00dc", "seven..");
const std::string repeat = chunk("00dc", "");

}  // namespace

TEST_F(AviChunks, WithoutContentAreRepeatedPictures)
{
    EXPECT_EQ(repeated(avi("")), std::vector<bool>());
    EXPECT_EQ(repeated(avi(repeat + picture + picture + repeat + repeat + picture + repeat)),
              (std::vector<bool>{true, false, false, true, true, false, true}));
    // As the very last bytes of the file.
    EXPECT_EQ(repeated(list("RIFF", "AVI ", list("LIST", "movi", picture + repeat))),
              (std::vector<bool>{false, true}));
}

TEST_F(AviChunks, OfOtherStreamsAreNoPicturesOfTheFirst)
{
    EXPECT_EQ(repeated(avi(chunk("00wb", "") + chunk("ix01", "") + chunk("01dc", "x") + picture
                           + chunk("01pc", "") + chunk("01db", "") + repeat)),
              (std::vector<bool>{false, true}));
}

TEST_F(AviChunks, AreFoundInListsAndInFurtherParts)
{
    const std::string part = list("RIFF", "AVIX", list("LIST", "movi", repeat + picture));
    EXPECT_EQ(repeated(avi(list("LIST", "rec ", picture + repeat) + picture) + part + part),
              (std::vector<bool>{false, true, false, true, false, true, false}));
}

TEST_F(AviChunks, OfAFileThatIsCutShortAreThoseBefore)
{
    const std::string whole = avi(picture + repeat + picture);
    const std::vector<bool> all = {false, true, false};
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const std::vector<bool> found = repeated(whole.substr(0, length));
        ASSERT_LE(found.size(), all.size());
        EXPECT_EQ(found,
                  std::vector<bool>(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(found.size())));
    }
    // Sizes that were never written, or are too large.
    std::string open = whole;
    open.replace(4, 4, std::string(4, '\0'));
    EXPECT_EQ(repeated(open), all);
    open.replace(open.find("seven") - 4, 4, std::string(4, '\xff'));
    EXPECT_EQ(repeated(open), std::vector<bool>{false});
    EXPECT_EQ(repeated_pictures(at("none.avi")), std::vector<bool>());
}

TEST_F(AviChunks, OfAnAviOnly)
{
    put("a.avi", avi(picture));
    EXPECT_TRUE(is_avi(at("a.avi")));
    for (const std::string& other :
         {std::string("RIFF....WAVE"), std::string("RIFX....AVI "), std::string("RIFF....AVI")}) {
        put("other", other);
        EXPECT_FALSE(is_avi(at("other"))) << other;
    }
    EXPECT_FALSE(is_avi(at("none.avi")));
}
