"""switching - a client of the switching section of a managed switch's REST interface.

    from switching import Switch, Refused
    with Switch.serve(ports=28, stations=8) as sw:
        sw.post("vlan/create", vlanNum=10)
"""
from .apply import Incomplete
from .description import Wrong
from .state import diff, dump
from .switch import NoAnswer, Refused, Switch
from .virtual import Call, CommandFailed

__all__ = ["Call", "CommandFailed", "Incomplete", "NoAnswer", "Refused", "Switch", "Wrong", "diff", "dump"]
