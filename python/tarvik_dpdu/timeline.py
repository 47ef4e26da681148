"""Time stamps that do not wrap."""

import threading
import time
from typing import Callable, Optional

_WRAP = 1 << 32


class Timeline:
    """Extends a module's 32-bit time stamps in microseconds, which wrap after 71.6 minutes.

    The computer's steady clock decides how often they have wrapped, so a silence may last as long
    as it likes. Time stamps may come late by up to 35 minutes.
    """

    def __init__(self, clock: Callable[[], float] = time.monotonic) -> None:
        self._clock = clock
        self._lock = threading.Lock()
        self._newest: Optional[int] = None
        self._at = 0.0

    def extend(self, timestamp_us: int) -> int:
        """The time stamp as a number that never wraps; the first one stays as it is."""
        now = self._clock()
        with self._lock:
            if self._newest is None:
                extended = timestamp_us
            else:
                expected = self._newest + round((now - self._at) * 1_000_000)
                ahead = (timestamp_us - expected) % _WRAP
                extended = expected + (ahead if ahead < _WRAP // 2 else ahead - _WRAP)
            if self._newest is None or extended > self._newest:
                self._newest, self._at = extended, now
            return extended
