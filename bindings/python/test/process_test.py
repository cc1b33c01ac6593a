# SPDX-License-Identifier: Apache-2.0
"""What belongs to a process: its threads, its signals, those that it forks, its memory, and OpenCV's own package."""

from __future__ import annotations

import os
import signal
import sys
import threading
from typing import Any

import pytest
from material import run_python, small_frames

import tarnstitch
from tarnstitch import Code, Reason
from tarnstitch._library import library


def test_other_threads_run_while_a_frame_is_registered(monkeypatch: pytest.MonkeyPatch) -> None:
    inside = False
    feed: Any = library().tarn_sweep_feed

    def watched(*arguments: Any) -> int:
        nonlocal inside
        inside = True
        result = feed(*arguments)
        inside = False
        return int(result)

    monkeypatch.setattr(library(), "tarn_sweep_feed", watched)
    frames = small_frames()
    seen = threading.Event()

    def feed_until_seen() -> None:
        with tarnstitch.Sweep() as sweep:
            for turn in range(1000):
                sweep.feed(frames[turn % len(frames)])
                if seen.is_set():
                    return

    # No thread has to let another one go on but in calls that let go of the interpreter's lock.
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)
    try:
        thread = threading.Thread(target=feed_until_seen)
        thread.start()
        while thread.is_alive() and not seen.is_set():
            if inside:
                seen.set()
            thread.join(0.0001)
        thread.join()
    finally:
        sys.setswitchinterval(interval)
    assert seen.is_set()


def test_a_frame_during_another_one_is_not_taken() -> None:
    frames = small_frames(2)
    entered, go_on = threading.Event(), threading.Event()

    def hold(_: tarnstitch.KeyFrame) -> None:
        entered.set()
        go_on.wait()

    answers: list[tarnstitch.Answer] = []
    with tarnstitch.Sweep(on_key_frame=hold) as sweep:
        thread = threading.Thread(target=lambda: answers.append(sweep.feed(frames[0])))
        thread.start()
        entered.wait()
        busy = sweep.feed(frames[1])
        assert (busy.code, busy.why, busy.taken) == (Code.LOST, Reason.BUSY, False)
        go_on.set()
        thread.join()
        assert answers[0].taken


def test_a_sweep_may_be_closed_while_threads_use_it() -> None:
    frames = small_frames()
    unexpected: list[BaseException] = []

    def use(sweep: tarnstitch.Sweep, begun: threading.Event) -> None:
        try:
            while True:
                for frame in frames:
                    sweep.feed(frame)
                    begun.set()
                    sweep.preview  # noqa: B018
                    sweep.status  # noqa: B018
        except tarnstitch.SweepOverError:
            pass
        except BaseException as error:
            unexpected.append(error)

    for _ in range(10):
        with tarnstitch.Sweep() as sweep:
            begun = threading.Event()
            threads = [threading.Thread(target=use, args=(sweep, begun)) for _ in range(3)]
            for thread in threads:
                thread.start()
            begun.wait()
        for thread in threads:
            thread.join()
    assert unexpected == []


def interrupt_and_wait(sweep: tarnstitch.Sweep) -> None:
    """In a callback: Ctrl-C, and a call that does not end by itself before that is heeded."""
    os.kill(os.getpid(), signal.SIGINT)
    while not sweep._callbacks.call.give_up:
        threading.Event().wait(0.001)


def test_ctrl_c_ends_the_wait_for_the_panorama() -> None:
    frames = small_frames()
    with tarnstitch.Sweep() as sweep:
        for frame in frames:
            sweep.feed(frame)
        with pytest.raises(KeyboardInterrupt):
            sweep.finish(on_progress=lambda done, key_frames: interrupt_and_wait(sweep))
        assert sweep.is_current
        assert sweep.finish().extent is tarnstitch.Extent.WHOLE


def test_ctrl_c_ends_a_frame_that_waits() -> None:
    frames = small_frames()
    once = [True]

    def interrupt(_: tarnstitch.KeyFrame) -> None:
        if once:
            once.clear()
            interrupt_and_wait(sweep)

    with tarnstitch.Sweep(on_key_frame=interrupt) as sweep:
        with pytest.raises(KeyboardInterrupt):
            sweep.feed(frames[0])
        assert sweep.feed(frames[1]).taken


def test_ctrl_c_ends_the_wait_for_room(monkeypatch: pytest.MonkeyPatch) -> None:
    def never(handle: object, most: int, milliseconds: int, has_room: Any) -> int:
        has_room.value = 0
        threading.Event().wait(milliseconds / 1000)
        os.kill(os.getpid(), signal.SIGINT)
        return 0

    with tarnstitch.Sweep() as sweep:
        monkeypatch.setattr(library(), "tarn_sweep_wait_for_room", never)
        with pytest.raises(KeyboardInterrupt):
            sweep.wait_for_room()


def test_a_wait_for_room_ends_with_its_time(monkeypatch: pytest.MonkeyPatch) -> None:
    asked: list[int] = []

    def never(handle: object, most: int, milliseconds: int, has_room: Any) -> int:
        has_room.value = 0
        asked.append(milliseconds)
        if len(asked) < 3:
            threading.Event().wait(milliseconds / 1000)
        return 0

    with tarnstitch.Sweep() as sweep:
        monkeypatch.setattr(library(), "tarn_sweep_wait_for_room", never)
        assert not sweep.wait_for_room(timeout=0)
        assert asked == [0]
        # The third time it comes back at once: the workers do not move any more.
        assert not sweep.wait_for_room()
        assert asked == [0, 50, 50]


FORKED = """
import os, sys
import tarnstitch
from material import small_frames

def in_a_child(work):
    child = os.fork()
    if child == 0:
        status = 1
        try:
            work()
            status = 0
        finally:
            os._exit(status)
    _, status = os.waitpid(child, 0)
    assert status == 0, status

def sweeps():
    with tarnstitch.Sweep() as sweep:
        assert sweep.feed(small_frames(1)[0]).taken

# A process that has not swept may fork: what it forks is whole.
tarnstitch.library_version()
in_a_child(sweeps)

frame = small_frames(1)[0]
sweep = tarnstitch.Sweep()
sweep.feed(frame)

def is_refused():
    global sweep
    for call in (lambda: sweep.feed(frame), sweep.finish, lambda: sweep.preview, lambda: sweep.status, sweep.cancel,
                 tarnstitch.Sweep, lambda: tarnstitch.stitch([frame])):
        try:
            call()
        except tarnstitch.ForkedError as error:
            assert "spawn" in str(error) and str(os.getpid()) in str(error), error
        else:
            raise AssertionError("not refused")
    assert not sweep.is_current
    assert tarnstitch.Code.LOST.text
    sweep.close()
    del sweep

in_a_child(is_refused)
assert sweep.feed(frame).taken
assert sweep.finish(frame)
in_a_child(is_refused)
print("done")
"""


def test_forked_processes_are_refused() -> None:
    done = run_python(FORKED)
    assert (done.stdout, done.stderr, done.returncode) == ("done\n", "", 0)


ENDS = """
import tarnstitch
from material import small_frames
sweep = tarnstitch.Sweep(on_key_frame=lambda key_frame: None)
for frame in small_frames():
    sweep.feed(frame)
print("done")
"""


def test_a_process_may_end_in_the_middle_of_a_sweep() -> None:
    done = run_python(ENDS)
    assert (done.stdout, done.stderr, done.returncode) == ("done\n", "", 0)


ENDS_WITH_CALLBACKS = """
import threading
import tarnstitch
from material import small_frames

frames = small_frames()
begun = threading.Event()

def feed():
    with tarnstitch.Sweep(on_log=lambda text: begun.set(), on_key_frame=lambda key_frame: None) as sweep:
        try:
            while True:
                for frame in frames:
                    sweep.feed(frame)
        except tarnstitch.SweepOverError:
            pass

threading.Thread(target=feed, daemon=True).start()
begun.wait()
print("done", flush=True)
"""


def test_a_process_may_end_while_a_thread_is_called_back() -> None:
    for _ in range(3):
        done = run_python(ENDS_WITH_CALLBACKS)
        assert (done.stdout, done.returncode) == ("done\n", 0), done.stderr


MEMORY = """
import os, threading
import numpy as np
import tarnstitch
from material import small_frames

frames = [np.ascontiguousarray(frame[:120, :160]) for frame in small_frames(5, 12)]

def sweep_often(times):
    for number in range(times):
        with tarnstitch.Sweep(on_key_frame=lambda key_frame: None, on_log=lambda text: None) as sweep:
            for frame in frames:
                sweep.feed(frame)
            sweep.preview
            if number % 4 == 0:
                sweep.finish(frames[-1]).jpeg()

def now():
    with open("/proc/self/statm") as file:
        pages = int(file.read().split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE") / 1e6, len(os.listdir("/proc/self/fd")), threading.active_count()

sweep_often(60)
before = now()
sweep_often(200)
after = now()
print("before and after: MB, descriptors, threads:", before, after)
assert after[0] < before[0] + 10 and after[1:] == before[1:]
"""


def test_memory_stays_the_same_over_200_sweeps() -> None:
    done = run_python(MEMORY, MALLOC_ARENA_MAX="2")
    print(done.stdout)
    assert (done.stderr, done.returncode) == ("", 0)


COEXIST = """
import hashlib, sys
import numpy as np
for name in {order!r}:
    __import__(name)
import cv2, tarnstitch
from material import sample_frames, small_frames

def opencv_works():
    frame = small_frames(1)[0]
    features, _ = cv2.AKAZE_create().detectAndCompute(frame, None)
    png = cv2.imencode(".png", frame)[1]
    return len(features), hashlib.sha256(png).hexdigest(), float(cv2.GaussianBlur(frame, (5, 5), 2).sum())

before = opencv_works()
stitched = tarnstitch.stitch(sample_frames("parking_pan.mp4", 40))
assert opencv_works() == before
print(before, hashlib.sha256(stitched.panorama.jpeg()).hexdigest(), [int(answer.code) for answer in stitched.answers])
"""


def test_opencvs_own_package_before_or_after() -> None:
    results = [run_python(COEXIST.format(order=order)) for order in (["cv2", "tarnstitch"], ["tarnstitch", "cv2"])]
    for result in results:
        assert (result.stderr, result.returncode) == ("", 0)
    assert results[0].stdout == results[1].stdout != ""


ALONE = """
import numpy, tarnstitch
with tarnstitch.Sweep() as sweep:
    sweep.feed(numpy.zeros((48, 64), numpy.uint8))
loaded = {line.split("/")[-1].strip() for line in open("/proc/self/maps") if "/" in line}
print(sorted(name for name in loaded if "opencv" in name))
"""


def test_no_other_opencv_is_needed() -> None:
    assert run_python(ALONE).stdout == "[]\n"


def test_the_library_is_loaded_when_it_is_needed() -> None:
    done = run_python("import tarnstitch; print(tarnstitch._library._loaded)")
    assert done.stdout == "None\n"
    done = run_python("import tarnstitch; tarnstitch.Sweep()", TARNSTITCH_PYTHON_LIBRARY="/nowhere/library.so")
    assert "tarnstitch._errors.LibraryError" in done.stderr and "/nowhere/library.so" in done.stderr
