// SPDX-License-Identifier: Apache-2.0
//
// Thinning by stretches, and numbers as text.
#include "curve.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

namespace tarn::host {

std::vector<curve_point> thinned(const std::vector<curve_point>& points, std::size_t most)
{
    if (points.size() <= most) {
        return points;
    }
    const std::size_t stretches = (most - 2) / 2;
    const std::size_t inner = points.size() - 2;
    std::vector<std::size_t> kept = {0};
    for (std::size_t i = 0; i < stretches; ++i) {
        const auto begin = points.begin() + 1 + static_cast<std::ptrdiff_t>(i * inner / stretches);
        const auto end = points.begin() + 1 + static_cast<std::ptrdiff_t>((i + 1) * inner / stretches);
        const auto [lowest, highest] =
            std::minmax_element(begin, end, [](const curve_point& a, const curve_point& b) { return a.y < b.y; });
        const auto [earlier, later] = std::minmax(lowest, highest);
        kept.push_back(static_cast<std::size_t>(earlier - points.begin()));
        if (later != earlier) {
            kept.push_back(static_cast<std::size_t>(later - points.begin()));
        }
    }
    kept.push_back(points.size() - 1);

    std::vector<curve_point> result;
    result.reserve(kept.size());
    std::size_t next = 0;
    for (const std::size_t place : kept) {
        result.push_back(points[place]);
        for (; next <= place; ++next) {
            result.back().begins = result.back().begins || points[next].begins;
        }
    }
    return result;
}

std::string short_number(double value, int digits)
{
    std::array<char, 400> text{};  // room for the largest double
    char* end = text.data();
    if (const auto written =
            std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, digits);
        written.ec == std::errc()) {
        end = written.ptr;
    }
    std::string number(text.data(), end);
    if (number.find('.') != std::string::npos) {
        number.erase(number.find_last_not_of('0') + 1);
        number.erase(number.back() == '.' ? number.size() - 1 : number.size());
    }
    return number == "-0" ? "0" : number;
}

std::string path_of(const std::vector<curve_point>& points, double from_x, double scale_x, double from_y,
                    double scale_y)
{
    std::string path;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const curve_point& point = points[i];
        const bool begins = i == 0 || point.begins;
        path += begins ? 'M' : 'L';
        path += short_number((point.x - from_x) * scale_x, 1);
        path += ' ';
        path += short_number((point.y - from_y) * scale_y, 1);
        if (begins && (i + 1 == points.size() || points[i + 1].begins)) {
            path += "h0";  // a line without length is a dot where lines have round ends
        }
    }
    return path;
}

double round_above(double value)
{
    if (!(value > 0.0) || !std::isfinite(value)) {
        return 1.0;
    }
    const double power = std::pow(10.0, std::floor(std::log10(value)));
    for (const double step : {1.0, 2.0, 2.5, 5.0}) {
        if (step * power >= value) {
            return step * power;
        }
    }
    return 10.0 * power;
}

}  // namespace tarn::host
