// SPDX-License-Identifier: Apache-2.0
//
// How many bytes each picture of a report may have, so that the page stays below 1.5 MB for a usual sweep and below
// 5 MB for the longest. As text in the page they take a third more.
#pragma once

#include <algorithm>
#include <cstddef>

namespace tarn::host {

constexpr std::size_t most_panorama_bytes = 200'000;
constexpr std::size_t most_finished_bytes = 200'000;
constexpr std::size_t most_preview_bytes = 70'000;
constexpr std::size_t most_break_bytes = 60'000;  ///< one of the two pictures
constexpr std::size_t most_gap_bytes = 20'000;    ///< likewise

constexpr std::size_t most_key_frame_rows = 1000;     ///< told of one by one, and outlined
constexpr std::size_t most_key_frame_pictures = 400;  ///< shown

/// Bytes of one key frame's picture where there are so many.
constexpr std::size_t most_key_frame_bytes(std::size_t key_frames)
{
    constexpr std::size_t usual_count = 60;
    constexpr std::size_t of_a_usual_sweep = 240'000;
    constexpr std::size_t of_a_long_one = 1'000'000;
    constexpr std::size_t most = 12'000;
    const std::size_t all = key_frames <= usual_count ? of_a_usual_sweep : of_a_long_one;
    return std::min(most, all / std::clamp<std::size_t>(key_frames, 1, most_key_frame_pictures));
}

}  // namespace tarn::host
