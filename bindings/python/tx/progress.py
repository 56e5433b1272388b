"""What happens beside a run: Ctrl-C ends it with what there is so far, a line shows progress on long ones."""

from __future__ import annotations

import signal
import sys
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager

_DELAY = 2.0  # seconds before a line appears


class _Line:
    """A line on the terminal that counts points; tqdm draws it when it is there."""

    def __init__(self):
        self.begin, self.bar = time.monotonic(), None

    def __call__(self, points: int, _point) -> None:
        if self.bar is None:
            if time.monotonic() - self.begin < _DELAY:
                return
            self.bar = _bar()
        self.bar.update(points - self.bar.n)

    def close(self) -> None:
        if self.bar is not None:
            self.bar.close()


class _PlainBar:
    n = 0

    def update(self, count: int) -> None:
        self.n += count
        print(f"\r{self.n} points", end="", file=sys.stderr, flush=True)

    def close(self) -> None:
        print(file=sys.stderr)


def _bar():
    try:
        from tqdm.auto import tqdm
    except ImportError:
        return _PlainBar()
    return tqdm(unit=" points", leave=False)


def _wanted(progress) -> bool:
    return sys.stderr.isatty() if progress is None else bool(progress)


@contextmanager
def watched(progress: bool | Callable | None) -> Iterator[Callable]:
    """Gives the function that a run calls with the number of points and the point, and that answers whether
    to go on. ``progress``: None for a line where there is a terminal, True, False, or an own function.

    In the main thread the first Ctrl-C ends the run as cancelled, the second one raises KeyboardInterrupt.
    """
    interrupted = threading.Event()
    own = progress if callable(progress) else None
    line = _Line() if own is None and _wanted(progress) else None
    show = own or line or (lambda points, point: None)

    def goes_on(points: int, point) -> bool:
        return show(points, point) is not False and not interrupted.is_set()

    def stop(number, frame):
        if interrupted.is_set():
            signal.default_int_handler(number, frame)
        interrupted.set()

    ours = (threading.current_thread() is threading.main_thread()
            and signal.getsignal(signal.SIGINT) is signal.default_int_handler)
    if ours:
        signal.signal(signal.SIGINT, stop)
    try:
        yield goes_on
    finally:
        if ours:
            signal.signal(signal.SIGINT, signal.default_int_handler)
        if line is not None:
            line.close()
