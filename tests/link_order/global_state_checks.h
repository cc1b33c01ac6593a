// SPDX-License-Identifier: Apache-2.0
//
// What every link-order program checks.
#pragma once

namespace tarn {

/// Checks the library's global state, which must be that of a program in which nothing has happened yet, and
/// the order of construction. Prints a line per failure to standard error; returns the number of failures.
int check_global_state();

struct early_look {
    bool library_was_ready;  ///< whether tarn_stitcher had been constructed by then
    int failures;            ///< 0 if it had not: there was nothing to check yet
};

/// What a static initialiser of the checks' own object saw.
early_look look_before_main();

/// Uses what must be usable: the detector, the strings, the images.
int check_globals_are_usable();

}  // namespace tarn
