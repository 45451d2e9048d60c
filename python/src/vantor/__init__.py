"""A client of Vantor radar servers: sessions, frames, configurations and recordings as NumPy arrays."""

from importlib.metadata import version as _version

from ._conversation import Timeouts
from ._server import Server, connect
from ._session import Session
from .boards import BoardsRecording
from .boards import open as open  # not in __all__: a star import must not replace the built-in one
from .calibration import Calibration, add_calibrations, load_calibrations, save_calibrations
from .configuration import Fault, ItemPlan, Plan, SubsweepPlan, load_configuration, plan, validate
from .errors import (
    AddressError,
    BadMessage,
    ConfigurationError,
    ConnectError,
    ConnectionLost,
    Error,
    FileError,
    ProtocolError,
    RecordingError,
    ServerError,
    ServerTimeout,
)
from .frame import FULL_SCALE, Flags, Frame, Item, ItemLayout, Subsweep
from .recording import RecordedBoard, RecordedItem, RecordedServer, Recording, RecordingWarning, Segment
from .server_info import BoardInfo, MemoryUse, ServerInfo, StackUse
from .truth import ItemTruth, TargetTrack, TargetTruth, TruthOfFrames

__all__ = [
    "FULL_SCALE",
    "AddressError",
    "BadMessage",
    "BoardInfo",
    "BoardsRecording",
    "Calibration",
    "ConfigurationError",
    "ConnectError",
    "ConnectionLost",
    "Error",
    "Fault",
    "FileError",
    "Flags",
    "Frame",
    "Item",
    "ItemLayout",
    "ItemPlan",
    "ItemTruth",
    "MemoryUse",
    "Plan",
    "ProtocolError",
    "RecordedBoard",
    "RecordedItem",
    "RecordedServer",
    "Recording",
    "RecordingError",
    "RecordingWarning",
    "Segment",
    "Server",
    "ServerError",
    "ServerInfo",
    "ServerTimeout",
    "Session",
    "StackUse",
    "Subsweep",
    "SubsweepPlan",
    "TargetTrack",
    "TargetTruth",
    "Timeouts",
    "TruthOfFrames",
    "add_calibrations",
    "connect",
    "load_calibrations",
    "load_configuration",
    "plan",
    "save_calibrations",
    "validate",
]

#: The version of the package.
__version__ = _version("vantor")

# Help, tracebacks and pickles have the public names.
for _thing in [globals()[_name] for _name in [*__all__, "open"]]:
    if hasattr(_thing, "__module__"):
        _thing.__module__ = __name__
