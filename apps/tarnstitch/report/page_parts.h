// SPDX-License-Identifier: Apache-2.0
//
// The parts of a report's page in the terms of its templates.
#pragma once

#include <kainjow/mustache.hpp>

#include "options.h"
#include "report_break.h"
#include "report_plots.h"
#include "summary.h"

namespace tarn::host {

/// What a template's names stand for.
using template_data = kainjow::mustache::data;

/// The names "plots", "lanes", "ticks", "workers" and what goes with them, for plot.svg, lanes.svg and workers.svg.
void add_plots(template_data& page, const report_collector& collected, const sweep_result& result);

/// The curves' points with the frames' numbers, as JSON for the page's script.
std::string curves_as_json(const std::vector<plot>& plots);

/// The preview with its outlines, for strip.svg; nothing where there is no preview.
void add_strip(template_data& page, const report_collector& collected, const sweep_result& result);

/// The breaks, for break.svg.
/// @param help  what the program advises; "" if it has no advice
void add_breaks(template_data& page, const std::vector<sweep_break>& breaks, const std::string& help);

/// The table of key frames and their pictures.
void add_key_frames(template_data& page, const report_collector& collected, const sweep_result& result);

/// Input, options, versions, machine.
void add_facts(template_data& page, const run_summary& summary, const options& asked);

}  // namespace tarn::host
