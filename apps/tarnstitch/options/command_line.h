// SPDX-License-Identifier: Apache-2.0
//
// The walk along a command line. Options keep the names that the user wrote, so that what is wrong with one can be said
// by its own name.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace tarn::host {

/// An option or an input as it stands on the command line.
struct written_option {
    const option_row* row;  ///< of the table
    std::string name;       ///< "-o" or "--output"; "" for an input
    std::string value;      ///< "" for a flag
};

/// Walks along a command line: short flags may stand together, with a value behind the last ("-qofile"); a long
/// option's value follows it or a "="; all behind "--" are inputs.
/// @param wrong  the first thing that is wrong, in a sentence: an unknown option, one without its value, a value for an
///               option that takes none, an option given twice; "" if nothing is
std::vector<written_option> written_options(int argc, const char* const* argv, std::string& wrong);

/// "right left up" as "right, left or up".
std::string listed(const char* words);

}  // namespace tarn::host
