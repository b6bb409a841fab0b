"""The client on a desktop: what it shows, the examples, and what the README says to type."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

import pytest

import tervain

ROOT = Path(__file__).parents[2]
EXAMPLES = ROOT / "Clients/Python/examples"
TERVAINCTL = f"{os.environ['TERVAIN_BUILD']}/Sources/tervainctl/tervainctl"


def test_outlines_are_those_of_tervainctl(agent: tervain.Agent, address: str) -> None:
    with agent.popen("echo $$; exec gtk3-demo") as process:
        pid = int(process.stdout.readline())
        agent.wait_for(role="AXCell", title="Assistant", exact=True, pid=pid)
        for _ in range(20):  # until nothing happens between the two
            with tervain.Agent(address) as fresh:
                shown = fresh.snapshot(pid=pid).outline()
            printed = subprocess.run(
                [TERVAINCTL, "--agent", address, "tree", "--pid", str(pid), "--depth", "25"],
                stdout=subprocess.PIPE, check=True).stdout.decode()
            if shown == printed:
                return
        assert shown == printed


def documented() -> str:
    """The Python in the README."""
    section = (ROOT / "README.md").read_text().split("\n## From Python\n")[1]
    code = section.split("```python\n")[1].split("```")[0]
    return code.replace("vsock:3", os.environ["TERVAIN_AGENT"])


@pytest.mark.parametrize("example", [
    pytest.param(lambda: ["-m", "pytest", "-q", "-p", "no:cacheprovider",
                          f"{EXAMPLES}/test_editor.py"], id="editor"),
    pytest.param(lambda: [f"{EXAMPLES}/ai_loop.py"], id="loop"),
    pytest.param(lambda: ["-c", documented()], id="readme"),
])
def test_examples_run(address: str, example: Callable[[], list[str]], tmp_path: Path,
                      monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("TERVAIN_AGENT", address)
    subprocess.run([sys.executable, *example()], cwd=tmp_path, check=True, timeout=200)
