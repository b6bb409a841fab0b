"""The package, as pip installs it from the tree."""

from __future__ import annotations

import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).parents[2]


def test_pip_installs_the_tree(tmp_path: Path) -> None:
    tree, target = tmp_path / "tree", tmp_path / "target"
    shutil.copytree(ROOT / "Clients", tree / "Clients", ignore=shutil.ignore_patterns("build"))
    shutil.copy(ROOT / "CMakeLists.txt", tree)
    subprocess.run([sys.executable, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps",
                    "--no-build-isolation", "--target", target, tree / "Clients/Python"],
                   check=True)
    printed = subprocess.run(
        [sys.executable, "-c", "import importlib.metadata as m, tervain; "
         "print(m.version('tervain'), tervain.__file__)"], check=True, stdout=subprocess.PIPE,
        text=True, env={"PYTHONPATH": str(target)}).stdout.split()
    version = re.search(r"^project\(.* VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.M)
    assert version and printed == [version[1], str(target / "tervain/__init__.py")]
    assert (target / "tervain/py.typed").exists()
