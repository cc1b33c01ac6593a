// SPDX-License-Identifier: Apache-2.0
//
// What every call of the live path has around it, whoever makes it.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>

#include "worker_life.h"
#include "worker_pool.h"

namespace tarn {

/// The parts of call_live_path that do not depend on the work.
std::int64_t begin_live_call();
void note_refused_live_call();
void note_failed_live_call(const std::exception& error);
double end_live_call(std::int64_t begun);

/// Does `work`, which hands a frame to the live path. What it throws is logged, noted in the account of this thread
/// (frame_account.h), and leaves the stitcher ready for the next frame. Logs the time spent.
/// @returns that time, in milliseconds; none where the frame is not admitted (call_inside): nothing is done then, and
///          the account says that it was refused
template <typename Work>
std::optional<double> call_live_path(const Work& work)
{
    const std::int64_t begun = begin_live_call();
    std::optional<call_inside> inside;  // until all is noted and logged
    try {
        inside.emplace(construct_what_workers_use);
        if (!inside->is_admitted()) {
            note_refused_live_call();
            return std::nullopt;
        }
        work();
    } catch (const std::exception& error) {
        note_failed_live_call(error);
    }
    return end_live_call(begun);
}

}  // namespace tarn
