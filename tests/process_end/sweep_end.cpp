// SPDX-License-Identifier: Apache-2.0
//
// A host with a tarn::sweep that ends while its threads are in the middle of calls. Its exit status is 0 when the end
// was a clean one: no signal, every call answered, and nothing left of the sweep's directory.
//
//     sweep_end WAY MOMENT INDEX SEED
//
// WAY is return (from main), exit (called by the host's thread) or thread (exit, called by another thread). MOMENT is
// feeding, finishing, or callback: exit is called by a callback of the sweep's own. INDEX is not used.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include "internal/shared_state.h"
#include "internal/worker_pool.h"
#include "support/counted_sleep.h"
#include "support/rendered_sweep.h"
#include "tarn_sweep.h"

namespace {

namespace fs = std::filesystem;

std::atomic<int> calls_inside{0};

[[noreturn]] void give_up(const std::string& reason)
{
    std::fprintf(stderr, "%s\n", reason.c_str());
    std::_Exit(3);
}

void rest(int microseconds)
{
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

/// The host's oldest object: destroyed after the library has closed its gate.
class oldest_object {
public:
    oldest_object()
    {
        std::string pattern = (fs::temp_directory_path() / "tarnstitch_sweep_end_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            give_up("no directory can be made");
        }
        directory_ = pattern;
    }

    ~oldest_object()
    {
        if (tarn::workers_in_flight() != 0) {
            give_up("workers are still at work");
        }
        if (!fs::is_empty(directory_)) {
            give_up("the sweep's directory is still there");
        }
        try {
            tarn::sweep::begin();
            give_up("a sweep was begun after the end");
        } catch (const tarn::sweep_error& error) {
            if (error.problem() != tarn::sweep_problem::process_ends) {
                give_up(error.what());
            }
        }
        std::error_code error;
        fs::remove_all(directory_, error);
    }

    oldest_object(const oldest_object&) = delete;
    oldest_object& operator=(const oldest_object&) = delete;

    const std::string& directory() const
    {
        return directory_;
    }

private:
    std::string directory_;
};

oldest_object host;

/// Frames and a sweep that threads may use until the very end.
struct camera {
    std::vector<cv::Mat> frames;
    tarn::sweep sweep;
};

camera* the_camera = nullptr;

/// One call after the other until the process ends.
template <typename Call>
void call_until_the_end(const Call& call)
{
    bool ends = false;
    while (!ends) {
        ++calls_inside;
        try {
            ends = call();
        } catch (const tarn::sweep_error& error) {
            if (error.problem() != tarn::sweep_problem::process_ends
                && error.problem() != tarn::sweep_problem::over) {
                give_up(error.what());
            }
            ends = true;
        }
        --calls_inside;
    }
}

void feed_until_the_end()
{
    std::size_t i = 0;
    call_until_the_end([&i] {
        i = (i + 1) % the_camera->frames.size();
        return the_camera->sweep.feed(tarn::view_of(the_camera->frames[i])).why == tarn::reason::process_ends;
    });
}

void look_until_the_end()
{
    call_until_the_end([] {
        the_camera->sweep.status();
        the_camera->sweep.preview();
        return false;
    });
}

void finish_until_the_end()
{
    call_until_the_end([] {
        const tarn::frame_view last = tarn::view_of(the_camera->frames.back());
        return the_camera->sweep.finish({&last}).why == tarn::reason::process_ends;
    });
}

/// The library waits for two seconds at most, in polls. From now on the first poll on this thread lasts until all have
/// come out, so that the two seconds are enough on any machine; the alarm ends a wait that never would.
void give_everybody_time()
{
    static auto& polls = *new tarn::test::counted_sleep([](int) {
        while (calls_inside > 0 || tarn::workers_in_flight() > 0) {
            rest(1000);
        }
    });
    static_cast<void>(polls);
}

[[noreturn]] void end_by_callback()
{
    tarn::sweep_options options;
    options.private_parent = host.directory();
    options.on_key_frame = [](const tarn::key_frame& key) {
        if (key.number == 2) {
            give_everybody_time();
            std::exit(0);
        }
    };
    the_camera->sweep = tarn::sweep::begin(options);
    for (std::size_t i = 0;; i = (i + 1) % the_camera->frames.size()) {
        the_camera->sweep.feed(tarn::view_of(the_camera->frames[i]));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    if (words.size() != 5) {
        give_up("usage: sweep_end WAY MOMENT INDEX SEED");
    }
    const std::string& way = words[1];
    const std::string& moment = words[2];
    std::mt19937 random(static_cast<unsigned>(std::strtoul(words[4].c_str(), nullptr, 10)));

    tarn::sweep_options options;
    options.private_parent = host.directory();
    the_camera = new camera{{}, tarn::sweep::begin(options)};
    const auto rendered = tarn::test::slide(cv::Size(320, 240), tarn::test::moving_right, 24.0, 12);
    for (int i = 0; i < rendered.length(); ++i) {
        the_camera->frames.push_back(rendered.host_frame(i));
    }
    constexpr unsigned limit_for_hangs = 240;  // s, many times what the end may take
    alarm(limit_for_hangs);
    if (moment == "callback") {
        end_by_callback();
    }
    std::thread(feed_until_the_end).detach();
    std::thread(look_until_the_end).detach();
    if (moment == "finishing") {
        std::thread(finish_until_the_end).detach();
    } else if (moment != "feeding") {
        give_up("no such moment");
    }
    rest(std::uniform_int_distribution<int>(0, 300000)(random));

    if (way == "thread") {
        std::thread([] {
            give_everybody_time();
            std::exit(0);
        }).detach();
        for (;;) {
            pause();
        }
    }
    give_everybody_time();
    if (way == "exit") {
        std::exit(0);
    }
    return 0;
}
