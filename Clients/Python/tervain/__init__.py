"""See and use the desktop of a virtual machine from its host, through the guest's agent.

    with tervain.Agent("vsock:3") as agent:
        print(agent.run("uname -s").stdout)
        agent.launch("mousepad")
        agent.wait_for(role="AXTextArea").set("Hello")
        agent.press(role="menuitem", title="Save")
"""

from .addresses import agents, parse_address
from .agent import Agent, Display, Screenshot, ShellEvents, Status
from .command import Command
from .elements import Element, Frame, Snapshot
from .errors import (AddressError, AgentError, AgentUnreachable, AmbiguousElement, CommandTimeout,
                     ConnectionLost, ElementNotFound, OutputTooLong, ProtocolError, StaleElement,
                     TervainError)

__all__ = [
    "AddressError", "Agent", "AgentError", "AgentUnreachable", "AmbiguousElement", "Command",
    "CommandTimeout", "ConnectionLost", "Display", "Element", "ElementNotFound", "Frame",
    "OutputTooLong", "ProtocolError", "Screenshot", "ShellEvents", "Snapshot", "StaleElement",
    "Status", "TervainError", "agents", "parse_address",
]
