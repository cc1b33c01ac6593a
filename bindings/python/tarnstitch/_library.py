# SPDX-License-Identifier: Apache-2.0
"""The native library: found, loaded when it is first needed, its functions and structures declared to ctypes.

ctypes lets go of the interpreter's lock while a function runs, so that other threads go on meanwhile.
"""

from __future__ import annotations

import ctypes
import os
import threading
from ctypes import CFUNCTYPE, POINTER, c_char, c_char_p, c_double, c_float, c_int, c_size_t, c_ssize_t, c_void_p
from pathlib import Path
from typing import Any

from ._errors import ForkedError, LibraryError, error_for

INTERFACE_VERSION = 1  # the major version of the C interface that the structures below are of


class Image(ctypes.Structure):
    """tarn_image."""

    _fields_ = [
        ("size", c_size_t),
        ("pixels", c_void_p),
        ("width", c_int),
        ("height", c_int),
        ("row_stride", c_size_t),
        ("format", c_int),
    ]


class KeyFrame(ctypes.Structure):
    """tarn_key_frame."""

    _fields_ = [
        ("size", c_size_t),
        ("picture", c_void_p),
        ("number", c_int),
        ("placed", c_int),
        ("plane_from_frame", c_double * 9),
        ("working_width", c_int),
        ("working_height", c_int),
    ]


WHILE_WAITING = CFUNCTYPE(c_int, c_void_p, c_int)
ON_KEY_FRAME = CFUNCTYPE(None, c_void_p, POINTER(KeyFrame))
ON_LOG = CFUNCTYPE(None, c_void_p, c_char_p)
ON_PROGRESS = CFUNCTYPE(c_int, c_void_p, c_int, c_int)


class SweepOptions(ctypes.Structure):
    """tarn_sweep_options."""

    _fields_ = [
        ("size", c_size_t),
        ("directory", c_char_p),
        ("private_parent", c_char_p),
        ("user", c_void_p),
        ("while_waiting", WHILE_WAITING),
        ("on_key_frame", ON_KEY_FRAME),
        ("on_log", ON_LOG),
        ("most_under_way", c_int),
    ]


class Answer(ctypes.Structure):
    """tarn_answer."""

    _fields_ = [
        ("size", c_size_t),
        ("code", c_int),
        ("why", c_int),
        ("taken", c_int),
        ("key_frame", c_int),
        ("key_frames", c_int),
        ("registered", c_int),
        ("direction", c_int),
        ("move_distance", c_float),
        ("corners_found", c_int),
        ("corners_tracked", c_int),
        ("inliers", c_int),
        ("overlap", c_float),
        ("placed", c_int),
        ("outline", c_float * 8),
        ("angles", c_float * 4),
        ("scales", c_float * 4),
        ("milliseconds", c_double),
        ("detail", c_char * 256),
    ]


class Status(ctypes.Structure):
    """tarn_status."""

    _fields_ = [
        ("size", c_size_t),
        ("key_frames", c_int),
        ("under_way", c_int),
        ("pipeline", c_int),
        ("first_failed_key_frame", c_int),
        ("why", c_int),
    ]


class PreviewInfo(ctypes.Structure):
    """tarn_preview_info."""

    _fields_ = [
        ("size", c_size_t),
        ("has_outline", c_int),
        ("frozen", c_int),
        ("outline", c_float * 8),
    ]


class FinishOptions(ctypes.Structure):
    """tarn_finish_options."""

    _fields_ = [
        ("size", c_size_t),
        ("last_frame", POINTER(Image)),
        ("user", c_void_p),
        ("on_progress", ON_PROGRESS),
        ("hint", c_int),
    ]


class PanoramaInfo(ctypes.Structure):
    """tarn_panorama_info."""

    _fields_ = [
        ("size", c_size_t),
        ("extent", c_int),
        ("why", c_int),
        ("first_failed_key_frame", c_int),
        ("key_frames", c_int),
    ]


class FinishingFrame(ctypes.Structure):
    """tarnpy_finishing_frame."""

    _fields_ = [
        ("pixels", c_void_p),
        ("row_stride", c_size_t),
        ("width", c_int),
        ("height", c_int),
        ("placed", c_int),
        ("placement", c_double * 9),
    ]


class Finished(ctypes.Structure):
    """tarnpy_finished."""

    _fields_ = [
        ("outcome", c_int),
        ("failed_number", c_int),
        ("explanation", c_char_p),
        ("pixels", c_void_p),
        ("row_stride", c_size_t),
        ("mask", c_void_p),
        ("mask_stride", c_size_t),
        ("width", c_int),
        ("height", c_int),
        ("motion", c_char_p),
        ("projection", c_char_p),
        ("horizontal_field_of_view", c_double),
        ("vertical_field_of_view", c_double),
        ("scale", c_double),
        ("residual", c_double),
        ("left_out", POINTER(c_int)),
        ("held", c_void_p),
    ]


ON_FINISHING = CFUNCTYPE(c_int, c_char_p, c_double)

_RESULT = "tarn_result"

# Name: what it returns (a tarn_result where it says so), what it takes.
_FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "tarn_version": (c_char_p, []),
    "tarn_version_number": (c_int, []),
    "tarn_last_error": (c_char_p, []),
    "tarn_code_name": (c_char_p, [c_int]),
    "tarn_code_advice": (c_char_p, [c_int]),
    "tarn_direction_name": (c_char_p, [c_int]),
    "tarn_pipeline_name": (c_char_p, [c_int]),
    "tarn_reason_name": (c_char_p, [c_int]),
    "tarn_reason_advice": (c_char_p, [c_int]),
    "tarn_sweep_begin": (_RESULT, [POINTER(SweepOptions), POINTER(c_void_p)]),
    "tarn_sweep_feed": (_RESULT, [c_void_p, POINTER(Image), c_int, POINTER(Answer)]),
    "tarn_sweep_finish": (_RESULT, [c_void_p, POINTER(FinishOptions), POINTER(c_void_p)]),
    "tarn_sweep_cancel": (_RESULT, [c_void_p]),
    "tarn_sweep_is_current": (c_int, [c_void_p]),
    "tarn_sweep_get_status": (_RESULT, [c_void_p, POINTER(Status)]),
    "tarn_sweep_wait_for_room": (_RESULT, [c_void_p, c_int, c_int, POINTER(c_int)]),
    "tarn_sweep_preview": (_RESULT, [c_void_p, POINTER(c_void_p), POINTER(PreviewInfo)]),
    "tarn_sweep_directory": (_RESULT, [c_void_p, POINTER(c_char_p)]),
    "tarn_sweep_free": (None, [c_void_p]),
    "tarn_picture_view": (_RESULT, [c_void_p, POINTER(Image)]),
    "tarn_picture_free": (None, [c_void_p]),
    "tarn_panorama_get_info": (_RESULT, [c_void_p, POINTER(PanoramaInfo)]),
    "tarn_panorama_last_answer": (_RESULT, [c_void_p, POINTER(Answer)]),
    "tarn_panorama_view": (_RESULT, [c_void_p, POINTER(Image)]),
    "tarn_panorama_jpeg": (_RESULT, [c_void_p, POINTER(c_void_p), POINTER(c_size_t)]),
    "tarn_panorama_free": (None, [c_void_p]),
    "tarnpy_pack": (
        None,
        [c_void_p, c_int, c_int, c_int, c_ssize_t, c_ssize_t, c_ssize_t, c_int, c_void_p],
    ),
    "tarnpy_jpeg": (c_size_t, [c_void_p, c_int, c_int, POINTER(c_void_p)]),
    "tarnpy_free_bytes": (None, [c_void_p]),
}

# Of the finishing stage, which may be missing.
_FINISHING_FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "tarnpy_finish": (
        c_int,
        [POINTER(FinishingFrame), c_int, c_int, c_double, ON_FINISHING, POINTER(Finished)],
    ),
    "tarnpy_finishing_outcome": (c_char_p, [c_int]),
    "tarnpy_left_out": (c_char_p, [c_int]),
    "tarnpy_free_finished": (None, [c_void_p]),
}

_FILE = "libtarnstitch_python.so"
_lock = threading.Lock()
_loaded: ctypes.CDLL | None = None
_first_sweep_in: int | None = None  # the process that began one


def _load() -> ctypes.CDLL:
    # A build's own, for work on TarnStitch; else the one that lies with the package.
    path = os.environ.get("TARNSTITCH_PYTHON_LIBRARY") or str(Path(__file__).with_name(_FILE))
    try:
        library = ctypes.CDLL(path, mode=ctypes.RTLD_LOCAL)
        functions = _FUNCTIONS
        if hasattr(library, "tarnpy_finish"):
            functions = {**functions, **_FINISHING_FUNCTIONS}
        for name, (result, arguments) in functions.items():
            function = getattr(library, name)
            function.argtypes = arguments
            function.restype = c_int if result is _RESULT else result
    except (OSError, AttributeError) as error:
        raise LibraryError(f"the native library cannot be loaded: {error}") from error
    number = int(library.tarn_version_number())
    if number // 10000 != INTERFACE_VERSION:
        raise LibraryError(f"{path} is of version {number // 10000}; this package needs version {INTERFACE_VERSION}")
    return library


def library() -> ctypes.CDLL:
    """The library, loaded when this is first called."""
    global _loaded
    found = _loaded
    if found is None:
        with _lock:
            if _loaded is None:
                _loaded = _load()
            found = _loaded
    return found


def check(result: int) -> None:
    """Raises what a result of the C interface stands for, if it is no success."""
    if result != 0:
        text = library().tarn_last_error()
        raise error_for(result, text.decode("utf-8", "replace"))


def text_of(function: str, number: int) -> str:
    """What one of the functions that name a number says."""
    return str(getattr(library(), function)(number).decode("utf-8"))


def note_sweep() -> None:
    """Remembers the process that begins the first sweep: those that it forks afterwards cannot have one."""
    global _first_sweep_in
    if _first_sweep_in is None:
        _first_sweep_in = os.getpid()


def is_forked() -> bool:
    """Whether this process was forked from one that had begun to sweep."""
    return _first_sweep_in is not None and _first_sweep_in != os.getpid()


def refuse_fork() -> None:
    """Raises ForkedError in a process that was forked from one that had begun to sweep."""
    if is_forked():
        raise ForkedError(
            f"process {os.getpid()} was forked from process {_first_sweep_in}, which had begun to sweep: the library's "
            "threads are not here. Start processes of their own: multiprocessing.get_context('spawn')"
        )
