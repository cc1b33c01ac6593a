// SPDX-License-Identifier: Apache-2.0
//
// Entering packets, crossing out pictures.
#include "picture_ledger.h"

#include <algorithm>

namespace tarn::host {

std::int64_t picture_ledger::enter(std::int64_t shown, std::int64_t decoded)
{
    if (decoded != no_time) {
        part_ += last_decoded_ != no_time && decoded < last_decoded_ ? 1 : 0;
        last_decoded_ = decoded;
    }
    const std::int64_t serial = next_serial_++;
    const std::int64_t time = shown != no_time ? shown : decoded;
    has_times_ = has_times_ || shown != no_time;
    const place at = {part_, time, serial, shown != no_time};
    places_.emplace(serial, at);
    expected_.insert(at);
    ++entered_;
    return serial;
}

std::int64_t picture_ledger::add(std::int64_t shown, std::int64_t decoded)
{
    return enter(shown, decoded);
}

void picture_ledger::add_repeat(std::int64_t shown, std::int64_t decoded)
{
    repeats_.insert(enter(shown, decoded));
}

void picture_ledger::trouble()
{
    last_trouble_ = next_serial_ - 1;
}

picture_ledger::entry picture_ledger::take(std::int64_t serial, bool key)
{
    const auto found = places_.find(serial);
    auto end = expected_.end();
    if (!has_times_ || (found != places_.end() && !found->second.timed)) {
        end = std::find_if(expected_.begin(), expected_.end(),
                           [this](const place& one) { return repeats_.count(one.serial) == 0; });
    } else if (found != places_.end()) {
        end = expected_.find(found->second);
    }
    if (end == expected_.end()) {
        return {++number_, no_time, false};  // a decoder's second picture of a packet
    }
    const place at = *end;
    int absent = 0;
    int repeats = 0;
    for (auto passed = expected_.begin(); passed != end; passed = expected_.erase(passed)) {
        (repeats_.erase(passed->serial) > 0 ? repeats : absent) += 1;
        places_.erase(passed->serial);
    }
    expected_.erase(end);
    places_.erase(at.serial);

    if (resuming_) {
        number_ += absent;
        resuming_ = false;
    } else if (last_trouble_ >= 0) {
        number_ += absent;
        missing_ += absent;
    } else {
        uncounted_ += absent;
    }
    number_ += repeats + 1;
    if (key && serial > last_trouble_) {
        last_trouble_ = -1;
    }
    const bool after_jump = at.part != part_of_last_;
    part_of_last_ = at.part;
    return {number_, at.time, after_jump};
}

void picture_ledger::finish()
{
    repeats_at_end_ = static_cast<int>(repeats_.size());
    if (last_trouble_ >= 0) {
        missing_ += static_cast<int>(expected_.size() - repeats_.size());
    }
    places_.clear();
    expected_.clear();
    repeats_.clear();
}

void picture_ledger::resume(int before)
{
    finish();
    missing_ = 0;
    uncounted_ = 0;
    repeats_at_end_ = 0;
    last_trouble_ = -1;
    last_decoded_ = no_time;
    part_ = part_of_last_ = 0;
    number_ = entered_ = before;
    resuming_ = true;
}

}  // namespace tarn::host
