// SPDX-License-Identifier: Apache-2.0
//
// The program around the rivals: runs them interleaved in random order, several times each, and writes one
// table with, for each rival, the median over the repetitions, their spread, which is the interquartile range in
// percent of the median, the least, how many times as fast as the first rival of its subject and input it is by the
// medians, and its counters with their spreads.
//
//     PROGRAM [--table=PATH] [options of Google Benchmark]
//
// writes PATH.md and PATH.csv. Ends with 1 when a proof fails, and with 2, having written nothing, when the options
// leave nothing to run.
#include "rivals.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>
#include <sstream>
#include <sys/resource.h>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::bench {

namespace {

struct entry {
    rival who;
    std::function<bool()> proof;
    std::function<void(benchmark::State&)> body;

    enum { open, proved, refuted } answer = open;

    std::vector<double> seconds;  // per iteration, one value per repetition
    std::map<std::string, std::vector<double>> counters;
};

std::string benchmark_name(const rival& who)
{
    return who.subject + '/' + who.name + '/' + who.input + '/' + std::to_string(who.threads);
}

// In the order in which they were added. Addresses of entries stay.
std::vector<std::unique_ptr<entry>>& entries()
{
    static std::vector<std::unique_ptr<entry>> all;
    return all;
}

void run(benchmark::State& state, entry& which)
{
    cv::setNumThreads(which.who.threads);
    if (which.answer == entry::open) {
        which.answer = which.proof() ? entry::proved : entry::refuted;
    }
    if (which.answer == entry::refuted) {
        state.SkipWithError("its answer is wrong");
        return;
    }
    which.body(state);
}

// A quantile of a sorted list that is not empty, interpolated.
double quantile(const std::vector<double>& sorted, double share)
{
    const double place = share * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<size_t>(place);
    const size_t above = std::min(below + 1, sorted.size() - 1);
    const double rest = place - static_cast<double>(below);
    return sorted[below] * (1.0 - rest) + sorted[above] * rest;
}

// Which value is the median, or, of an even number, the lesser one in the middle.
size_t median_index(const std::vector<double>& values)
{
    std::vector<size_t> order(values.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return values[a] < values[b]; });
    return order[(order.size() - 1) / 2];
}

// Collects the repetitions; says which benchmark is done, so that a long run shows that it lives.
class collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override
    {
        PrintBasicContext(&GetErrorStream(), context);
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                failed_ = true;
                GetErrorStream() << run.benchmark_name() << ": " << run.error_message << '\n';
                continue;
            }
            if (run.run_type != Run::RT_Iteration) {
                continue;
            }
            for (const auto& which : entries()) {
                if (run.run_name.function_name == benchmark_name(which->who)) {
                    which->seconds.push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
                    for (const auto& [name, counter] : run.counters) {
                        which->counters[name].push_back(counter.value);
                    }
                    GetErrorStream() << "done: " << benchmark_name(which->who) << '\n';
                    break;
                }
            }
        }
    }

    bool failed() const
    {
        return failed_;
    }

private:
    bool failed_ = false;
};

std::string fixed(double value, int digits)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

// Three significant digits or so, never in scientific notation.
std::string short_number(double value)
{
    const double magnitude = std::abs(value);
    return fixed(value, magnitude >= 100.0 ? 0 : magnitude >= 10.0 ? 1 : magnitude >= 1.0 ? 2 : 3);
}

// The interquartile range in percent of the median; empty where that is 0.
std::string spread(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const double middle = std::abs(quantile(values, 0.5));
    return middle == 0.0 ? "" : fixed((quantile(values, 0.75) - quantile(values, 0.25)) / middle * 100.0, 1);
}

using row = std::vector<std::string>;

const std::string spread_heading = "spread %";

// The header and one row per rival that was run.
std::vector<row> table()
{
    std::vector<std::string> counter_names;
    for (const auto& which : entries()) {
        for (const auto& counter : which->counters) {
            if (std::find(counter_names.begin(), counter_names.end(), counter.first) == counter_names.end()) {
                counter_names.push_back(counter.first);
            }
        }
    }
    std::vector<row> rows = {
        {"subject", "input", "by", "threads", "ms", spread_heading, "least ms", "ns per pixel", "times as fast"}};
    for (const std::string& name : counter_names) {
        rows[0].push_back(name);
        rows[0].push_back(name);
        rows[0].back().append(" ").append(spread_heading);
    }

    std::map<std::string, double> first_of;
    for (const auto& which : entries()) {
        if (which->seconds.empty()) {
            continue;
        }
        const rival& who = which->who;
        const double middle = median(which->seconds);
        const double least = *std::min_element(which->seconds.begin(), which->seconds.end());
        const double first = first_of.emplace(who.subject + '/' + who.input, middle).first->second;
        row line = {who.subject,
                    who.input,
                    who.name,
                    std::to_string(who.threads),
                    fixed(middle * 1e3, 3),
                    spread(which->seconds),
                    fixed(least * 1e3, 3),
                    who.pixels > 0.0 ? fixed(middle * 1e9 / who.pixels, 3) : "",
                    fixed(first / middle, 2)};
        for (const std::string& name : counter_names) {
            const auto found = which->counters.find(name);
            if (found == which->counters.end()) {
                line.insert(line.end(), 2, "");
                continue;
            }
            const std::vector<double>& values = found->second;
            const double value = who.counts_parts ? values[median_index(which->seconds)] : median(values);
            line.push_back(short_number(value));
            line.push_back(spread(values));
        }
        rows.push_back(line);
    }
    return rows;
}

// One table per subject, of the columns that its rivals have. A counter's spread stands behind it, in brackets.
void write_markdown(std::ostream& out, const std::vector<row>& rows)
{
    constexpr size_t text_columns = 3;
    const auto is_behind_another = [&](size_t column) {
        return column < rows[0].size() && rows[0][column] == rows[0][column - 1] + " " + spread_heading;
    };
    for (auto begin = rows.begin() + 1; begin != rows.end();) {
        const auto end = std::find_if(begin, rows.end(), [&](const row& line) { return line[0] != (*begin)[0]; });
        std::vector<size_t> columns;
        for (size_t column = 1; column < rows[0].size(); ++column) {
            if (!is_behind_another(column)
                && std::any_of(begin, end, [&](const row& line) { return !line[column].empty(); })) {
                columns.push_back(column);
            }
        }
        const auto write_line = [&](const row& line) {
            for (const size_t column : columns) {
                out << "| " << line[column] << ' ';
                if (is_behind_another(column + 1) && !line[column + 1].empty()) {
                    out << '(' << (&line == &rows[0] ? spread_heading : line[column + 1]) << ") ";
                }
            }
            out << "|\n";
        };
        out << "### " << (*begin)[0] << "\n\n";
        write_line(rows[0]);
        for (const size_t column : columns) {
            out << (column < text_columns ? "| --- " : "| ---: ");
        }
        out << "|\n";
        std::for_each(begin, end, write_line);
        out << '\n';
        begin = end;
    }
}

void write_csv(std::ostream& out, const std::vector<row>& rows)
{
    for (const row& line : rows) {
        for (size_t column = 0; column < line.size(); ++column) {
            const bool has_comma = line[column].find(',') != std::string::npos;
            const char* const quote = has_comma ? "\"" : "";
            out << (column == 0 ? "" : ",") << quote << line[column] << quote;
        }
        out << '\n';
    }
}

// Takes --table=PATH out of the arguments.
std::string table_path(std::vector<char*>& arguments)
{
    const std::string option = "--table=";
    std::string path;
    const auto is_option = [&](const char* argument) { return std::string(argument).rfind(option, 0) == 0; };
    const auto found = std::find_if(arguments.begin(), arguments.end(), is_option);
    if (found != arguments.end()) {
        path = std::string(*found).substr(option.size());
        arguments.erase(found);
    }
    return path;
}

int run_all(int argc, char* argv[])
{
    // What a command line does not set otherwise. Rivals in turn: a slow minute of the machine meets all of
    // them.
    static std::array<std::string, 3> defaults = {"--benchmark_repetitions=15", "--benchmark_min_time=0.05",
                                                  "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> arguments = {argv[0]};
    for (std::string& option : defaults) {
        arguments.push_back(option.data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    const std::string path = table_path(arguments);
    const bool are_repetitions_given = std::any_of(argv + 1, argv + argc, [](const char* argument) {
        return std::string(argument).rfind("--benchmark_repetitions=", 0) == 0;
    });
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    for (const auto& which : entries()) {
        auto* const registered = benchmark::RegisterBenchmark(
            benchmark_name(which->who).c_str(), [](benchmark::State& state, entry* timed) { run(state, *timed); },
            which.get());
        registered->UseManualTime()->Unit(benchmark::kMillisecond);
        if (which->who.long_repetitions > 0) {
            registered->Iterations(1);
            if (!are_repetitions_given) {
                registered->Repetitions(which->who.long_repetitions);
            }
        }
    }
    collector results;
    const size_t matching = benchmark::RunSpecifiedBenchmarks(&results);
    benchmark::Shutdown();
    if (matching == 0) {
        return 2;
    }

    const std::vector<row> rows = table();
    write_markdown(std::cout, rows);
    if (!path.empty()) {
        std::ofstream markdown(path + ".md");
        write_markdown(markdown, rows);
        std::ofstream csv(path + ".csv");
        write_csv(csv, rows);
        if (!markdown.flush() || !csv.flush()) {
            std::cerr << "cannot write " << path << ".md and .csv\n";
            return 1;
        }
    }
    return results.failed() ? 1 : 0;
}

}  // namespace

std::string on_threads(const std::string& input, int threads)
{
    return threads == 1 ? input : input + " on two threads";
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return quantile(values, 0.5);
}

double process_cpu_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

long process_page_faults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

void add(const rival& who, std::function<void(benchmark::State&)> body)
{
    add(
        who, [] { return true; }, std::move(body));
}

void add(const rival& who, std::function<bool()> proof, std::function<void(benchmark::State&)> body)
{
    auto added = std::make_unique<entry>();
    added->who = who;
    added->proof = std::move(proof);
    added->body = std::move(body);
    entries().push_back(std::move(added));
}

}  // namespace tarn::bench

int main(int argc, char* argv[])
{
    return tarn::bench::run_all(argc, argv);
}
