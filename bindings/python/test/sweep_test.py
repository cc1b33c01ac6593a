# SPDX-License-Identifier: Apache-2.0
"""The life of a sweep: its answers, its end, what comes after; its words, pictures and files."""

from __future__ import annotations

import dataclasses
import gc
import io
import os
import stat
import threading
from collections.abc import Callable
from pathlib import Path
from typing import Any

import cv2
import numpy as np
import PIL.Image
import pytest
from material import Pixels, decoded, small_frames

import tarnstitch
from tarnstitch import Code, Extent, Pipeline, Reason
from tarnstitch._turns import corners_of, working_from_frame


def test_version_is_that_of_the_project() -> None:
    cmake = (Path(__file__).resolve().parents[3] / "CMakeLists.txt").read_text()
    project = (Path(__file__).resolve().parents[3] / "pyproject.toml").read_text()
    assert f"VERSION {tarnstitch.__version__}\n" in cmake
    assert f'version = "{tarnstitch.__version__}"' in project
    assert tarnstitch.library_version() == tarnstitch.__version__


def test_a_sweep_from_its_begin_to_its_panorama() -> None:
    frames = small_frames()
    with tarnstitch.Sweep(direction="right") as sweep:
        assert sweep.is_current
        assert sweep.preview is None
        answers = [sweep.feed(frame) for frame in frames]
        assert {answer.code for answer in answers} == {Code.NORMAL, Code.TOO_FAST}
        assert all(answer.taken and answer.placed for answer in answers)
        assert answers[0].key_frame == 1 and not answers[0].registered
        assert [answer.direction for answer in answers[-3:]] == ["right"] * 3
        assert sweep.wait_for_room()
        status = sweep.status
        assert status.key_frames == answers[-1].key_frames > 1
        assert (status.under_way, status.pipeline, status.why) == (0, Pipeline.READY, Reason.NONE)
        panorama = sweep.finish()
        again = sweep.finish()
        assert np.array_equal(panorama.pixels, again.pixels) and panorama.pixels is not again.pixels
        assert panorama and panorama.extent is Extent.WHOLE
        assert panorama.last_answer is None
        assert panorama.pixels.shape[1] > 1.3 * frames[0].shape[1] > panorama.pixels.shape[0] > 100
    assert not sweep.is_current


def test_motion_against_the_direction_is_the_wrong_way() -> None:
    frames = small_frames(6)
    for turn, wrong in (("ccw", "left"), ("none", "left"), ("cw", "left")):
        with tarnstitch.Sweep(direction=wrong, turn=turn) as sweep:  # type: ignore[arg-type]
            assert Code.WRONG_WAY in [sweep.feed(frame).code for frame in frames]
    with tarnstitch.Sweep() as sweep:
        assert Code.WRONG_WAY in [sweep.feed(frame, "left").code for frame in frames]


def test_after_its_end_a_sweep_takes_nothing() -> None:
    frame = small_frames(1)[0]
    with tarnstitch.Sweep() as sweep:
        sweep.feed(frame)
    calls: list[Callable[[], object]] = [
        lambda: sweep.feed(frame),
        sweep.finish,
        lambda: sweep.preview,
        lambda: sweep.status,
        lambda: sweep.directory,
        sweep.wait_for_room,
    ]
    for call in calls:
        with pytest.raises(tarnstitch.SweepOverError, match="closed"):
            call()
    sweep.close()
    sweep.cancel()
    assert repr(sweep) == "<Sweep: over>"


def test_a_cancelled_sweep_is_over() -> None:
    frame = small_frames(1)[0]
    with tarnstitch.Sweep() as sweep:
        directory = Path(sweep.directory)
        assert directory.is_dir()
        sweep.cancel()
        assert not directory.exists()
        with pytest.raises(tarnstitch.SweepOverError) as over:
            sweep.feed(frame)
        assert str(over.value)


def test_another_sweep_takes_over() -> None:
    frames = small_frames(3)
    with tarnstitch.Sweep() as first:
        first.feed(frames[0])
        with tarnstitch.Sweep() as second:
            assert second.is_current and not first.is_current
            with pytest.raises(tarnstitch.SweepOverError, match="(?i)another"):
                first.feed(frames[1])
            assert second.feed(frames[1]).key_frame == 1
            first.close()
            assert second.is_current


def test_a_sweep_that_nobody_holds_ends() -> None:
    sweep = tarnstitch.Sweep(on_log=lambda text: None)
    directory = Path(sweep.directory)
    del sweep
    gc.collect()
    assert not directory.exists()


def test_directories(tmp_path: Path) -> None:
    with tarnstitch.Sweep(directory=tmp_path / "a" / "b") as sweep:
        assert sweep.directory == f"{tmp_path}/a/b/"
    assert not (tmp_path / "a" / "b").exists()
    with tarnstitch.Sweep(private_parent=tmp_path) as sweep:
        assert Path(sweep.directory).parent == tmp_path
    (tmp_path / "file").write_text("kept")
    with pytest.raises(tarnstitch.DirectoryNotEmptyError, match=str(tmp_path)):
        tarnstitch.Sweep(directory=tmp_path)
    with pytest.raises(tarnstitch.DirectoryUnusableError):
        tarnstitch.Sweep(directory=tmp_path / "file")
    assert (tmp_path / "file").read_text() == "kept"


def test_a_panorama_of_nothing() -> None:
    with tarnstitch.Sweep() as sweep:
        panorama = sweep.finish()
    assert not panorama
    assert (panorama.extent, panorama.why, panorama.key_frames) == (Extent.MISSING, Reason.NO_FRAMES, 0)
    assert "no picture" in repr(panorama)
    calls: list[Callable[[], object]] = [lambda: panorama.pixels, panorama.jpeg, lambda: panorama.save("panorama.jpg")]
    for call in calls:
        with pytest.raises(tarnstitch.NoPanoramaError, match=panorama.why.text):
            call()
    assert panorama._repr_jpeg_() is None


def test_pictures_are_the_callers_own() -> None:
    frames = small_frames(3)
    with tarnstitch.Sweep() as sweep:
        for frame in frames:
            sweep.feed(frame)
        preview = sweep.preview
        assert preview is not None
        panorama = sweep.finish(frames[-1])
        assert panorama.last_answer is not None and panorama.last_answer.taken
        unchanged = panorama.pixels.copy(), preview.pixels.copy()
        for pixels in (panorama.pixels, preview.pixels):
            assert pixels.flags.owndata and pixels.flags.writeable and pixels.dtype == np.uint8
            pixels[:] = 0
        again = sweep.preview
        assert again is not None
        assert np.array_equal(again.pixels, unchanged[1])
        assert np.array_equal(sweep.finish(frames[-1]).pixels.shape, unchanged[0].shape)
    assert not panorama.pixels.any()  # though the sweep is gone


def test_save_writes_the_whole_file_or_none(tmp_path: Path) -> None:
    with tarnstitch.Sweep() as sweep:
        panorama = sweep.finish(small_frames(1)[0])
    umask = os.umask(0o022)
    try:
        file = tmp_path / "panorama.jpg"
        file.write_text("what was there before")
        panorama.save(file)
        panorama.save(str(tmp_path / "again.JPEG"))
    finally:
        os.umask(umask)
    assert file.read_bytes() == (tmp_path / "again.JPEG").read_bytes() == panorama.jpeg()
    assert stat.S_IMODE(file.stat().st_mode) == 0o644
    assert np.abs(decoded(panorama.jpeg()).astype(int) - panorama.pixels).mean() < 8
    with pytest.raises(tarnstitch.DiskError, match="none/panorama.jpg"):
        panorama.save(tmp_path / "none" / "panorama.jpg")
    (tmp_path / "directory.jpg").mkdir()
    with pytest.raises(tarnstitch.DiskError):
        panorama.save(tmp_path / "directory.jpg")
    with pytest.raises(tarnstitch.BadArgumentError, match=".png"):
        panorama.save(tmp_path / "panorama.png")
    assert sorted(os.listdir(tmp_path)) == ["again.JPEG", "directory.jpg", "panorama.jpg"]


def test_notebooks_show_pictures() -> None:
    frames = small_frames(3)
    stitched = tarnstitch.stitch(frames)
    preview = stitched.preview
    assert preview is not None
    picture = PIL.Image.open(io.BytesIO(preview._repr_png_()))
    assert np.array_equal(np.asarray(picture), preview.pixels[..., ::-1])
    assert preview.shape == preview.pixels.shape[:2]
    for jpeg in (stitched._repr_jpeg_(), stitched.panorama._repr_jpeg_()):
        assert jpeg == stitched.panorama.jpeg()


def difference(pixels: Pixels, other: Pixels) -> float:
    """Of two pictures, made small and equally large, in gray levels."""
    size = (40, 30)
    return float(np.abs(cv2.resize(pixels, size, interpolation=cv2.INTER_AREA).astype(int)
                        - cv2.resize(other, size, interpolation=cv2.INTER_AREA)).mean())


@pytest.mark.parametrize("turn", ["ccw", "cw", "none"])
def test_everything_comes_back_in_the_frames_own_orientation(turn: Any) -> None:
    frames = small_frames(3, 8)
    with tarnstitch.Sweep(turn=turn) as sweep:
        first = sweep.feed(frames[0])
        preview = sweep.preview
        assert preview is not None
        # The first frame is the whole preview, whichever way it lies.
        height, width = preview.shape
        assert abs(width / height - frames[0].shape[1] / frames[0].shape[0]) < 0.01
        assert difference(preview.pixels, frames[0]) < 3 < 20 < difference(preview.pixels[::-1, ::-1], frames[0])
        assert preview.outline == first.outline
        assert np.allclose(first.outline, [(0, 0), (width, 0), (width, height), (0, height)], atol=2)
        later = sweep.feed(frames[1])
        assert later.direction == "right"
        assert np.mean(later.outline, axis=0)[0] > np.mean(first.outline, axis=0)[0] + 5 * width / frames[0].shape[1]
        panorama = sweep.finish()
    assert difference(panorama.pixels, frames[0]) < 20 < difference(panorama.pixels[::-1, ::-1], frames[0])


def test_corners_follow_the_pixels() -> None:
    picture = np.zeros((5, 9), np.uint8)
    for quarters in range(4):
        for number, (x, y) in enumerate([(1, 2), (8, 0), (7, 4), (0, 3)], 1):
            picture[y, x] = number
        back = np.rot90(picture, quarters)
        corners = corners_of([1, 2, 8, 0, 7, 4, 0, 3], quarters, 9, 5)
        names = [back[int(y), int(x)] for x, y in corners]
        # Turned counter-clockwise, the second one comes first.
        assert names == [(index + quarters) % 4 + 1 for index in range(4)]


def test_key_frames() -> None:
    frames = small_frames()
    for turn in ("ccw", "cw", "none"):
        key_frames: list[tarnstitch.KeyFrame] = []
        fed: list[int] = []
        with tarnstitch.Sweep(turn=turn, on_key_frame=key_frames.append) as sweep:  # type: ignore[arg-type]
            for number, frame in enumerate(frames):
                if sweep.feed(frame).key_frame > 0:
                    fed.append(number)
            sweep.finish(frames[-1])
        assert [key_frame.number for key_frame in key_frames] == list(range(1, len(fed) + 2))
        for number, key_frame in zip(fed, key_frames):
            assert np.array_equal(key_frame.pixels, frames[number])
            assert key_frame.plane_from_frame is not None
            # The camera moves to the right by 24 px a frame.
            centre = key_frame.plane_from_frame @ [160, 120, 1]
            assert np.allclose(centre[:2] / centre[2], [160 + 24 * number, 120], atol=4)
        assert key_frames[-1].plane_from_frame is None


def test_working_copies() -> None:
    # The corners of a frame of 640 x 480 px, turned counter-clockwise and made 300 px wide.
    matrix = working_from_frame((480, 640), 3, (300, 400))
    for point, expected in (((-0.5, -0.5), (-0.5, 399.5)), ((639.5, -0.5), (-0.5, -0.5)), ((639.5, 479.5), (299.5, -0.5))):
        assert np.allclose((matrix @ [*point, 1])[:2], expected)


def test_the_log() -> None:
    lines: list[str] = []
    with tarnstitch.Sweep(on_log=lines.append) as sweep:
        sweep.feed(small_frames(1)[0])
    assert lines and all(isinstance(line, str) for line in lines)


def test_what_a_callback_raises_is_raised_by_the_call() -> None:
    class Oops(Exception):
        pass

    def fail(_: object) -> None:
        raise Oops("here")

    frames = small_frames(2)
    for options in ({"on_log": fail}, {"on_key_frame": fail}):
        with tarnstitch.Sweep(**options) as sweep:  # type: ignore[arg-type]
            with pytest.raises(Oops, match="here"):
                sweep.feed(frames[0])
            assert sweep.is_current
    with tarnstitch.Sweep() as sweep:
        for frame in frames:
            sweep.feed(frame)
        with pytest.raises(Oops, match="here"):
            sweep.finish(frames[-1], on_progress=lambda done, key_frames: fail(None))
        assert sweep.finish()


@pytest.mark.parametrize("turn", ["ccw", "cw", "none"])
def test_the_outline_of_a_rejected_frame_is_that_of_the_one_before(turn: Any) -> None:
    frames = small_frames(3)
    with tarnstitch.Sweep(turn=turn) as sweep:
        for frame in frames:
            sweep.feed(frame)
        answer = sweep.feed(np.full_like(frames[0], 128))
        preview = sweep.preview
        assert not answer.taken and preview is not None and preview.outline is not None
        assert np.allclose(np.asarray(answer.outline), np.asarray(preview.outline))


def test_a_callbacks_exception_stays_with_its_call() -> None:
    class Oops(Exception):
        pass

    frames = small_frames(2)
    inside, go_on = threading.Event(), threading.Event()
    codes: list[Code] = []

    def fail(_: object) -> None:
        inside.set()
        go_on.wait(60)
        raise Oops("here")

    with tarnstitch.Sweep(on_key_frame=fail) as sweep:

        def feed_another() -> None:
            inside.wait(60)
            codes.append(sweep.feed(frames[1]).code)
            go_on.set()

        thread = threading.Thread(target=feed_another)
        thread.start()
        with pytest.raises(Oops, match="here"):
            sweep.feed(frames[0])
        thread.join()
    assert codes == [Code.LOST]


def test_calls_from_a_callback_that_could_only_wait_are_refused() -> None:
    frames = small_frames(2)
    refusals: list[Exception] = []

    def feed_more(_: object) -> None:
        calls: list[Callable[[], object]] = [lambda: sweep.feed(frames[1]), sweep.finish, tarnstitch.Sweep]
        for call in calls:
            try:
                call()
            except tarnstitch.Error as error:
                refusals.append(error)

    with tarnstitch.Sweep(on_key_frame=feed_more) as sweep:
        sweep.feed(frames[0])
    assert [type(refusal) for refusal in refusals] == [tarnstitch.InCallbackError] * 3


def test_progress_ends_the_wait() -> None:
    frames = small_frames()
    calls: list[tuple[int, int]] = []
    with tarnstitch.Sweep() as sweep:
        for frame in frames:
            sweep.feed(frame)
        panorama = sweep.finish(on_progress=lambda done, all_of_them: calls.append((done, all_of_them)))
        assert panorama.extent is Extent.WHOLE
        assert all(0 <= done <= all_of_them == panorama.key_frames for done, all_of_them in calls)


def test_words_are_the_librarys() -> None:
    assert Code.SKEWED.advice == "hold the device level"
    assert [code.text for code in (Code.FEW_DETAILS, Code.LOST)] == ["few details", "lost"]
    assert Reason.TOO_FEW_MATCHES.text == "too few matches"
    assert Reason.NONE.advice == ""
    assert Pipeline.BUSY.text == "busy"
    for words in (Code, Reason, Pipeline):
        texts = [word.text for word in words]  # type: ignore[attr-defined]
        assert "unknown" not in texts and len(set(texts)) == len(texts)


def test_words_are_those_of_the_header() -> None:
    header = (Path(__file__).resolve().parents[3] / "TarnStitchSDK" / "tarn_c.h").read_text()
    for words, prefix in ((Code, "CODE"), (Reason, "REASON"), (Pipeline, "PIPELINE"), (Extent, "EXTENT")):
        lines = [line.split(",")[0].split("//")[0].split() for line in header.splitlines()
                 if line.startswith(f"    TARN_{prefix}_")]
        assert {(name.removeprefix(f"TARN_{prefix}_"), int(number)) for name, _, number in lines} == {
            (word.name, word.value) for word in words
        }


def test_answers_are_plain_values() -> None:
    with tarnstitch.Sweep() as sweep:
        answer = sweep.feed(small_frames(1)[0])
    assert answer == dataclasses.replace(answer)
    assert answer.advice == answer.code.advice == ""
    assert answer.milliseconds > 0
