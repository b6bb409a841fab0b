"""Commands in the guest, with streams in both directions."""

from __future__ import annotations

import io
import math
import shlex
import signal
import socket
import threading
from collections.abc import Callable, Sequence
from types import TracebackType
from typing import TYPE_CHECKING

from . import wire
from .connection import Connection
from .deadline import Deadline
from .errors import (AgentError, CommandTimeout, ConnectionLost, OutputTooLong, ProtocolError,
                     TervainError)

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer

# How much input one frame carries. Output and signals wait behind no more than that.
_INPUT_CHUNK = 32 * 1024

# How many of them are sent before the clock is looked at.
_CHUNKS_AT_ONCE = 64

# How much output is held that nobody reads. Beyond that the command waits, as with a full pipe.
_MAX_UNREAD = 16 * 1024 * 1024

# How much output a caller gets in one piece unless more is asked for.
MAX_OUTPUT = 256 * 1024 * 1024


def command_line(command: str | Sequence[str]) -> str:
    """What the guest's shell gets: a text as it is, a list of words quoted."""
    return command if isinstance(command, str) else shlex.join(command)


class Command:
    """A command that runs in the guest; `Agent.popen` makes one. It takes a `with` block, at whose
    end it is killed with all its descendants if it still runs.

    `stdin`, `stdout` and `stderr` are binary files. Each wait for them ends with a TimeoutError
    after `timeout` seconds, which loses nothing: what was not read can be read, what was not sent
    is sent later. At most 16 MiB of output wait to be read, then the command has to. Writing to a
    command that has ended is a BrokenPipeError.

    One thread may write while others read, wait and send signals.
    """

    def __init__(self, connection: Connection, command: str, timeout: float) -> None:
        self.args = command
        self.timeout = timeout
        self.returncode: int | None = None
        self._connection = connection
        self._changed = threading.Condition()
        self._pumping = False  # by a thread that waits for all who do
        self._waker, self._wakes = socket.socketpair()
        self._wakes.setblocking(False)
        self._waker.setblocking(False)
        self._output = {"o": bytearray(), "e": bytearray()}
        self._max_unread: float = _MAX_UNREAD
        self._input = memoryview(b"")  # what is still to be sent
        self._input_closing = False  # its end is to be sent behind it
        self._failure: TervainError | None = None
        self._ended = False
        self.stdin = InputWriter(self)
        self.stdout = OutputReader(self, "o")
        self.stderr = OutputReader(self, "e")
        connection.send(wire.encode({"op": "exec", "command": command}))

    def __enter__(self) -> Command:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def poll(self) -> int | None:
        """The exit status, if the command has ended. Never waits."""
        with self._changed:
            if not self._ended and not self._pumping:
                self._pump(Deadline(0))
            self._raise_failure()
            return self.returncode

    def wait(self, timeout: float | None = None) -> int:
        """Waits for the end. The exit status is that of the command, 128 + the number of the signal
        that ended it, or -1 where the agent can't tell."""
        with self._changed:
            self._await(lambda: self._ended, self._deadline(timeout), "the command runs on")
            self._raise_failure()
            assert self.returncode is not None
            return self.returncode

    def communicate(self, input: bytes | None = None, timeout: float | None = None,
                    max_output: int = MAX_OUTPUT) -> tuple[bytes, bytes]:
        """Sends input, if there is any, and its end, and waits for the command's; gives all that
        it wrote to its output and its errors. CommandTimeout when it takes longer: it then runs on.
        OutputTooLong when it writes more than the maximum."""
        return self.collect(input, self._deadline(timeout), max_output)

    def collect(self, input: bytes | None, deadline: Deadline,
                max_output: int) -> tuple[bytes, bytes]:
        """What `communicate` does."""
        with self._changed:
            self._max_unread = math.inf
            try:
                self._await(lambda: not self._input or self._ended, deadline, "no input is read")
                self._input = memoryview(input or b"")
                self._input_closing = True
                self._feed()
                self._await(lambda: self._ended or self._unread() > max_output, deadline,
                            "the command runs on")
            except TimeoutError as error:
                raise CommandTimeout(str(error), bytes(self._output["o"]),
                                     bytes(self._output["e"])) from None
            finally:
                self._max_unread = _MAX_UNREAD
            if self._unread() > max_output:
                raise OutputTooLong(f"the command wrote more than {max_output} bytes")
            self._raise_failure()
            return self._take("o", self._unread()), self._take("e", self._unread())

    def send_signal(self, number: int) -> None:
        """Sends a signal, by its number in the guest, to the command and all its descendants."""
        with self._changed:
            if not self._ended:
                self._connection.send(wire.encode({"t": "sig", "n": wire.whole(number, 32)}))
                self._wake()

    def terminate(self) -> None:
        self.send_signal(signal.SIGTERM)

    def kill(self) -> None:
        self.send_signal(signal.SIGKILL)

    def close(self) -> None:
        """Lets go of the command, and has it killed if it still runs."""
        with self._changed:
            self._end(ConnectionLost("the command was let go before it ended"))

    # What the streams are made of. The lock is held by whoever calls what has an underscore.

    def read_some(self, tag: str, size: int, enough: Callable[[bytearray], int]) -> bytes:
        """As many bytes of a stream as are enough, once they are there. When there is no room for
        more or the stream has ended, up to so many."""
        kept = self._output[tag]
        with self._changed:
            self._await(lambda: not size or bool(enough(kept)) or self._ended
                        or (bool(kept) and not self._has_room()), self._deadline(None), "no output")
            if size and not kept:
                self._raise_failure()
            return self._take(tag, enough(kept) or size)

    def put_back(self, tag: str, data: bytearray) -> None:
        with self._changed:
            self._output[tag][:0] = data

    def write(self, data: bytes) -> None:
        """Sends input. What can't be sent in time is sent when the command is next waited for."""
        deadline = self._deadline(None)
        with self._changed:
            # What an earlier write could not send in time goes first.
            self._await(lambda: not self._input or self._ended, deadline, "no input is read")
            if self._ended:
                self._raise_failure()
                raise BrokenPipeError("the command has ended")
            self._input = memoryview(data)
            self._flush(deadline)

    def close_input(self) -> None:
        with self._changed:
            self._input_closing = True
            self._flush(self._deadline(None))

    def _flush(self, deadline: Deadline) -> None:
        self._feed()
        self._wake()
        self._await(lambda: self._ended or not (self._input or self._connection.sending), deadline,
                    "no input is read")

    def _deadline(self, timeout: float | None) -> Deadline:
        return Deadline(self.timeout if timeout is None else timeout)

    def _unread(self) -> int:
        return sum(map(len, self._output.values()))

    def _has_room(self) -> bool:
        return self._unread() < self._max_unread

    def _take(self, tag: str, size: int) -> bytes:
        kept = self._output[tag]
        with memoryview(kept) as all_of_it, all_of_it[:size] as part:
            data = part.tobytes()
        del kept[:size]
        self._wake()
        return data

    def _raise_failure(self) -> None:
        if self._failure is not None:
            raise self._failure

    def _await(self, done: Callable[[], bool], deadline: Deadline, otherwise: str) -> None:
        """Waits until something is done; one thread looks after the connection for all who wait."""
        while not done():
            if deadline.passed():
                raise TimeoutError(f"after {deadline.seconds:g} seconds {otherwise}"
                                   + ("" if self._has_room() else "; its output waits to be read"))
            if self._pumping:
                self._changed.wait(deadline.wait())
            else:
                self._pump(deadline)

    def _pump(self, deadline: Deadline) -> None:
        """Waits for one event of the connection, the lock released, and does what it allows."""
        reading = self._has_room()
        writing = self._connection.sending or self._wants_to_send()
        poller = self._connection.poller(reading=reading, writing=writing, waker=self._waker)
        self._pumping = True
        self._changed.release()
        try:
            poller.poll(deadline.wait() * 1000)
        finally:
            self._changed.acquire()
            self._pumping = False
            self._changed.notify_all()
        if self._ended:  # by another thread
            self._close_wakers()
            return
        try:
            self._waker.recv(4096)
        except BlockingIOError:
            pass
        self._connection.flush()
        if reading:
            self._connection.receive()
            self._take_frames()
        self._feed()

    def _wake(self) -> None:
        """Has the thread that waits for the connection look again what there is to wait for."""
        if self._pumping:
            try:
                self._wakes.send(b"\0")
            except BlockingIOError:
                pass  # it will wake anyway

    def _wants_to_send(self) -> bool:
        return bool(self._input) or self._input_closing

    def _feed(self) -> None:
        """Sends input while the connection takes it."""
        for _ in range(_CHUNKS_AT_ONCE):
            if self._ended or self._connection.sending or not self._wants_to_send():
                return
            if self._input:
                chunk, self._input = self._input[:_INPUT_CHUNK], self._input[_INPUT_CHUNK:]
                self._connection.send(wire.encode({"t": "i", "d": wire.carried(chunk)}))
            else:
                self._input_closing = False
                self._connection.send(wire.encode({"t": "eof"}))
            if not self._connection.writable:  # the end will tell why
                self._input, self._input_closing = memoryview(b""), False

    def _take_frames(self) -> None:
        try:
            while (not self._ended
                   and (line := self._connection.next_line(wire.MAX_FRAME)) is not None):
                self._take_frame(wire.decode(line))
            if self._connection.ended and not self._ended:
                self._end(ConnectionLost("the connection ended before the command did"))
        except ProtocolError as error:
            self._end(error)

    def _take_frame(self, frame: wire.Object) -> None:
        if "error" in frame:  # an agent that has no commands answers as to any request
            return self._end(AgentError(wire.member(frame, "error", str)))
        tag = wire.member(frame, "t", str)
        if tag in self._output:
            self._output[tag] += wire.payload(frame, "d")
        elif tag == "x":
            self.returncode = wire.member(frame, "code", int)
            self._end(None)
        elif tag == "err":
            self._end(AgentError(wire.member(frame, "m", str)))

    def _end(self, failure: TervainError | None) -> None:
        if not self._ended:
            self._ended = True
            self._failure = failure
            self._input = memoryview(b"")
            self._wake()
            self._connection.close()
            self._changed.notify_all()
            if not self._pumping:
                self._close_wakers()

    def _close_wakers(self) -> None:
        self._waker.close()
        self._wakes.close()


class OutputReader(io.BufferedIOBase):
    """What a command writes."""

    def __init__(self, command: Command, tag: str) -> None:
        self._command = command
        self._tag = tag

    def readable(self) -> bool:
        return True

    def read1(self, size: int = -1, /) -> bytes:
        """What there is, at least one byte of it; nothing at the end."""
        most = size if size >= 0 else _MAX_UNREAD
        return self._command.read_some(self._tag, most, lambda kept: min(len(kept), most))

    def read(self, size: int | None = -1, /) -> bytes:
        """So many bytes, or all up to the end, of which there may be 256 MiB."""
        everything = size is None or size < 0
        most = MAX_OUTPUT if size is None or size < 0 else size
        data = bytearray()
        try:
            while len(data) < most and (part := self.read1(most - len(data))):
                data += part
            if everything and len(data) == most and self.read1(1):
                raise OutputTooLong(f"the command wrote more than {most} bytes")
        except BaseException:
            self._command.put_back(self._tag, data)
            raise
        return bytes(data)

    def readline(self, size: int | None = -1, /) -> bytes:
        """A line with its end, or 16 MiB of one that is longer."""
        most = _MAX_UNREAD if size is None or size < 0 else size
        return self._command.read_some(
            self._tag, most,
            lambda kept: kept.find(b"\n", 0, most) + 1 or (most if len(kept) >= most else 0))


class InputWriter(io.BufferedIOBase):
    """What a command reads. Closing it is the end of the command's input."""

    def __init__(self, command: Command) -> None:
        self._command = command

    def writable(self) -> bool:
        return True

    def write(self, data: ReadableBuffer, /) -> int:
        """Sends all of it, while what the command writes is taken in."""
        if self.closed:
            raise ValueError("the command's input is closed")
        sent = data if isinstance(data, bytes) else memoryview(data).tobytes()
        self._command.write(sent)
        return len(sent)

    def close(self) -> None:
        if not self.closed:
            super().close()
            self._command.close_input()

    def __del__(self) -> None:
        """Leaves the command alone: it goes with its connection."""
