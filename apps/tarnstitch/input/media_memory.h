// SPDX-License-Identifier: Apache-2.0
//
// How much memory FFmpeg's libraries may take at a time.
//
// Its demuxers make tables of as many entries as a file claims to have pictures. A file says that in a few bytes, of
// each of its tracks: what it may take is measured by its own size, and by that of its pictures.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn::host {

/// A limit of each single allocation of FFmpeg's libraries in this process, while it lives. The largest of those that
/// live holds, so that a file that is opened beside another takes nothing from the other's decoder; when there is none,
/// FFmpeg's own does. Any thread.
class media_memory_limit {
public:
    explicit media_memory_limit(std::size_t bytes);
    ~media_memory_limit();
    media_memory_limit(const media_memory_limit&) = delete;
    media_memory_limit& operator=(const media_memory_limit&) = delete;

    /// Raises or lowers it.
    void set(std::size_t bytes);

private:
    std::size_t bytes_;
};

/// Bytes at a time that a file may take for what it says of its content.
/// @param file_size  in bytes; 0 or less where that is not known, as of a pipe
std::size_t memory_for_tables(std::int64_t file_size);

/// Bytes at a time that its decoder needs.
/// @param pixels  of the largest picture
std::size_t memory_for_pictures(std::int64_t pixels);

}  // namespace tarn::host
