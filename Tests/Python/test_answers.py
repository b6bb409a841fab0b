"""What the client makes of what agents say, right and wrong."""

from __future__ import annotations

import itertools
import json
import resource
from collections.abc import Callable, Iterable
from typing import Any

import pytest
from conftest import Serve

import tervain
from tervain import (AgentError, AmbiguousElement, CommandTimeout, ConnectionLost, ElementNotFound,
                     OutputTooLong, ProtocolError, StaleElement)

PATIENCE = 20.0  # for what must come
BRIEF = 1.0  # for what must not
STATUS = {"ok": True, "version": 2, "displays": [],
          "readiness": {"accessibility": True, "screenRecording": True, "postEvent": True}}


def limit(error: type[Exception]) -> float:
    """How long a call may take that must raise this. What takes longer raises a TimeoutError."""
    return BRIEF if issubclass(error, TimeoutError) else PATIENCE


def line(reply: object) -> bytes:
    return json.dumps(reply).encode() + b"\n"


@pytest.mark.parametrize(("answer", "error"), [
    *(([reply], ProtocolError) for reply in (
        b"hello\n", b"\n", b"\xff\n", b"[]\n", b'{"ok":NaN}\n', b'{"a":' * 300_000 + b"\n",
        b'{"ok":' + b"9" * 3_000_000 + b"}\n", line({"ok": 1}), line({"ok": False}),
        line(STATUS | {"version": "2"}), line(STATUS | {"version": True}),
        line(STATUS | {"version": 2.5}),
        line(STATUS | {"displays": [5]}), line(STATUS) * 2)),
    (itertools.repeat(b"x" * 65536), ProtocolError),
    ([], TimeoutError),
    ([line(STATUS)[:-1]], TimeoutError),
    ([b'{"ok":', b""], ConnectionLost),
    ([line({"ok": False, "error": "AXPress failed (no value)"})], AgentError),
])
def test_bad_replies_raise_in_time(serve: Serve, answer: Iterable[bytes],
                                   error: type[Exception]) -> None:
    agent = tervain.Agent(serve(lambda _: answer), timeout=limit(error))
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    with pytest.raises(error):
        agent.ping()
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 200 * 1024  # KiB
    if error in (AgentError, TimeoutError, ConnectionLost):  # it may have been done
        with pytest.raises(error, match="look at a new snapshot"):
            agent.key("return")
    agent.close()


def output(data: str) -> bytes:
    return line({"t": "o", "d": data})


@pytest.mark.parametrize(("frames", "error"), [
    *(([frame], ProtocolError) for frame in (
        output("no base64"), line({"t": "o", "d": 5}), line({"t": 5}),
        line({"t": "x", "code": "0"}))),
    (itertools.repeat(b"x" * 65536), ProtocolError),
    (itertools.repeat(line({"t": "news"}) * 1000), CommandTimeout),
    (itertools.repeat(output("AAAA" * 16384)), OutputTooLong),
    ([line({"t": "err", "m": "no shell"})], AgentError),
    ([line({"ok": False, "error": "unknown op 'exec'"})], AgentError),
    ([output("AAAA"), b""], ConnectionLost),
])
def test_bad_frames_raise_in_time(serve: Serve, frames: Iterable[bytes],
                                  error: type[Exception]) -> None:
    agent = tervain.Agent(serve(lambda line: frames if b'"exec"' in line else []))
    with pytest.raises(error):
        agent.run("true", timeout=limit(error), max_output=10_000_000)
    with agent.popen("true", timeout=BRIEF) as command, pytest.raises((error, TimeoutError)):
        command.wait()


def node(ref: str, role: str, title: str = "", **more: object) -> dict[str, object]:
    return {"ref": ref, "role": role, "title": title, **more}


TREE = node("e1", "AXApplication", "Editor", children=[
    node("e2", "AXButton", "Save", frame={"x": 10, "y": 20, "w": 30, "h": 41}),
    node("e3", "AXButton", "Save all", subrole="AXToolbarButton"),
    node("e4", "AXTextArea", value="Straße nach Malmo\u0308"),
])


def serve_tree(serve: Serve, tree: object, asked: list[dict[str, object]], **more: object) -> str:
    def answer(request: bytes) -> Iterable[bytes]:
        asked.append(json.loads(request))
        dumping = asked[-1]["op"] == "ax_dump"
        return [line({"ok": True, "tree": tree, "app": "Editor", **more} if dumping
                     else {"ok": True, "note": "possibly"})]
    return serve(answer)


@pytest.mark.parametrize(("words", "more", "outcome"), [
    ({"role": "textarea"}, {}, "e4"),
    ({"value": "STRASSE"}, {}, "e4"),
    ({"value": "malmö"}, {}, "e4"),
    ({"title": "Save", "exact": True}, {}, "e2"),
    ({"role": "button", "title": "ALL"}, {}, "e3"),
    ({"role": "AXButton/AXToolbarButton", "exact": True}, {}, "e3"),
    ({"role": "axbutton", "title": "save"}, {}, r"2 elements.*\n  e2 AXButton.*\n  e3 AXButton/"),
    ({"title": "save all", "exact": True}, {}, "no element of Editor fits exactly title"),
    ({"title": "Quit"}, {"truncated": True}, "does not show everything: it ends at"),
    ({}, {}, "give a role"),
])
def test_words_choose_one_element(serve: Serve, words: dict[str, Any], more: dict[str, Any],
                                  outcome: str) -> None:
    asked: list[dict[str, object]] = []
    with tervain.Agent(serve_tree(serve, TREE, asked, **more)) as agent:
        if outcome.startswith("e"):
            assert agent.press(**words) == "possibly"
            assert asked[1:] == [{"op": "ax_action", "action": "AXPress", "ref": outcome}]
        else:
            with pytest.raises((ElementNotFound, AmbiguousElement, ValueError), match=outcome):
                agent.press(**words)
            assert len(asked) <= 1


@pytest.mark.parametrize("tree", [
    [], node("e1", "AXButton", actions=[5]), node("e1", "AXButton", children=["e2"]),
    node("e1", "AXButton", children={}), node("e1", "AXButton", frame={"x": 1}), {"role": "AXList"},
    json.loads('{"ref":"e1","children":[' * 200 + "]}" * 200),
])
def test_bad_trees_raise(serve: Serve, tree: object) -> None:
    with tervain.Agent(serve_tree(serve, tree, [])) as agent, pytest.raises(ProtocolError):
        agent.snapshot()


def test_elements_are_good_until_the_next_snapshot(serve: Serve) -> None:
    asked: list[dict[str, object]] = []
    with tervain.Agent(serve_tree(serve, TREE, asked)) as agent:
        button = agent.find(title="Save", exact=True)
        button.click()
        assert (asked[-1]["x"], asked[-1]["y"]) == (25, 40)
        agent.close()  # and on a new connection e2 would be another's
        uses: list[Callable[[], object]] = [button.press, button.focus, button.click,
                                            lambda: button.set("x")]
        for use in uses:
            with pytest.raises(StaleElement):
                use()
        assert len(asked) == 2


def test_gone_needs_to_be_seen(serve: Serve) -> None:
    with tervain.Agent(serve_tree(serve, TREE, [], truncated=True)) as agent:
        with pytest.raises(TimeoutError, match="not seen to be gone .* does not show everything"):
            agent.wait_for(title="Quit", gone=True, timeout=BRIEF)


def test_time_outs_say_what_was_seen_last(serve: Serve) -> None:
    replies = iter([[line({"ok": True, "tree": TREE, "app": "Editor"})]])
    with tervain.Agent(serve(lambda _: next(replies, []))) as agent:  # it answers one look only
        with pytest.raises(TimeoutError, match="still there"):
            agent.wait_for(role="textarea", gone=True, timeout=BRIEF)
