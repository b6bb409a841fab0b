"""What the agent shows of an application: elements, and how they are found."""

from __future__ import annotations

import json
import unicodedata
from collections.abc import Iterator
from typing import TYPE_CHECKING, NamedTuple

from . import wire
from .errors import AmbiguousElement, ElementNotFound, ProtocolError

if TYPE_CHECKING:
    from .agent import Agent

MAX_DEPTH = 25  # the most levels below the application that the agent shows

# How many elements an error lists.
_LISTED = 10


class Frame(NamedTuple):
    """Where an element is, in screen coordinates."""

    x: int
    y: int
    w: int
    h: int

    @property
    def center(self) -> tuple[int, int]:
        return self.x + self.w // 2, self.y + self.h // 2


class Selector(NamedTuple):
    """Says which elements are meant. Text that is given must be a part of the element's, whatever
    the case; all of it and in the same case with `exact`. A role is looked for in the role, in the
    subrole, and in the two as outlines have them."""

    role: str | None = None
    title: str | None = None
    value: str | None = None
    exact: bool = False

    def fits(self, element: Element) -> bool:
        roles = [element.role]
        if element.subrole:
            roles += [element.subrole, f"{element.role}/{element.subrole}"]
        return (any(self._fits(self.role, role) for role in roles)
                and self._fits(self.title, element.title)
                and self._fits(self.value, element.value or ""))

    def _fits(self, wanted: str | None, text: str) -> bool:
        if wanted is None:
            return True
        # What looks the same is the same, however its accents are encoded.
        wanted, text = (unicodedata.normalize("NFC", each) for each in (wanted, text))
        return wanted == text if self.exact else wanted.casefold() in text.casefold()

    def says_something(self) -> None:
        """ValueError when every element would fit."""
        given = [text for text in (self.role, self.title, self.value) if text is not None]
        if not any(given) and not (given and self.exact):
            raise ValueError("give a role, a title or a value to look for")

    def choose(self, elements: list[Element], origin: Origin) -> Element:
        """The one element that fits. ElementNotFound or AmbiguousElement when it isn't one."""
        if not elements:
            raise ElementNotFound(f"no element of {origin.app} fits {self}{origin.limits()}")
        if len(elements) > 1:
            listed = "".join(f"\n  {element}" for element in elements[:_LISTED])
            more = len(elements) - _LISTED
            raise AmbiguousElement(f"{len(elements)} elements of {origin.app} fit {self}:{listed}"
                                   + (f"\n  and {more} more" if more > 0 else ""))
        return elements[0]

    def __str__(self) -> str:
        words = [f"{name} {json.dumps(text, ensure_ascii=False)}"
                 for name, text in (("role", self.role), ("title", self.title),
                                    ("value", self.value)) if text is not None]
        return ("exactly " if self.exact else "") + ", ".join(words)


class Origin:
    """What all elements of a snapshot have in common."""

    def __init__(self, dump: object, app: str, depth: int = MAX_DEPTH,
                 truncated: bool = False) -> None:
        self.dump = dump  # stands for the snapshot
        self.app = app
        self.depth = depth
        self.truncated = truncated  # at the agent's limit of elements
        self.omitted = 0  # children that are not shown
        self.deep = False  # some elements are so deep that their children are not shown

    @property
    def complete(self) -> bool:
        """Whether the snapshot shows all that the application has."""
        return not (self.truncated or self.omitted or self.deep)

    def limits(self) -> str:
        """What to say of what was not found in the snapshot."""
        if self.complete:
            return ""
        reasons = ["it ends at the agent's limit of elements"] if self.truncated else []
        reasons += [f"it leaves {self.omitted} children out"] if self.omitted else []
        reasons += [f"it goes {self.depth} levels down"] if self.deep else []
        return f", but the snapshot does not show everything: {', '.join(reasons)}"


class Element:
    """An element as it was when the snapshot was taken. What acts on it raises StaleElement after
    the next snapshot on the agent's connection, which `wait_for`, `find` and acting by words take,
    too."""

    __slots__ = ("ref", "role", "subrole", "title", "value", "enabled", "focused", "frame",
                 "actions", "children", "omitted", "origin", "_agent")

    ref: str  # the agent's name for it
    role: str  # such as "AXButton"
    subrole: str
    title: str
    value: str | None  # as text, at most 250 characters and then …
    enabled: bool
    focused: bool
    frame: Frame | None
    actions: tuple[str, ...]  # such as "AXPress"
    children: tuple[Element, ...]
    omitted: int  # how many more children it has that are not shown

    def __init__(self, node: wire.Object, agent: Agent, origin: Origin, level: int = 0) -> None:
        if level > MAX_DEPTH:
            raise ProtocolError(f"a tree of more than {MAX_DEPTH} levels")
        self._agent = agent
        self.origin = origin
        self.ref = wire.member(node, "ref", str)
        self.role = wire.member(node, "role", str, "")
        self.subrole = wire.member(node, "subrole", str, "")
        self.title = wire.member(node, "title", str, "")
        self.value = wire.member(node, "value", str) if "value" in node else None
        self.enabled = wire.member(node, "enabled", bool, True)
        self.focused = wire.member(node, "focused", bool, False)
        self.frame = None
        if "frame" in node:
            frame = wire.member(node, "frame", dict)
            self.frame = Frame(*(wire.member(frame, key, int) for key in "xywh"))
        self.actions = tuple(wire.member(node, "actions", list, []))
        if not all(isinstance(action, str) for action in self.actions):
            raise ProtocolError('"actions" has what is no string')
        self.omitted = wire.member(node, "childrenOmitted", int, 0)
        self.children = tuple(Element(_object(child), agent, origin, level + 1)
                              for child in wire.member(node, "children", list, []))
        origin.omitted += self.omitted
        origin.deep = origin.deep or level >= origin.depth

    def walk(self) -> Iterator[Element]:
        """This element and all below it, from top to bottom as in an outline."""
        yield self
        for child in self.children:
            yield from child.walk()

    def find_all(self, *, role: str | None = None, title: str | None = None,
                 value: str | None = None, exact: bool = False) -> list[Element]:
        """Those that fit, of this element and all below it. Nothing given: all of them."""
        selector = Selector(role, title, value, exact)
        return [element for element in self.walk() if selector.fits(element)]

    def find(self, *, role: str | None = None, title: str | None = None, value: str | None = None,
             exact: bool = False) -> Element:
        """The one that fits. ElementNotFound, AmbiguousElement."""
        selector = Selector(role, title, value, exact)
        selector.says_something()
        found = [element for element in self.walk() if selector.fits(element)]
        return selector.choose(found, self.origin)

    def press(self, action: str = "AXPress", *, timeout: float | None = None) -> str | None:
        """See Agent.press."""
        return self._agent.press(self, action=action, timeout=timeout)

    def set(self, text: str, *, timeout: float | None = None) -> None:
        """See Agent.set."""
        self._agent.set(self, text, timeout=timeout)

    def focus(self, *, timeout: float | None = None) -> None:
        """See Agent.focus."""
        self._agent.focus(self, timeout=timeout)

    def click(self, *, button: str = "left", count: int = 1,
              timeout: float | None = None) -> None:
        """See Agent.click."""
        self._agent.click(self, button=button, count=count, timeout=timeout)

    def outline(self) -> str:
        """This element and all below it, a line each, like `tervainctl tree`."""
        return "".join(self._lines(""))

    def _lines(self, indent: str) -> Iterator[str]:
        yield f"{indent}{self}\n"
        for child in self.children:
            yield from child._lines(indent + "  ")
        if self.omitted:
            yield f"{indent}  {self.omitted} not shown\n"

    def __str__(self) -> str:
        # What an application calls things must not break the line.
        words = [self.ref, self.role + (f"/{self.subrole}" if self.subrole else "")]
        words = [json.dumps(word, ensure_ascii=False)[1:-1] for word in words if word]
        if self.title:
            words.append(json.dumps(self.title, ensure_ascii=False))
        if self.value is not None:
            words.append("=" + json.dumps(self.value, ensure_ascii=False))
        if self.frame:
            words.append("{0.x},{0.y} {0.w}x{0.h}".format(self.frame))
        words += ["disabled"] if not self.enabled else []
        words += ["focused"] if self.focused else []
        if self.actions:
            names = (json.dumps(action, ensure_ascii=False)[1:-1] for action in self.actions)
            words.append(f"[{', '.join(names)}]")
        return " ".join(words)

    def __repr__(self) -> str:
        return f"<{self}>"


def _object(node: object) -> wire.Object:
    if not isinstance(node, dict):
        raise ProtocolError("a child that is no object")
    return node


class Snapshot(Element):
    """The element of an application, and with it all that is shown of the application."""

    __slots__ = ()

    @property
    def app(self) -> str:
        """The application's name, or `pid N`."""
        return self.origin.app

    @property
    def truncated(self) -> bool:
        """Whether the agent's limit of elements, 800, was reached."""
        return self.origin.truncated

    @property
    def complete(self) -> bool:
        """Whether all elements are here: neither truncated, nor cut at 48 children or its depth."""
        return self.origin.complete
