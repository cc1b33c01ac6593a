// SPDX-License-Identifier: Apache-2.0
//
// Text from outside, a file's name for one, made fit to stand in a line on a terminal.
#pragma once

#include <string>

namespace tarn::host {

/// The text with a "?" for each character that a terminal would obey rather than show, and for each byte that is no
/// UTF-8: control characters (C0, DEL, C1), the ends of lines and paragraphs, and the marks that turn the direction of
/// writing, by which a name can pose as another one. Pure.
std::string printable(const std::string& text);

}  // namespace tarn::host
