// SPDX-License-Identifier: Apache-2.0
//
// The page put together.
#include "report_page.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "output_file.h"
#include "page_budget.h"
#include "page_parts.h"
#include "page_text.h"
#include "report.h"
#include "report_pictures.h"
#include "report_templates.h"
#include "verdict.h"

namespace tarn::host {

namespace {

using list = kainjow::mustache::list;
using kainjow::mustache::partial;

std::string size_in_words(cv::Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

void add_picture(list& pictures, const written_picture& written, const std::string& what, std::size_t most_bytes)
{
    if (written.small_copy.empty()) {
        return;
    }
    template_data picture{"address", address_of(jpeg_within(written.small_copy, most_bytes))};
    picture.set("width", std::to_string(written.small_copy.cols));
    picture.set("height", std::to_string(written.small_copy.rows));
    picture.set("alt", what);
    picture.set("caption", what + ", " + size_in_words(written.size) + " px, in " + written.file
                               + (written.small_copy.size() == written.size ? "" : "; smaller here"));
    pictures.push_back(picture);
}

void add_pictures(template_data& page, const written_files& written)
{
    list pictures;
    add_picture(pictures, written.panorama, written.whole ? "The panorama" : "The part of the panorama until it broke",
                most_panorama_bytes);
    add_picture(pictures, written.finished,
                written.finished_whole ? "The finished picture" : "The part that could be finished",
                most_finished_bytes);
    page.set("pictures", pictures);
}

void add_numbers(template_data& page, const run_summary& summary)
{
    list numbers;
    const auto add = [&numbers](const std::string& name, const std::string& value) {
        template_data number{"name", name};
        number.set("value", value);
        numbers.push_back(number);
    };
    const sweep_result& result = summary.result;
    add("frames", std::to_string(result.frames));
    add("taken", std::to_string(result.taken));
    add("key frames", std::to_string(result.key_frames));
    if (summary.lost.unreadable > 0) {
        add("unreadable", std::to_string(summary.lost.unreadable));
    }
    if (summary.lost.dropped) {
        add("dropped", std::to_string(*summary.lost.dropped));
    }
    add("panorama", summary.written.panorama.file.empty() ? "none" : size_in_words(summary.written.panorama.size));
    if (!summary.written.finished.file.empty()) {
        add("finished", size_in_words(summary.written.finished.size));
    }
    constexpr double megabyte = 1e6;
    add("seconds", short_number(summary.seconds, 1));
    add("memory at most", short_number(summary.peak_memory / megabyte, 0) + " MB");
    add("exit code", std::to_string(static_cast<int>(summary.code)));
    page.set("numbers", numbers);
}

/// What the program advises, of the lines that it has said; "" where it has no advice.
std::string advice_among(const std::vector<std::string>& lines)
{
    for (const std::string& line : lines) {
        if (line.rfind("what may help", 0) == 0) {
            return line;
        }
    }
    return "";
}

void add_verdict(template_data& page, const run_verdict& verdict)
{
    page.set("outcome", verdict.outcome);
    page.set("mood", verdict.is_good ? "good" : "bad");
    page.set("verdict", verdict.sentence);
    list sentences;
    for (const std::string& line : verdict.more) {
        sentences.push_back(template_data{"text", line});
    }
    page.set("has_sentences", !verdict.more.empty());
    page.set("sentences", sentences);
}

}  // namespace

std::string report_page(const run_summary& summary, const options& asked)
{
    const report_collector& collected = *summary.reported;
    const run_verdict verdict = verdict_of(summary);
    const auto& templates = report_templates();
    template_data page;
    page.set("name", std::filesystem::path(asked.inputs.front()).lexically_normal().filename().string());
    page.set("version", TARNSTITCH_VERSION);
    for (const char* const name : {"style", "script"}) {
        const std::string& text = templates.at(std::string(name) + (name == std::string("style") ? ".css" : ".js"));
        page.set(name, text);
        page.set(std::string(name) + "_digest", policy_digest(text));
    }
    for (const char* const name : {"plot", "lanes", "workers", "strip", "break"}) {
        page.set(name == std::string("plot") ? "one_plot" : std::string("the_") + name,
                 partial([&text = templates.at(std::string(name) + ".svg")] { return text; }));
    }
    add_verdict(page, verdict);
    add_pictures(page, summary.written);
    add_numbers(page, summary);
    add_breaks(page, breaks_of(collected, summary.result), advice_among(verdict.more));
    add_strip(page, collected, summary.result);
    add_plots(page, collected, summary.result);
    add_key_frames(page, collected, summary.result);
    add_facts(page, summary, asked);
    page.set("json", json_for_page(nlohmann::ordered_json::parse(summary_as_json(summary, asked))));

    kainjow::mustache::mustache engine(templates.at("page.html"));
    engine.set_custom_escape(as_html);
    std::string text = engine.render(page);
    if (!engine.is_valid()) {
        throw std::runtime_error("the page's templates are damaged: " + engine.error_message());
    }
    return text;
}

void write_report(const run_summary& summary, const options& asked)
{
    const std::string page = report_page(summary, asked);
    write_whole_file(asked.report, {page.begin(), page.end()});
}

}  // namespace tarn::host
