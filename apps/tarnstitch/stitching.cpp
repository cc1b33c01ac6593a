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
    frame_turn turn = frame_turn::counter_clockwise;
    sweep_result result;
    std::unique_ptr<frames_file> frames;         ///< not at its place yet
    std::shared_ptr<report_collector> reported;  ///< for the report; none if there is to be none
    std::string kept_files;                      ///< where the working files are; "" if they are not kept
    cv::Size frame_size;
    int announced = 0;
    int pictures = 0;
    lost_frames lost;
    std::vector<std::string> notes;  ///< on the input
    bool cut_short = false;
    bool second_interrupted = false;                 ///< whether Ctrl-C came in the second try, be it this one or not
    std::unique_ptr<key_frame_collector> collected;  ///< for the finished picture; none if there is to be none
    sweep_outcome last_piece = sweep_outcome::complete;  ///< how the sweep ended that went on behind a failure
    std::vector<sweep_piece> pieces;                     ///< the sweep, and what went on behind a failure
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
        attempt best = make_attempt(std::move(source), first_turn(facts));
        if (asked_.retry && facts.rereadable && second_try_may_help(best.result)
            && stop_asked_for() == stop_kind::none) {
            best = better(std::move(best));
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

    attempt make_attempt(std::unique_ptr<frame_source> source, frame_turn turn)
    {
        ++summary_.tries;
        turns_.push_back(turn);
        attempt made;
        made.turn = turn;
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

        progress_display progress(feed.expected());
        settings.observers.push_back(&progress);
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
        made.second_interrupted = !stopped_before && stop_asked_for() == stop_kind::interrupted;
    }

    /// A second try with the frames turned the other way: features are found, described and matched anew, and what
    /// did not fit one way may fit the other. The better of the two; the first when the second cannot be made.
    attempt better(attempt first)
    {
        const frame_turn turn = other_turn(first.turn);
        note("the sweep cannot be stitched beyond frame " + std::to_string(reach_of(first.result))
             + "; trying once more with the frames turned " + turn_name(turn));
        try {
            attempt second = make_attempt(open(), turn);
            const bool stopped = stop_asked_for() != stop_kind::none;
            first.second_interrupted = second.second_interrupted = stop_asked_for() == stop_kind::interrupted;
            return second_is_better(first.result, second.result, stopped) ? std::move(second) : std::move(first);
        } catch (const host_error& error) {
            first.second_interrupted = stop_asked_for() == stop_kind::interrupted;
            first.notes.push_back(std::string("the second try could not be made: ") + error.what());
            return first;
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
        summary_.written = files_.write(done.result, done.turn, *metadata_);
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
            const bool whole = done.last_piece == sweep_outcome::complete && finished.reaches_the_end;
            files_.write_finished(finished.picture, whole, *metadata_, finished.view, summary_.written);
        }
        finished.picture.release();
        done.collected.reset();
    }

    /// Says what there is to say and settles the exit code.
    void conclude(const attempt& done)
    {
        const sweep_result& result = done.result;
        const std::vector<std::string>& errors = summary_.written.errors;
        summary_.turn = done.turn;
        summary_.result = result;
        summary_.frame_size = done.frame_size;
        summary_.announced = done.announced;
        summary_.pictures = done.pictures;
        summary_.lost = done.lost;
        summary_.cut_short = done.cut_short;
        if (result.outcome != sweep_outcome::given_up) {
            summary_.reported = done.reported;
        }
        summary_.pieces = done.pieces;
        summary_.code = code_of(done);

        const std::string partial = summary_.written.whole ? "" : summary_.written.panorama.file;
        std::vector<std::string> notes = notes_on(result, {turns_, thinning()}, partial);
        for (const std::string& line : errors) {
            say(line);
        }
        // What ends the program with an error is said to those, too, who want no notes.
        const bool failed =
            result.outcome == sweep_outcome::input_failed || result.outcome == sweep_outcome::pipeline_failed;
        for (const std::string& line : notes) {
            failed ? say(line) : note(line);
        }
        if (failed) {
            summary_.error = notes.front();
            notes.erase(notes.begin());
        } else if (!errors.empty()) {
            summary_.error = errors.front();
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
        // There is one place for an error; what else went wrong is not lost.
        notes.insert(notes.begin(), errors.begin() + (failed || errors.empty() ? 0 : 1), errors.end());
        std::vector<std::string> asides = summary_.written.warnings;
        asides.insert(asides.end(), done.notes.begin(), done.notes.end());
        for (const std::string& line : asides) {
            note(line);
        }
        notes.insert(notes.end(), asides.begin(), asides.end());
        summary_.notes = notes;
    }

    exit_code code_of(const attempt& done) const
    {
        switch (done.result.outcome) {
        case sweep_outcome::input_failed:
            return exit_code::input_failed;
        case sweep_outcome::pipeline_failed:
            // A second try left to itself might have come to a better end: it is the user's stop that settled this.
            return done.second_interrupted ? exit_code::stopped : code_of_failure(done.result.why);
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
        return summary_.finished && !summary_.written.finished_whole ? exit_code::not_stitched : exit_code::done;
    }

    const options& asked_;
    silenced_descriptor& library_lines_;
    input_identities& identities_;
    run_summary& summary_;
    const panorama_files files_;
    std::optional<scratch_directory> scratch_;  ///< for working files that are to be kept
    int looked_at_ = 0;                         ///< pictures, in the tries so far
    std::vector<frame_turn> turns_;             ///< of the frames, try by try
    std::optional<output_metadata> metadata_;
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
        note(summary_line(summary.result, summary.written, summary.lost, summary.seconds));
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
    if (recorded && summary.code == exit_code::done && stop_asked_for() == stop_kind::none) {
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
