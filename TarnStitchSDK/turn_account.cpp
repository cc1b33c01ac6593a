// SPDX-License-Identifier: Apache-2.0
#include "internal/turn_account.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>

namespace tarn {

namespace {

// Guarded by lock_turns().
struct turn_account {
    task_generation generation = 0;
    std::vector<worker_turn> turns;  ///< [i]: key frame i + 1; one that has not begun is without a number
};

// Never destroyed: a worker may outlive the bounded wait at the process's end.
turn_account& account()
{
    static auto& all = *new turn_account;
    return all;
}

worker_turn::instant& at(worker_turn& turn, turn_point point)
{
    switch (point) {
    case turn_point::prepared:
        return turn.prepared;
    case turn_point::taken:
        return turn.taken;
    case turn_point::registered:
        return turn.registered;
    case turn_point::ended:
        return turn.ended;
    case turn_point::begun:
        break;
    }
    return turn.begun;
}

}  // namespace

void note_turn(task_generation generation, int key_frame, turn_point point) noexcept
{
    try {
        const worker_turn::instant now = std::chrono::steady_clock::now();
        const auto lock = lock_turns();
        turn_account& noted = account();
        if (generation < noted.generation || key_frame < 1) {
            return;
        }
        if (generation > noted.generation) {
            noted.turns.clear();
            noted.generation = generation;
        }
        const auto number = static_cast<std::size_t>(key_frame);
        noted.turns.resize(std::max(noted.turns.size(), number));
        worker_turn& turn = noted.turns[number - 1];
        turn.key_frame = key_frame;
        at(turn, point) = now;
    } catch (const std::exception&) {  // no sweep fails for want of its account
    }
}

std::vector<worker_turn> turns_of(task_generation generation)
{
    const auto lock = lock_turns();
    const turn_account& noted = account();
    std::vector<worker_turn> begun;
    if (generation == noted.generation) {
        std::copy_if(noted.turns.begin(), noted.turns.end(), std::back_inserter(begun),
                     [](const worker_turn& turn) { return turn.key_frame > 0; });
    }
    return begun;
}

}  // namespace tarn
