"""Commands and addresses, against the real agent."""

from __future__ import annotations

import hashlib
import os
import select
import signal
import socket
import threading
import time
from collections.abc import Iterable, Iterator
from pathlib import Path

import pytest
from conftest import Serve

import tervain

# Sanitizers make the agent slow.
STREAMED = 8_000_000 if os.environ.get("TERVAIN_SANITIZED") else 100_000_000


@pytest.mark.parametrize(("command", "given", "outcome"), [
    ("printf out; printf err >&2; exit 7", None, (7, b"out", b"err")),
    (["printf", "%s|", "a b", "'\"$x", "", "ü"], None, (0, "a b|'\"$x||ü|".encode(), b"")),
    ("kill -9 $$", None, (137, b"", b"")),
    ("cat", b"", (0, b"", b"")),
    ("cat", b"\0\xff\n/", (0, b"\0\xff\n/", b"")),
    ("exec true", b"x" * 10_000_000, (0, b"", b"")),
])
def test_commands(agent: tervain.Agent, command: str | list[str], given: bytes | None,
                  outcome: tuple[int, bytes, bytes]) -> None:
    done = agent.run(command, input=given)
    assert (done.returncode, done.stdout, done.stderr) == outcome


def test_streams_run_both_ways(agent: tervain.Agent) -> None:
    piece, sent, received = os.urandom(1_000_000), hashlib.sha256(), hashlib.sha256()
    with agent.popen("cat; echo end >&2") as command:
        def write() -> None:
            for i in range(STREAMED // len(piece)):
                each = i.to_bytes(4, "big") + piece[4:]
                sent.update(each)
                command.stdin.write(each)
            command.stdin.close()

        writer = threading.Thread(target=write)
        writer.start()
        while data := command.stdout.read1():
            received.update(data)
        writer.join()
        assert (command.wait(), command.stderr.read()) == (0, b"end\n")
    assert sent.digest() == received.digest()


def test_a_conversation(agent: tervain.Agent) -> None:
    with agent.popen("while read -r word; do echo \"<$word>\"; done", timeout=20) as command:
        for word in (b"one", b"two"):
            command.stdin.write(word + b"\n")
            assert command.stdout.readline() == b"<%s>\n" % word
        assert command.poll() is None
        command.timeout = 0.1
        with pytest.raises(TimeoutError):
            command.stdout.read(1)
        command.send_signal(signal.SIGTERM)
        assert command.wait(20) == 128 + signal.SIGTERM


def test_what_is_left_is_killed(agent: tervain.Agent) -> None:
    with pytest.raises(tervain.CommandTimeout) as raised:
        agent.run("echo $$; sleep 1000", timeout=1)
    alive = f"kill -0 {raised.value.stdout.decode()}"
    deadline = time.monotonic() + 20
    while agent.run(alive).returncode == 0:
        assert time.monotonic() < deadline
    assert agent.run("head -c 40000000 /dev/zero | tail -c 1").stdout == b"\0"


def test_addresses(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setenv("TERVAIN_AGENTS", str(tmp_path / "none"))
    monkeypatch.delenv("TERVAIN_AGENT", raising=False)
    table = Path(__file__).parents[1] / "VMAgentClient/addresses.tsv"  # as in C++
    for text, meant in (line.split("\t") for line in table.read_text().splitlines()):
        if meant == "none":
            with pytest.raises(tervain.AddressError):
                tervain.Agent(text)
        else:
            assert tervain.parse_address(text) == tervain.parse_address(meant) is not None
    assert tervain.parse_address("unix-mux:/a:b:5") == ("/a:b", 5)
    assert tervain.parse_address("vsock:local") == (1, 2035)
    assert tervain.parse_address("exec:ssh host: 5%") == ("ssh host: 5%",)


def test_names_reach_agents_of_all_kinds(serve: Serve, monkeypatch: pytest.MonkeyPatch,
                                         tmp_path: Path) -> None:
    place = b'{"ok":true,"x":1,"y":2.0}\n'

    def answer(line: bytes) -> Iterable[bytes]:
        return [b"OK 1\n" if line == b"CONNECT 9\n" else b"" if b"CONNECT" in line else place]

    path = serve(answer).removeprefix("unix:")
    deep = tmp_path.joinpath(*["d" * 60] * 3)
    deep.mkdir(parents=True)
    os.rename(path, deep / "socket")
    (tmp_path / "agents").write_text(
        f"# all kinds\nmux unix-mux:{deep}/socket:9 # known\nport\tunix-mux:{deep}/socket:8\n"
        f"  deep unix:{deep}/socket\nnone unix:{path}\n"
        f"program exec:while read -r x; do echo '{place.decode().strip()}'; done\n"
        "ended exec:exit 3\n")
    monkeypatch.setenv("TERVAIN_AGENTS", str(tmp_path / "agents"))
    assert list(tervain.agents()) == ["mux", "port", "deep", "none", "program", "ended"]
    for name in ("mux", "deep", "program"):
        with tervain.Agent(name, timeout=20) as agent:
            assert agent.cursor() == (1, 2)
    for name in ("port", "none"):
        with pytest.raises(tervain.AgentUnreachable, match=name):
            tervain.Agent(name).cursor()
    with pytest.raises(tervain.ConnectionLost, match="status 3"):
        tervain.Agent("ended").cursor()
    with pytest.raises(tervain.AddressError, match="unknown"):
        tervain.Agent("unknown")
    for wrong in ("a", "a vsock:x", "a/b vsock:3", "-a vsock:3", "a vsock:3\na vsock:4"):
        (tmp_path / "agents").write_text(wrong)
        with pytest.raises(tervain.AddressError, match=r"agents:[12]: "):
            tervain.Agent("a")


def test_connecting_ends_and_starts_anew(serve: Serve, tmp_path: Path) -> None:
    with socket.socket(socket.AF_UNIX) as deaf:
        deaf.bind(str(tmp_path / "deaf"))
        deaf.listen(0)
        with socket.socket(socket.AF_UNIX) as first:
            first.connect(str(tmp_path / "deaf"))
            with pytest.raises(TimeoutError, match="deaf"):
                tervain.Agent(f"unix:{tmp_path}/deaf", timeout=0.2).ping()
    answers: Iterator[list[bytes]] = iter([
        [b'{"ok":true,"x":1,"y":2}\n', b""], [], [b'{"ok":true,"x":3,"y":4}\n']])
    with tervain.Agent(serve(lambda _: next(answers)), timeout=20) as agent:
        assert agent.cursor() == (1, 2)
        assert agent._session is not None
        assert select.select([agent._session.connection._socket], [], [], 20)[0]  # the agent goes
        with pytest.raises(TimeoutError):
            agent.cursor(timeout=0.2)
        assert agent.cursor() == (3, 4)
