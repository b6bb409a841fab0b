"""The end of all waiting."""

from __future__ import annotations

import math
import time

# The most that one wait of the system may take, whose clocks have their limits.
_LONGEST_WAIT = 3600.0


class Deadline:
    """A point of time, so many seconds from now. `math.inf` is never."""

    def __init__(self, seconds: float) -> None:
        if math.isnan(seconds) or seconds < 0:
            raise ValueError(f"a time-out of {seconds} seconds")
        self.seconds = seconds
        self._end = time.monotonic() + seconds

    def remaining(self) -> float:
        """Seconds, never below 0."""
        return max(0.0, self._end - time.monotonic())

    def wait(self) -> float:
        """How long the next wait may take, in seconds. It may end before the deadline."""
        return min(self.remaining(), _LONGEST_WAIT)

    def passed(self) -> bool:
        return time.monotonic() >= self._end
