// SPDX-License-Identifier: Apache-2.0
#include "internal/frame_account.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "internal/frame_geometry.h"
#include "tarn_stitcher.h"

namespace tarn {

namespace {

// Needs no destruction itself, so that it tells of the account's.
thread_local bool account_is_gone = false;

struct owned_account {
    frame_account account;

    owned_account() = default;
    owned_account(const owned_account&) = delete;
    owned_account& operator=(const owned_account&) = delete;

    ~owned_account()
    {
        account_is_gone = true;
    }
};

std::array<float, 4> four_of(const std::vector<float>& values)
{
    std::array<float, 4> result{};
    std::copy_n(values.begin(), std::min(values.size(), result.size()), result.begin());
    return result;
}

// The corners of the frame taken last in the preview. The reference's homography already counts the growth that the
// preview owes it until the next key frame.
corners outline_in_preview(const TarnStitcher& task)
{
    corners outline{};
    const stitch_data& reference = task.last_check_data;
    if (reference.scaled_gray_frame.empty() || reference.homo.empty()) {
        return outline;
    }
    const points places = mapped(corners_of(reference.scaled_gray_frame.size()), reference.homo);
    const cv::Point2f owed(task.total_shift_x, task.total_shift_y);
    std::transform(places.begin(), places.end(), outline.begin(),
                   [&owed](const cv::Point2f& place) { return place - owed; });
    return outline;
}

}  // namespace

frame_account& account_of_this_thread()
{
    if (account_is_gone) {
        // The thread is ending, and its static objects still hand frames over: they share one that stays.
        static auto& last = *new frame_account;
        return last;
    }
    static thread_local owned_account owned;
    return owned.account;
}

reason reason_of(const std::exception& error)
{
    const auto* const of_opencv = dynamic_cast<const cv::Exception*>(&error);
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr
        || (of_opencv != nullptr && of_opencv->code == cv::Error::StsNoMem)) {
        return reason::no_memory;
    }
    if (dynamic_cast<const std::system_error*>(&error) != nullptr) {
        return reason::no_thread;  // nothing else that the library calls throws one
    }
    return reason::unusable_frame;
}

void note_members(frame_answer& answer, const TarnStitcher& task) noexcept
{
    answer.key_frames = task.big_frame_index;
    answer.direction = static_cast<direction_code>(task.last_direction);
    answer.angles = four_of(task.last_angles);
    answer.scales = four_of(task.last_scales);
    try {
        answer.outline = outline_in_preview(task);
    } catch (const std::exception&) {
        answer.outline = {};  // memory is short, or a host has put something else into the members
    }
}

void note_failure(frame_account& account, const std::exception& error) noexcept
{
    account.answer.taken = false;
    account.answer.placed = false;
    account.answer.why = reason_of(error);
    try {
        account.answer.detail = error.what();
    } catch (const std::exception&) {
        account.answer.detail.clear();
    }
}

}  // namespace tarn
