// SPDX-License-Identifier: Apache-2.0
//
// Text from outside made fit to stand in a page. Pure functions.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tarn::host {

/// The text as HTML, between tags or quoted in one: what a terminal would obey, and what is no UTF-8, is a "?", as the
/// program says it; markup is escaped. A line end stays.
std::string as_html(const std::string& text);

/// An object as JSON that can stand in a <script> element and, escaped, anywhere else: ASCII only, without "<", ">" and
/// "&". What is read from it is the same.
std::string json_for_page(const nlohmann::ordered_json& object);

}  // namespace tarn::host
