// SPDX-License-Identifier: Apache-2.0
//
// The options of a command line as the user wrote them: what is wrong with one can then be said by its own name.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace tarn::host {

/// An option as it stands on the command line.
struct written_option {
    const option_row* row;
    std::string name;  ///< "-o" or "--output"
};

/// Walks through a command line up to a "--".
/// @param wrong  the first thing that is wrong, in a sentence: an unknown option, one without its value, a value for an
///               option that takes none, an option given twice; "" if nothing is
std::vector<written_option> written_options(int argc, const char* const* argv, std::string& wrong);

/// "right left up" as "right, left or up".
std::string listed(const char* words);

/// The row of the table with this name, "-o" or "--output"; null if there is none.
const option_row* row_named(const std::string& name);

}  // namespace tarn::host
