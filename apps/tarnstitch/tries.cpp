// SPDX-License-Identifier: Apache-2.0
//
// Try after try.
#include "tries.h"

#include <cstddef>
#include <exception>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>

#include "frame_feed.h"
#include "host_error.h"
#include "interruption.h"
#include "preview_window.h"
#include "progress.h"
#include "realtime_feed.h"
#include "size_watch.h"
#include "standard_streams.h"

namespace tarn::host {

namespace {

std::string option_that_needs_times(const options& asked)
{
    for (const char* const name : {"--start", "--end", "--fps"}) {
        if (asked.written.count(name) > 0) {
            return name;
        }
    }
    return "--realtime";
}

/// The options by which frames of the stretch asked for are left out, as they are to be dropped: "--step".
std::string thinning(const options& asked)
{
    std::string options = asked.selection.step > 1 ? "--step" : "";
    if (asked.selection.fps > 0.0) {
        options += options.empty() ? "--fps" : " and --fps";
    }
    return options;
}

frame_turn first_turn(const options& asked, const source_facts& facts)
{
    return asked.turn == turn_choice::automatic ? facts.as_recorded : turn_for(asked.turn);
}

/// With one thread decoding waits while a frame is stitched.
std::size_t frames_ahead(const options& asked)
{
    return asked.realtime || asked.threads < 2 ? 0 : 2;
}

/// The sweep, and for the finished picture what comes behind a failure of the pipeline.
void sweep_all(sweep_input& input, const sweep_settings& settings, progress_display& progress, attempt& made)
{
    made.result = run_sweep(input, settings);
    made.last_piece = made.result.outcome;
    made.pieces = {piece_of(made.result)};
    if (!made.collected || !made.result.refused) {
        return;
    }
    sweep_settings further = settings;
    further.kept_files.clear();
    further.observers = {&progress};
    if (made.frames) {
        further.observers.push_back(made.frames.get());
    }
    const bool stopped_before = stop_asked_for() != stop_kind::none;
    try {
        const sweep_rest rest = sweep_on(input, further, *made.collected, *made.result.refused);
        made.last_piece = rest.outcome;
        made.pieces.insert(made.pieces.end(), rest.pieces.begin(), rest.pieces.end());
        if (!rest.input_error.empty()) {
            made.notes.push_back("behind the failure the input broke off, and the finished picture ends there: "
                                 + rest.input_error);
        }
    } catch (const std::exception& error) {  // the first piece stays, whatever it is
        made.last_piece = sweep_outcome::pipeline_failed;
        made.notes.push_back(std::string("the sweep could not be gone on with: ") + error.what());
    }
    made.result.refused.reset();
    if (made.last_piece == sweep_outcome::given_up) {
        made.result.outcome = sweep_outcome::given_up;
    }
    made.later_interrupted = !stopped_before && stop_asked_for() == stop_kind::interrupted;
}

}  // namespace

std::unique_ptr<frame_source> tries::open() const
{
    auto source = open_frame_source(asked_.inputs, files_.left_out_of_inputs(), asked_.max_pixels);
    const source_facts& facts = source->facts();
    if (!facts.has_times && (asked_.selection.needs_times() || asked_.realtime)) {
        throw host_error(exit_code::usage,
                         option_that_needs_times(asked_) + " is for videos and cameras: images have no times");
    }
    files_.check_against_inputs(facts.files);
    return source;
}

attempt tries::best(std::unique_ptr<frame_source> source)
{
    may_go_on_ = asked_.retry && source->facts().rereadable;
    first_ = {first_turn(asked_, source->facts())};
    attempt first = make(std::move(source), first_);
    return may_go_on_ ? best_of_further(std::move(first)) : std::move(first);
}

attempt tries::make(std::unique_ptr<frame_source> source, const way& by)
{
    ++made_;
    const frame_turn turn = by.turn;
    attempt made;
    made.made_by = by;
    frame_feed feed(std::move(source), asked_.selection, turn, looked_at_, frames_ahead(asked_));
    sweep_settings settings;
    if (!asked_.keep_work.empty()) {
        settings.kept_files = made.kept_files = new_directory_for_kept_files();
    }
    if (!asked_.log.empty()) {
        settings.on_log = [](const std::string& lines) { std::cout << lines << std::flush; };
    }
    settings.direction_hint = direction_hint(asked_.direction, turn);
    settings.workers = asked_.workers;
    settings.key_frame_overlap = by.overlap;

    progress_display progress(feed.expected());
    size_watch size(turn == frame_turn::none ? feed.size().width : feed.size().height);
    settings.observers = {&progress, &size};
    if (!asked_.frames.empty()) {
        made.frames = std::make_unique<frames_file>(asked_.frames, turn, asked_.finish);
        settings.observers.push_back(made.frames.get());
    }
    if (!asked_.report.empty()) {
        made.reported = std::make_shared<report_collector>(turn, asked_.workers);
        settings.observers.push_back(made.reported.get());
    }
    std::optional<preview_window> window;
    if (asked_.show) {
        settings.observers.push_back(&window.emplace(turn));
    }
    if (asked_.finish) {
        made.collected = std::make_unique<key_frame_collector>(turn);
        settings.collector = made.collected.get();
    }
    if (asked_.realtime || feed.facts().live) {
        realtime_feed realtime(feed);
        sweep_all(realtime, settings, progress, made);
        made.lost.dropped = realtime.dropped();
    } else {
        sweep_all(feed, settings, progress, made);
    }
    made.judged = judge(made.result);
    made.lost.unreadable = feed.unreadable();
    made.frame_size = feed.size();
    made.announced = feed.facts().announced;
    made.pictures = feed.pictures();
    looked_at_ = std::max(looked_at_, made.pictures);
    made.cut_short = !feed.early_end().empty();
    for (const std::string& line : {feed.damage(), feed.early_end()}) {
        if (!line.empty()) {
            made.notes.push_back(line);
        }
    }
    return made;
}

attempt tries::best_of_further(attempt best)
{
    for (const way& other : further_ways(first_, best.result.outcome)) {
        if (!another_try_may_help(best.result, best.judged) || stop_asked_for() != stop_kind::none) {
            break;
        }
        note(why_another_try(best.result, best.judged) + "; trying once more with " + difference(first_, other));
        try {
            attempt further = make(open(), other);
            const bool stopped = stop_asked_for() != stop_kind::none;
            best.later_interrupted = further.later_interrupted = stop_asked_for() == stop_kind::interrupted;
            if (is_better(best.result, best.judged, further.result, further.judged, stopped)) {
                best = std::move(further);
            }
        } catch (const host_error& error) {
            best.later_interrupted = stop_asked_for() == stop_kind::interrupted;
            best.notes.push_back(std::string("another try could not be made: ") + error.what());
            break;
        }
    }
    return best;
}

std::optional<tried_remedy> tries::remedy(const attempt& failed) const
{
    constexpr int longest = 1000;  // frames
    frame_selection selection = asked_.selection;
    tried_remedy other;
    if (const std::string thinned_by = thinning(asked_); !thinned_by.empty()) {
        selection.step = 1;
        selection.fps = 0.0;
        other.what = "all frames, without " + thinned_by;
    } else if (const std::string start = start_of_rest(failed.result); !start.empty()) {
        selection.start = parse_time(start);
        other.what = "--start " + start + " for the part behind";
    }
    if (!may_go_on_ || failed.result.outcome != sweep_outcome::pipeline_failed || other.what.empty() || asked_.realtime
        || stop_asked_for() != stop_kind::none || many_with_code(failed.result, code_wrong_way)) {
        return std::nullopt;
    }
    try {
        frame_feed feed(open(), selection, first_.turn, looked_at_, frames_ahead(asked_));
        if (feed.expected() == 0 || feed.expected() > longest) {
            return std::nullopt;
        }
        note("trying whether another command line helps: " + other.what);
        sweep_settings settings;
        settings.direction_hint = direction_hint(asked_.direction, first_.turn);
        settings.workers = asked_.workers;
        progress_display progress(feed.expected());
        settings.observers.push_back(&progress);
        const sweep_result result = run_sweep(feed, settings);
        if (result.outcome == sweep_outcome::complete && stop_asked_for() == stop_kind::none
            && judge(result).how_good < grade::bad) {
            other.frames = result.frames;
            other.size = panorama_for_viewer(result.panorama, first_.turn).size();
            return other;
        }
    } catch (const host_error&) {  // nothing is advised
        return std::nullopt;
    }
    return std::nullopt;
}

/// For the working files of one try, until it is known which try is the better one.
std::string tries::new_directory_for_kept_files()
{
    if (!scratch_) {
        scratch_.emplace();
    }
    std::string path = scratch_->path() + std::to_string(made_);
    std::error_code error;
    if (!std::filesystem::create_directory(path, error)) {
        throw host_error(exit_code::output_failed, "cannot make a temporary directory: " + error.message());
    }
    return path;
}

}  // namespace tarn::host
