// SPDX-License-Identifier: Apache-2.0
//
// The run, told in steps.
#include "stitching.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include <opencv2/core/utility.hpp>

#include "allocation.h"
#include "conclusion.h"
#include "finish_stage.h"
#include "frame_source.h"
#include "interruption.h"
#include "media_logs.h"
#include "metadata.h"
#include "output_file.h"
#include "output_names.h"
#include "panorama_files.h"
#include "preview_window.h"
#include "processors.h"
#include "report_page.h"
#include "resources.h"
#include "run_record.h"
#include "standard_streams.h"
#include "summary.h"
#include "tries.h"

namespace tarn::host {

namespace {

using clock = std::chrono::steady_clock;

/// Whether what a run has come to is to be written down.
bool wants_summary(const options& asked)
{
    return asked.json_summary || asked.skip_done || !asked.report.empty();
}

class run {
public:
    run(const options& asked, silenced_descriptor& library_lines, input_identities& identities, run_summary& summary)
        : asked_(asked), library_lines_(library_lines), identities_(identities), summary_(summary), files_(asked)
    {
    }

    void go()
    {
        identities_.look_at(asked_.inputs);
        tries all(asked_, files_, summary_.tries);
        std::unique_ptr<frame_source> source = all.open();
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
        const output_metadata metadata(facts);
        attempt best = all.best(std::move(source));
        const std::optional<tried_remedy> remedy = all.remedy(best);
        if (best.result.outcome != sweep_outcome::given_up) {
            write(best, metadata);
            finish(best, metadata);
        }
        conclude(asked_, best, remedy, summary_);
    }

private:
    void write(attempt& done, const output_metadata& metadata)
    {
        summary_.written = files_.write(done.result, done.holds_the_sweep(), done.made_by.turn, metadata);
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
    void finish(attempt& done, const output_metadata& metadata)
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
            files_.write_finished(finished.picture, whole, metadata, finished.view, summary_.written);
        }
        finished.picture.release();
        done.collected.reset();
    }

    const options& asked_;
    silenced_descriptor& library_lines_;
    input_identities& identities_;
    run_summary& summary_;
    const panorama_files files_;
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
    keep_freed_blocks();
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
