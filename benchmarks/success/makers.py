# SPDX-License-Identifier: Apache-2.0
"""Those who make a panorama of a sweep: TarnStitch live and finished, OpenCV's stitcher, Hugin.

Each runs in processes of its own, with a limit on their processor time and memory, and leaves one picture or none.
"""

import csv
import dataclasses
import json
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import time

MEMORY_LIMIT = 8 << 30  # bytes of addresses
HERE = pathlib.Path(__file__).parent


@dataclasses.dataclass
class Made:
    picture: pathlib.Path | None = None
    seconds: float = 0.0  # of processors
    remark: str = ""
    answers: dict = dataclasses.field(default_factory=dict)


class Limited:
    """Runs commands one after the other until their processor time is used up."""

    def __init__(self, limit):
        self.limit = limit
        self.used = 0.0
        self.remark = ""

    def run(self, command, **more):
        left = self.limit - self.used
        if left < 1:
            self.remark = "time"
            return None
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        begun = time.monotonic()

        def bounded():
            resource.setrlimit(resource.RLIMIT_CPU, (int(left) + 1, int(left) + 2))
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))

        try:
            done = subprocess.run(
                [str(part) for part in command],
                preexec_fn=bounded,
                capture_output=True,
                text=True,
                errors="replace",
                stdin=subprocess.DEVNULL,
                timeout=8 * self.limit,
                check=False,
                **more,
            )
        except subprocess.TimeoutExpired:
            self.remark = "time"
            return None
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.used += after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        if done.returncode < 0:
            is_late = done.returncode == -signal.SIGXCPU or self.used >= self.limit - 1
            self.remark = "time" if is_late else f"signal {-done.returncode}"
        elif done.returncode > 0:
            self.remark = (done.stderr.strip().splitlines() or [f"exit code {done.returncode}"])[-1][:200]
        self.wall = time.monotonic() - begun
        return done


def tarnstitch(program, inputs, folder, limit):
    """The live panorama, as a camera's one try gives it, and the finished picture, cut to a rectangle and not."""
    runner = Limited(limit)
    frames = folder / "frames.csv"
    common = [program, *inputs, "--json", "--quiet"]
    done = runner.run([*common, "--no-retry", "-o", folder / "panorama.jpg", "--frames", frames])
    live = Made(picture_of(folder, "panorama"), runner.used, runner.remark)
    if done is not None and done.stdout.strip():
        summary = json.loads(done.stdout)
        live.answers = {
            "frames": summary["frames"]["handed_over"],
            "taken": summary["frames"]["taken"],
            "by_code": {name: count for name, count in summary["frames"]["by_code"].items() if count},
            "key_frames": summary["key_frames"],
        }
    runner = Limited(limit)
    more_frames = folder / "frames-of-finished.csv"
    runner.run([*common, "--finish", "-o", folder / "second.jpg", "--frames", more_frames])
    finished = Made(picture_of(folder, "second-finished"), runner.used, runner.remark)
    runner = Limited(limit)
    runner.run([*common, "--finish", "--crop=none", "-o", folder / "third.jpg"])
    uncut = Made(picture_of(folder, "third-finished"), runner.used, runner.remark)
    # Where the live try broke, the program goes on: the others are given what it had then.
    return live, finished, uncut, max(key_frames_of(frames), key_frames_of(more_frames), key=lambda numbers: numbers[-1:])


def picture_of(folder, stem):
    for name in (f"{stem}.jpg", f"{stem}-partial.jpg"):
        if (folder / name).exists():
            return folder / name
    return None


def key_frames_of(table):
    """The numbers of the key frames, from 0."""
    if not table.exists():
        return []
    with table.open(newline="") as lines:
        return [int(row["frame"]) - 1 for row in csv.DictReader(lines) if row["key_frame"] in ("1", "true", "yes")]


def opencv(mode, pictures, folder, limit):
    runner = Limited(limit)
    result = folder / f"{mode}.png"
    done = runner.run([sys.executable, HERE / "opencv_stitcher.py", mode, result, *pictures])
    stitching = done.stdout.split() if done is not None else []
    return Made(result if result.exists() else None, float(stitching[0]) if stitching else runner.used, runner.remark)


def has_hugin():
    return all(shutil.which(program) for program in ("pto_gen", "cpfind", "autooptimiser", "nona", "enblend"))


def hugin(pictures, folder, limit):
    """As Hugin's assistant goes: points, cleaned, all optimised, a level horizon, a canvas, blending by enblend."""
    runner = Limited(limit)
    project, result = folder / "hugin.pto", folder / "hugin.png"
    field_of_view = 50  # degrees; what Hugin takes where a picture says nothing
    steps = [
        ["pto_gen", "-f", field_of_view, "-o", project, *pictures],
        ["cpfind", "-n", 1, "--linearmatch", "--linearmatchlen=2", "-o", project, project],  # in the sweep's order
        ["cpclean", "-n", 1, "-o", project, project],
        ["autooptimiser", "-a", "-m", "-l", "-s", "-o", project, project],
        ["pano_modify", "--canvas=AUTO", "--crop=AUTO", "-o", project, project],
        ["nona", "-m", "TIFF_m", "-o", folder / "hugin-", project],
    ]
    for step in steps:
        done = runner.run(step)
        if done is None or done.returncode != 0:
            return Made(None, runner.used, f"{step[0]}: {runner.remark}")
    layers = sorted(folder.glob("hugin-*.tif"))
    if layers:
        runner.run(["enblend", "-o", result, *layers])
    for layer in layers:
        layer.unlink()
    return Made(result if result.exists() else None, runner.used, runner.remark)
