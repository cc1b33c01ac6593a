// SPDX-License-Identifier: Apache-2.0
//
// Escapes.
#include "page_text.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "printable_text.h"

namespace tarn::host {

namespace {

std::string without_markup(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

}  // namespace

std::string as_html(const std::string& text)
{
    std::string result;
    const char* line_end = "";
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); line_end = "\n") {
        result += line_end + without_markup(printable(line));
    }
    return result;
}

std::string json_for_page(const nlohmann::ordered_json& object)
{
    constexpr int indent = 1;
    constexpr bool only_ascii = true;
    std::string text;
    // Outside of texts JSON has none of these characters.
    for (const char character :
         object.dump(indent, ' ', only_ascii, nlohmann::ordered_json::error_handler_t::replace)) {
        switch (character) {
        case '<':
            text += "\\u003c";
            break;
        case '>':
            text += "\\u003e";
            break;
        case '&':
            text += "\\u0026";
            break;
        case '\x7f':
            text += "\\u007f";
            break;
        default:
            text += character;
        }
    }
    return text;
}

}  // namespace tarn::host
