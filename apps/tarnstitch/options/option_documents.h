// SPDX-License-Identifier: Apache-2.0
//
// Whatever tells users about the options, made from their table: the help text, the manual page, and the
// completions of bash and zsh.
#pragma once

#include <string>

namespace tarn::host {

/// The text of --help.
std::string help_text();

/// The text of --version.
std::string version_text();

/// The manual page, section 1, in man(7) format.
std::string manual_page();

/// The script that completes command lines in bash.
std::string bash_completion();

/// The function that completes command lines in zsh.
std::string zsh_completion();

}  // namespace tarn::host
