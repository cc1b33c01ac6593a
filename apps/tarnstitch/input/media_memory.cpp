// SPDX-License-Identifier: Apache-2.0
//
// The limits that hold at once, and their sizes.
#include "media_memory.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <climits>
#include <mutex>
#include <set>

namespace tarn::host {

namespace {

constexpr std::size_t default_of_ffmpeg = INT_MAX;  // which is also the most that its libraries count with

class limits {
public:
    void change(const std::size_t* removed, const std::size_t* added)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        // First the new one: a decoder may be at work.
        if (added != nullptr) {
            living_.insert(*added);
        }
        if (removed != nullptr) {
            living_.erase(living_.find(*removed));
        }
        av_max_alloc(living_.empty() ? default_of_ffmpeg : std::min(*living_.rbegin(), default_of_ffmpeg));
    }

private:
    std::mutex mutex_;
    std::multiset<std::size_t> living_;
};

limits& limits_of_process()
{
    static limits all;
    return all;
}

constexpr std::size_t mebibyte = std::size_t{1} << 20;

}  // namespace

media_memory_limit::media_memory_limit(std::size_t bytes) : bytes_(bytes)
{
    limits_of_process().change(nullptr, &bytes_);
}

media_memory_limit::~media_memory_limit()
{
    limits_of_process().change(&bytes_, nullptr);
}

void media_memory_limit::set(std::size_t bytes)
{
    limits_of_process().change(&bytes_, &bytes);
    bytes_ = bytes;
}

std::size_t memory_for_tables(std::int64_t file_size)
{
    // An entry takes 24 bytes. Small files may have one for each of their bytes, as fragments have for each sample of sound;
    // up to a size that is some hours of pictures. In larger ones 12 bytes for each are far less than there are.
    constexpr std::size_t least = 4 * mebibyte;
    constexpr std::size_t most_by_entry = 64 * mebibyte;
    constexpr std::size_t entry = 24;
    constexpr std::size_t times_size = 2;
    if (file_size <= 0) {
        return most_by_entry;
    }
    const auto size = static_cast<std::size_t>(std::min<std::int64_t>(file_size, default_of_ffmpeg));
    return std::clamp(std::max(times_size * size, std::min(entry * size, most_by_entry)), least, default_of_ffmpeg);
}

std::size_t memory_for_pictures(std::int64_t pixels)
{
    constexpr std::size_t least = 16 * mebibyte;  // for what decoders have besides pictures, and somewhat larger ones
    // A plane has up to 8 bytes for each pixel. VP9's decoder holds the coefficients of a picture when it has several
    // threads: 12 bytes for each where three channels have more than 8 bits.
    constexpr std::size_t for_pixel = 16;
    const std::int64_t count = std::min<std::int64_t>(pixels, default_of_ffmpeg);
    return std::clamp(for_pixel * static_cast<std::size_t>(std::max<std::int64_t>(count, 0)), least, default_of_ffmpeg);
}

}  // namespace tarn::host
