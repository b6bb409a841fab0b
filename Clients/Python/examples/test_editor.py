"""A test of a desktop application in a guest, here of the text editor Mousepad.

    TERVAIN_AGENT=vsock:3 python3 -m pytest test_editor.py
"""

from __future__ import annotations

from collections.abc import Iterator

import pytest

import tervain

TEXT = "Grüße aus dem Café, naïve Ω 👋"


@pytest.fixture
def agent() -> Iterator[tervain.Agent]:
    with tervain.Agent() as agent:  # $TERVAIN_AGENT says which
        yield agent


@pytest.fixture
def path(agent: tervain.Agent) -> Iterator[str]:
    """A file in the guest, which is empty."""
    made = agent.run("mktemp").stdout.decode().strip()
    yield made
    agent.run(["rm", made])


@pytest.fixture
def editor(agent: tervain.Agent, path: str) -> Iterator[int]:
    """The process of an editor of the test's own that has the file open."""
    with agent.popen(f"echo $$; exec mousepad --disable-server {path}") as process:
        pid = int(process.stdout.readline())
        agent.wait_for(role="AXTextArea", pid=pid)
        yield pid


def test_typed_text_is_saved(agent: tervain.Agent, path: str, editor: int) -> None:
    agent.click(role="AXTextArea", pid=editor)
    agent.type(TEXT)
    agent.wait_for(role="AXTextArea", value=TEXT, exact=True, pid=editor)
    agent.wait_for(role="AXWindow", title="*", pid=editor)

    agent.key("ctrl+s")
    agent.wait_for(role="AXWindow", title="*", gone=True, pid=editor)
    assert agent.run(["cat", path]).stdout.decode() == TEXT


def test_the_menu_selects_everything(agent: tervain.Agent, editor: int) -> None:
    agent.set("two\nlines", role="AXTextArea", pid=editor)
    agent.wait_for(role="AXTextArea", value="two\nlines", exact=True, pid=editor)

    agent.press(role="AXMenuBarItem", title="Edit", pid=editor)
    agent.wait_for(role="AXMenuItem", title="Select all", pid=editor).press()
    agent.wait_for(role="AXMenuItem", gone=True, pid=editor)
    agent.key("backspace")
    agent.wait_for(role="AXTextArea", value="two", gone=True, pid=editor)
    assert agent.screenshot().startswith(b"\xff\xd8")  # to look at when the test fails
