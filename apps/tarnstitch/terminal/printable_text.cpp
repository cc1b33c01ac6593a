// SPDX-License-Identifier: Apache-2.0
//
// Walks over UTF-8 as the Unicode Standard defines it (table 3-7, well-formed byte sequences).
#include "terminal/printable_text.h"

#include <cstddef>
#include <cstdint>

namespace tarn::host {

namespace {

/// One character and the bytes that it takes; none for a byte with which no well-formed sequence begins.
struct decoded {
    std::uint32_t character = 0;
    std::size_t length = 0;
};

decoded character_at(const std::string& text, std::size_t at)
{
    const auto byte = [&text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const std::uint32_t first = byte(at);
    if (first < 0x80) {
        return {first, 1};
    }
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    const std::uint32_t smallest = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
    if (first < 0xc0 || first > 0xf4) {
        return {};
    }
    std::uint32_t character = first & (0x7fU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0U) != 0x80) {
            return {};
        }
        character = character << 6U | (byte(at + i) & 0x3fU);
    }
    const bool surrogate = character >= 0xd800 && character <= 0xdfff;
    return character < smallest || surrogate || character > 0x10ffff ? decoded{} : decoded{character, length};
}

bool is_obeyed(std::uint32_t c)
{
    const bool control = c < 0x20 || (c >= 0x7f && c < 0xa0);
    const bool line_or_paragraph_end = c == 0x2028 || c == 0x2029;
    const bool direction_mark =
        c == 0x061c || c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
    return control || line_or_paragraph_end || direction_mark;
}

}  // namespace

std::string printable(const std::string& text)
{
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const decoded one = character_at(text, at);
        if (one.length == 0 || is_obeyed(one.character)) {
            shown += '?';
        } else {
            shown.append(text, at, one.length);
        }
        at += one.length == 0 ? 1 : one.length;
    }
    return shown;
}

}  // namespace tarn::host
