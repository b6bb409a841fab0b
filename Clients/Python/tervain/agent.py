"""An agent, as a host sees it."""

from __future__ import annotations

import contextlib
import subprocess
import threading
import time
from collections.abc import Iterator, Mapping, Sequence
from types import TracebackType
from typing import Any, Literal, NamedTuple, overload

from . import wire
from .addresses import connect, resolve
from .command import MAX_OUTPUT, Command, command_line
from .connection import Connection
from .deadline import Deadline
from .elements import MAX_DEPTH, Element, Origin, Selector, Snapshot
from .errors import AgentError, ConnectionLost, ElementNotFound, ProtocolError, StaleElement

DEFAULT_TIMEOUT = 60.0

# How long the agent takes to type a character, and more: it types 16 of them every 12 ms.
_SECONDS_PER_CHARACTER = 0.005

# How long an application is left in peace between two looks, at the least.
_LOOK_INTERVAL = 0.1

# What the last look before a deadline has left at the least.
_LOOK_TIME = 0.05

_LOOK_FIRST = "look at a new snapshot before you do it again"

# The operations after whose failure the guest may be another than before.
_ACTING = {"ax_action", "ax_set_value", "ax_focus", "click", "move", "drag", "scroll", "type",
           "key", "launch_app"}

_NOTHING_IN_FRONT = "no frontmost application to dump"


class Display(NamedTuple):
    """A display of the guest. Sizes are in pixels."""

    id: int
    width: int
    height: int
    main: bool


class Status(NamedTuple):
    """What the agent says of itself: the version of its protocol, the displays that it sees, and
    the privacy grants that it holds."""

    version: int
    displays: tuple[Display, ...]
    accessibility: bool
    screen_recording: bool
    post_event: bool


class Screenshot(bytes):
    """A JPEG of a display: the bytes of the file. Sizes are in pixels; a place in the picture is
    `scale` times as far from the display's top left corner as in the coordinates of clicks."""

    width: int
    height: int
    scale: float


class ShellEvents(NamedTuple):
    """What the guest's agent shell has left: the contents of files, one behind the other."""

    events: bytes
    files: int
    truncated: bool  # something was left behind


class _Session:
    """A connection, and the last snapshot on it, whose elements are the ones that can be used."""

    def __init__(self, connection: Connection) -> None:
        self.connection = connection
        self.dump = object()  # stands for the last snapshot


class Agent:
    """The agent of a guest, by an address such as `vsock:3` or a name (see `parse_address` and
    `agents`); without one, the agent that TERVAIN_AGENT names.

    It connects when it is first used, or at the start of a `with` block, and anew after a failure.
    Each call ends within `timeout` seconds, or those that it is given itself, with a TimeoutError.
    What the agent refuses is an AgentError; a connection that ends is a ConnectionLost.

    Threads may share an agent: their calls are done one after the other, `run` and `popen` side by
    side on connections of their own. But each new snapshot makes the elements of all older ones
    stale, so threads that use elements should have an agent each.
    """

    def __init__(self, address: str | None = None, *, timeout: float = DEFAULT_TIMEOUT) -> None:
        self._address = resolve(address)
        self._spelled = address or "$TERVAIN_AGENT"
        self.timeout = timeout
        self._session: _Session | None = None
        self._one_at_a_time = threading.RLock()

    def __enter__(self) -> Agent:
        deadline = self._deadline(None)
        with self._exclusively(deadline):
            self._connected(deadline)
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Ends the connection. Commands have connections of their own and go on."""
        with self._one_at_a_time:
            self._drop()

    # Status

    def ping(self, *, timeout: float | None = None) -> Status:
        """Whether the agent is there, and what it can see and do."""
        reply = self.request({"op": "ping"}, timeout=timeout)
        ready = wire.member(reply, "readiness", dict)
        displays = []
        for each in wire.member(reply, "displays", list, []):
            if not isinstance(each, dict):
                raise ProtocolError("a display that is no object")
            displays.append(Display(
                wire.member(each, "id", int), wire.member(each, "width", int),
                wire.member(each, "height", int), wire.member(each, "main", bool)))
        return Status(wire.member(reply, "version", int), tuple(displays),
                      *(wire.member(ready, key, bool)
                        for key in ("accessibility", "screenRecording", "postEvent")))

    def cursor(self, *, timeout: float | None = None) -> tuple[int, int]:
        """Where the pointer is."""
        reply = self.request({"op": "cursor_position"}, timeout=timeout)
        return wire.member(reply, "x", int), wire.member(reply, "y", int)

    # Commands

    def run(self, command: str | Sequence[str], *, input: bytes | None = None,
            timeout: float | None = None,
            max_output: int = MAX_OUTPUT) -> subprocess.CompletedProcess[bytes]:
        """Runs a command and gives its returncode, stdout and stderr. A text is for the guest's
        shell, a list of words is quoted for it. Without input there is none to read.

        A command that takes longer is killed, and CommandTimeout has what it had written; so is one
        that writes more than the maximum (OutputTooLong). AgentError: it could not be run."""
        deadline = self._deadline(timeout)
        with self._popen(command, deadline) as process:
            stdout, stderr = process.collect(input, deadline, max_output)
            return subprocess.CompletedProcess(command, process.wait(), stdout, stderr)

    def popen(self, command: str | Sequence[str], *, timeout: float | None = None) -> Command:
        """Starts a command, as `run` does, for streaming in both directions. The time-out is that
        of each wait."""
        process = self._popen(command, self._deadline(timeout))
        process.timeout = self.timeout if timeout is None else timeout
        return process

    def _popen(self, command: str | Sequence[str], deadline: Deadline) -> Command:
        line = command_line(command)
        connection = connect(self._address, self._spelled, deadline)
        try:
            return Command(connection, line, self.timeout)
        except BaseException:
            connection.close()
            raise

    # Elements

    def snapshot(self, *, pid: int | None = None, depth: int = MAX_DEPTH,
                 timeout: float | None = None) -> Snapshot:
        """The elements of an application, by default the frontmost one, as they are now, so many
        levels down (1 to 25)."""
        if not 1 <= depth <= MAX_DEPTH:
            raise ValueError(f"a depth of {depth}; it is 1 to {MAX_DEPTH}")
        request: wire.Object = {"op": "ax_dump", "maxDepth": depth}
        if pid is not None:
            request["pid"] = wire.whole(pid, 32)
        deadline = self._deadline(timeout)
        with self._exclusively(deadline):
            reply = self._ask(request, deadline, wire.MAX_TREE)
            assert self._session is not None  # it has just answered
            self._session.dump = object()
            origin = Origin(self._session.dump, wire.member(reply, "app", str, ""), depth,
                            wire.member(reply, "truncated", bool, False))
            return Snapshot(wire.member(reply, "tree", dict), self, origin)

    def element_at(self, x: float, y: float, *, timeout: float | None = None) -> Element:
        """The element at a point, without its children. It is good until the next snapshot."""
        request = {"op": "ax_element_at", "x": wire.whole(x), "y": wire.whole(y)}
        deadline = self._deadline(timeout)
        with self._exclusively(deadline):
            reply = self._ask(request, deadline)
            assert self._session is not None  # it has just answered
            origin = Origin(self._session.dump, f"the point {x:g}, {y:g}")
            return Element(wire.member(reply, "node", dict), self, origin)

    def find(self, *, role: str | None = None, title: str | None = None, value: str | None = None,
             exact: bool = False, pid: int | None = None, timeout: float | None = None) -> Element:
        """The one element of a new snapshot that fits. ElementNotFound, AmbiguousElement."""
        return self.snapshot(pid=pid, timeout=timeout).find(role=role, title=title, value=value,
                                                            exact=exact)

    @overload
    def wait_for(self, *, role: str | None = None, title: str | None = None,
                 value: str | None = None, exact: bool = False, gone: Literal[False] = False,
                 pid: int | None = None, timeout: float | None = None) -> Element: ...

    @overload
    def wait_for(self, *, role: str | None = None, title: str | None = None,
                 value: str | None = None, exact: bool = False, gone: Literal[True],
                 pid: int | None = None, timeout: float | None = None) -> None: ...

    def wait_for(self, *, role: str | None = None, title: str | None = None,
                 value: str | None = None, exact: bool = False, gone: bool = False,
                 pid: int | None = None, timeout: float | None = None) -> Element | None:
        """Takes snapshots until an element fits, and gives it (AmbiguousElement when several do).
        Or, with `gone`, until none fits any more. TimeoutError says what was seen last.

        What a snapshot has no room for may be there all the same. So an element is gone when the
        snapshot shows all there is, or when one before has shown it."""
        selector = Selector(role, title, value, exact)
        selector.says_something()
        deadline = self._deadline(timeout)
        shown = False
        failure: TimeoutError | None = None
        while True:
            started = time.monotonic()
            try:
                found, limits = self._look(selector, pid, deadline)
            except TimeoutError as error:
                raise failure or error from None
            if found and not gone:
                return selector.choose(found, found[0].origin)
            if gone and not found and (shown or not limits):
                return None
            shown = shown or bool(found)
            took = time.monotonic() - started
            state = "still there" if found else "not seen to be gone" if gone else "not there"
            failure = TimeoutError(f"{selector} is {state} after {deadline.seconds:g} seconds"
                                   + ("" if found else limits))
            left = deadline.remaining() - max(2 * took, _LOOK_TIME)
            if left <= 0:
                raise failure
            time.sleep(min(max(took, _LOOK_INTERVAL), left))

    def _look(self, selector: Selector, pid: int | None,
              deadline: Deadline) -> tuple[list[Element], str]:
        """The elements that fit now, and what to say of those that can't be seen."""
        try:
            snapshot = self.snapshot(pid=pid, timeout=deadline.remaining())
        except AgentError as error:
            if error.words != _NOTHING_IN_FRONT:
                raise
            return [], ""
        except TimeoutError as error:
            raise TimeoutError(f"{selector} was not seen in {deadline.seconds:g} seconds, at whose "
                               f"end: {error}") from None
        return [each for each in snapshot.walk() if selector.fits(each)], snapshot.origin.limits()

    def press(self, element: Element | None = None, *, role: str | None = None,
              title: str | None = None, value: str | None = None, exact: bool = False,
              pid: int | None = None, action: str = "AXPress",
              timeout: float | None = None) -> str | None:
        """Performs an action of an element: one of a snapshot, or the one that fits in a new one.

        It is done once, and never again by itself. When the application did not confirm in time the
        result is a note that says so; as it may have been done, look before you repeat it."""
        reply = self._act({"op": "ax_action", "action": action}, element,
                          Selector(role, title, value, exact), pid, timeout)
        return wire.member(reply, "note", str) if "note" in reply else None

    @overload
    def set(self, element: Element, text: str, /, *, timeout: float | None = None) -> None: ...

    @overload
    def set(self, text: str, /, *, role: str | None = None, title: str | None = None,
            value: str | None = None, exact: bool = False, pid: int | None = None,
            timeout: float | None = None) -> None: ...

    def set(self, element: Element | str, text: str | None = None, /, *, role: str | None = None,
            title: str | None = None, value: str | None = None, exact: bool = False,
            pid: int | None = None, timeout: float | None = None) -> None:
        """Sets the value of an element, which is chosen as for `press`."""
        chosen, new = (None, element) if isinstance(element, str) else (element, text)
        self._act({"op": "ax_set_value", "value": new}, chosen,
                  Selector(role, title, value, exact), pid, timeout)

    def focus(self, element: Element | None = None, *, role: str | None = None,
              title: str | None = None, value: str | None = None, exact: bool = False,
              pid: int | None = None, timeout: float | None = None) -> None:
        """Gives an element, which is chosen as for `press`, the keyboard focus."""
        self._act({"op": "ax_focus"}, element, Selector(role, title, value, exact), pid, timeout)

    def _act(self, request: wire.Object, element: Element | None, selector: Selector,
             pid: int | None, timeout: float | None) -> wire.Object:
        deadline = self._deadline(timeout)
        with self._exclusively(deadline):
            chosen = element or self._choose(selector, pid, deadline)
            return self._ask({**request, "ref": chosen.ref}, deadline, element=chosen)

    def _choose(self, selector: Selector, pid: int | None, deadline: Deadline) -> Element:
        role, title, value, exact = selector
        return self.find(role=role, title=title, value=value, exact=exact, pid=pid,
                         timeout=deadline.remaining())

    # Pointer and keyboard

    @overload
    def click(self, x: float, y: float, *, button: str = "left", count: int = 1,
              timeout: float | None = None) -> None: ...

    @overload
    def click(self, element: Element | None = None, /, *, role: str | None = None,
              title: str | None = None, value: str | None = None, exact: bool = False,
              pid: int | None = None, button: str = "left", count: int = 1,
              timeout: float | None = None) -> None: ...

    def click(self, x: Element | float | None = None, y: float | None = None, *,
              role: str | None = None, title: str | None = None, value: str | None = None,
              exact: bool = False, pid: int | None = None, button: str = "left", count: int = 1,
              timeout: float | None = None) -> None:
        """Clicks at a point, or in the middle of an element, which is chosen as for `press`.
        Buttons are left, middle and right; the count is 1 to 3."""
        if button not in ("left", "middle", "right") or count not in (1, 2, 3):
            raise ValueError(f"a click with button {button!r} and count {count}")
        deadline = self._deadline(timeout)
        with self._exclusively(deadline):
            if x is None or isinstance(x, Element):
                element = x or self._choose(Selector(role, title, value, exact), pid, deadline)
                self._expect_current(element)
                if element.frame is None:
                    raise ElementNotFound(f"{element} is nowhere on the screen")
                x, y = element.frame.center
            elif y is None:
                raise ValueError("a click needs x and y")
            self._ask({"op": "click", "x": wire.whole(x), "y": wire.whole(y or 0),
                       "button": button, "count": count}, deadline)

    def move(self, x: float, y: float, *, timeout: float | None = None) -> None:
        """Moves the pointer to a point."""
        self.request({"op": "move", "x": wire.whole(x), "y": wire.whole(y)}, timeout=timeout)

    def drag(self, x: float, y: float, *, start: tuple[float, float] | None = None,
             timeout: float | None = None) -> None:
        """Drags with the left button to a point, from another or from where the pointer is."""
        request: wire.Object = {"op": "drag", "toX": wire.whole(x), "toY": wire.whole(y)}
        if start is not None:
            request["fromX"], request["fromY"] = map(wire.whole, start)
        self.request(request, timeout=timeout)

    def scroll(self, *, dy: int = 0, dx: int = 0, timeout: float | None = None) -> None:
        """Turns the wheel by lines, -40 to 40: up and left with positive numbers."""
        if not (-40 <= dx <= 40 and -40 <= dy <= 40):
            raise ValueError(f"a scroll by {dx}, {dy} lines; it is 40 at the most")
        self.request({"op": "scroll", "dx": dx, "dy": dy}, timeout=timeout)

    def type(self, text: str, *, timeout: float | None = None) -> None:
        """Types a text into what has the focus, whatever the keyboard's layout. A long text has the
        time that it takes on top of the usual time-out."""
        if timeout is None:
            timeout = self.timeout + len(text) * _SECONDS_PER_CHARACTER
        self.request({"op": "type", "text": text}, timeout=timeout)

    def key(self, chord: str, *, timeout: float | None = None) -> None:
        """Presses a key with modifiers, such as `cmd+shift+z`."""
        self.request({"op": "key", "chord": chord}, timeout=timeout)

    # The rest

    def screenshot(self, display: int = 0, *, timeout: float | None = None) -> Screenshot:
        """A picture of a display, with the pointer; the first one's when there is none so."""
        deadline = self._deadline(timeout)
        reply = self._ask({"op": "screenshot", "display": wire.whole(display)}, deadline,
                          wire.MAX_PICTURE)
        picture = Screenshot(wire.payload(reply, "image"))
        picture.width = wire.member(reply, "width", int)
        picture.height = wire.member(reply, "height", int)
        picture.scale = wire.member(reply, "scale", float)
        return picture

    def launch(self, name: str, *, timeout: float | None = None) -> None:
        """Starts an application, or brings it up. It has no window yet when this returns."""
        self.request({"op": "launch_app", "name": name}, timeout=timeout)

    def shell_events(self, *, directory: str | None = None, max_bytes: int = wire.MAX_EVENTS,
                     delete: bool = False, timeout: float | None = None) -> ShellEvents:
        """Collects what the agent shell has left in the guest, files of at most so many bytes
        together, and deletes them there if that is asked for."""
        request: wire.Object = {"op": "shell-events", "maxBytes": wire.whole(max_bytes),
                                "truncate": delete}
        if directory is not None:
            request["dir"] = directory
        reply = self._ask(request, self._deadline(timeout), wire.MAX_REPLY + 2 * max_bytes)
        return ShellEvents(wire.payload(reply, "events"), wire.member(reply, "files", int),
                           wire.member(reply, "truncated", bool))

    def request(self, request: Mapping[str, object], *,
                timeout: float | None = None) -> dict[str, Any]:
        """Any request of the protocol but exec, as an object with its "op". Gives the reply."""
        return self._ask(request, self._deadline(timeout))

    # What all of them stand on

    def _deadline(self, timeout: float | None) -> Deadline:
        return Deadline(self.timeout if timeout is None else timeout)

    @contextlib.contextmanager
    def _exclusively(self, deadline: Deadline) -> Iterator[None]:
        while not self._one_at_a_time.acquire(timeout=deadline.wait()):
            if deadline.passed():
                raise TimeoutError(f"other calls took more than {deadline.seconds:g} seconds")
        try:
            yield
        finally:
            self._one_at_a_time.release()

    def _connected(self, deadline: Deadline) -> _Session:
        """The connection, or a new one when there is none or the agent has ended it meanwhile."""
        if self._session is not None:
            self._session.connection.expect_silence()
            if self._session.connection.ended:
                self._drop()
        if self._session is None:
            self._session = _Session(connect(self._address, self._spelled, deadline))
        return self._session

    def _drop(self) -> None:
        if self._session is not None:
            self._session.connection.close()
            self._session = None

    def _expect_current(self, element: Element) -> None:
        """StaleElement when the element is not of this connection's last snapshot: on a new one,
        the agent would give its ref to another."""
        if self._session is None or element.origin.dump is not self._session.dump:
            raise StaleElement(
                f'element ref "{element.ref}" is unknown or stale — refs are only valid until the '
                "next ax_dump; re-dump and retry", "take a new snapshot and find it there")

    def _ask(self, request: Mapping[str, object], deadline: Deadline, limit: int = wire.MAX_REPLY,
             element: Element | None = None) -> dict[str, Any]:
        """Sends a request and gives the reply, or raises what went wrong. The connection is given
        up when the reply may still come, as it would be taken for another's."""
        line = wire.encode(request)
        acts = request.get("op") in _ACTING
        with self._exclusively(deadline):
            sent = False
            try:
                session = self._connected(deadline)
                if element is not None:
                    self._expect_current(element)
                sent = True
                reply = wire.decode(session.connection.exchange(line, deadline, limit))
                done = wire.member(reply, "ok", bool)
                words = "" if done else wire.member(reply, "error", str)
            except StaleElement:
                raise
            except BaseException as error:
                self._drop()
                if acts and sent and isinstance(error, (TimeoutError, ConnectionLost)):
                    raise type(error)(f"{request['op']}: {error}; it may have been done all the "
                                      f"same, so {_LOOK_FIRST}") from None
                raise
        if not done:
            self._refuse(words, acts)
        return reply

    @staticmethod
    def _refuse(words: str, acts: bool) -> None:
        if "unknown or stale" in words:
            raise StaleElement(words)
        raise AgentError(words, _LOOK_FIRST if acts and " failed (" in words else "")
