# SPDX-License-Identifier: Apache-2.0
"""Calls that may last, made so that Ctrl-C ends them."""

from __future__ import annotations

import threading
from collections.abc import Callable
from typing import TypeVar

_Result = TypeVar("_Result")

LOOK_AGAIN = 0.05  # s, how long a wait may keep Ctrl-C waiting


def interruptible(call: Callable[[], _Result], end_the_wait: Callable[[], None]) -> _Result:
    """Makes a call that may wait, so that Ctrl-C ends it.

    Python's signal handlers run on the main thread, between two of its own steps. A call from there is made on a thread
    of its own, while the main one waits where it can be interrupted.

    Args:
        call: what is to be done.
        end_the_wait: has it come back soon; called again and again, since a call on another thread may begin meanwhile.
    """
    if threading.current_thread() is not threading.main_thread():
        return call()
    results: list[_Result] = []
    errors: list[BaseException] = []
    done = threading.Event()
    has_begun = is_given_up = False

    def run() -> None:
        nonlocal has_begun
        has_begun = True
        try:
            if not is_given_up:
                results.append(call())
        except BaseException as error:
            errors.append(error)
        finally:
            done.set()

    try:
        threading.Thread(target=run, name="tarnstitch", daemon=True).start()
        # Not in one go: a signal that comes just before a wait does not end it.
        while not done.wait(LOOK_AGAIN):
            pass
    except BaseException:
        is_given_up = True
        while has_begun and not done.wait(LOOK_AGAIN):
            end_the_wait()
        raise
    if errors:
        raise errors.pop()  # not kept: it would keep its frames
    return results[0]
