// SPDX-License-Identifier: Apache-2.0
//
// A walk from chunk to chunk, into the lists that hold pictures. Only headers are read, whatever the file's size.
#include "avi_chunks.h"

#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <fstream>

namespace tarn::host {

namespace {

constexpr std::size_t name_size = 4;

std::string next_name(std::istream& file)
{
    std::string name(name_size, '\0');
    file.read(name.data(), static_cast<std::streamsize>(name.size()));
    return name;
}

std::uint32_t next_number(std::istream& file)
{
    std::array<char, 4> bytes{};
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::uint32_t number = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) {
        number = number << 8 | static_cast<unsigned char>(bytes.at(i));
    }
    return number;
}

bool is_list(const std::string& name)
{
    return name == "RIFF" || name == "LIST";
}

/// Whether there are pictures in a list, or in a list within it.
bool leads_to_pictures(const std::string& content)
{
    return content == "AVI " || content == "AVIX" || content == "movi" || content == "rec ";
}

/// Whether a chunk is a picture: "00dc", with the number of its stream.
bool is_picture(const std::string& name)
{
    return std::isdigit(static_cast<unsigned char>(name[0])) != 0
           && std::isdigit(static_cast<unsigned char>(name[1])) != 0 && name[2] == 'd'
           && (name[3] == 'c' || name[3] == 'b');
}

}  // namespace

bool is_avi(const std::string& file)
{
    std::ifstream input(file, std::ios::binary);
    const bool is_riff = next_name(input) == "RIFF";
    next_number(input);
    return is_riff && next_name(input) == "AVI " && input;
}

std::vector<bool> repeated_pictures(const std::string& file)
{
    // More than a day's recording has: a damaged file must not keep the program busy.
    constexpr int most_chunks = 4'000'000;
    constexpr std::uint64_t header_size = 2 * name_size;
    std::ifstream input(file, std::ios::binary);
    std::vector<bool> repeated;
    std::string stream;
    std::uint64_t at = 0;
    for (int chunks = 0; chunks < most_chunks; ++chunks) {
        input.seekg(static_cast<std::streamoff>(at));
        const std::string name = next_name(input);
        const std::uint64_t size = next_number(input);
        if (!input) {
            break;
        }
        at += header_size;
        if (is_list(name) && leads_to_pictures(next_name(input))) {
            at += name_size;
            continue;
        }
        input.clear();
        at += size + size % 2;
        if (is_picture(name) && (stream.empty() || stream == name.substr(0, 2))) {
            stream = name.substr(0, 2);
            repeated.push_back(size == 0);
        }
    }
    return repeated;
}

}  // namespace tarn::host
