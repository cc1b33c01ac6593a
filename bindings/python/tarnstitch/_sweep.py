# SPDX-License-Identifier: Apache-2.0
"""One sweep of the camera, from its first frame to its panorama."""

from __future__ import annotations

import atexit
import ctypes
import operator
import os
import threading
import time
import weakref
from collections.abc import Callable
from types import TracebackType
from typing import Any, TypeVar

import numpy as np

from . import _library
from ._errors import BadArgumentError, SweepOverError
from ._frames import Frame, FrameReader, Order, Pixels, ReadFrame, pixels_of, view_of_picture
from ._library import check, library
from ._results import Answer, KeyFrame, Panorama, Preview, Status, answer_of
from ._turns import Direction, Turn, corners_of, hint_for, quarters_back, quarters_of, working_from_frame
from ._waits import LOOK_AGAIN, interruptible
from ._words import Extent, Pipeline, Reason

_Result = TypeVar("_Result")


# A thread that is in a call when the interpreter ends would be unwound by its next callback, through the library.
_begun: weakref.WeakSet[Sweep] = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    for sweep in list(_begun):
        sweep.close()


class _Call:
    """A call that may be ended, and what its callbacks have raised."""

    def __init__(self) -> None:
        self.give_up = False
        self.raised: BaseException | None = None

    def keep(self, error: BaseException) -> None:
        self.raised = self.raised or error
        self.give_up = True

    def end_the_wait(self) -> None:
        self.give_up = True


class _Callbacks:
    """What the library calls. An exception cannot pass through it, so it is kept, and ends the wait."""

    def __init__(
        self,
        quarters: int,
        on_key_frame: Callable[[KeyFrame], object] | None,
        on_log: Callable[[str], object] | None,
    ) -> None:
        self.quarters = quarters
        self.on_key_frame = on_key_frame
        self.on_log = on_log
        self._of_this_thread = threading.local()

    @property
    def call(self) -> _Call:
        """The one that this thread is in. Callbacks come on the thread of the call that they belong to."""
        return getattr(self._of_this_thread, "call", None) or _Call()

    def made(self, call: _Call, what: Callable[[], _Result]) -> _Result:
        """Makes a call of the library's as `call`."""
        self._of_this_thread.call = call
        try:
            return what()
        finally:
            self._of_this_thread.call = None

    def while_waiting(self, _user: object, _under_way: int) -> int:
        return 0 if self.call.give_up else 1

    def key_frame(self, _user: object, given: Any) -> None:
        try:
            if self.on_key_frame is not None:
                self.on_key_frame(self._key_frame_of(given.contents))
        except BaseException as error:
            self.call.keep(error)

    def log(self, _user: object, text: bytes) -> None:
        try:
            if self.on_log is not None:
                self.on_log(text.decode("utf-8", "replace"))
        except BaseException as error:
            self.call.keep(error)

    def _key_frame_of(self, told: _library.KeyFrame) -> KeyFrame:
        image = view_of_picture(told.picture)
        plane_from_frame = None
        if told.placed:
            in_working_copies = np.array(told.plane_from_frame[:]).reshape(3, 3)
            working = working_from_frame(
                (image.width, image.height), self.quarters, (told.working_width, told.working_height)
            )
            plane_from_frame = np.linalg.inv(working) @ in_working_copies @ working
            plane_from_frame /= plane_from_frame[2, 2]
        return KeyFrame(pixels_of(image, quarters_back(self.quarters)), told.number, plane_from_frame)


def _whole_number(name: str, value: int) -> int:
    """A number of key frames, checked."""
    try:
        number = operator.index(value)
    except TypeError:
        raise BadArgumentError(f"{name} is {value!r}; it must be a whole number") from None
    if not 0 <= number <= 1000:
        raise BadArgumentError(f"{name} is {number}; it must be 0 to 1000")
    return number


def _path(name: str, path: str | os.PathLike[str] | None) -> bytes | None:
    encoded = None if path is None else os.fsencode(path)
    if encoded is not None and b"\0" in encoded:
        raise BadArgumentError(f"{name} is {path!r}; a path has no NUL in it")
    return encoded


class Sweep:
    """A sweep of the camera: frames in, answers and a growing preview out, a panorama at its end.

    The library works on one sweep per process. Beginning another one takes over: the one before ends, and its methods
    raise SweepOverError. Every method may be called from any thread; other threads run while a frame is registered. A
    frame that comes while another call is inside is not taken (Code.LOST, Reason.BUSY).

    Args:
        direction: where the camera is meant to move, as one sees it who watches the frames; motion against it is
            rejected.
        order: of the channels of frames that are arrays.
        turn: how frames are turned before the library gets them. "ccw" is for upright frames. "none" is for those of a
            sensor that lies on its side, "cw" the other quarter turn: a sweep that fails one way may succeed another
            way. Everything that comes back is turned back.
        most_under_way: key frames that may be under way at once. 0: as many as come, for a camera, whose frames cannot
            wait. For a file 1 or more: `feed` waits for room first.
        directory: where the sweep keeps its files until it ends. None: a private directory. Otherwise one that is empty
            or missing, and is removed in the end.
        private_parent: where a private directory is made. None: the system's directory for temporary files.
        on_key_frame: is given each frame that becomes a key frame, before `feed` or `finish` returns.
        on_log: is given the library's log of each call.

    The two callbacks run while the calling thread waits, perhaps on another thread; what they raise is raised by the
    call that they belong to.
    """

    def __init__(
        self,
        *,
        direction: Direction = "any",
        order: Order = "bgr",
        turn: Turn = "ccw",
        most_under_way: int = 0,
        directory: str | os.PathLike[str] | None = None,
        private_parent: str | os.PathLike[str] | None = None,
        on_key_frame: Callable[[KeyFrame], object] | None = None,
        on_log: Callable[[str], object] | None = None,
    ) -> None:
        self._handle: int | None = None
        self._quarters = quarters_of(turn)
        self._direction = direction
        self._hint = hint_for(direction, self._quarters)
        self._reader = FrameReader(order, self._quarters)
        self._most_under_way = _whole_number("most_under_way", most_under_way)
        for name, callback in (("on_key_frame", on_key_frame), ("on_log", on_log)):
            if callback is not None and not callable(callback):
                raise BadArgumentError(f"{name} is {callback!r}; it must be callable")
        _library.refuse_fork()
        self._callbacks = callbacks = _Callbacks(self._quarters, on_key_frame, on_log)
        self._calls_back = on_key_frame is not None or on_log is not None
        # The structure goes; what it points to is needed until the sweep ends.
        self._kept = (
            _library.WHILE_WAITING(callbacks.while_waiting),
            _library.ON_KEY_FRAME(callbacks.key_frame) if on_key_frame is not None else _library.ON_KEY_FRAME(0),
            _library.ON_LOG(callbacks.log) if on_log is not None else _library.ON_LOG(0),
        )
        options = _library.SweepOptions(
            ctypes.sizeof(_library.SweepOptions),
            _path("directory", directory),
            _path("private_parent", private_parent),
            None,
            *self._kept,
            self._most_under_way,
        )
        handle = ctypes.c_void_p()
        begin = library().tarn_sweep_begin
        _library.note_sweep()
        try:
            check(begin(options, handle))
        finally:
            self._handle = handle.value
        _begun.add(self)

    def __enter__(self) -> Sweep:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        # In a forked process the handle is the parent's; at the interpreter's end the library sees to itself.
        if getattr(self, "_handle", None) is not None and _library is not None and not _library.is_forked():
            self.close()

    def __copy__(self) -> Sweep:
        raise TypeError("a sweep cannot be copied: it is one thing in the library")

    def __deepcopy__(self, _memo: object) -> Sweep:
        return self.__copy__()

    def __reduce__(self) -> str:
        raise TypeError("a sweep cannot be pickled: it is one thing in the library")

    def __repr__(self) -> str:
        return f"<Sweep: {'current' if self.is_current else 'over'}>"

    def feed(self, frame: Frame, direction: Direction | None = None, *, order: Order | None = None) -> Answer:
        """Registers one frame, in typically a few milliseconds.

        Args:
            frame: uint8, of H x W x 3, H x W x 4 (alpha is ignored) or H x W (gray), 1 to 16384 px on each side; or a
                PIL image. Only read, and not needed any more when the call returns. A view of an array is read where it
                lies, if its rows lie in order and their pixels side by side, and turn is "none"; otherwise there is one
                copy. All frames of a sweep should have one size.
            direction: where the camera is meant to move; None: as the sweep was begun with.
            order: of the frame's channels; None: as the sweep was begun with. PIL images have their own.

        Raises:
            FrameError: the array is no frame.
            SweepOverError: the sweep is over.
        """
        self._usable_handle()
        hint = self._hint if direction is None else hint_for(direction, self._quarters)
        return self._feed(self._reader.read(frame, order), hint)

    def _feed(self, read: ReadFrame, hint: int) -> Answer:
        handle = self._usable_handle()
        image, array = read
        told = _library.Answer(ctypes.sizeof(_library.Answer))
        feed = library().tarn_sweep_feed
        if self._calls_back or (self._most_under_way > 0 and self._would_wait(handle)):

            def call() -> Pixels:
                check(feed(handle, image, hint, told))
                return array  # which lives as long as the call, also where Ctrl-C has left it

            self._interruptible(call)
        else:
            check(feed(handle, image, hint, told))
        self._reader.give_back(array)
        return self._answer_of(told)

    def finish(
        self,
        last_frame: Frame | None = None,
        *,
        on_progress: Callable[[int, int], object] | None = None,
        order: Order | None = None,
    ) -> Panorama:
        """Waits for the workers and hands the panorama out. Ctrl-C ends the wait; the sweep goes on then.

        May be called again: when no frame came after the first time, the answer is the same. A frame that is fed after
        a finish goes on with the sweep.

        Args:
            last_frame: is composed without being registered, wherever it lies. As for `feed`.
            on_progress: is told again and again of how many key frames out of how many are done. False (not None) ends
                the wait: what there is by then is the panorama.
            order: of the last frame's channels; None: as the sweep was begun with.

        Returns:
            A panorama, also where there is no picture: its `extent` and `why` tell.
        """
        self._usable_handle()
        return self._finish(None if last_frame is None else self._reader.read(last_frame, order), on_progress)

    def _finish(self, read: ReadFrame | None, on_progress: Callable[[int, int], object] | None) -> Panorama:
        handle = self._usable_handle()
        options = _library.FinishOptions(ctypes.sizeof(_library.FinishOptions), hint=self._hint)
        if read is not None:
            options.last_frame = ctypes.pointer(read[0])
        callbacks = self._callbacks

        def progress(_user: object, done: int, key_frames: int) -> int:
            try:
                if callbacks.call.give_up or (on_progress is not None and on_progress(done, key_frames) is False):
                    return 0
            except BaseException as error:
                callbacks.call.keep(error)
                return 0
            return 1

        options.on_progress = _library.ON_PROGRESS(progress)
        panorama = ctypes.c_void_p()

        def finish() -> Panorama:
            check(library().tarn_sweep_finish(handle, options, panorama))
            try:
                return self._panorama_of(panorama, read is not None)
            finally:
                library().tarn_panorama_free(panorama)

        made = self._interruptible(finish)
        if read is not None:
            self._reader.give_back(read[1])
        return made

    @property
    def preview(self) -> Preview | None:
        """The preview panorama as it is now, a copy; None as long as no frame has been taken."""
        handle = self._usable_handle()
        picture = ctypes.c_void_p()
        info = _library.PreviewInfo(ctypes.sizeof(_library.PreviewInfo))
        try:
            check(library().tarn_sweep_preview(handle, picture, info))
            if picture.value is None:
                return None
            image = view_of_picture(picture.value)
            outline = None
            if info.has_outline:
                outline = corners_of(info.outline[:], self._quarters, image.width, image.height)
            return Preview(pixels_of(image, quarters_back(self._quarters)), outline, info.frozen != 0)
        finally:
            library().tarn_picture_free(picture)

    @property
    def status(self) -> Status:
        """Where the sweep stands."""
        told = _library.Status(ctypes.sizeof(_library.Status))
        check(library().tarn_sweep_get_status(self._usable_handle(), told))
        return Status(
            told.key_frames, told.under_way, Pipeline(told.pipeline), told.first_failed_key_frame, Reason(told.why)
        )

    @property
    def is_current(self) -> bool:
        """Whether this is the sweep that the library works on; False once it is closed, cancelled or replaced."""
        if self._handle is None or _library.is_forked():
            return False
        return bool(library().tarn_sweep_is_current(self._handle))

    @property
    def directory(self) -> str:
        """Where the sweep keeps its files, with a "/" at its end."""
        path = ctypes.c_char_p()
        check(library().tarn_sweep_directory(self._usable_handle(), path))
        return os.fsdecode(path.value or b"")

    def wait_for_room(self, most: int = 0, timeout: float | None = None) -> bool:
        """Waits until at most so many key frames are under way. Ctrl-C ends the wait.

        Args:
            most: 0 or more.
            timeout: the longest wait, in seconds; None: as long as workers move.

        Returns:
            False if it is not so when the time is over, or the workers do not move any more.
        """
        most = _whole_number("most", most)
        deadline = None if timeout is None else time.monotonic() + max(0.0, timeout)
        has_room = ctypes.c_int()
        while True:
            left = LOOK_AGAIN if deadline is None else min(LOOK_AGAIN, max(0.0, deadline - time.monotonic()))
            begun = time.monotonic()
            check(library().tarn_sweep_wait_for_room(self._usable_handle(), most, round(left * 1000), has_room))
            if has_room.value:
                return True
            # Back before its time: the workers do not move any more.
            if time.monotonic() - begun < left / 2 or (deadline is not None and time.monotonic() >= deadline):
                return False

    def cancel(self) -> None:
        """Ends the sweep for good, without a panorama. A `feed` or `finish` that is inside returns within moments."""
        if self._handle is not None:
            _library.refuse_fork()
            check(library().tarn_sweep_cancel(self._handle))

    def close(self) -> None:
        """Cancels the sweep, and gives back what it holds. Again is harmless; the end of a `with` block does it."""
        handle, self._handle = self._handle, None
        if handle is not None and not _library.is_forked():
            library().tarn_sweep_free(handle)

    def _usable_handle(self) -> int:
        _library.refuse_fork()
        if self._handle is None:
            raise SweepOverError("the sweep is closed: its with block has ended, or close() was called; begin another")
        return self._handle

    def _would_wait(self, handle: int) -> bool:
        """Whether a frame might have to wait for workers now."""
        has_room = ctypes.c_int()
        check(library().tarn_sweep_wait_for_room(handle, self._most_under_way - 1, 0, has_room))
        return not has_room.value or self.status.pipeline is Pipeline.FAILED

    def _interruptible(self, call: Callable[[], _Result]) -> _Result:
        """Makes a call that may wait, so that Ctrl-C ends it, and raises what a callback has raised meanwhile."""
        of_this = _Call()
        result = interruptible(lambda: self._callbacks.made(of_this, call), of_this.end_the_wait)
        if of_this.raised is not None:
            raise of_this.raised
        return result

    def _answer_of(self, told: _library.Answer) -> Answer:
        size = (0, 0)
        if self._quarters != 0 and self._handle is not None:
            picture = ctypes.c_void_p()
            if library().tarn_sweep_preview(self._handle, picture, None) == 0 and picture.value is not None:
                image = view_of_picture(picture.value)
                size = (image.width, image.height)
                library().tarn_picture_free(picture)
        return answer_of(told, self._quarters, size)

    def _panorama_of(self, handle: ctypes.c_void_p, has_last_frame: bool) -> Panorama:
        info = _library.PanoramaInfo(ctypes.sizeof(_library.PanoramaInfo))
        check(library().tarn_panorama_get_info(handle, info))
        answer = None
        if has_last_frame:
            told = _library.Answer(ctypes.sizeof(_library.Answer))
            check(library().tarn_panorama_last_answer(handle, told))
            answer = self._answer_of(told)
        pixels = None
        if info.extent != Extent.MISSING:
            image = _library.Image(ctypes.sizeof(_library.Image))
            check(library().tarn_panorama_view(handle, image))
            # One of the quarters is the library's own work already.
            pixels = pixels_of(image, (quarters_back(self._quarters) + 3) % 4)
        return Panorama(
            pixels, Extent(info.extent), Reason(info.why), info.first_failed_key_frame, info.key_frames, answer
        )
