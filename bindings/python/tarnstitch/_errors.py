# SPDX-License-Identifier: Apache-2.0
"""The package's exceptions, one class for each result of the C interface that is no success."""

from __future__ import annotations

__all__ = [
    "BadArgumentError",
    "DirectoryNotEmptyError",
    "DirectoryUnusableError",
    "DiskError",
    "Error",
    "FinishingError",
    "ForkedError",
    "FrameError",
    "InCallbackError",
    "LibraryError",
    "NoPanoramaError",
    "OutOfMemoryError",
    "ProcessEndsError",
    "SweepOverError",
    "UnexpectedError",
]


class Error(Exception):
    """All that this package raises by itself; the text says what was wrong, in one line."""


class BadArgumentError(Error, ValueError):
    """An argument has a value that it cannot have; the text names both, and what is wanted."""


class FrameError(BadArgumentError):
    """A frame has a type, shape or order of channels that no frame has."""


class SweepOverError(Error):
    """The sweep was closed or cancelled, or another one was begun after it."""


class DirectoryNotEmptyError(Error):
    """Something lies in the directory that the sweep should use."""


class DirectoryUnusableError(Error):
    """The directory cannot be made, or not be read and written, or nobody may empty it."""


class NoPanoramaError(Error):
    """There is no panorama; the text says why."""


class OutOfMemoryError(Error, MemoryError):
    """Memory is short."""


class DiskError(Error):
    """A file could not be written."""


class ProcessEndsError(Error):
    """The process is ending."""


class InCallbackError(Error):
    """A call from a callback that could only wait for itself."""


class ForkedError(Error):
    """This process was forked from one that had begun to sweep; only a process of its own can sweep."""


class LibraryError(Error, ImportError):
    """The native library is missing, or is not the one that this package was made for."""


class FinishingError(Error):
    """The finishing stage is not installed, or made no picture; the text says why."""


class UnexpectedError(Error):
    """Anything else; the text is that of the C++ exception."""


_BY_RESULT: dict[int, type[Error]] = {
    1: BadArgumentError,
    2: SweepOverError,
    3: DirectoryNotEmptyError,
    4: DirectoryUnusableError,
    5: NoPanoramaError,
    6: OutOfMemoryError,
    7: DiskError,
    8: ProcessEndsError,
    # A handle that is none is one that was freed: by close(), on another thread.
    100: SweepOverError,
    101: LibraryError,
    102: InCallbackError,
}


def error_for(result: int, text: str) -> Error:
    """The exception for a result of the C interface that is not 0."""
    return _BY_RESULT.get(result, UnexpectedError)(text)
