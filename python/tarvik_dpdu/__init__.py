"""D-PDU API (ISO 22900-2) libraries of any vendor, from Python.

    with tarvik_dpdu.Library() as library, library.module() as module, module.link() as link:
        print(link.request(bytes.fromhex("22F190")).data[3:].decode())

Times that are passed are in seconds; time stamps are in microseconds and never wrap. Every exception
derives from PduError.
"""

from . import constants
from .base_link import ComPrimitive, ExpectedResponse
from .comparams import ComParams
from .errors import (
    Closed,
    LostModule,
    NegativeResponse,
    NoAnswer,
    NoLibrary,
    NoModule,
    PduError,
    RequestTimeout,
    UnknownName,
)
from .events import (
    EcuAddress,
    ErrorEvent,
    Event,
    InfoEvent,
    Notification,
    Response,
    ResultEvent,
    StatusEvent,
)
from .ioctl import (
    EntityAddress,
    EntityStatus,
    EthernetSwitch,
    Filter,
    ProgVoltage,
    QueueProperties,
    VehicleIdRequest,
)
from .library import Library
from .link import FunctionalLink, Link
from .module import Module, ModuleInfo, Version
from .raw import CanFrame, RawLink
from .root_file import Entry, find_entry, read_entries
from .values import AccessTiming, ParamType, SessionTiming

__version__ = "0.1.0"

__all__ = [
    "AccessTiming",
    "CanFrame",
    "Closed",
    "ComParams",
    "ComPrimitive",
    "EcuAddress",
    "EntityAddress",
    "EntityStatus",
    "Entry",
    "ErrorEvent",
    "EthernetSwitch",
    "Event",
    "ExpectedResponse",
    "Filter",
    "FunctionalLink",
    "InfoEvent",
    "Library",
    "Link",
    "LostModule",
    "Module",
    "ModuleInfo",
    "NegativeResponse",
    "NoAnswer",
    "NoLibrary",
    "NoModule",
    "Notification",
    "ParamType",
    "PduError",
    "ProgVoltage",
    "QueueProperties",
    "RawLink",
    "RequestTimeout",
    "Response",
    "ResultEvent",
    "SessionTiming",
    "StatusEvent",
    "UnknownName",
    "VehicleIdRequest",
    "Version",
    "__version__",
    "constants",
    "find_entry",
    "read_entries",
]
