// SPDX-License-Identifier: Apache-2.0
#include "preview_limit.h"

#include <algorithm>
#include <atomic>

#include "internal/preview_growth.h"

namespace tarn {

namespace {

std::atomic<std::int64_t> limit{usual_preview_limit};
std::atomic<bool> frozen{false};

}  // namespace

void set_preview_limit(std::int64_t pixels)
{
    limit = std::max<std::int64_t>(0, pixels);
}

std::int64_t preview_limit()
{
    return limit;
}

bool preview_is_frozen()
{
    return frozen;
}

bool let_preview_grow(const cv::Size& size)
{
    // A side that is none is not a matter of size: the image that cannot be made says so.
    const bool too_large =
        size.width > 0 && size.height > 0 && static_cast<std::int64_t>(size.width) * size.height > limit;
    frozen = too_large;
    return !too_large;
}

void forget_frozen_preview()
{
    frozen = false;
}

}  // namespace tarn
