// SPDX-License-Identifier: Apache-2.0
//
// A small tool for the tests of the command-line host: makes pictures and videos with known properties, and
// measures the pictures that the program made.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace {

using arguments = std::vector<std::string>;
using byte_vector = std::vector<unsigned char>;

byte_vector read_bytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_bytes(const std::string& path, const byte_vector& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

cv::Mat read_image(const std::string& path)
{
    cv::Mat image = cv::imread(path);
    if (image.empty()) {
        throw std::runtime_error("cannot read " + path);
    }
    return image;
}

void write_image(const std::string& path, const cv::Mat& image)
{
    if (!cv::imwrite(path, image)) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string numbered(const std::string& pattern, int number)
{
    std::array<char, 4096> name{};
    std::snprintf(name.data(), name.size(), pattern.c_str(), number);
    return name.data();
}

/// frames VIDEO PATTERN FIRST COUNT STEP: every STEP-th frame as images numbered from 1.
void frames(const arguments& given)
{
    cv::VideoCapture video(given.at(0));
    const int first = std::stoi(given.at(2));
    const int count = std::stoi(given.at(3));
    const int step = std::stoi(given.at(4));
    cv::Mat image;
    int written = 0;
    for (int index = 0; written < count && video.read(image); ++index) {
        if (index >= first && (index - first) % step == 0) {
            write_image(numbered(given.at(1), ++written), image);
        }
    }
    if (written < count) {
        throw std::runtime_error("the video is too short");
    }
}

/// A picture with details of all sizes, the same for the same seed.
cv::Mat textured(const cv::Size& size, int seed)
{
    cv::RNG random(static_cast<std::uint64_t>(seed) * 7919 + 1);
    cv::Mat sum = cv::Mat::zeros(size, CV_32FC3);
    constexpr std::array coarseness = {4, 16, 64};
    for (const int grain : coarseness) {
        cv::Mat noise(size.height / grain + 2, size.width / grain + 2, CV_32FC3);
        random.fill(noise, cv::RNG::UNIFORM, 0.0, 255.0 / static_cast<double>(coarseness.size()));
        cv::Mat layer;
        cv::resize(noise, layer, size, 0, 0, cv::INTER_CUBIC);
        sum += layer;
    }
    cv::Mat picture;
    sum.convertTo(picture, CV_8UC3);
    return picture;
}

/// slide PATTERN COUNT WIDTH HEIGHT STEP SEED [RISE]: a window that moves to the right over a textured picture, and
/// up by RISE pixels a step.
void slide(const arguments& given)
{
    const int count = std::stoi(given.at(1));
    const cv::Size window(std::stoi(given.at(2)), std::stoi(given.at(3)));
    const int step = std::stoi(given.at(4));
    const int rise = given.size() > 6 ? std::stoi(given.at(6)) : 0;
    const cv::Mat picture =
        textured({window.width + step * (count - 1), window.height + rise * (count - 1)}, std::stoi(given.at(5)));
    for (int index = 0; index < count; ++index) {
        const cv::Point at(index * step, (count - 1 - index) * rise);
        write_image(numbered(given.at(0), index + 1), picture(cv::Rect(at, window)));
    }
}

/// flat FILE WIDTH HEIGHT: a picture of one colour.
void flat(const arguments& given)
{
    write_image(given.at(0), cv::Mat(std::stoi(given.at(2)), std::stoi(given.at(1)), CV_8UC3, cv::Scalar(90, 120, 60)));
}

/// size IMAGE: prints its size, "640x480".
void size(const arguments& given)
{
    const cv::Mat image = read_image(given.at(0));
    std::cout << image.cols << "x" << image.rows << "\n";
}

/// turn PART WHOLE SCALE: prints by how many degrees, clockwise, PART (scaled) has to be turned to be found in
/// WHOLE, or "none" when it is not found.
void turn(const arguments& given)
{
    cv::Mat part;
    cv::Mat whole;
    // Brightness tells as well as colours, at a third of the work.
    cv::cvtColor(read_image(given.at(0)), part, cv::COLOR_BGR2GRAY);
    cv::cvtColor(read_image(given.at(1)), whole, cv::COLOR_BGR2GRAY);
    const double scale = std::stod(given.at(2));
    cv::resize(part, part, cv::Size(), scale, scale, cv::INTER_AREA);
    // The rim of a frame may be covered by the next one's; its middle is enough.
    part = part(cv::Rect(part.cols / 4, part.rows / 4, part.cols / 2, part.rows / 2)).clone();
    double best = 0.7;  // of a correlation that is 1 for the same picture
    int best_turn = -1;
    for (int degrees = 0; degrees < 360; degrees += 90) {
        if (part.cols <= whole.cols && part.rows <= whole.rows) {
            cv::Mat scores;
            cv::matchTemplate(whole, part, scores, cv::TM_CCOEFF_NORMED);
            double score = 0.0;
            cv::minMaxLoc(scores, nullptr, &score);
            if (score > best) {
                best = score;
                best_turn = degrees;
            }
        }
        cv::Mat turned;
        cv::rotate(part, turned, cv::ROTATE_90_CLOCKWISE);
        part = turned;
    }
    std::cout << (best_turn < 0 ? "none" : std::to_string(best_turn)) << "\n";
}

/// rotate IN OUT QUARTERS: turns a picture clockwise.
void rotate(const arguments& given)
{
    cv::Mat image = read_image(given.at(0));
    for (int quarters = std::stoi(given.at(2)); quarters > 0; --quarters) {
        cv::Mat turned;
        cv::rotate(image, turned, cv::ROTATE_90_CLOCKWISE);
        image = turned;
    }
    write_image(given.at(1), image);
}

/// exif IN OUT ORIENTATION: a JPEG with an Exif block that holds nothing but the orientation, 1 to 8.
void exif(const arguments& given)
{
    const byte_vector image = read_bytes(given.at(0));
    const auto orientation = static_cast<unsigned char>(std::stoi(given.at(2)));
    const byte_vector block = {0xff, 0xe1,        0x00, 0x22, 'E',  'x',  'i',  'f',  0x00, 0x00,
                               'M',  'M',         0x00, 0x2a, 0x00, 0x00, 0x00, 0x08,  // offset of the directory
                               0x00, 0x01,        0x01, 0x12, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01,  // one entry, 16 bits
                               0x00, orientation, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    byte_vector result(image.begin(), image.begin() + 2);
    result.insert(result.end(), block.begin(), block.end());
    // The encoder's own application block comes first in some readers' eyes, so it goes.
    auto rest = image.begin() + 2;
    if (image.at(2) == 0xff && image.at(3) == 0xe0) {
        rest += 2 + (image.at(4) << 8 | image.at(5));
    }
    result.insert(result.end(), rest, image.end());
    write_bytes(given.at(1), result);
}

/// matrix IN OUT: an MP4 whose display matrix says that it is to be shown turned by 90 degrees clockwise.
void matrix(const arguments& given)
{
    byte_vector video = read_bytes(given.at(0));
    constexpr std::array<unsigned char, 4> name = {'t', 'k', 'h', 'd'};
    const auto box = std::search(video.begin(), video.end(), name.begin(), name.end());
    // Version 0: the name, 4 bytes of flags, 5 words of times and numbers, 4 words of layer and volume.
    constexpr std::ptrdiff_t matrix_offset = 4 + 4 + 20 + 16;
    if (video.end() - box < matrix_offset + 36) {
        throw std::runtime_error("no track header");
    }
    const std::array<std::uint32_t, 9> turned = {0, 0x00010000, 0, 0xffff0000, 0, 0, 0, 0, 0x40000000};
    auto byte = box + matrix_offset;
    for (const std::uint32_t word : turned) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            *byte++ = static_cast<unsigned char>(word >> shift & 0xff);
        }
    }
    write_bytes(given.at(1), video);
}

std::uint32_t word_at(byte_vector::const_iterator at)
{
    return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16
           | static_cast<std::uint32_t>(at[2]) << 8 | at[3];
}

byte_vector bytes_of_words(const std::vector<std::uint32_t>& words)
{
    byte_vector bytes;
    for (const std::uint32_t word : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<unsigned char>(word >> shift & 0xff));
        }
    }
    return bytes;
}

/// The name of the first box of a type in an MP4, behind which its content is; its length lies before.
byte_vector::iterator find_box(byte_vector& video, const std::string& type)
{
    const auto found = std::search(video.begin(), video.end(), type.begin(), type.end());
    if (found == video.end()) {
        throw std::runtime_error("no box " + type);
    }
    return found;
}

void overwrite(byte_vector::iterator place, const std::vector<std::uint32_t>& words)
{
    const byte_vector bytes = bytes_of_words(words);
    std::copy(bytes.begin(), bytes.end(), place);
}

void rename_box(byte_vector::iterator box, const std::string& type)
{
    std::copy(type.begin(), type.end(), box);
}

/// Makes a box longer, and with it those that it lies in, which come first. The space is taken from the text that the
/// index ends in.
void lengthen(byte_vector& video, const std::vector<std::string>& types, std::uint32_t added)
{
    for (const std::string& type : types) {
        const auto box = find_box(video, type);
        overwrite(box - 4, {word_at(box - 4) + added});
    }
    const auto text = find_box(video, "udta");
    rename_box(text, "free");
    overwrite(text - 4, {word_at(text - 4) - added});
    video.erase(text + 4, text + 4 + added);
    const auto box = find_box(video, types.back());
    video.insert(box - 4 + word_at(box - 4) - added, added, static_cast<unsigned char>(0));
}

/// vary IN OUT TIMES: an MP4 of a constant rate with a longer wait, by so many times, before each key frame but the
/// first.
void vary(const arguments& given)
{
    byte_vector video = read_bytes(given.at(0));
    constexpr std::ptrdiff_t list = 12;  // behind name, version with flags, and count
    const auto keys = find_box(video, "stss");
    const auto times = find_box(video, "stts");
    const std::uint32_t pictures = word_at(times + list);
    const std::uint32_t duration = word_at(times + list + 4);
    const std::uint32_t wait = duration * static_cast<std::uint32_t>(std::stoi(given.at(2)));
    std::vector<std::uint32_t> runs;
    std::uint32_t done = 0;
    for (std::uint32_t i = 1; i < word_at(keys + list - 4); ++i) {
        const std::uint32_t before = word_at(keys + list + 4 * static_cast<std::ptrdiff_t>(i)) - 2;
        runs.insert(runs.end(), {before - done, duration, 1, wait});
        done = before + 1;
    }
    runs.insert(runs.end(), {pictures - done, duration});

    // The list of edits says how long the video is, which is no longer so.
    rename_box(find_box(video, "edts"), "free");
    const std::uint32_t count = static_cast<std::uint32_t>(runs.size()) / 2;
    lengthen(video, {"trak", "mdia", "minf", "stbl", "stts"}, (count - 1) * 8);
    const auto changed = find_box(video, "stts");
    overwrite(changed + list - 4, {count});
    overwrite(changed + list, runs);
    write_bytes(given.at(1), video);
}

/// edit IN OUT DURATION BEGIN [DURATION BEGIN]...: an MP4 with such a list of edits instead of its own: how long, in
/// the movie's units of time, and from when, in the video's.
void edit(const arguments& given)
{
    byte_vector video = read_bytes(given.at(0));
    const std::uint32_t count = static_cast<std::uint32_t>(given.size() - 2) / 2;
    std::vector<std::uint32_t> content = {0, count};
    for (std::size_t i = 0; i < count; ++i) {
        constexpr std::uint32_t recorded_rate = 0x10000;
        content.push_back(static_cast<std::uint32_t>(std::stol(given.at(2 + 2 * i))));
        content.push_back(static_cast<std::uint32_t>(std::stol(given.at(3 + 2 * i))));
        content.push_back(recorded_rate);
    }
    rename_box(find_box(video, "elst") - 8, "edts");  // vary may have hidden it
    if (count > 1) {
        lengthen(video, {"trak", "edts", "elst"}, (count - 1) * 12);
    }
    overwrite(find_box(video, "elst") + 4, content);
    write_bytes(given.at(1), video);
}

/// void IN OUT NUMBER: an MP4 with the data of its NUMBER-th sample, from 1, overwritten. All samples lie behind each
/// other.
void overwrite_sample(const arguments& given)
{
    byte_vector video = read_bytes(given.at(0));
    constexpr std::ptrdiff_t sizes_offset = 16;    // behind name, version with flags, size of all, and count
    constexpr std::ptrdiff_t offsets_offset = 12;  // behind name, version with flags, and count
    const auto sizes = find_box(video, "stsz") + sizes_offset;
    auto sample = video.begin() + word_at(find_box(video, "stco") + offsets_offset);
    const std::ptrdiff_t number = std::stoi(given.at(2)) - 1;
    for (std::ptrdiff_t i = 0; i < number; ++i) {
        sample += word_at(sizes + 4 * i);
    }
    std::fill(sample, sample + word_at(sizes + 4 * number), static_cast<unsigned char>(0));
    write_bytes(given.at(1), video);
}

/// noise FILE LENGTH: so many bytes without a meaning, always the same: a decoder takes one in a hundred such files, if
/// they are left to chance, for a picture.
void noise(const arguments& given)
{
    byte_vector bytes(std::stoul(given.at(1)));
    std::mt19937 random(1);
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<unsigned char>(random() & 0xff); });
    write_bytes(given.at(0), bytes);
}

/// damage IN OUT: the file with a stretch of its middle overwritten.
void damage(const arguments& given)
{
    byte_vector bytes = read_bytes(given.at(0));
    const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2);
    std::fill(middle, middle + static_cast<std::ptrdiff_t>(bytes.size() / 20), static_cast<unsigned char>(0x5a));
    write_bytes(given.at(1), bytes);
}

/// same A B: fails unless two pictures have the same pixels.
void same(const arguments& given)
{
    const cv::Mat one = read_image(given.at(0));
    const cv::Mat other = read_image(given.at(1));
    if (one.size() != other.size() || cv::norm(one, other, cv::NORM_INF) != 0.0) {
        throw std::runtime_error(given.at(0) + " and " + given.at(1) + " differ");
    }
}

/// empty IMAGE: prints how many of its pixels are wholly black.
void empty(const arguments& given)
{
    cv::Mat mask;
    cv::inRange(read_image(given.at(0)), cv::Scalar::all(0), cv::Scalar::all(0), mask);
    std::cout << cv::countNonZero(mask) << "\n";
}

/// coloured IMAGE RED GREEN BLUE: prints how many pixels are of that colour, or nearly so.
void coloured(const arguments& given)
{
    const cv::Scalar colour(std::stoi(given.at(3)), std::stoi(given.at(2)), std::stoi(given.at(1)));
    const cv::Scalar nearly = cv::Scalar::all(30);
    cv::Mat mask;
    cv::inRange(read_image(given.at(0)), colour - nearly, colour + nearly, mask);
    std::cout << cv::countNonZero(mask) << "\n";
}

cv::VideoWriter open_writer(const std::string& path, double rate, const cv::Size& frame_size)
{
    cv::VideoWriter writer(path, cv::CAP_OPENCV_MJPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), rate, frame_size);
    if (!writer.isOpened()) {
        throw std::runtime_error("cannot write " + path);
    }
    return writer;
}

/// video AVI PATTERN COUNT RATE: images numbered from 1 as a video, each frame compressed by itself.
void video(const arguments& given)
{
    cv::VideoWriter writer =
        open_writer(given.at(0), std::stod(given.at(3)), read_image(numbered(given.at(1), 1)).size());
    for (int number = 1; number <= std::stoi(given.at(2)); ++number) {
        writer.write(read_image(numbered(given.at(1), number)));
    }
}

/// swing AVI COUNT WIDTH HEIGHT REACH: a window that swings over a textured picture, REACH pixels to the right and
/// back, one pixel a frame.
void swing(const arguments& given)
{
    const int count = std::stoi(given.at(1));
    const cv::Size window(std::stoi(given.at(2)), std::stoi(given.at(3)));
    const int reach = std::stoi(given.at(4));
    const cv::Mat picture = textured({window.width + reach, window.height}, 1);
    constexpr double rate = 25.0;
    cv::VideoWriter writer = open_writer(given.at(0), rate, window);
    for (int index = 0; index < count; ++index) {
        const int phase = index % (2 * reach);
        writer.write(picture(cv::Rect(cv::Point(std::min(phase, 2 * reach - phase), 0), window)));
    }
}

/// The chunk of an AVI's NUMBER-th frame, from 1.
byte_vector::iterator find_frame(byte_vector& video, int number)
{
    constexpr std::array<unsigned char, 4> chunk = {'0', '0', 'd', 'c'};
    constexpr std::ptrdiff_t header = 8;
    auto found = video.begin();
    for (; number > 0; --number) {
        found = std::search(found + 1, video.end(), chunk.begin(), chunk.end());
    }
    if (video.end() - found < header) {
        throw std::runtime_error("no such frame");
    }
    return found;
}

std::uint32_t length_of(byte_vector::const_iterator chunk)
{
    return static_cast<std::uint32_t>(chunk[4]) | static_cast<std::uint32_t>(chunk[5]) << 8
           | static_cast<std::uint32_t>(chunk[6]) << 16 | static_cast<std::uint32_t>(chunk[7]) << 24;
}

/// spoil AVI OUT NUMBER: the video with the data of its NUMBER-th frame, from 1, overwritten.
void spoil(const arguments& given)
{
    byte_vector bytes = read_bytes(given.at(0));
    const auto data = find_frame(bytes, std::stoi(given.at(2))) + 8;
    const std::ptrdiff_t length = length_of(data - 8);
    std::fill(data, data + std::min(length, bytes.end() - data), static_cast<unsigned char>(0));
    write_bytes(given.at(1), bytes);
}

/// repeat AVI OUT NUMBER: the video with no data for its NUMBER-th frame, from 1, where the one before is to be shown
/// once more.
void repeat(const arguments& given)
{
    byte_vector bytes = read_bytes(given.at(0));
    const int number = std::stoi(given.at(2));
    const auto chunk = find_frame(bytes, number);
    const std::uint32_t length = length_of(chunk);
    const std::uint32_t unused = length + length % 2 - 8;
    std::fill(chunk + 4, chunk + 8, static_cast<unsigned char>(0));
    const std::string name = "JUNK";
    std::copy(name.begin(), name.end(), chunk + 8);
    for (int i = 0; i < 4; ++i) {
        chunk[12 + i] = static_cast<unsigned char>(unused >> (8 * i) & 0xff);
    }
    const std::string index = "idx1";
    constexpr std::ptrdiff_t entry = 16;
    constexpr std::ptrdiff_t length_offset = 12;  // behind name, flags and place
    const auto list = std::find_end(bytes.begin(), bytes.end(), index.begin(), index.end());
    if (bytes.end() - list < 8 + entry * number) {
        throw std::runtime_error("no index");
    }
    const auto in_index = list + 8 + entry * (number - 1) + length_offset;
    std::fill(in_index, in_index + 4, static_cast<unsigned char>(0));
    write_bytes(given.at(1), bytes);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, void (*)(const arguments&)> commands = {
        {"frames", frames},     {"slide", slide}, {"flat", flat},     {"size", size},     {"turn", turn},
        {"rotate", rotate},     {"exif", exif},   {"matrix", matrix}, {"noise", noise},   {"damage", damage},
        {"same", same},         {"empty", empty}, {"video", video},   {"swing", swing},   {"spoil", spoil},
        {"coloured", coloured}, {"vary", vary},   {"edit", edit},     {"repeat", repeat}, {"void", overwrite_sample},
    };
    try {
        const arguments given(argv + std::min(argc, 2), argv + argc);
        commands.at(argc > 1 ? argv[1] : "")(given);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "test media: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
