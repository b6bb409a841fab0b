"""What can go wrong. A time-out is the built-in TimeoutError, a bad argument a ValueError."""

from __future__ import annotations


class TervainError(Exception):
    """The base of the errors that this package has of its own."""


class AddressError(TervainError, ValueError):
    """What was given is no address, and no name of an agent."""


class ConnectionLost(TervainError, ConnectionError):
    """The connection ended before the agent had answered. The next call makes a new one."""


class AgentUnreachable(ConnectionLost):
    """There is no agent where the address says, or it lets nobody in."""


class ProtocolError(TervainError):
    """What came is nothing that an agent says: no JSON, a member of the wrong type, no end."""


class AgentError(TervainError):
    """The agent refused. `words` is what it said; the text may have advice behind it."""

    def __init__(self, words: str, advice: str = "") -> None:
        super().__init__(f"{words} ({advice})" if advice else words)
        self.words = words


class StaleElement(AgentError):
    """The element is of a snapshot that is not the last one of its connection any more."""


class ElementNotFound(TervainError, LookupError):
    """No element that is shown fits. The text says so when not all of them are shown."""


class AmbiguousElement(TervainError, LookupError):
    """More than one element fits, and nothing was done. The text lists them."""


class CommandTimeout(TimeoutError):
    """A command did not end in time. `stdout` and `stderr` are what it had written until then."""

    def __init__(self, message: str, stdout: bytes, stderr: bytes) -> None:
        super().__init__(message)
        self.stdout = stdout
        self.stderr = stderr


class OutputTooLong(TervainError):
    """A command wrote more than the caller wanted to hold."""
