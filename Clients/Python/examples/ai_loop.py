"""A loop in which an AI model uses a guest's desktop.

    TERVAIN_AGENT=vsock:3 python3 ai_loop.py

The model gets a text and answers with a text, so any will do: `pursue` takes it as a function. The
one here stands in for one of flesh and silicon; it does a single thing, but by reading what it is
shown.
"""

from __future__ import annotations

import json
import re
from collections.abc import Callable

import tervain

Model = Callable[[str], str]

INSTRUCTIONS = """\
You use a computer's desktop. You are given a goal, what came of your last step, and what the
application in front shows, an element a line: its ref, role, "title", ="value", place and size, and
[the actions it offers]. Answer with one step, as a JSON object on one line:
{"do": "launch", "name": NAME}      {"do": "press", "ref": REF}      {"do": "type", "text": TEXT}
{"do": "key", "chord": CHORD}       {"do": "focus", "ref": REF}      {"do": "run", "command": LINE}
{"do": "wait", "role": ROLE}        {"do": "done", "answer": TEXT}
"""

# What a model can make use of; trees of large windows are larger.
MAX_OUTLINE = 60_000


def look(agent: tervain.Agent) -> tuple[dict[str, tervain.Element], str]:
    """The elements on the screen by their refs, and how a model is told of them."""
    try:
        snapshot = agent.snapshot()
    except tervain.AgentError as error:
        return {}, str(error)
    outline = snapshot.outline()
    if len(outline) > MAX_OUTLINE:
        outline = outline[: outline.rindex("\n", 0, MAX_OUTLINE)] + "\n(and more)\n"
    return {element.ref: element for element in snapshot.walk()}, outline


def perform(agent: tervain.Agent, elements: dict[str, tervain.Element],
            step: dict[str, str]) -> str:
    """Does what the model wants, and says what came of it."""
    match step["do"]:
        case "launch":
            agent.launch(step["name"])
        case "press":
            return elements[step["ref"]].press() or "done"
        case "focus":
            elements[step["ref"]].focus()
        case "type":
            agent.type(step["text"])
        case "key":
            agent.key(step["chord"])
        case "wait":
            return f"there is {agent.wait_for(role=step['role'], timeout=20)}"
        case "run":
            done = agent.run(step["command"], timeout=60)
            return f"exit status {done.returncode}, {done.stdout!r}, {done.stderr!r}"
        case unknown:
            return f"there is no step {unknown!r}"
    return "done"


def pursue(agent: tervain.Agent, goal: str, model: Model, steps: int = 30) -> str:
    """Has the model take steps until it says that it is done, and gives its answer."""
    outcome = "nothing was done yet"
    for _ in range(steps):
        elements, outline = look(agent)
        said = model(f"{INSTRUCTIONS}\nGoal: {goal}\nYour last step: {outcome}\n\n{outline}")
        print(">", said)
        try:
            step = json.loads(said)
            if step["do"] == "done":
                return str(step["answer"])
            outcome = perform(agent, elements, step)
        # Models make mistakes. They mend them when they are told.
        except (ValueError, KeyError, TypeError, TimeoutError, tervain.TervainError) as error:
            outcome = f"failed: {type(error).__name__}: {error}"
    raise TimeoutError(f"not done within {steps} steps")


def stand_in(prompt: str) -> str:
    """Writes Hello into a text editor, and says what is there then."""
    area = re.search(r'^ *(e\d+) AXTextArea(?: ="(\w*)")?.*?( focused)?(?: \[.*)?$', prompt,
                     re.MULTILINE)
    if not area:
        step = {"do": "launch", "name": "mousepad"}
        if "Your last step: done" in prompt:
            step = {"do": "wait", "role": "AXTextArea"}
    elif area[2]:
        step = {"do": "done", "answer": area[2]}
    elif not area[3]:
        step = {"do": "focus", "ref": area[1]}
    else:
        step = {"do": "type", "text": "Hello"}
    return json.dumps(step)


if __name__ == "__main__":
    with tervain.Agent() as desktop:  # $TERVAIN_AGENT says which
        print(pursue(desktop, "Write Hello into a text editor", stand_in))
