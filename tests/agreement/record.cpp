// SPDX-License-Identifier: Apache-2.0
#include "record.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

#include <opencv2/imgcodecs.hpp>

namespace tarn::test {

void digest::add_bytes(const void* bytes, std::size_t count)
{
    constexpr std::uint64_t prime = 1099511628211U;
    const auto* next = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        state_ = (state_ ^ next[i]) * prime;
    }
}

void digest::add(int value)
{
    add_bytes(&value, sizeof value);
}

void digest::add(float value)
{
    if (std::isnan(value)) {
        value = std::numeric_limits<float>::quiet_NaN();
    }
    add_bytes(&value, sizeof value);
}

void digest::add(const cv::Point2f& point)
{
    add(point.x);
    add(point.y);
}

void digest::add(const std::vector<cv::Point2f>& points)
{
    for (const cv::Point2f& point : points) {
        add(point);
    }
}

void digest::add(const cv::Mat& image)
{
    add(image.rows);
    add(image.cols);
    add(image.type());
    for (int y = 0; y < image.rows; ++y) {
        add_bytes(image.ptr(y), static_cast<std::size_t>(image.cols) * image.elemSize());
    }
}

std::string digest::text() const
{
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(state_));
    return digits;
}

void write_exact(const std::string& name, const digest& results)
{
    std::cout << "exact " << name << ' ' << results.text() << std::endl;
}

namespace {

void write_values(const std::string& kind, const std::string& name, const std::vector<double>& values)
{
    std::ostringstream line;
    line.precision(17);
    for (const double value : values) {
        line << ' ' << value;
    }
    std::cout << kind << ' ' << name << line.str() << std::endl;
}

}  // namespace

void write_close(const std::string& name, const std::vector<double>& degrees)
{
    write_values("close", name, degrees);
}

void write_library(const std::string& name, const std::vector<double>& values)
{
    write_values("library", name, values);
}

namespace {

struct record_line {
    std::string kind;
    std::string name;
    std::vector<std::string> values;
};

std::vector<record_line> read_record(const std::string& file_name)
{
    std::vector<record_line> lines;
    std::ifstream file(file_name);
    std::string text;
    while (std::getline(file, text)) {
        std::istringstream words(text);
        record_line line;
        words >> line.kind >> line.name;
        std::string value;
        while (words >> value) {
            line.values.push_back(value);
        }
        if (line.kind == "exact" || line.kind == "close" || line.kind == "library") {
            lines.push_back(line);
        }
    }
    return lines;
}

// How far the values of a line are apart.
struct difference {
    std::string in_words;
    double largest = 0.0;
};

difference compare_values(const record_line& one, const record_line& other)
{
    std::ostringstream words;
    if (one.values == other.values) {
        words << "equal, " << one.values.size() << " values";
        return {words.str(), 0.0};
    }
    if (one.values.size() != other.values.size()) {
        words << one.values.size() << " values and " << other.values.size();
        return {words.str(), std::numeric_limits<double>::infinity()};
    }
    std::size_t differing = 0;
    double largest = 0.0;
    double largest_relative = 0.0;
    for (std::size_t i = 0; i < one.values.size(); ++i) {
        const double a = std::stod(one.values[i]);
        const double b = std::stod(other.values[i]);
        if (a != b && !(std::isnan(a) && std::isnan(b))) {
            ++differing;
            largest = std::max(largest, std::abs(a - b));
            largest_relative = std::max(largest_relative, std::abs(a - b) / std::max(std::abs(a), std::abs(b)));
        }
    }
    words << differing << " of " << one.values.size() << " values differ, by " << largest << " at most ("
          << largest_relative << " of the value)";
    return {words.str(), std::isnan(largest) ? std::numeric_limits<double>::infinity() : largest};
}

}  // namespace

bool compare_records(const std::string& one, const std::string& other)
{
    const std::vector<record_line> first = read_record(one);
    const std::vector<record_line> second = read_record(other);
    bool same_lines = !first.empty() && first.size() == second.size();
    bool all_agree = true;
    for (std::size_t i = 0; i < std::min(first.size(), second.size()); ++i) {
        const record_line& a = first[i];
        const record_line& b = second[i];
        if (a.kind != b.kind || a.name != b.name) {
            same_lines = false;
            std::cout << "line " << i + 1 << " is " << a.name << " and " << b.name << '\n';
        } else if (a.kind == "exact") {
            const bool agree = a.values == b.values;
            all_agree = all_agree && agree;
            std::cout << (agree ? "agrees   " : "DIFFERS  ") << a.name << '\n';
        } else if (a.kind == "close") {
            // Each of two directions of up to half a turn may be off by two last bits.
            constexpr double greatest = 1e-4;  // degrees
            const difference apart = compare_values(a, b);
            const bool agree = apart.largest <= greatest;
            all_agree = all_agree && agree;
            std::cout << (agree ? "close    " : "DIFFERS  ") << a.name << ": " << apart.in_words << '\n';
        } else {
            std::cout << "library  " << a.name << ": " << compare_values(a, b).in_words << '\n';
        }
    }
    if (!same_lines) {
        std::cout << "the records have different lines\n";
    }
    return same_lines && all_agree;
}

bool compare_images(const std::string& one, const std::string& other, int tolerance)
{
    const cv::Mat first = cv::imread(one, cv::IMREAD_COLOR);
    const cv::Mat second = cv::imread(other, cv::IMREAD_COLOR);
    if (first.empty() || second.empty()) {
        std::cout << "cannot be read: " << (first.empty() ? one : other) << '\n';
        return false;
    }
    const cv::Rect both(0, 0, std::min(first.cols, second.cols), std::min(first.rows, second.rows));
    cv::Mat apart;
    cv::absdiff(first(both), second(both), apart);
    apart = apart.reshape(1);
    double largest = 0.0;
    cv::minMaxLoc(apart, nullptr, &largest);
    const auto bytes = static_cast<double>(apart.total());
    const double equal = bytes - cv::countNonZero(apart);
    std::cout << first.cols << " x " << first.rows << " and " << second.cols << " x " << second.rows << ": "
              << 100.0 * equal / bytes << " % of the bytes are equal, the mean difference is " << cv::mean(apart)[0]
              << ", the largest " << largest << '\n';
    return std::abs(first.cols - second.cols) <= tolerance && std::abs(first.rows - second.rows) <= tolerance;
}

}  // namespace tarn::test
