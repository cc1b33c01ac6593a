// SPDX-License-Identifier: Apache-2.0
//
// Rivals: implementations of one task, timed beside each other in one run. Each proves its answer before it is
// timed; what comes out is one table per program, in Markdown and as CSV (see rivals.cpp).
//
//     TARN_RIVALS(my_rivals)
//     {
//         add({"resize", "plain", "1920x1080", 1, 1920.0 * 1080.0}, time_plain);
//         add({"resize", "fast", "1920x1080", 1, 1920.0 * 1080.0}, fast_equals_plain, time_fast);
//     }
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace tarn::bench {

/// One row of the table. The first row of a subject and input is what the others are measured against.
struct rival {
    std::string subject;  ///< what is done; no "/"
    std::string name;     ///< by whom; no "/"
    std::string input;    ///< on what, for instance a size; no "/"
    int threads = 1;      ///< set for OpenCV's loops before it runs; at most those that there are
    double pixels = 0.0;  ///< per iteration; 0 where time per pixel means nothing
    /// For what takes long: so many repetitions, where a command line does not say how many, of one iteration each,
    /// whatever time that reports. 0: as all others.
    int long_repetitions = 0;
    /// Its counters are parts of its time, and add up: they are those of the one repetition that took the median time.
    bool counts_parts = false;
};

/// The name of an input that is worked on by so many threads: each of those has a first row of its own.
std::string on_threads(const std::string& input, int threads);

/// @param proof  run once, before the rival's first timing; false ends its timing and fails the program
/// @param body   a benchmark; one iteration is one frame, one turn, one sweep. Manual time: see time_frames.
///               Counters that it sets become columns of the table, by their medians and spreads.
void add(const rival& who, std::function<bool()> proof, std::function<void(benchmark::State&)> body);

/// The same for a rival against which others are proven, or whose body proves each answer that it times.
void add(const rival& who, std::function<void(benchmark::State&)> body);

/// The median of values of which there are some.
double median(std::vector<double> values);

/// Processor time of all threads of the process so far, in seconds.
double process_cpu_seconds();

/// Pages that the process has touched for the first time so far.
long process_page_faults();

/// The loop of a benchmark over `count` inputs, one after the other, so that each has left the caches when its
/// turn comes again. `prepare` restores all of them between two rounds; only `run(index)` is timed, and only where
/// `is_timed(index)`: its duration, as the counter "cpu ms" the processor time of
/// all threads, which other programs disturb less, and as "page faults" what it touches for the first time.
template <typename Prepare, typename Run, typename IsTimed>
void time_frames(benchmark::State& state, std::size_t count, Prepare prepare, Run run, IsTimed is_timed)
{
    using clock = std::chrono::steady_clock;
    std::size_t timed = 0;
    for (std::size_t i = 0; i < count; ++i) {
        timed += is_timed(i) ? 1 : 0;
    }
    if (timed == 0) {
        state.SkipWithError("there is nothing to time");
        return;
    }
    std::size_t index = count;
    double cpu_seconds = 0.0;
    long page_faults = 0;
    const auto go_on = [&] {
        ++index;
        if (index >= count) {
            prepare();
            index = 0;
        }
    };
    for ([[maybe_unused]] auto iteration : state) {
        for (go_on(); !is_timed(index); go_on()) {
            run(index);
        }
        const long page_faults_begin = process_page_faults();
        const double cpu_begin = process_cpu_seconds();
        const clock::time_point begin = clock::now();
        run(index);
        const clock::time_point end = clock::now();
        cpu_seconds += process_cpu_seconds() - cpu_begin;
        page_faults += process_page_faults() - page_faults_begin;
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
    }
    state.counters["cpu ms"] = benchmark::Counter(cpu_seconds * 1e3, benchmark::Counter::kAvgIterations);
    state.counters["page faults"] =
        benchmark::Counter(static_cast<double>(page_faults), benchmark::Counter::kAvgIterations);
}

/// The same where every input is timed.
template <typename Prepare, typename Run>
void time_frames(benchmark::State& state, std::size_t count, Prepare prepare, Run run)
{
    time_frames(state, count, prepare, run, [](std::size_t) { return true; });
}

/// Runs a function before main.
struct at_start {
    explicit at_start(void (*function)())
    {
        function();
    }
};

}  // namespace tarn::bench

/// Opens the function in which a source adds its rivals.
#define TARN_RIVALS(name)                                                                                              \
    static void name();                                                                                                \
    static const tarn::bench::at_start name##_at_start(name);                                                          \
    static void name()
