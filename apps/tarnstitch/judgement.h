// SPDX-License-Identifier: Apache-2.0
//
// What sweeps' results tell: what most of the frames met, and which of two tries is the better one. Pure functions.
#pragma once

#include "host_error.h"
#include "sweep.h"

namespace tarn::host {

/// Whether so many frames were answered with a code that the sweep's failure may be laid to it: a fifth. Single ones
/// are met in any sweep.
bool many_with_code(const sweep_result& result, answer_code code);

/// Whether a second try with the frames turned the other way may help: after a failure of the pipeline, but not when
/// the camera went the wrong way.
bool second_try_may_help(const sweep_result& result);

/// The frame beyond which a sweep whose pipeline failed could not be stitched.
int reach_of(const sweep_result& failed);

/// Whether a second try is to be taken instead of the first, whose pipeline failed.
/// @param stopped  whether the user has ended the second one early, so that it is complete as far as it went only
bool second_is_better(const sweep_result& first, const sweep_result& second, bool stopped);

/// How the program ends for a sweep that the pipeline gave up: whether the pictures are to blame, a full disk, or a
/// machine that is short of something for now.
exit_code code_of_failure(reason why);

}  // namespace tarn::host
