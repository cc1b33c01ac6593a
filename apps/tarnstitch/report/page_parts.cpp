// SPDX-License-Identifier: Apache-2.0
//
// Numbers into texts, places into paths, pictures into addresses.
#include "page_parts.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include <opencv2/imgcodecs.hpp>

#include "frame_turn.h"
#include "page_budget.h"
#include "page_text.h"
#include "report.h"
#include "report_pictures.h"

namespace tarn::host {

namespace {

using list = kainjow::mustache::list;

constexpr int table_digits = 3;  // as the file on frames has them

std::string text_of(int number)
{
    return std::to_string(number);
}

/// "" for what there is none of.
std::string if_any(double value, int digits)
{
    return value < 0.0 ? "" : short_number(value, digits);
}

std::string readable(answer_code code)
{
    return name_of(code);
}

const char* kind_of(answer_code code)
{
    switch (code) {
    case code_normal:
        return "band-good";
    case code_few_details:
    case code_very_few_details:
    case code_too_fast:
    case code_skewed:
        return "band-fair";
    default:
        return "band-bad";
    }
}

/// How densely something is drawn, by its number of pieces.
const char* density_of(std::size_t pieces)
{
    constexpr std::size_t few = 12;
    constexpr std::size_t some = 40;
    return pieces <= few ? "few" : pieces <= some ? "some" : "many";
}

void add_workers(template_data& page, const report_collector& collected, const sweep_result& result)
{
    const std::vector<worker_times> all = times_of(result.turns, collected.begun());
    if (all.empty()) {
        return;
    }
    constexpr double row = 10.0;
    constexpr double milliseconds = 1000.0;
    double end = 0.0;
    for (const worker_times& times : all) {
        double last = times.begun;
        for (const double part : {times.prepare, times.wait, times.registering, times.compose}) {
            last += std::max(0.0, part) / milliseconds;
        }
        end = std::max(end, last);
    }
    const double scale = end > 0.0 ? plot_width / end : 0.0;

    template_data workers;
    workers.set("first", text_of(all.front().key_frame));
    workers.set("last", text_of(all.back().key_frame));
    workers.set("height", short_number(row * static_cast<double>(all.size()), 0));
    workers.set("density", density_of(all.size()));
    workers.set("label",
                "Bars of " + std::to_string(all.size()) + " workers over " + short_number(end, 2) + " seconds");
    list bars;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const worker_times& times = all[i];

        struct part {
            const char* kind;
            double milliseconds;
            double
                inset;  ///< of the row, at the top and at the bottom: the parts differ in height, not in colour alone
        };

        std::string title = "Key frame " + text_of(times.key_frame);
        list parts;
        double at = times.begun;
        for (const part& one : {part{"prepare", times.prepare, 1.0}, part{"wait", times.wait, 4.0},
                                part{"register", times.registering, 2.5}, part{"compose", times.compose, 0.5}}) {
            if (one.milliseconds < 0.0) {
                continue;
            }
            const double from = at * scale;
            at += one.milliseconds / milliseconds;
            const double top = row * static_cast<double>(i) + one.inset;
            parts.push_back(template_data{"kind", one.kind});
            parts.back().set("path", "M" + short_number(from, 1) + " " + short_number(top, 1) + "H"
                                         + short_number(at * scale, 1) + "v" + short_number(row - 2.0 * one.inset, 1)
                                         + "H" + short_number(from, 1) + "z");
            title += std::string(", ") + one.kind + " " + short_number(one.milliseconds, 1) + " ms";
        }
        template_data bar{"number", text_of(times.key_frame)};
        bar.set("title", title);
        bar.set("parts", parts);
        bars.push_back(bar);
    }
    workers.set("bars", bars);
    constexpr int steps = 4;
    list ticks;
    for (int i = 0; i <= steps; ++i) {
        ticks.push_back(short_number(end * i / steps, 2) + " s");
    }
    workers.set("worker_ticks", ticks);
    page.set("workers", workers);
}

/// What the key frames' pictures are shown as; every so manieth where they are too many.
bool is_shown(std::size_t place, std::size_t count)
{
    return count <= most_key_frame_pictures
           || place * most_key_frame_pictures / count != (place + 1) * most_key_frame_pictures / count;
}

}  // namespace

void add_plots(template_data& page, const report_collector& collected, const sweep_result& result)
{
    const std::vector<reported_frame>& frames = collected.frames();
    const sweep_axis axis(frames);
    page.set("axis_name", axis.has_times() ? "time" : "the frames");
    page.set("axis_text", axis.has_times() ? "From left to right: seconds of the input."
                                           : "From left to right: numbers of the frames; the input has no times.");
    list ticks;
    for (const std::string& tick : axis.ticks()) {
        ticks.push_back(tick);
    }
    page.set("ticks", ticks);

    list lanes;
    std::string found;
    for (const answer_lane& lane : answer_lanes(frames, axis)) {
        const std::string count = text_of(lane.count) + (lane.count == 1 ? " frame" : " frames");
        template_data one{"word", lane.words};
        one.set("count", count);
        one.set("kind", lane.is_taken ? kind_of(lane.code) : "band-bad");
        one.set("path", lane.path);
        lanes.push_back(one);
        found += (found.empty() ? "" : ", ") + count + " " + lane.words;
    }
    page.set("lanes", lanes);
    page.set("answers_found", found + ".");

    const std::vector<plot> all = plots_of(collected, axis);
    list plots;
    for (const plot& drawn : all) {
        const double scale = plot_height / (drawn.top - drawn.bottom);
        template_data one{"id", drawn.id};
        one.set("title", drawn.title);
        one.set("unit", drawn.unit);
        one.set("rule", drawn.rule);
        one.set("found", drawn.found + (drawn.found.back() == '.' ? "" : "."));
        one.set("top", short_number(drawn.top, 2));
        one.set("bottom", short_number(drawn.bottom, 2));
        list limits;
        for (const double limit : drawn.limits) {
            limits.push_back(short_number((drawn.top - limit) * scale, 1));
        }
        one.set("limits", limits);
        one.set("path", path_of(drawn.points, 0.0, 1.0, drawn.top, -scale));
        plots.push_back(one);
    }
    page.set("plots", plots);
    page.set("curves", curves_as_json(all));
    add_workers(page, collected, result);
}

std::string curves_as_json(const std::vector<plot>& plots)
{
    constexpr double tenths = 10.0;
    constexpr double thousandths = 1000.0;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const plot& drawn : plots) {
        nlohmann::ordered_json at = nlohmann::ordered_json::array();
        nlohmann::ordered_json values = nlohmann::ordered_json::array();
        for (const curve_point& point : drawn.points) {
            at.push_back(std::round(point.x * tenths) / tenths);
            values.push_back(std::round(point.y * thousandths) / thousandths);
        }
        all.push_back({{"id", drawn.id},
                       {"title", drawn.title},
                       {"sign", drawn.sign},
                       {"at", at},
                       {"frame", drawn.frame_numbers},
                       {"value", values}});
    }
    return json_for_page(all);
}

void add_strip(template_data& page, const report_collector& collected, const sweep_result& result)
{
    if (result.preview.empty()) {
        return;
    }
    const cv::Mat upright = preview_for_viewer(result.preview, collected.turn());
    const auto& key_frames = collected.key_frames();
    const double longest = std::max(upright.cols, upright.rows);
    constexpr double numbers_across = 34.0;
    const double radius = longest / numbers_across / 2.0;
    list outlines;
    for (std::size_t i = 0; i < key_frames.size() && i < most_key_frame_rows; ++i) {
        const reported_key_frame& one = key_frames[i];
        if (!one.placed) {
            continue;
        }
        std::string path;
        cv::Point2f centre;
        for (const cv::Point2f& corner : one.in_plane) {
            const cv::Point2f place = preview_point_for_viewer(corner + collected.preview_from_plane(),
                                                               result.preview.size(), collected.turn());
            path += (path.empty() ? "M" : "L") + short_number(place.x, 1) + " " + short_number(place.y, 1);
            centre += place * 0.25f;
        }
        const double x = std::clamp<double>(centre.x, radius, std::max<double>(radius, upright.cols - radius));
        const double y = std::clamp<double>(centre.y, radius, std::max<double>(radius, upright.rows - radius));
        template_data outline{"number", text_of(one.number)};
        outline.set("frame", text_of(collected.frames()[one.frame].stamp.number));
        outline.set("path", path + "z");
        outline.set("x", short_number(x, 1));
        outline.set("y", short_number(y, 1));
        constexpr double text_of_radius = 1.1;
        constexpr double below_centre = 0.38;
        outline.set("baseline", short_number(y + radius * text_of_radius * below_centre, 1));
        outline.set("radius", short_number(radius, 1));
        outline.set("size", short_number(radius * text_of_radius, 1));
        outlines.push_back(outline);
    }
    constexpr double margin = 2.0;
    template_data strip;
    strip.set("address", address_of(jpeg_within(small_copy_of(upright), most_preview_bytes)));
    strip.set("left", short_number(-margin, 0));
    strip.set("top", short_number(-margin, 0));
    strip.set("width", short_number(upright.cols + 2.0 * margin, 0));
    strip.set("height", short_number(upright.rows + 2.0 * margin, 0));
    strip.set("preview_width", text_of(upright.cols));
    strip.set("preview_height", text_of(upright.rows));
    strip.set("count", std::to_string(outlines.size()));
    strip.set("density", density_of(outlines.size()));
    strip.set("outlines", outlines);
    page.set("strip", strip);
}

void add_breaks(template_data& page, const std::vector<sweep_break>& breaks, const std::string& help)
{
    list all;
    for (const sweep_break& one : breaks) {
        const matched_pictures& pictures = one.pictures;
        constexpr int between = 8;  // px
        const int after_x = pictures.before.cols + between;
        std::string agreeing;
        std::string stray;
        constexpr std::size_t most_lines = 200;
        const std::size_t lines = pictures.matches.size();
        for (std::size_t i = 0; i < lines; ++i) {
            if (lines > most_lines && i * most_lines / lines == (i + 1) * most_lines / lines) {
                continue;
            }
            const found_match& match = pictures.matches[i];
            (match.agrees ? agreeing : stray) +=
                "M" + short_number(match.before.x, 1) + " " + short_number(match.before.y, 1) + "L"
                + short_number(match.after.x + static_cast<float>(after_x), 1) + " " + short_number(match.after.y, 1);
        }
        const bool is_small = pictures.before.cols <= 300 && pictures.before.rows <= 300;
        const std::size_t most_bytes = is_small ? most_gap_bytes : most_break_bytes;
        template_data shown{"id", one.id};
        shown.set("title", one.title);
        shown.set("text", one.text);
        if (&one == &breaks.front() && !help.empty()) {
            shown.set("help", help);
        }
        shown.set("label", one.title + ": two frames side by side. " + one.caption);
        shown.set("caption", one.caption);
        shown.set("width", text_of(after_x + pictures.after.cols));
        shown.set("height", text_of(std::max(pictures.before.rows, pictures.after.rows)));
        shown.set("before", address_of(jpeg_within(pictures.before, most_bytes)));
        shown.set("after", address_of(jpeg_within(pictures.after, most_bytes)));
        shown.set("before_width", text_of(pictures.before.cols));
        shown.set("before_height", text_of(pictures.before.rows));
        shown.set("after_x", text_of(after_x));
        shown.set("after_width", text_of(pictures.after.cols));
        shown.set("after_height", text_of(pictures.after.rows));
        shown.set("agreeing", agreeing);
        shown.set("stray", stray);
        all.push_back(shown);
    }
    page.set("breaks", all);
}

void add_key_frames(template_data& page, const report_collector& collected, const sweep_result& result)
{
    const auto& all = collected.key_frames();
    const std::vector<worker_times> turns = times_of(result.turns, collected.begun());
    const std::size_t rows = std::min(all.size(), most_key_frame_rows);
    const std::size_t most_bytes = most_key_frame_bytes(rows);
    list key_frames;
    for (std::size_t i = 0; i < rows; ++i) {
        const reported_key_frame& one = all[i];
        const reported_frame& frame = collected.frames()[one.frame];
        template_data row{"number", text_of(one.number)};
        row.set("frame", text_of(frame.stamp.number));
        if (frame.stamp.seconds >= 0.0) {  // an empty text would count as one in the template
            row.set("seconds", short_number(frame.stamp.seconds, table_digits));
        }
        row.set("answer", readable(frame.code));
        row.set("move", frame.measured ? short_number(frame.move, table_digits) : "");
        row.set("overlap", frame.measured ? short_number(frame.overlap, table_digits) : "");
        row.set("inliers", frame.measured ? text_of(frame.inliers) : "");
        row.set("tilt", frame.measured ? short_number(tilt_of(frame), table_digits) : "");
        row.set("scale", frame.measured ? short_number(scale_of(frame), table_digits) : "");
        row.set("milliseconds", short_number(frame.milliseconds, table_digits));
        const auto turn = std::find_if(turns.begin(), turns.end(),
                                       [&one](const worker_times& times) { return times.key_frame == one.number; });
        if (turn != turns.end()) {
            row.set("prepare", if_any(turn->prepare, 1));
            row.set("wait", if_any(turn->wait, 1));
            row.set("register", if_any(turn->registering, 1));
            row.set("compose", if_any(turn->compose, 1));
        }
        row.set("failed", one.number == result.failed_key_frame);
        if (is_shown(i, rows)) {
            const cv::Mat picture = cv::imdecode(one.picture, cv::IMREAD_COLOR);
            row.set("address",
                    address_of(one.picture.size() <= most_bytes ? one.picture : jpeg_within(picture, most_bytes)));
            row.set("width", text_of(picture.cols));
            row.set("height", text_of(picture.rows));
        }
        key_frames.push_back(row);
    }
    page.set("has_key_frames", rows > 0);
    page.set("key_frames", key_frames);
    page.set("key_frames_left_out",
             rows < all.size() ? "; " + std::to_string(all.size() - rows) + " more are left out" : "");
}

}  // namespace tarn::host
