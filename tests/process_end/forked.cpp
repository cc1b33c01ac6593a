// SPDX-License-Identifier: Apache-2.0
//
// A host that forks while the library is at work: every call of the child's comes back, its end is a clean one, and the
// parent's sweep and directory are untouched. The exit status is 0 when all was so.
//
//     forked MOMENT
//
// MOMENT is writing (a worker is in the middle of its file), waiting (workers wait for their turn), feeding (another
// thread hands frames over, the process forks 20 times) or callback (a callback of the sweep's own forks).
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "support/rendered_sweep.h"
#include "tarn_c.h"
#include "tarn_stitch_jni.h"
#include "tarn_sweep.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void give_up(const std::string& reason)
{
    std::fprintf(stderr, "%s\n", reason.c_str());
    std::_Exit(3);
}

void require(bool holds, const std::string& what)
{
    if (!holds) {
        give_up(what);
    }
}

/// Where workers wait until the test closes the pipe: in the writing of a file, or before their turn.
std::array<int, 2> until_closed = {-1, -1};
std::atomic<bool> writers_get_stuck{false};
std::atomic<int> waiting_before_turn{0};
std::atomic<int> stuck_writers{0};

void wait_until_closed()
{
    char none = 0;
    [[maybe_unused]] const ssize_t end = read(until_closed[0], &none, 1);
}

void hold_before_turn(tarn::worker_stage stage, int index)
{
    if (stage == tarn::worker_stage::file_written && index > 1) {
        ++waiting_before_turn;
        wait_until_closed();
    }
}

std::set<std::string> entries_of(const std::string& directory)
{
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

template <typename Call>
void expect_refused(tarn::sweep_problem problem, const std::string& name, const Call& call)
{
    try {
        call();
    } catch (const tarn::sweep_error& error) {
        require(error.problem() == problem, name + " is refused: " + error.what());
        return;
    }
    give_up(name + " is not refused");
}

/// What a child may try, and is told.
void live_as_child(tarn::sweep& sweep, const std::string& directory, const cv::Mat& frame)
{
    using tarn::sweep_problem;
    constexpr unsigned limit_for_hangs = 120;  // s
    alarm(limit_for_hangs);
    resetStitch(directory.c_str());
    require(videoStitch(frame, 0, 0)[0] == tarn::code_pipeline_failed, "a frame's answer");
    require(videoStitch(frame, 0, 1)[0] == tarn::code_pipeline_failed, "the last frame's answer");
    resetStitch("");
    require(!tarn_stitcher.get_big_image(1), "the panorama");
    static_cast<void>(getCurrentPanoramaShow());
    static_cast<void>(getTestCurrentPanoramaShow());
    require(!getCurrentPanoramsShowMat().empty(), "the preview is what it was");
    require(!sweep.is_current(), "the sweep is the parent's");
    expect_refused(sweep_problem::over, "feed", [&] { sweep.feed(tarn::view_of(frame)); });
    expect_refused(sweep_problem::over, "status", [&] { sweep.status(); });
    expect_refused(sweep_problem::over, "preview", [&] { sweep.preview(); });
    expect_refused(sweep_problem::process_ends, "begin", [] { tarn::sweep::begin(); });
    tarn_sweep* begun = nullptr;
    require(tarn_sweep_begin(nullptr, &begun) == TARN_ERROR_PROCESS_ENDS, "begin by the C interface");
    sweep.cancel();
}

void expect_clean_child(pid_t child)
{
    int status = 0;
    require(waitpid(child, &status, 0) == child, "a child to wait for");
    require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the child ended with status " + std::to_string(status));
}

/// @param may_change  the directory's files, by the parent's own workers
void fork_once(tarn::sweep& sweep, const std::string& directory, const cv::Mat& frame, bool may_change)
{
    const std::set<std::string> before = entries_of(directory);
    const pid_t child = fork();
    require(child >= 0, "a fork");
    if (child == 0) {
        live_as_child(sweep, directory, frame);
        std::exit(0);
    }
    expect_clean_child(child);
    require(may_change || entries_of(directory) == before, "the parent's directory is as it was");
}

class rendered {
public:
    cv::Mat next()
    {
        const int position = next_++ % (2 * sweep_.length());  // to and fro
        return sweep_.host_frame(position < sweep_.length() ? position : 2 * sweep_.length() - 1 - position);
    }

    cv::Mat last() const
    {
        return sweep_.host_frame(sweep_.length() - 1);
    }

    bool is_over() const
    {
        return next_ >= sweep_.length();
    }

private:
    tarn::test::rendered_sweep sweep_ = tarn::test::slide(cv::Size(320, 240), tarn::test::moving_right, 24.0, 16);
    int next_ = 0;
};

void rest()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

template <typename Condition>
void fork_with_held_workers(tarn::sweep& sweep, rendered& frames, const Condition& workers_are_held)
{
    while (!frames.is_over()) {
        sweep.feed(tarn::view_of(frames.next()));
    }
    while (!workers_are_held()) {
        rest();
    }
    fork_once(sweep, sweep.directory(), frames.last(), false);
    writers_get_stuck = false;
    close(until_closed[1]);
}

void fork_beside_frames(tarn::sweep& sweep, rendered& frames)
{
    std::atomic<bool> enough{false};
    std::thread camera([&] {
        while (!enough) {
            sweep.feed(tarn::view_of(frames.next()));
        }
    });
    while (sweep.preview().pixels.empty()) {
        rest();
    }
    constexpr int forks = 20;
    for (int i = 0; i < forks; ++i) {
        fork_once(sweep, sweep.directory(), frames.last(), true);
    }
    enough = true;
    camera.join();
}

}  // namespace

/// In front of the C library's, which it calls: the library under test writes its files through this.
extern "C" ssize_t write(int descriptor, const void* bytes, size_t count)
{
    struct stat status = {};
    if (writers_get_stuck && descriptor > STDERR_FILENO && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        ++stuck_writers;
        wait_until_closed();
    }
    return syscall(SYS_write, descriptor, bytes, count);
}

int main(int argc, char** argv)
{
    require(argc == 2, "usage: forked MOMENT");
    const std::string moment = argv[1];
    require(pipe2(until_closed.data(), O_CLOEXEC) == 0, "a pipe");
    rendered frames;
    tarn::sweep* sweeping = nullptr;
    tarn::sweep_options options;
    if (moment == "callback") {
        options.on_key_frame = [&](const tarn::key_frame& key) {
            if (key.number == 3) {
                fork_once(*sweeping, sweeping->directory(), frames.last(), true);
            }
        };
    }
    tarn::sweep sweep = tarn::sweep::begin(options);
    sweeping = &sweep;
    if (moment == "feeding") {
        fork_beside_frames(sweep, frames);
    } else if (moment == "callback") {
        while (!frames.is_over()) {
            sweep.feed(tarn::view_of(frames.next()));
        }
    } else if (moment == "writing") {
        writers_get_stuck = true;
        fork_with_held_workers(sweep, frames, [] { return stuck_writers > 0; });
    } else {
        tarn::worker_stage_hook = &hold_before_turn;
        fork_with_held_workers(sweep, frames, [&sweep] {
            const tarn::sweep_status now = sweep.status();
            return now.under_way == now.key_frames - 1 && waiting_before_turn == now.under_way;
        });
    }
    const tarn::panorama made = sweep.finish();
    if (moment != "feeding") {  // to and fro at any pace, a sweep may end in a key frame that does not fit
        require(made.extent == tarn::panorama_extent::whole,
                std::string("the parent's panorama: ") + tarn::name_of(made.why));
        require(fs::exists(made.file), "its file");
    }
    return 0;
}
