"""Agents for the tests: the real one, of the build folder $TERVAIN_BUILD, and ones that answer what
a test wants."""

from __future__ import annotations

import contextlib
import itertools
import os
import socketserver
import subprocess
import threading
import time
from collections.abc import Callable, Iterable, Iterator
from pathlib import Path

import pytest

import tervain

Answer = Callable[[bytes], Iterable[bytes]]
Serve = Callable[[Answer], str]


@pytest.fixture(scope="session")
def address(tmp_path_factory: pytest.TempPathFactory) -> Iterator[str]:
    """Where an agent is that lives as long as the tests."""
    build, path = os.environ["TERVAIN_BUILD"], tmp_path_factory.mktemp("agent") / "agent.sock"
    process = subprocess.Popen(
        [f"{build}/Tools/serve-unix", path, f"{build}/Sources/TervainVMAgent/TervainVMAgent"],
        stderr=subprocess.DEVNULL, env=os.environ | {"TERVAIN_DULK_DISABLE": "1"})
    deadline = time.monotonic() + 30
    while not path.exists():
        assert process.poll() is None and time.monotonic() < deadline
        time.sleep(0.01)
    yield f"unix:{path}"
    process.terminate()
    process.wait()


@pytest.fixture
def agent(address: str) -> Iterator[tervain.Agent]:
    with tervain.Agent(address) as agent:
        yield agent


@pytest.fixture
def serve(tmp_path: Path) -> Iterator[Serve]:
    """Starts an agent that sends pieces in answer to a line, and gives its address. It closes a
    connection for which the pieces have ended in b""."""
    servers: list[socketserver.ThreadingUnixStreamServer] = []

    def start(answer: Answer) -> str:
        class Handler(socketserver.StreamRequestHandler):
            def handle(self) -> None:
                with contextlib.suppress(OSError):  # the client has had enough
                    for piece in itertools.chain.from_iterable(map(answer, self.rfile)):
                        if not piece:
                            return
                        self.wfile.write(piece)

        server = socketserver.ThreadingUnixStreamServer(str(tmp_path / "fake.sock"), Handler)
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, args=(0.01,), daemon=True).start()
        servers.append(server)
        return f"unix:{tmp_path}/fake.sock"

    yield start
    for server in servers:
        server.shutdown()
        server.server_close()
