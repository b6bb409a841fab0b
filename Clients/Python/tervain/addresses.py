"""Where agents are: addresses, and the names that a file gives them."""

from __future__ import annotations

import errno
import os
import re
import socket
import struct
import subprocess
import tempfile
from typing import NamedTuple

from .connection import Connection
from .deadline import Deadline
from .errors import AddressError, AgentUnreachable, ConnectionLost
from .wire import PORT, WILDCARD

# How long a connection may take to come about. Hosts that are there take milliseconds.
_PATIENCE = 10.0

# What sockaddr_un holds on macOS, which is less than on Linux, with the zero behind it.
_MAX_SOCKET_PATH = 103

# The longest answer of a program that has many ports behind one socket: OK and a number.
_MAX_HANDSHAKE = 256

_FORMS = "unix:PATH, vsock:CID[:PORT], vsock:local, unix-mux:PATH[:PORT] or exec:COMMAND"


class UnixAddress(NamedTuple):
    """An agent behind a Unix socket."""

    path: str

    def connect(self, deadline: Deadline) -> Connection:
        return Connection(_connect_unix(self.path, deadline))


class MuxAddress(NamedTuple):
    """An agent's port among all of a virtual machine's, which its monitor has behind one socket."""

    path: str
    port: int = PORT

    def connect(self, deadline: Deadline) -> Connection:
        connection = Connection(_connect_unix(self.path, deadline))
        try:
            said = connection.exchange(b"CONNECT %d\n" % self.port, deadline, _MAX_HANDSHAKE)
            if not said.startswith(b"OK "):
                raise ConnectionLost(f"CONNECT {self.port} got {said!r}")
            return connection
        except BaseException:
            connection.close()
            raise


class VsockAddress(NamedTuple):
    """An agent in the virtual machine with this context id."""

    cid: int
    port: int = PORT

    def connect(self, deadline: Deadline) -> Connection:
        family = getattr(socket, "AF_VSOCK", None)
        if family is None:
            raise OSError(errno.EAFNOSUPPORT, "this system's Python has no vsock")
        stream = socket.socket(family, socket.SOCK_STREAM)
        try:
            stream.settimeout(max(deadline.remaining(), 0.001))  # 0 would be not to wait
            stream.connect((self.cid, self.port))
            return Connection(stream)
        except BaseException:
            stream.close()
            raise


class ProgramAddress(NamedTuple):
    """A shell command whose standard input and output are the connection."""

    command: str

    def connect(self, deadline: Deadline) -> Connection:
        ours, theirs = socket.socketpair()
        try:
            with theirs:
                program = subprocess.Popen(self.command, shell=True, stdin=theirs.fileno(),
                                           stdout=theirs.fileno())
            return Connection(ours, program)
        except BaseException:
            ours.close()
            raise


Address = UnixAddress | MuxAddress | VsockAddress | ProgramAddress


def _connect_unix(path: str, deadline: Deadline) -> socket.socket:
    encoded = os.fsencode(path)
    if len(encoded) > _MAX_SOCKET_PATH:
        # A link in a folder of a short name is followed to where no socket address reaches.
        with tempfile.TemporaryDirectory(prefix="tervain-", dir="/tmp") as folder:
            link = os.path.join(folder, "agent")
            os.symlink(os.path.abspath(encoded), link)
            return _connect_unix(link, deadline)
    stream = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        # Where too many wait to be let in, a non-blocking socket would be told so, not wait.
        left = deadline.remaining()
        stream.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO,
                          struct.pack("@ll", int(left), int(left % 1 * 1_000_000) or 1))
        stream.connect(encoded)
        return stream
    except BlockingIOError:
        stream.close()
        raise TimeoutError from None
    except BaseException:
        stream.close()
        raise


def _number(digits: str) -> int:
    """ValueError when there is no such port or context id."""
    if not re.fullmatch("[0-9]+", digits) or len(digits) > 10 or int(digits) >= WILDCARD:
        raise ValueError(digits)
    return int(digits)


def _decoded(text: str) -> str:
    """The text with the byte in the place of each %XX. ValueError for any other %."""
    if re.search("%(?![0-9A-Fa-f]{2})|%00", text):
        raise ValueError(text)
    return os.fsdecode(re.sub(rb"%(..)", lambda each: bytes.fromhex(each[1].decode()),
                              os.fsencode(text)))


def _mux(place: str) -> MuxAddress:
    """What follows the last colon is a port if it can be one, and part of the path otherwise."""
    path, colon, port = place.rpartition(":")
    try:
        number = _number(port) if colon else None
    except ValueError:
        number = None
    if number is None:
        return MuxAddress(place)
    if not path:
        raise ValueError(place)
    return MuxAddress(path, number)


def parse_address(text: str) -> Address | None:
    """The address in a text; None when it begins like none. A % may stand for the first colon, and
    behind it %XX is the byte of that hexadecimal value, so that an address can be written without
    colons, slashes and blanks. AddressError when the rest is wrong."""
    start = re.match("(unix|unix-mux|vsock|exec)([:%])", text)
    if not start:
        return None
    scheme, place = start[1], text[start.end():]
    try:
        place = _decoded(place) if start[2] == "%" else place
        if place and scheme == "unix":
            return UnixAddress(place)
        if place and scheme == "unix-mux":
            return _mux(place)
        if place and scheme == "exec":
            return ProgramAddress(place)
        cid, colon, port = place.partition(":")
        return VsockAddress(1 if cid == "local" else _number(cid), _number(port) if colon else PORT)
    except ValueError:
        raise AddressError(f"{text!r} is no address; one is {_FORMS}") from None


def names_file() -> str:
    """Where the names of agents are: $TERVAIN_AGENTS, or tervain/agents in the user's settings."""
    settings = os.environ.get("XDG_CONFIG_HOME") or os.path.expanduser("~/.config")
    return os.environ.get("TERVAIN_AGENTS") or os.path.join(settings, "tervain", "agents")


def _is_name(text: str) -> bool:
    """A name is never taken for an address or an option."""
    return bool(re.fullmatch("[^-:%/@][^:%/@]*", text))


def _is_address(text: str) -> bool:
    try:
        return parse_address(text) is not None
    except AddressError:
        return False


def agents() -> dict[str, str]:
    """The names that the file gives to agents, in its order, and their addresses. A line of it is
    NAME ADDRESS, or a comment behind a # at the start of a word. No file is no names. AddressError
    when a line is neither."""
    file = names_file()
    try:
        with open(file, "rb") as stream:
            lines = os.fsdecode(stream.read()).split("\n")
    except FileNotFoundError:
        return {}
    names: dict[str, str] = {}
    for number, line in enumerate(lines, 1):
        name, *rest = re.sub(r"(^|\s)#.*", "", line).strip().split(None, 1) or [""]
        if not name:
            continue
        address = rest[0] if rest else ""
        if not _is_name(name) or name in names or not _is_address(address):
            raise AddressError(f"{file}:{number}: a line is a NAME, that no other line has and "
                               f"that holds no colon, %, / or @, and an address ({_FORMS})")
        names[name] = address
    return names


def resolve(text: str | None) -> Address:
    """The address in a text, or of the agent that it names; of TERVAIN_AGENT when there is none.
    AddressError when there is no such agent."""
    text = text or os.environ.get("TERVAIN_AGENT", "")
    if not text:
        raise AddressError(f"no agent given; TERVAIN_AGENT is empty, too. An address is {_FORMS}")
    names = {} if parse_address(text) is not None else agents()
    address = parse_address(names.get(text, text))
    if address is None:
        raise AddressError(f"{text!r} is no address ({_FORMS}) and no name in {names_file()}"
                           + (f", which has {', '.join(names)}" if names else ""))
    return address


def connect(address: Address, spelled: str, deadline: Deadline) -> Connection:
    """A connection to an agent. AgentUnreachable or TimeoutError, which say how it was spelled."""
    limit = Deadline(min(_PATIENCE, deadline.remaining()))
    try:
        return address.connect(limit)
    except TimeoutError:
        raise TimeoutError(f"connecting to {spelled} timed out") from None
    except OSError as error:
        raise AgentUnreachable(
            f"connecting to {spelled} failed: {error.strerror or error}") from error
