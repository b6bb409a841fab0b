"""What the scripts beside this file share: an agent of their own behind a Unix socket."""
import json
import os
import socket
import subprocess
import tempfile
import time

PATIENCE = 60  # seconds that anything may take to come up


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(what)
        time.sleep(0.01)


class Agent:
    """Runs until the end of its `with` block."""

    def __init__(self, build):
        self.folder = tempfile.TemporaryDirectory()
        self.path = os.path.join(self.folder.name, "agent.sock")
        self.process = subprocess.Popen(
            [f"{build}/Tools/serve-unix", self.path, f"{build}/Sources/TervainVMAgent/TervainVMAgent"],
            stderr=subprocess.DEVNULL, env=os.environ | {"TERVAIN_DULK_DISABLE": "1"})
        self.socket = socket.socket(socket.AF_UNIX)
        wait_until(lambda: self.socket.connect_ex(self.path) == 0, "the agent does not answer")
        self.lines = self.socket.makefile("rb")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.lines.close()
        self.socket.close()
        self.folder.cleanup()

    def ask(self, **request):
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        return json.loads(self.lines.readline())


def size(node):
    return 1 + sum(size(child) for child in node.get("children", []))


def settled(agent, pid, least=2):
    """Waits until the application's tree has so many elements and no longer grows, and gives its
    size."""
    seen = [0, 0, 0]

    def quiet():
        seen[:] = seen[1:] + [size(agent.ask(op="ax_dump", pid=pid, maxDepth=25)["tree"])]
        return seen[0] >= least and len(set(seen)) == 1

    wait_until(quiet, f"the tree of process {pid} does not settle")
    return seen[-1]
