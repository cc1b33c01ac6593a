// SPDX-License-Identifier: Apache-2.0
//
// Piece after piece.
#include "sweep_pieces.h"

#include <deque>
#include <optional>
#include <utility>

#include "interruption.h"

namespace tarn::host {

namespace {

/// Some frames, and then those of an input.
class resumed_input : public sweep_input {
public:
    resumed_input(std::deque<feed_frame> first, sweep_input& rest) : first_(std::move(first)), rest_(rest)
    {
    }

    bool next(feed_frame& frame) override
    {
        if (first_.empty()) {
            return rest_.next(frame);
        }
        frame = std::move(first_.front());
        first_.pop_front();
        return true;
    }

private:
    std::deque<feed_frame> first_;
    sweep_input& rest_;
};

}  // namespace

sweep_piece piece_of(const sweep_result& result)
{
    return {result.frames, result.taken, result.by_code, result.key_frames};
}

later_pieces behind_first(const std::vector<sweep_piece>& pieces)
{
    later_pieces sum;
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        const sweep_piece& one = pieces[i];
        ++sum.pieces;
        sum.frames += one.frames - one.taken_before;
        sum.taken += one.taken - one.taken_before;
    }
    return sum;
}

sweep_rest sweep_on(sweep_input& input, const sweep_settings& settings, key_frame_collector& collector,
                    const feed_frame& refused)
{
    std::optional<feed_frame> at = refused;
    sweep_rest rest_of_sweep;
    sweep_outcome& outcome = rest_of_sweep.outcome;
    while (outcome == sweep_outcome::pipeline_failed && at && stop_asked_for() == stop_kind::none) {
        std::deque<feed_frame> first = {*at};
        int taken_before = 0;
        if (std::optional<feed_frame> taken = collector.begin_piece();
            taken && taken->stamp.number != at->stamp.number) {
            first.push_front(*std::move(taken));
            taken_before = 1;
        }
        for (sweep_observer* const observer : settings.observers) {
            observer->piece_begins();
        }
        resumed_input rest(std::move(first), input);
        const sweep_result piece = run_sweep(rest, settings);
        rest_of_sweep.pieces.push_back(piece_of(piece));
        rest_of_sweep.pieces.back().taken_before = taken_before;
        rest_of_sweep.input_error = piece.input_error;
        outcome = piece.outcome;
        // A frame with which the library fails at once again is left out.
        const bool again = piece.refused && piece.refused->stamp.number == at->stamp.number;
        at = piece.refused;
        if (again && !at->last) {
            feed_frame next;
            at = input.next(next) ? std::optional(next) : std::nullopt;
            outcome = at ? outcome : sweep_outcome::complete;
        } else if (again) {
            outcome = sweep_outcome::complete;
        }
    }
    return rest_of_sweep;
}

}  // namespace tarn::host
