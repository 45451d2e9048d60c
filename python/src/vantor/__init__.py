"""A client of Vantor radar servers: sessions, frames, configurations and recordings as NumPy arrays."""

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
    "ConfigurationError",
    "ConnectError",
    "ConnectionLost",
    "Error",
    "Flags",
    "Frame",
    "Item",
    "ItemLayout",
    "ItemTruth",
    "ProtocolError",
    "ServerError",
    "ServerTimeout",
    "Subsweep",
    "TargetTruth",
]
