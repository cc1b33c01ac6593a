// SPDX-License-Identifier: Apache-2.0
//
// The run, told in steps.
#include "stitching.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "finish_stage.h"
#include "frame_feed.h"
#include "frame_source.h"
#include "frames_file.h"
#include "interruption.h"
#include "judgement.h"
#include "key_frame_collector.h"
#include "media_logs.h"
#include "metadata.h"
#include "output_file.h"
#include "panorama_files.h"
#include "panorama_verdict.h"
#include "preview_window.h"
#include "processors.h"
#include "progress.h"
#include "realtime_feed.h"
#include "report.h"
#include "report_collector.h"
#include "report_page.h"
#include "resources.h"
#include "run_record.h"
#include "scratch_directory.h"
#include "size_watch.h"
#include "standard_streams.h"
#include "summary.h"
#include "sweep.h"
#include "sweep_pieces.h"

namespace tarn::host {

namespace {

using clock = std::chrono::steady_clock;

/// Whether what a run has come to is to be written down.
bool wants_summary(const options& asked)
{
    return asked.json_summary || asked.skip_done || !asked.report.empty();
}

/// One way of stitching the input, and what came of it.
struct attempt {
    way made_by;
    sweep_result result;
    verdict judged;
    std::unique_ptr<frames_file> frames;         ///< not at its place yet
    std::shared_ptr<report_collector> reported;  ///< for the report; none if there is to be none
    std::string kept_files;                      ///< where the working files are; "" if they are not kept
    cv::Size frame_size;
    int announced = 0;
    int pictures = 0;
    lost_frames lost;
    std::vector<std::string> notes;  ///< on the input
    bool cut_short = false;
    bool later_interrupted = false;                  ///< whether Ctrl-C came in a further try, be it this one or not
    std::unique_ptr<key_frame_collector> collected;  ///< for the finished picture; none if there is to be none
    sweep_outcome last_piece = sweep_outcome::complete;  ///< how the sweep ended that went on behind a failure
    std::vector<sweep_piece> pieces;                     ///< the sweep, and what went on behind a failure

    /// Whether the panorama may take the place of an earlier one: it reaches to the end, and shows more than one frame.
    bool holds_the_sweep() const
    {
        return result.outcome == sweep_outcome::complete && judged.how_good != grade::nothing;
    }
};

class run {
public:
    run(const options& asked, silenced_descriptor& library_lines, input_identities& identities, run_summary& summary)
        : asked_(asked), library_lines_(library_lines), identities_(identities), summary_(summary), files_(asked)
    {
    }

    void go()
    {
        identities_.look_at(asked_.inputs);
        std::unique_ptr<frame_source> source = open();
        const source_facts facts = source->facts();
        if (asked_.skip_done && is_done(asked_, files_.panorama(), facts.files, summary_.earlier)) {
            note("nothing to do: " + files_.panorama() + " has been made of the same input with the same options");
            return;
        }
        files_.check_places();
        if (wants_summary(asked_)) {
            identities_.begin(facts.files, asked_.threads > 1);
        }
        if (!asked_.log.empty()) {
            // Only now: opening it empties it, and it might have been one of the files that the checks protect.
            library_lines_.send_to(asked_.log);
        }
        metadata_.emplace(facts);
        const way first = {first_turn(facts)};
        attempt best = make_attempt(std::move(source), first);
        if (asked_.retry && facts.rereadable) {
            best = best_of_tries(std::move(best));
        }
        if (best.result.outcome == sweep_outcome::pipeline_failed && asked_.retry && facts.rereadable) {
            look_for_remedy(best, first);
        }
        if (best.result.outcome != sweep_outcome::given_up) {
            write(best);
            finish(best);
        }
        conclude(best);
    }

private:
    std::unique_ptr<frame_source> open() const
    {
        auto source = open_frame_source(asked_.inputs, files_.left_out_of_inputs(), asked_.max_pixels);
        const source_facts& facts = source->facts();
        if (!facts.has_times && (asked_.selection.needs_times() || asked_.realtime)) {
            throw host_error(exit_code::usage,
                             option_that_needs_times() + " is for videos and cameras: images have no times");
        }
        files_.check_against_inputs(facts.files);
        return source;
    }

    std::string option_that_needs_times() const
    {
        for (const char* const name : {"--start", "--end", "--fps"}) {
            if (asked_.written.count(name) > 0) {
                return name;
            }
        }
        return "--realtime";
    }

    /// The options by which frames of the stretch asked for are left out, as they are to be dropped: "--step".
    std::string thinning() const
    {
        std::string options = asked_.selection.step > 1 ? "--step" : "";
        if (asked_.selection.fps > 0.0) {
            options += options.empty() ? "--fps" : " and --fps";
        }
        return options;
    }

    frame_turn first_turn(const source_facts& facts) const
    {
        return asked_.turn == turn_choice::automatic ? facts.as_recorded : turn_for(asked_.turn);
    }

    attempt make_attempt(std::unique_ptr<frame_source> source, const way& by)
    {
        ++summary_.tries;
        const frame_turn turn = by.turn;
        attempt made;
        made.made_by = by;
        // With one thread decoding waits while a frame is stitched.
        const std::size_t frames_ahead = asked_.realtime || asked_.threads < 2 ? 0 : 2;
        frame_feed feed(std::move(source), asked_.selection, turn, looked_at_, frames_ahead);
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

    /// The sweep, and for the finished picture what comes behind a failure of the pipeline.
    static void sweep_all(sweep_input& input, const sweep_settings& settings, progress_display& progress, attempt& made)
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

    /// Further tries, as long as they may help and there are ways left. The best of all; the first where no other can be
    /// made.
    attempt best_of_tries(attempt best)
    {
        const way first = best.made_by;
        for (const way& other : further_ways(first, best.result.outcome)) {
            if (!another_try_may_help(best.result, best.judged) || stop_asked_for() != stop_kind::none) {
                break;
            }
            note(why_another_try(best.result, best.judged) + "; trying once more with " + difference(first, other));
            try {
                attempt further = make_attempt(open(), other);
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

    /// Where no way of stitching the sweep has helped: tries the other command line that may give more, so that nothing
    /// is advised that fails as well. Nothing but its size is kept. One that would take long is not tried.
    /// @param first  the way in which another command line would begin as well
    void look_for_remedy(const attempt& failed, const way& first)
    {
        constexpr int longest = 1000;  // frames
        frame_selection selection = asked_.selection;
        tried_remedy remedy;
        if (const std::string thinned_by = thinning(); !thinned_by.empty()) {
            selection.step = 1;
            selection.fps = 0.0;
            remedy.what = "all frames, without " + thinned_by;
        } else if (const std::string start = start_of_rest(failed.result); !start.empty()) {
            selection.start = parse_time(start);
            remedy.what = "--start " + start + " for the part behind";
        }
        if (remedy.what.empty() || asked_.realtime || stop_asked_for() != stop_kind::none
            || many_with_code(failed.result, code_wrong_way)) {
            return;
        }
        try {
            frame_feed feed(open(), selection, first.turn, looked_at_, asked_.threads < 2 ? 0 : 2);
            if (feed.expected() == 0 || feed.expected() > longest) {
                return;
            }
            note("trying whether another command line helps: " + remedy.what);
            sweep_settings settings;
            settings.direction_hint = direction_hint(asked_.direction, first.turn);
            settings.workers = asked_.workers;
            progress_display progress(feed.expected());
            settings.observers.push_back(&progress);
            const sweep_result result = run_sweep(feed, settings);
            if (result.outcome == sweep_outcome::complete && stop_asked_for() == stop_kind::none
                && judge(result).how_good < grade::bad) {
                remedy.frames = result.frames;
                remedy.size = panorama_for_viewer(result.panorama, first.turn).size();
                remedy_ = remedy;
            }
        } catch (const host_error&) {  // nothing is advised
            return;
        }
    }

    /// For the working files of one try, until it is known which try is the better one.
    std::string new_directory_for_kept_files()
    {
        if (!scratch_) {
            scratch_.emplace();
        }
        std::string path = scratch_->path() + std::to_string(summary_.tries);
        std::error_code error;
        if (!std::filesystem::create_directory(path, error)) {
            throw host_error(exit_code::output_failed, "cannot make a temporary directory: " + error.message());
        }
        return path;
    }

    void write(attempt& done)
    {
        summary_.written = files_.write(done.result, done.holds_the_sweep(), done.made_by.turn, *metadata_);
        try {
            if (done.frames) {
                done.frames->finish();
            }
        } catch (const host_error& error) {
            summary_.written.errors.emplace_back(error.what());
        }
        try {
            if (!done.kept_files.empty()) {
                files_.keep_working_files(done.kept_files, done.result);
            }
        } catch (const host_error& error) {
            summary_.written.errors.emplace_back(error.what());
        }
    }

    /// Makes the finished picture, once all else is written.
    void finish(attempt& done)
    {
        if (!done.collected) {
            return;
        }
        finished_picture& finished = summary_.finished.emplace();
        try {
            finished = finish_sweep(*done.collected, asked_);
        } catch (const std::bad_alloc&) {  // all else is written, and is to be told of
            finished.error = "there is not enough memory";
            finished.code = exit_code::short_of_means;
        } catch (const std::exception& error) {
            finished.error = error.what();
        }
        if (!finished.picture.empty()) {
            const bool whole = done.last_piece == sweep_outcome::complete && finished.reaches_the_end
                               && shows_more_than_a_frame(finished, finished.picture.size(), done.frame_size);
            files_.write_finished(finished.picture, whole, *metadata_, finished.view, summary_.written);
        }
        finished.picture.release();
        done.collected.reset();
    }

    /// Whether the finished picture makes up for a panorama that falls short.
    bool finished_is_good() const
    {
        return summary_.finished && summary_.written.finished_whole;
    }

    verdict_context context_of_verdict() const
    {
        verdict_context context;
        context.finishing_can_be_asked_for = !asked_.finish && can_finish();
        if (summary_.finished) {
            context.finished_is_good = finished_is_good();
        }
        return context;
    }

    /// What the sweep came to, in lines: those without which the end of the program could not be understood, and others.
    struct told_lines {
        std::vector<std::string> errors;
        std::vector<std::string> notes;
    };

    told_lines lines_on(const attempt& done) const
    {
        const sweep_result& result = done.result;
        told_lines lines;
        const std::string partial = summary_.written.whole ? "" : summary_.written.panorama.file;
        std::vector<std::string> on_sweep =
            notes_on(result, {!asked_.retry, remedy_, done.judged.numbers.path}, partial);
        // What ends the program with an error is said to those, too, who want no notes.
        const bool failed =
            result.outcome == sweep_outcome::input_failed || result.outcome == sweep_outcome::pipeline_failed;
        (failed ? lines.errors : lines.notes) = std::move(on_sweep);
        std::vector<std::string>& of_verdict = is_empty_handed(done) ? lines.errors : lines.notes;
        of_verdict.insert(of_verdict.end(), summary_.sentences.begin(), summary_.sentences.end());
        return lines;
    }

    /// Says what there is to say and settles the exit code.
    void conclude(const attempt& done)
    {
        const std::vector<std::string>& write_errors = summary_.written.errors;
        summary_.turn = done.made_by.turn;
        summary_.result = done.result;
        summary_.judged = done.judged;
        summary_.frame_size = done.frame_size;
        summary_.announced = done.announced;
        summary_.pictures = done.pictures;
        summary_.lost = done.lost;
        summary_.cut_short = done.cut_short;
        if (done.result.outcome != sweep_outcome::given_up) {
            summary_.reported = done.reported;
        }
        summary_.pieces = done.pieces;
        summary_.code = code_of(done);
        if (done.result.outcome == sweep_outcome::complete) {
            summary_.sentences = sentences_on(done.judged, done.result, context_of_verdict());
        }

        told_lines lines = lines_on(done);
        for (const std::string& line : write_errors) {
            say(line);
        }
        for (const std::string& line : lines.errors) {
            say(line);
        }
        for (const std::string& line : lines.notes) {
            note(line);
        }
        // There is one place for an error; what else went wrong is not lost.
        lines.errors.insert(lines.errors.end(), write_errors.begin(), write_errors.end());
        std::vector<std::string>& notes = lines.notes;
        if (!lines.errors.empty()) {
            summary_.error = lines.errors.front();
            notes.insert(notes.begin(), lines.errors.begin() + 1, lines.errors.end());
        }
        if (summary_.finished) {
            for (const std::string& line : notes_on(*summary_.finished)) {
                note(line);
                notes.push_back(line);
            }
            if (!summary_.finished->error.empty()) {
                const std::string line = "there is no finished picture: " + summary_.finished->error;
                say(line);
                if (summary_.error.empty()) {
                    summary_.error = line;
                }
            }
        }
        std::vector<std::string> asides = summary_.written.warnings;
        asides.insert(asides.end(), done.notes.begin(), done.notes.end());
        if (const std::string line = note_on_reduction(done.frame_size, done.result.frame.area()); !line.empty()) {
            asides.push_back(line);
        }
        for (const std::string& line : asides) {
            note(line);
        }
        notes.insert(notes.end(), asides.begin(), asides.end());
        summary_.notes = notes;
    }

    /// Whether the sweep came to its end, and neither picture shows more than its first frame.
    bool is_empty_handed(const attempt& done) const
    {
        return done.result.outcome == sweep_outcome::complete && !done.holds_the_sweep() && !finished_is_good();
    }

    exit_code code_of(const attempt& done) const
    {
        switch (done.result.outcome) {
        case sweep_outcome::input_failed:
            return exit_code::input_failed;
        case sweep_outcome::pipeline_failed:
            // A second try left to itself might have come to a better end: it is the user's stop that settled this.
            return done.later_interrupted ? exit_code::stopped : code_of_failure(done.result.why);
        case sweep_outcome::given_up:
            return exit_code::stopped;
        case sweep_outcome::complete:
            break;
        }
        if (!summary_.written.errors.empty()) {
            return exit_code::output_failed;
        }
        if (summary_.finished && !summary_.finished->error.empty()) {
            return summary_.finished->code;
        }
        const bool gave_up_finishing = summary_.finished && summary_.finished->stopped;
        if (gave_up_finishing || stop_asked_for() == stop_kind::interrupted) {
            return exit_code::stopped;
        }
        if (is_empty_handed(done)) {
            return exit_code::not_stitched;
        }
        return summary_.finished && !summary_.written.finished_whole ? exit_code::not_stitched : exit_code::done;
    }

    const options& asked_;
    silenced_descriptor& library_lines_;
    input_identities& identities_;
    run_summary& summary_;
    const panorama_files files_;
    std::optional<scratch_directory> scratch_;  ///< for working files that are to be kept
    int looked_at_ = 0;                         ///< pictures, in the tries so far
    std::optional<output_metadata> metadata_;
    std::optional<tried_remedy> remedy_;  ///< of a sweep that failed
};

/// Makes sure, as far as that can be known before, that the summary can be written, and alone.
void check_summary_place(const options& asked)
{
    if (!has_standard_output()) {
        throw host_error(exit_code::output_failed, "cannot write the summary to standard output: it is closed");
    }
    for (const named_output& output : named_outputs(asked)) {
        if (is_standard_output(output.file)) {
            throw host_error(exit_code::usage, "--json and " + output.what + " cannot both write to " + output.file
                                                   + ": standard output is the summary's");
        }
    }
}

/// With the numbers that are used: threads for the processors that the program was given, or fewer, and the workers
/// that suit these. More threads than processors would gain nothing, and OpenCV's would complain of it.
options with_numbers(options asked)
{
    const int processors = processors_given();
    asked.threads = asked.threads > 0 ? std::min(asked.threads, processors) : processors;
    asked.workers = asked.workers > 0 ? asked.workers : default_workers(asked.threads);
    return asked;
}

/// What the input was, by now read through; and a word on what is not any more what it was.
void take_identities(input_identities& identities, run_summary& summary)
{
    std::vector<std::string> changed;
    summary.input_files = identities.take(changed);
    for (const std::string& file : changed) {
        summary.notes.push_back(file + " was changed while it was read");
        note(summary.notes.back());
    }
}

/// Leaves the record for a later run: last of all, so that it tells of outputs that are whole.
void leave_record(const options& asked, run_summary& summary)
{
    const std::string text = summary_as_json(summary, asked);
    try {
        write_whole_file(record_place(summary.written.panorama.file), {text.begin(), text.end()});
    } catch (const host_error& error) {
        summary.code = error.code();
        summary.error = error.what();
        say(summary.error);
    }
}

/// Writes the report, with the summary as it stands. Where it cannot be written, the summary tells of that instead.
void leave_report(const options& asked, run_summary& summary)
{
    try {
        summary.report = asked.report;
        write_report(summary, asked);
        if (!summary.outputs.empty()) {
            summary.outputs.push_back(identity_of_report(asked.report));
        }
        note("the report is in " + asked.report);
    } catch (const std::exception& error) {
        const auto* const known = dynamic_cast<const host_error*>(&error);
        const std::string line =
            known != nullptr ? error.what() : "cannot make the report: " + std::string(error.what());
        say(line);
        summary.report.clear();
        summary.code = summary.code == exit_code::done ? exit_code::output_failed : summary.code;
        summary.error = summary.error.empty() ? line : summary.error;
    }
}

/// Runs, with what libraries print kept away from standard output.
void run_apart(const options& asked, input_identities& identities, run_summary& summary)
{
    silenced_descriptor library_lines(STDOUT_FILENO);
    try {
        if (asked.finish) {
            check_finishing();
        }
        if (asked.show) {
            check_display();
        }
        check_resources(asked.threads, asked.workers);
        run(asked, library_lines, identities, summary).go();
    } catch (const host_error& error) {
        summary.code = error.code();
        summary.error = error.what();
        say(summary.error);
    } catch (const std::bad_alloc&) {
        summary.code = exit_code::short_of_means;
        summary.error = "there is not enough memory";
        say(summary.error);
    } catch (const std::exception& error) {
        summary.code = exit_code::not_stitched;
        summary.error = std::string("unexpected error: ") + error.what();
        say(summary.error);
    }
    if (!std::cout.flush() && !asked.log.empty()) {
        say("cannot write " + asked.log + " to its end");
        summary.code = summary.code == exit_code::done ? exit_code::output_failed : summary.code;
    }
    std::cout.clear();
}

}  // namespace

exit_code stitch(const options& given)
{
    const clock::time_point begun = clock::now();
    const options asked = with_numbers(given);
    cv::setNumThreads(asked.threads);
    silence_media_logs();
    if (asked.quiet) {
        be_quiet();
    }
    run_summary summary;
    summary.threads = asked.threads;
    if (asked.json_summary) {
        check_summary_place(asked);
    }
    input_identities identities;
    run_apart(asked, identities, summary);
    summary.seconds = std::chrono::duration<double>(clock::now() - begun).count();
    if (summary.result.frames > 0) {
        note(summary_line(summary.result, summary.written, summary.lost, summary.pieces, summary.seconds));
    }
    summary.peak_memory = peak_memory();
    const std::string& panorama = summary.written.panorama.file;
    if (wants_summary(asked) && !panorama.empty()) {
        summary.outputs = outputs_of(asked, panorama, summary.written.preview.file, summary.written.finished.file);
    }
    const bool recorded = asked.skip_done && summary.code == exit_code::done && summary.earlier.empty();
    if (recorded || summary.reported || asked.json_summary) {
        take_identities(identities, summary);
    }
    if (summary.reported && summary.result.frames > 0) {
        leave_report(asked, summary);
    }
    // What a stop has shortened, by a key in the window too, may be made whole by another run.
    // And no record tells of a panorama that is under its partial name, since a finished picture made up for it.
    if (recorded && summary.written.whole && summary.code == exit_code::done && stop_asked_for() == stop_kind::none) {
        leave_record(asked, summary);
    }
    if (asked.json_summary) {
        std::cout << (summary.earlier.empty() ? summary_as_json(summary, asked) : summary.earlier) << std::flush;
        if (!std::cout) {
            say("cannot write the summary to standard output");
            return summary.code == exit_code::done ? exit_code::output_failed : summary.code;
        }
    }
    return summary.code;
}

}  // namespace tarn::host
