"""Takes the version from where the whole system has its own. pyproject.toml has all else."""

import re
from pathlib import Path

from setuptools import setup


def version() -> str:
    project = Path(__file__).resolve().parents[2] / "CMakeLists.txt"
    found = re.search(r"^project\(\w+ VERSION ([0-9.]+)", project.read_text("utf-8"), re.MULTILINE)
    if found is None:
        raise SystemExit(f"{project} has no version")
    return found[1]


setup(version=version())
