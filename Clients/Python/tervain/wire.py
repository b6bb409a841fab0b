"""The protocol's words: lines of JSON, read as from somebody who is not to be trusted."""

from __future__ import annotations

import base64
import json
import math
from collections.abc import Mapping
from typing import Any, TypeVar

from .errors import ProtocolError

PORT = 2035
WILDCARD = 2**32 - 1  # means "any" as a context id and as a port, so nobody can be reached there

# The agent closes a connection on which more than this comes without a line feed.
MAX_REQUEST = 4 * 1024 * 1024

# How long a reply may be. Far more than any agent sends, and few enough bytes to hold them decoded.
MAX_REPLY = 4 * 1024 * 1024
MAX_TREE = 16 * 1024 * 1024
MAX_PICTURE = 32 * 1024 * 1024
MAX_FRAME = 256 * 1024  # 64 KiB of output as base64, and some

# How much of the shell's events the agent collects unless told otherwise.
MAX_EVENTS = 4 * 1024 * 1024

# More digits than any number of the protocol has. Long ones take quadratic time to convert.
_MAX_DIGITS = 24

Object = dict[str, Any]
T = TypeVar("T")


def _integer(digits: str) -> int:
    if len(digits) > _MAX_DIGITS:
        raise ValueError("a number of too many digits")
    return int(digits)


def _no_number(word: str) -> float:
    raise ValueError(f"{word} is no JSON")


_decoder = json.JSONDecoder(parse_int=_integer, parse_constant=_no_number)
_encoder = json.JSONEncoder(ensure_ascii=False, allow_nan=False, separators=(",", ":"))


def encode(message: Mapping[str, object]) -> bytes:
    """A message as the line that is sent. ValueError when it can't be sent."""
    line = _encoder.encode(message).encode() + b"\n"
    if len(line) > MAX_REQUEST:
        raise ValueError(f"a request of {len(line)} bytes is more than the agent takes (4 MiB)")
    return line


def decode(line: bytes) -> Object:
    """The object in a line. ProtocolError when there is none."""
    try:
        message = _decoder.decode(line.decode())
    except (ValueError, RecursionError) as error:
        raise ProtocolError(f"the agent sent no JSON: {excerpt(line)} ({error})") from None
    if not isinstance(message, dict):
        raise ProtocolError(f"the agent sent no object: {excerpt(line)}")
    return message


def excerpt(line: bytes) -> str:
    return repr(line[:60].decode(errors="replace")) + ("…" if len(line) > 60 else "")


def member(message: Object, key: str, kind: type[T], default: T | None = None) -> T:
    """A member of a message, which has the type that it must have. ProtocolError when it has not,
    or when it is missing and there is no default. Whole numbers may be written as 12 or 12.0."""
    value: object = message.get(key)
    if value is None and default is not None:
        return default
    if kind is int and isinstance(value, float) and value.is_integer():
        value = int(value)
    elif kind is float and type(value) is int:
        value = float(value)
    if isinstance(value, kind) and (kind is bool or not isinstance(value, bool)):
        return value
    raise ProtocolError(f'"{key}" is {type(value).__name__}, not {kind.__name__}')


def payload(message: Object, key: str) -> bytes:
    """The bytes that a member carries. ProtocolError when it carries none."""
    try:
        return base64.b64decode(member(message, key, str), validate=True)
    except ValueError as error:
        raise ProtocolError(f'"{key}" is no base64: {error}') from None


def carried(data: bytes | memoryview) -> str:
    """Bytes as a member that carries them."""
    return base64.b64encode(data).decode()


def whole(number: float, bits: int = 64) -> int:
    """A number without its fraction. ValueError beyond what the agent survives."""
    if not math.isfinite(number) or not -(2 ** (bits - 1)) <= number < 2 ** (bits - 1):
        raise ValueError(f"{number} is beyond {bits} bits")
    return int(number)
