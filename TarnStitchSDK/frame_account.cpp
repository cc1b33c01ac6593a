// SPDX-License-Identifier: Apache-2.0
#include "internal/frame_account.h"

#include <new>
#include <system_error>

namespace tarn {

namespace {

// Needs no destruction itself, so that it tells of the account's.
thread_local bool account_is_gone = false;

struct owned_account {
    frame_account account;

    ~owned_account()
    {
        account_is_gone = true;
    }
};

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
