// SPDX-License-Identifier: Apache-2.0
//
// Lines and a code.
#include "conclusion.h"

#include <string>
#include <vector>

#include "finish_stage.h"
#include "interruption.h"
#include "judgement.h"
#include "panorama_verdict.h"
#include "standard_streams.h"

namespace tarn::host {

namespace {

/// Whether the finished picture makes up for a panorama that falls short.
bool finished_is_good(const run_summary& summary)
{
    return summary.finished && summary.written.finished_whole;
}

/// Whether the sweep came to its end, and neither picture shows more than its first frame.
bool is_empty_handed(const attempt& done, const run_summary& summary)
{
    return done.result.outcome == sweep_outcome::complete && !done.holds_the_sweep() && !finished_is_good(summary);
}

exit_code code_of(const attempt& done, const run_summary& summary)
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
    if (!summary.written.errors.empty()) {
        return exit_code::output_failed;
    }
    if (summary.finished && !summary.finished->error.empty()) {
        return summary.finished->code;
    }
    const bool gave_up_finishing = summary.finished && summary.finished->stopped;
    if (gave_up_finishing || stop_asked_for() == stop_kind::interrupted) {
        return exit_code::stopped;
    }
    if (is_empty_handed(done, summary)) {
        return exit_code::not_stitched;
    }
    return summary.finished && !summary.written.finished_whole ? exit_code::not_stitched : exit_code::done;
}

verdict_context context_of_verdict(const options& asked, const run_summary& summary)
{
    verdict_context context;
    context.finishing_can_be_asked_for = !asked.finish && can_finish();
    if (summary.finished) {
        context.finished_is_good = finished_is_good(summary);
    }
    return context;
}

void append(std::vector<std::string>& lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

}  // namespace

void conclude(const options& asked, const attempt& done, const std::optional<tried_remedy>& remedy,
              run_summary& summary)
{
    const sweep_result& result = done.result;
    summary.turn = done.made_by.turn;
    summary.result = result;
    summary.judged = done.judged;
    summary.frame_size = done.frame_size;
    summary.announced = done.announced;
    summary.pictures = done.pictures;
    summary.lost = done.lost;
    summary.cut_short = done.cut_short;
    summary.pieces = done.pieces;
    summary.code = code_of(done, summary);
    if (result.outcome != sweep_outcome::given_up) {
        summary.reported = done.reported;
    }
    if (result.outcome == sweep_outcome::complete) {
        summary.sentences = sentences_on(done.judged, result, context_of_verdict(asked, summary));
    }

    // What ends the program with an error is said to those, too, who want no notes.
    std::vector<std::string> errors;
    std::vector<std::string> notes;
    const bool failed =
        result.outcome == sweep_outcome::input_failed || result.outcome == sweep_outcome::pipeline_failed;
    const std::string partial = summary.written.whole ? "" : summary.written.panorama.file;
    append(failed ? errors : notes, notes_on(result, {!asked.retry, remedy, done.judged.numbers.path}, partial));
    append(is_empty_handed(done, summary) ? errors : notes, summary.sentences);
    append(errors, summary.written.errors);
    if (summary.finished) {
        append(notes, notes_on(*summary.finished));
        if (!summary.finished->error.empty()) {
            errors.push_back("there is no finished picture: " + summary.finished->error);
        }
    }
    append(notes, summary.written.warnings);
    append(notes, done.notes);
    if (const std::string line = note_on_reduction(done.frame_size, result.frame.area()); !line.empty()) {
        notes.push_back(line);
    }
    for (const std::string& line : errors) {
        say(line);
    }
    for (const std::string& line : notes) {
        note(line);
    }
    // There is one place for an error; what else went wrong is not lost.
    if (!errors.empty()) {
        summary.error = errors.front();
        notes.insert(notes.begin(), errors.begin() + 1, errors.end());
    }
    summary.notes = notes;
}

}  // namespace tarn::host
