"""A client of Vantor radar servers: sessions, frames, configurations and recordings as NumPy arrays."""

from .calibration import Calibration, add_calibrations, load_calibrations, save_calibrations
from .configuration import Fault, ItemPlan, Plan, SubsweepPlan, load_configuration, plan, validate
from .errors import (
    AddressError,
    BadMessage,
    ConfigurationError,
    ConnectError,
    ConnectionLost,
    Error,
    ProtocolError,
    ServerError,
    ServerTimeout,
)
from .frame import FULL_SCALE, Flags, Frame, Item, ItemLayout, Subsweep
from .truth import ItemTruth, TargetTruth

__all__ = [
    "FULL_SCALE",
    "AddressError",
    "BadMessage",
    "Calibration",
    "ConfigurationError",
    "ConnectError",
    "ConnectionLost",
    "Error",
    "Fault",
    "Flags",
    "Frame",
    "Item",
    "ItemLayout",
    "ItemPlan",
    "ItemTruth",
    "Plan",
    "ProtocolError",
    "ServerError",
    "ServerTimeout",
    "Subsweep",
    "SubsweepPlan",
    "TargetTruth",
    "add_calibrations",
    "load_calibrations",
    "load_configuration",
    "plan",
    "save_calibrations",
    "validate",
]
