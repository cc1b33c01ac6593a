// SPDX-License-Identifier: Apache-2.0
//
// Text as a terminal gets it.
#include <string>

#include <gtest/gtest.h>

#include "terminal/printable_text.h"

namespace tarn::host {

namespace {

TEST(PrintableText, StaysAsItIsWhereItIsText)
{
    for (const std::string text : {"", "a b~", "größe", "日本語", "\U0001f4f7", "a\u0301", "\u00a0", "שלום"}) {
        EXPECT_EQ(text, printable(text));
    }
}

TEST(PrintableText, HasNoControlCharacters)
{
    for (int c = 0; c < 0x20; ++c) {
        EXPECT_EQ("a?b", printable(std::string("a") + static_cast<char>(c) + "b")) << c;
    }
    EXPECT_EQ("?", printable("\x7f"));
    EXPECT_EQ("?31mred", printable("\u009b31mred"));
    EXPECT_EQ("??", printable("\u0080\u009f"));
}

TEST(PrintableText, HasNothingThatTurnsTheDirectionOfWriting)
{
    EXPECT_EQ("????????????", printable("\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069"));
    EXPECT_EQ("a?gpj.exe", printable("a\u202egpj.exe"));
}

TEST(PrintableText, IsOneLine)
{
    EXPECT_EQ("a?b?c?d?e", printable("a\nb\rc\u2028d\u2029e"));
}

TEST(PrintableText, HasNoBytesThatAreNoUtf8)
{
    EXPECT_EQ("?31m", printable("\x9b"
                                "31m"));               // C1 as terminals of eight bits take it
    EXPECT_EQ("gr?n", printable("gr\xfcn"));           // Latin-1
    EXPECT_EQ("??", printable("\xc1\xbf"));            // longer than need be
    EXPECT_EQ("???", printable("\xe0\x82\x9b"));       // a control character in three bytes
    EXPECT_EQ("????", printable("\xf0\x80\x82\x9b"));  // and in four
    EXPECT_EQ("???", printable("\xed\xa0\x80"));       // a surrogate
    EXPECT_EQ("????", printable("\xf4\x90\x80\x80"));  // beyond the last character
    EXPECT_EQ("?", printable("\xe2"));                 // cut short
    EXPECT_EQ("??a", printable("\xe2\x80"
                               "a"));
    EXPECT_EQ("?é", printable("\xc3\u00e9"));  // what follows is read anew
}

}  // namespace

}  // namespace tarn::host
