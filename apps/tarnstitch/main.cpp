// SPDX-License-Identifier: Apache-2.0
//
// tarnstitch: stitches a recorded sweep with the library, as a camera application would live.
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "frame_feed.h"
#include "frame_source.h"
#include "frame_turn.h"
#include "host_error.h"
#include "interruption.h"
#include "options.h"
#include "output_file.h"
#include "panorama_files.h"
#include "report.h"
#include "scratch_directory.h"
#include "standard_streams.h"
#include "sweep.h"

using namespace tarn::host;

namespace {

std::unique_ptr<frame_source> open_input(const options& asked, const panorama_files& files)
{
    source_settings settings;
    settings.upright = !asked.sensor_orientation;
    if (asked.output.empty()) {
        // A second run in a directory of images must not take the first one's panorama for a frame.
        settings.left_out = {files.panorama, files.partial};
    }
    auto source = open_frame_source(asked.input, settings);
    files.check_against_inputs(source->files());
    return source;
}

exit_code stitch(const options& asked)
{
    const auto start = std::chrono::steady_clock::now();
    const silenced_descriptor library_log_lines(STDOUT_FILENO);
    silence_media_logs();

    const panorama_files files(asked.input, asked.output, asked.preview);
    const frame_turn turn = asked.sensor_orientation ? frame_turn::none : frame_turn::counter_clockwise;
    frame_feed feed(open_input(asked, files), turn);
    files.check_places();

    sweep_settings settings;
    const scratch_directory scratch;
    settings.working_directory = scratch.path();
    settings.direction_hint = direction_hint(asked.direction, turn);
    settings.workers = asked.workers > 0 ? asked.workers : default_workers();
    sweep_result result = run_sweep(feed, settings);
    result.preview = preview_for_viewer(result.preview, turn);

    const written_files written = files.write(result);
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    for (const std::string& line : written.errors) {
        say(line);
    }
    for (const std::string& line : notes_on(result, written.partial)) {
        say(line);
    }
    if (!feed.early_end().empty()) {
        say(feed.early_end());
    }
    say(summary_line(result, feed.unreadable(), spent.count()));

    if (result.outcome == sweep_outcome::input_failed) {
        return exit_code::input_failed;
    }
    if (result.outcome == sweep_outcome::pipeline_failed) {
        return exit_code::not_stitched;
    }
    return written.errors.empty() ? exit_code::done : exit_code::output_failed;
}

exit_code run(int argc, char** argv)
{
    const options asked = parse_options(argc, argv);
    if (asked.help || asked.version) {
        std::cout << (asked.help ? help_text() : version_text()) << std::flush;
        return std::cout ? exit_code::done : exit_code::output_failed;
    }
    return stitch(asked);
}

}  // namespace

int main(int argc, char** argv)
{
    exit_code code = exit_code::not_stitched;
    try {
        open_standard_descriptors();
        watch_for_interruption();
        code = run(argc, argv);
    } catch (const host_error& error) {
        say(error.what());
        code = error.code();
    } catch (const std::exception& error) {
        say(std::string("unexpected error: ") + error.what());
    }
    return static_cast<int>(code);
}
