// SPDX-License-Identifier: Apache-2.0
//
// A walk through the boxes of an MP4 file to the matrix of its video track, to the movie's header, and to the times of
// its pictures. Only box headers and some small boxes are read, whatever the file's size.
#include "movie_index.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>

namespace tarn::host {

namespace {

/// A stretch of the file: a box without its header.
struct box {
    std::array<char, 4> type{};
    std::uint64_t begin = 0;
    std::uint64_t end = 0;

    bool is(const char* name) const
    {
        return std::memcmp(type.data(), name, type.size()) == 0;
    }
};

std::uint64_t big_endian(const unsigned char* bytes, int count)
{
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

class box_reader {
public:
    explicit box_reader(const std::string& path) : file_(path, std::ios::binary)
    {
        file_.seekg(0, std::ios::end);
        const std::streamoff size = file_.tellg();
        whole_.end = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    }

    const box& whole() const
    {
        return whole_;
    }

    bool read(std::uint64_t at, unsigned char* bytes, std::size_t count)
    {
        file_.clear();
        file_.seekg(static_cast<std::streamoff>(at));
        file_.read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(count));
        return static_cast<bool>(file_);
    }

    /// Reads the box that starts at `at` within `parent`; nothing when it does not fit there, or too many have been read.
    std::optional<box> box_at(std::uint64_t at, const box& parent)
    {
        constexpr std::uint64_t header_size = 8;
        constexpr std::uint64_t long_header_size = 16;
        std::array<unsigned char, long_header_size> header{};
        if (boxes_++ >= most_boxes || at >= parent.end || parent.end - at < header_size
            || !read(at, header.data(), header_size)) {
            return std::nullopt;
        }
        std::uint64_t size = big_endian(header.data(), 4);
        std::uint64_t used = header_size;
        if (size == 0) {
            size = parent.end - at;  // up to the end
        } else if (size == 1) {
            used = long_header_size;
            if (parent.end - at < long_header_size || !read(at, header.data(), long_header_size)) {
                return std::nullopt;
            }
            size = big_endian(header.data() + header_size, 8);
        }
        if (size < used || size > parent.end - at) {
            return std::nullopt;
        }
        box found;
        std::memcpy(found.type.data(), header.data() + 4, found.type.size());
        found.begin = at + used;
        found.end = at + size;
        return found;
    }

    /// The first box of a type in `parent` at or behind `from`.
    std::optional<box> find(const char* type, const box& parent, std::uint64_t from)
    {
        for (auto next = box_at(from, parent); next; next = box_at(next->end, parent)) {
            if (next->is(type)) {
                return next;
            }
        }
        return std::nullopt;
    }

    std::optional<box> find(const char* type, const box& parent)
    {
        return find(type, parent, parent.begin);
    }

private:
    /// More than lie before what is looked for in any recording: a damaged file must not keep the program busy.
    static constexpr int most_boxes = 100'000;

    std::ifstream file_;
    box whole_;
    int boxes_ = 0;  ///< that have been read
};

bool is_video_track(box_reader& reader, const box& track)
{
    const auto media = reader.find("mdia", track);
    const auto handler = media ? reader.find("hdlr", *media) : std::nullopt;
    constexpr std::uint64_t handler_type_offset = 8;  // behind version, flags and a word of zeros
    std::array<unsigned char, 4> type{};
    return handler && handler->end - handler->begin >= handler_type_offset + type.size()
           && reader.read(handler->begin + handler_type_offset, type.data(), type.size())
           && std::memcmp(type.data(), "vide", type.size()) == 0;
}

int quarter_turns_of(box_reader& reader, const box& track)
{
    const auto header = reader.find("tkhd", track);
    unsigned char version = 0;
    if (!header || !reader.read(header->begin, &version, 1)) {
        return 0;
    }
    // Behind version, flags, times (of twice the length in version 1), numbers, layer and volume.
    const std::uint64_t offset = version == 1 ? 52 : 40;
    constexpr std::size_t word = 4;
    std::array<unsigned char, 5 * word> matrix{};  // a b u c d of [a b u; c d v; x y w]
    if (header->end - header->begin < offset + matrix.size()
        || !reader.read(header->begin + offset, matrix.data(), matrix.size())) {
        return 0;
    }
    const auto element = [&matrix](std::size_t index) {
        return static_cast<std::int32_t>(
            static_cast<std::uint32_t>(big_endian(matrix.data() + index * word, 4)));
    };
    const std::int32_t a = element(0);
    const std::int32_t b = element(1);
    const std::int32_t c = element(3);
    const std::int32_t d = element(4);
    // A point (x, y) is shown at (a x + c y, b x + d y), with y downward.
    if (a == 0 && d == 0) {
        return b > 0 && c < 0 ? 1 : (b < 0 && c > 0 ? 3 : 0);
    }
    return a < 0 && d < 0 && b == 0 && c == 0 ? 2 : 0;
}

std::optional<box> first_video_track(box_reader& reader)
{
    const auto movie = reader.find("moov", reader.whole());
    if (!movie) {
        return std::nullopt;
    }
    for (auto track = reader.find("trak", *movie); track; track = reader.find("trak", *movie, track->end)) {
        if (is_video_track(reader, *track)) {
            return track;
        }
    }
    return std::nullopt;
}

/// The units in which the header of a movie ("mvhd") or a media ("mdhd") says that its times are given; 0 when they
/// are not known.
std::uint32_t units_per_second(box_reader& reader, const char* type, const box& parent)
{
    const auto header = reader.find(type, parent);
    unsigned char version = 0;
    if (!header || !reader.read(header->begin, &version, 1)) {
        return 0;
    }
    // Behind version, flags and two times, which are of twice the length in version 1.
    const std::uint64_t offset = version == 1 ? 20 : 12;
    std::array<unsigned char, 4> bytes{};
    if (header->end - header->begin < offset + bytes.size()
        || !reader.read(header->begin + offset, bytes.data(), bytes.size())) {
        return 0;
    }
    return static_cast<std::uint32_t>(big_endian(bytes.data(), 4));
}

/// So many pictures after each other that have the same value: a duration, an offset.
struct run_of_pictures {
    std::uint32_t count = 0;
    std::uint32_t value = 0;
};

/// More than any recording has; what a damaged index claims must not fill the memory.
constexpr std::size_t most_pictures = 10'000'000;

/// The list in a box such as "stts"; empty when there is none, or it is not whole.
std::vector<run_of_pictures> runs_in(box_reader& reader, const char* type, const box& table)
{
    constexpr std::uint64_t head = 8;  // version and flags, count
    constexpr std::uint64_t entry = 8;
    const auto list = reader.find(type, table);
    std::array<unsigned char, 4> bytes{};
    if (!list || list->end - list->begin < head || !reader.read(list->begin + 4, bytes.data(), bytes.size())) {
        return {};
    }
    const std::uint64_t count = big_endian(bytes.data(), 4);
    if (count > most_pictures || list->end - list->begin - head < count * entry) {
        return {};
    }
    std::vector<unsigned char> content(static_cast<std::size_t>(count * entry));
    if (!reader.read(list->begin + head, content.data(), content.size())) {
        return {};
    }
    std::vector<run_of_pictures> runs(static_cast<std::size_t>(count));
    const unsigned char* at = content.data();
    for (run_of_pictures& run : runs) {
        run.count = static_cast<std::uint32_t>(big_endian(at, 4));
        run.value = static_cast<std::uint32_t>(big_endian(at + 4, 4));
        at += entry;
    }
    return runs;
}

/// When the pictures in a media's sample table are due, in its units, in that order; empty when that is not known.
std::vector<double> listed_times(box_reader& reader, const box& table)
{
    std::vector<double> times;
    double decoded = 0.0;
    for (const run_of_pictures& run : runs_in(reader, "stts", table)) {
        if (run.count > most_pictures - times.size()) {
            return {};
        }
        for (std::uint32_t i = 0; i < run.count; ++i, decoded += run.value) {
            times.push_back(decoded);
        }
    }
    std::size_t next = 0;
    for (const run_of_pictures& run : runs_in(reader, "ctts", table)) {
        for (std::uint32_t i = 0; i < run.count && next < times.size(); ++i) {
            // Signed in fact, whatever the version of the box says.
            times[next++] += static_cast<std::int32_t>(run.value);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

/// From one time, in a media's units, to before another.
struct stretch {
    double begin = 0.0;
    double end = std::numeric_limits<double>::infinity();
};

/// What an edit list shows of its media. Nothing for a list of an unusual kind, of which decoders make different
/// things: the usual one has a single edit, at the rate of the recording, perhaps behind a wait.
std::optional<stretch> stretch_shown(box_reader& reader, const box& edits, double units_of_movie,
                                     double units_of_media)
{
    constexpr std::size_t head = 8;  // version and flags, count
    constexpr std::size_t longest_edit = 20;
    constexpr std::size_t most_edits = 8;
    std::array<unsigned char, head + most_edits * longest_edit> bytes{};
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(edits.end - edits.begin, bytes.size()));
    if (size < head || !reader.read(edits.begin, bytes.data(), size)) {
        return std::nullopt;
    }
    const int version = bytes[0];
    const std::uint64_t count = big_endian(bytes.data() + 4, 4);
    const std::size_t word = version == 1 ? 8 : 4;
    const std::size_t edit_size = 2 * word + 4;
    if (count == 0) {
        return stretch();
    }
    if (version > 1 || count > (size - head) / edit_size) {
        return std::nullopt;
    }

    const auto number = [word](const unsigned char* at) { return big_endian(at, static_cast<int>(word)); };
    const unsigned char* const last = bytes.data() + head + (count - 1) * edit_size;
    const std::uint64_t lowest_negative = std::uint64_t{1} << (8 * word - 1);
    const std::uint64_t wait = lowest_negative | (lowest_negative - 1);  // -1
    for (const unsigned char* edit = bytes.data() + head; edit != last; edit += edit_size) {
        if (number(edit + word) != wait) {
            return std::nullopt;
        }
    }
    const std::uint64_t duration = number(last);  // in the movie's units
    const std::uint64_t begin = number(last + word);
    constexpr std::uint64_t recorded_rate = 0x10000;  // 1, in fixed point
    if (begin >= lowest_negative || duration == 0 || big_endian(last + 2 * word, 4) != recorded_rate
        || units_of_movie == 0.0) {
        return std::nullopt;
    }
    stretch shown;
    shown.begin = static_cast<double>(begin);
    shown.end = shown.begin + std::round(static_cast<double>(duration) * units_of_media / units_of_movie);
    return shown;
}

}  // namespace

std::optional<int> display_quarter_turns(const std::string& file)
{
    box_reader reader(file);
    const auto track = first_video_track(reader);
    return track ? std::optional<int>(quarter_turns_of(reader, *track)) : std::nullopt;
}

shown_pictures pictures_shown(const std::string& file)
{
    box_reader reader(file);
    const auto movie = reader.find("moov", reader.whole());
    const auto track = first_video_track(reader);
    const auto media = track ? reader.find("mdia", *track) : std::nullopt;
    const std::uint32_t units = media ? units_per_second(reader, "mdhd", *media) : 0;
    const auto information = media ? reader.find("minf", *media) : std::nullopt;
    const auto table = information ? reader.find("stbl", *information) : std::nullopt;
    if (!table || units == 0) {
        return {};
    }
    shown_pictures shown;
    shown.times = listed_times(reader, *table);
    const auto container = reader.find("edts", *track);
    const auto edits = container ? reader.find("elst", *container) : std::nullopt;
    // Where the pictures are listed elsewhere, in fragments of the movie, edit lists are not heeded.
    if (edits && !shown.times.empty()) {
        const auto all = shown.times.size();
        const auto kept = stretch_shown(reader, *edits, units_per_second(reader, "mvhd", *movie), units);
        if (!kept) {
            return {{}, true};
        }
        const auto from = [&shown](double time) {
            return std::lower_bound(shown.times.begin(), shown.times.end(), time);
        };
        shown.times.erase(from(kept->end), shown.times.end());
        shown.times.erase(shown.times.begin(), from(kept->begin));
        shown.edited = shown.times.size() != all;
    }
    std::for_each(shown.times.begin(), shown.times.end(), [units](double& time) { time /= units; });
    return shown;
}

std::optional<std::int64_t> recording_time(const std::string& file)
{
    box_reader reader(file);
    const auto movie = reader.find("moov", reader.whole());
    const auto header = movie ? reader.find("mvhd", *movie) : std::nullopt;
    constexpr std::size_t version_and_flags = 4;
    constexpr std::size_t longest_time = 8;
    std::array<unsigned char, version_and_flags + longest_time> bytes{};
    if (!header || header->end - header->begin < bytes.size()
        || !reader.read(header->begin, bytes.data(), bytes.size())) {
        return std::nullopt;
    }
    const int length = bytes[0] == 1 ? 8 : 4;
    const std::uint64_t since_1904 = big_endian(bytes.data() + version_and_flags, length);
    constexpr std::uint64_t from_1904_to_1970 = 2082844800;  // s
    constexpr std::uint64_t year_3000 = 34587648000;         // s since 1904, beyond what is believed
    if (since_1904 <= from_1904_to_1970 || since_1904 > year_3000) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(since_1904 - from_1904_to_1970);
}

}  // namespace tarn::host
