"""A stream between the host and an agent, cut into lines."""

from __future__ import annotations

import select
import socket
import subprocess

from .deadline import Deadline
from .errors import ConnectionLost, ProtocolError
from .wire import excerpt

_READ_SIZE = 256 * 1024

# How long a program that is a connection may take to end, once asked kindly and once not.
_PATIENCE = 0.5


class Connection:
    """Lines in both directions. Nothing waits but what says so. Not for several threads
    at once; but one may wait with a `poller` while others go on."""

    def __init__(self, stream: socket.socket,
                 program: subprocess.Popen[bytes] | None = None) -> None:
        stream.setblocking(False)
        self._socket = stream
        self._program = program
        self._unsent = bytearray()
        self._received = bytearray()
        self._searched = 0  # of what was received, without a line feed
        self._writable = True
        self.ended = False  # everything has been received that ever will be

    @property
    def sending(self) -> bool:
        """Whether something waits for the agent to read on."""
        return bool(self._unsent)

    @property
    def writable(self) -> bool:
        """Whether the agent still takes what is sent."""
        return self._writable

    def send(self, line: bytes) -> None:
        """Queues a line, and sends what can be sent at once."""
        self._unsent += line
        self.flush()

    def flush(self) -> None:
        try:
            while self._unsent and self._writable:
                del self._unsent[: self._socket.send(self._unsent)]
        except BlockingIOError:
            return
        except OSError:  # what the agent said before it closed can still be read
            self._writable = False
        if not self._writable:
            self._unsent.clear()

    def receive(self) -> None:
        """Takes in what has come, up to a limit."""
        try:
            data = self._socket.recv(_READ_SIZE)
        except BlockingIOError:
            return
        except OSError:
            data = b""
        self._received += data
        self.ended = self.ended or not data

    def next_line(self, limit: int) -> bytes | None:
        """The next line without its end, if it is complete. ProtocolError beyond the limit."""
        end = self._received.find(b"\n", self._searched)
        self._searched = len(self._received) if end < 0 else end
        if self._searched > limit:
            raise ProtocolError(f"the agent sent a line of more than {limit} bytes: "
                                f"{excerpt(bytes(self._received[:80]))}")
        if end < 0:
            return None
        line = bytes(self._received[:end])
        del self._received[: end + 1]
        self._searched = 0
        return line.removesuffix(b"\r")

    def poller(self, *, reading: bool, writing: bool,
               waker: socket.socket | None = None) -> select.poll:
        """What to wait with until there is something to receive or room to send, or the waker is
        readable."""
        poll = select.poll()
        events = (select.POLLIN if reading and not self.ended else 0) | (
            select.POLLOUT if writing and self._writable else 0)
        if events:  # the end of a connection would show, and not be waited for
            poll.register(self._socket, events)
        if waker is not None:
            poll.register(waker, select.POLLIN)
        return poll

    def exchange(self, line: bytes, deadline: Deadline, limit: int) -> bytes:
        """Sends a line and waits for the one that answers it. TimeoutError, ConnectionLost and
        ProtocolError leave the connection of no further use."""
        self.expect_silence()
        self.send(line)
        while (reply := self.next_line(limit)) is None:
            if self.ended:
                raise ConnectionLost(f"the agent ended the connection{self._why()}")
            if deadline.passed():
                raise TimeoutError(f"no reply within {round(deadline.seconds, 1):g} seconds")
            self.poller(reading=True, writing=self.sending).poll(deadline.wait() * 1000)
            self.flush()
            self.receive()
        self.expect_silence()
        return reply

    def expect_silence(self) -> None:
        """ProtocolError when something has come that nobody asked for."""
        if not self.ended:
            self.receive()
        if self._received:
            raise ProtocolError("the agent sent what nobody asked for: "
                                + excerpt(bytes(self._received[:80])))

    def _why(self) -> str:
        if self._program is None:
            return ""
        try:
            status = self._program.wait(_PATIENCE)
        except subprocess.TimeoutExpired:
            return ""
        return f", as its program ended with status {status}"

    def close(self) -> None:
        """Ends the connection, and the program that it is, within a second or so."""
        self._socket.close()
        self.ended = True
        self._writable = False
        self._unsent.clear()
        if self._program is None:
            return
        for end in (lambda: None, self._program.terminate, self._program.kill):
            end()
            try:
                self._program.wait(_PATIENCE)
                return
            except subprocess.TimeoutExpired:
                continue
