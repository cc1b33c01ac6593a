// SPDX-License-Identifier: Apache-2.0
//
// The page of a report.
#pragma once

#include <string>

#include "options.h"
#include "summary.h"

namespace tarn::host {

/// The whole page as HTML, which needs nothing from elsewhere.
/// @param summary  with what was collected for the report
std::string report_page(const run_summary& summary, const options& asked);

/// Makes the page and writes it where it was asked for.
/// @throws host_error (output_failed)
void write_report(const run_summary& summary, const options& asked);

}  // namespace tarn::host
