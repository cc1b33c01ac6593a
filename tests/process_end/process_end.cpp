// SPDX-License-Identifier: Apache-2.0
//
// A host that ends in the middle of a sweep. Its exit status is 0 when the end was a clean one: no signal, and no
// worker at work any more when the host's own static objects are destroyed.
//
//     process_end WAY STAGE INDEX SEED   end when the worker INDEX reaches STAGE, plus a moment drawn from SEED
//     process_end WAY stuck INDEX SEED   end while the worker INDEX is stuck in the writing of its file, and let it
//                                        go on when everything that the library could destroy is destroyed
//     process_end WAY anywhere SEED      end somewhere in a sweep of live frames
//     process_end WAY beside_a_feeder SEED
//                                        end while another thread feeds frames, and goes on with it to the last
//
// WAY is return (from main), exit (called by the host's thread) or thread (exit, called by another thread). With
// PROCESS_END_EARLY in the environment the first worker of all is launched before main.
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "support/counted_sleep.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using tarn::worker_stage;

const cv::Size frame_size(320, 240);
constexpr int key_frames = 4;
constexpr int key_frame_step = 90;  // px

[[noreturn]] void give_up(const char* reason)
{
    std::fprintf(stderr, "%s\n", reason);
    std::_Exit(3);
}

void rest(int microseconds)
{
    usleep(static_cast<useconds_t>(microseconds));
}

cv::Mat key_frame(int index)
{
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(768, 256));
    return plane(cv::Rect((index - 1) * key_frame_step, 0, frame_size.width, frame_size.height)).clone();
}

void launch(int index, int direction = 3, float upper_angle = 90.0f, float lower_angle = 90.0f)
{
    tarn::launch_worker(key_frame(index), {upper_angle, upper_angle, lower_angle, lower_angle},
                        {1.0f, 1.0f, 1.0f, 1.0f}, direction, index);
}

// A way to have a worker stuck in the writing of its file: until a pipe is closed.
std::array<int, 2> stuck_until_closed = {-1, -1};
std::atomic<bool> writers_get_stuck{false};

void let_writers_get_stuck()
{
    if (pipe(stuck_until_closed.data()) != 0) {
        give_up("writers cannot be held up");
    }
    writers_get_stuck = true;
}

void let_writers_go()
{
    close(stuck_until_closed[1]);
}

/// The host's oldest object: constructed before the library's are in use, destroyed after the library has waited
/// for its workers.
class oldest_object {
public:
    oldest_object()
    {
        std::string pattern = (fs::temp_directory_path() / "tarnstitch_end_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr || chdir(pattern.c_str()) != 0) {
            give_up("no directory can be made");
        }
        directory_ = pattern + "/";
    }

    ~oldest_object()
    {
        if (writers_get_stuck) {
            finish_stuck_worker();
        }
        if (tarn::workers_in_flight() != 0) {
            give_up("workers are still at work");
        }
        for (int looks = 0; tarn::admitted_calls() != 0; ++looks) {  // one that is being refused counts for a moment
            if (looks == 3) {
                give_up("a frame is still inside");
            }
            rest(10);
        }
        expect_no_more_launches();
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
    void finish_stuck_worker()
    {
        if (tarn::workers_in_flight() == 0) {
            give_up("the worker was not stuck");
        }
        let_writers_go();
        while (tarn::workers_in_flight() > 0) {
            rest(1000);
        }
    }

    static void expect_no_more_launches()
    {
        try {
            tarn::launch_worker(cv::Mat(), {}, {}, 0, 1);
        } catch (const std::system_error&) {
            return;
        }
        give_up("a worker was launched after the end");
    }

    std::string directory_;
};

oldest_object host;

const bool launched_early = [] {
    if (std::getenv("PROCESS_END_EARLY") == nullptr) {
        return false;
    }
    launch(1);
    return true;
}();

/// The meeting of the host's thread and one worker at one stage. Never destroyed, as workers may outlive it.
struct meeting {
    std::mutex mutex;
    std::condition_variable changed;
    worker_stage awaited = worker_stage::started;
    int awaited_index = 0;
    bool arrived = false;
    int held_index = 0;   // a worker that waits at turn_taken until the end begins
    int stuck_index = 0;  // a worker that is to get stuck in its file
    bool writer_stuck = false;
    bool ending = false;
};

meeting& the_meeting()
{
    static auto& instance = *new meeting;
    return instance;
}

void stage_reached(worker_stage stage, int index)
{
    meeting& m = the_meeting();
    std::unique_lock<std::mutex> lock(m.mutex);
    if (stage == m.awaited && index == m.awaited_index) {
        m.arrived = true;
        m.changed.notify_all();
    }
    if (stage == worker_stage::frame_described && index == m.stuck_index) {
        let_writers_get_stuck();
    }
    if (stage == worker_stage::turn_taken && index == m.held_index) {
        m.changed.wait(lock, [&m] { return m.ending; });
    }
}

void expect(worker_stage stage, int index)
{
    meeting& m = the_meeting();
    const std::lock_guard<std::mutex> lock(m.mutex);
    m.awaited = stage;
    m.awaited_index = index;
    m.arrived = false;
}

void await_arrival()
{
    meeting& m = the_meeting();
    std::unique_lock<std::mutex> lock(m.mutex);
    m.changed.wait(lock, [&m] { return m.arrived; });
}

void tell_that_a_writer_is_stuck()
{
    meeting& m = the_meeting();
    const std::lock_guard<std::mutex> lock(m.mutex);
    m.writer_stuck = true;
    m.changed.notify_all();
}

void await_stuck_writer()
{
    meeting& m = the_meeting();
    std::unique_lock<std::mutex> lock(m.mutex);
    m.changed.wait(lock, [&m] { return m.writer_stuck; });
}

void let_go()
{
    meeting& m = the_meeting();
    const std::lock_guard<std::mutex> lock(m.mutex);
    m.ending = true;
    m.changed.notify_all();
}

/// The library waits for its workers for two seconds at most, in polls. From now on the first poll on this thread lasts
/// until they have gone, so that the two seconds are enough on any machine; the alarm ends a wait that never would.
void give_workers_their_time()
{
    static auto& polls = *new tarn::test::counted_sleep([](int) {
        while (tarn::workers_in_flight() > 0 || tarn::admitted_calls() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    static_cast<void>(polls);
}

bool parse_stage(const std::string& name, worker_stage& stage)
{
    static const std::vector<std::pair<const char*, worker_stage>> names = {
        {"started", worker_stage::started},
        {"frame_prepared", worker_stage::frame_prepared},
        {"frame_described", worker_stage::frame_described},
        {"file_written", worker_stage::file_written},
        {"polling_for_base", worker_stage::polling_for_base},
        {"polling_for_idle", worker_stage::polling_for_idle},
        {"polling_for_turn", worker_stage::polling_for_turn},
        {"turn_taken", worker_stage::turn_taken},
        {"registered", worker_stage::registered},
        {"composed", worker_stage::composed}};
    for (const auto& [known, value] : names) {
        if (name == known) {
            stage = value;
            return true;
        }
    }
    return false;
}

/// Launches the workers that bring worker `index` to `stage`, and waits until it is there.
void reach(worker_stage stage, int index)
{
    tarn::worker_stage_hook = &stage_reached;
    expect(stage, index);
    switch (stage) {
    case worker_stage::polling_for_base:  // before there is a base to bend; the second frame only
        expect(stage, 2);
        launch(2, 2, 93.0f, 87.0f);
        break;
    case worker_stage::polling_for_idle:  // while the worker before holds its turn
        the_meeting().held_index = index - 1;
        expect(worker_stage::turn_taken, index - 1);
        for (int i = 1; i < index; ++i) {
            launch(i);
        }
        await_arrival();
        expect(stage, index);
        launch(index);
        break;
    case worker_stage::polling_for_turn:  // with nobody before
        launch(index);
        break;
    default:
        for (int i = 1; i <= key_frames; ++i) {
            launch(i);
        }
        break;
    }
    await_arrival();
}

void sweep_until(int frames)
{
    constexpr int step = 12;  // px
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(768, 256));
    for (int i = 0; i < frames; ++i) {
        const cv::Mat frame = plane(cv::Rect(i * step, 0, frame_size.width, frame_size.height));
        videoStitch(tarn::test::host_frame_from(frame), 0, 0);
    }
}

/// Feeds frames to and fro on a thread of its own for as long as the process lives. @returns once it has begun
void feed_for_ever(const std::string& directory)
{
    constexpr int frames_to_and_fro = 34;
    constexpr int step = 12;  // px
    // Never destroyed, as the thread outlives all that is.
    static auto& frames = *new std::vector<cv::Mat>;
    static auto& path = *new std::string(directory);
    static auto& fed = *new std::atomic<int>(0);
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(768, 256));
    for (int i = 0; i < frames_to_and_fro; ++i) {
        const int place = i < frames_to_and_fro / 2 ? i : frames_to_and_fro - i;
        frames.push_back(
            tarn::test::host_frame_from(plane(cv::Rect(place * step, 0, frame_size.width, frame_size.height))));
    }
    std::thread([] {
        for (;;) {
            if (fed % (3 * frames_to_and_fro) == 0) {
                resetStitch(path.c_str());
            }
            videoStitch(frames[static_cast<std::size_t>(fed % frames_to_and_fro)], 0, 0);
            static_cast<void>(getCurrentPanoramsShowMat().total());
            static_cast<void>(getTestCurrentPanoramaShow());
            static_cast<void>(getCurrentPanoramaShow());
            ++fed;
        }
    }).detach();
    while (fed == 0) {
        rest(100);
    }
}

}  // namespace

/// In front of the C library's, which it calls: the library under test writes its files through this.
extern "C" ssize_t write(int descriptor, const void* bytes, size_t count)
{
    struct stat status = {};
    if (writers_get_stuck && descriptor > STDERR_FILENO && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        tell_that_a_writer_is_stuck();
        char none = 0;
        [[maybe_unused]] const ssize_t end = read(stuck_until_closed[0], &none, 1);
    }
    return syscall(SYS_write, descriptor, bytes, count);
}

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    if (words.size() < 4) {
        give_up("usage: process_end WAY STAGE|stuck INDEX SEED, or process_end WAY anywhere|beside_a_feeder SEED");
    }
    const std::string& way = words[1];
    const std::string& moment = words[2];
    std::mt19937 random(static_cast<unsigned>(std::strtoul(words.back().c_str(), nullptr, 10)));
    const auto draw = [&random](int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random);
    };

    std::cout.setstate(std::ios::failbit);
    max_wait_seconds = 600;  // nobody gives up because the machine is busy
    resetStitch(host.directory().c_str());

    worker_stage stage = worker_stage::started;
    if (moment == "anywhere") {
        sweep_until(draw(1, 36));
        rest(draw(0, 60000));
    } else if (moment == "beside_a_feeder") {
        feed_for_ever(host.directory());
        rest(draw(0, 60000));
    } else if (moment == "stuck") {
        const int index = std::atoi(words[3].c_str());
        the_meeting().stuck_index = index;
        reach(worker_stage::frame_described, index);
        await_stuck_writer();
        rest(draw(0, 30000));
    } else if (parse_stage(moment, stage)) {
        reach(stage, std::atoi(words[3].c_str()));
        // The moments within the stage that follows, from its beginning on.
        rest(draw(0, 3) == 0 ? 0 : draw(0, 40000));
    } else {
        give_up("no such stage");
    }

    constexpr unsigned limit_for_hangs = 240;  // s, many times what the end may take
    alarm(limit_for_hangs);
    let_go();
    const bool workers_end = moment != "stuck";
    if (way == "thread") {
        std::thread([workers_end] {
            if (workers_end) {
                give_workers_their_time();
            }
            std::exit(0);
        }).detach();
        for (;;) {
            pause();
        }
    }
    if (workers_end) {
        give_workers_their_time();
    }
    if (way == "exit") {
        std::exit(0);
    }
    return 0;
}
