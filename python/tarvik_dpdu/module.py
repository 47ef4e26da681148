"""A connected module (dongle), and what it reports about itself."""

import datetime
import re
import threading
from ctypes import POINTER, byref, c_uint32
from dataclasses import dataclass
from types import TracebackType
from typing import TYPE_CHECKING, Any, Iterable, Iterator, List, Mapping, Optional, Tuple, Type

from . import constants, records
from .constants import PDU_HANDLE_UNDEF
from .dispatch import EventQueue, iterate
from .errors import Closed, LostModule, check
from .events import ErrorEvent, Event
from .functions import NO_CALLBACK, text_of
from .ioctl import Input, InputItem, Output, read_output
from .timeline import Timeline

if TYPE_CHECKING:
    from .base_link import BaseLink
    from .library import Library
    from .link import FunctionalLink, Link
    from .raw import RawLink

_IOCTL_PREFIX = "PDU_IOCTL_"

CAN_PROTOCOL = "ISO_15765_3_on_ISO_15765_2"
RAW_PROTOCOL = "ISO_11898_RAW"
CAN_BUS = "ISO_11898_2_DWCAN"


def vendor_value(series: str, key: str) -> str:
    """The value of a key in a series of key='value'; empty if it is missing."""
    found = re.search(rf"(?:^| ){re.escape(key)}='([^']*)'", series)
    return found[1] if found else ""


@dataclass(frozen=True)
class ModuleInfo:
    """A module as the library lists it.

    state: PDU_MODST_…. vendor_name and additional_info: texts of the library's maker, usually a
    series of key='value', of which name, serial_number and connection are taken.
    """

    handle: int
    type_id: int
    state: int
    vendor_name: str
    additional_info: str

    @property
    def name(self) -> str:
        return vendor_value(self.vendor_name, "ModuleName")

    @property
    def serial_number(self) -> str:
        return vendor_value(self.vendor_name, "SerialNumber")

    @property
    def connection(self) -> str:
        return vendor_value(self.vendor_name, "ConnectionType")

    @property
    def is_there(self) -> bool:
        """False if it was there once and is gone."""
        return self.state != constants.PDU_MODST_NOT_AVAIL

    def matches(self, text: str) -> bool:
        """True if one of its texts contains this one, ignoring case."""
        return text.lower() in f"{self.vendor_name}\n{self.additional_info}".lower()


def _dotted(packed: int) -> str:
    return ".".join(str(packed >> shift & 0xFF) for shift in (24, 16, 8))


def _date(packed: int) -> Optional[datetime.date]:
    try:
        return datetime.date(1970 + (packed >> 24), packed >> 16 & 0xFF, packed >> 8 & 0xFF)
    except ValueError:
        return None


@dataclass(frozen=True)
class Version:
    """Versions of the interface, the module and the library. A date is None if there is none."""

    standard_part1: str
    standard_part2: str
    hardware_serial_number: int
    hardware_name: str
    hardware_version: str
    hardware_date: Optional[datetime.date]
    hardware_interface: int
    firmware_name: str
    firmware_version: str
    firmware_date: Optional[datetime.date]
    vendor_name: str
    library_name: str
    library_version: str
    library_date: Optional[datetime.date]


def _read_version(data: Any) -> Version:
    return Version(
        standard_part1=_dotted(data.MVCI_Part1StandardVersion),
        standard_part2=_dotted(data.MVCI_Part2StandardVersion),
        hardware_serial_number=data.HwSerialNumber,
        hardware_name=text_of(data.HwName),
        hardware_version=_dotted(data.HwVersion),
        hardware_date=_date(data.HwDate),
        hardware_interface=data.HwInterface,
        firmware_name=text_of(data.FwName),
        firmware_version=_dotted(data.FwVersion),
        firmware_date=_date(data.FwDate),
        vendor_name=text_of(data.VendorName),
        library_name=text_of(data.PDUApiSwName),
        library_version=_dotted(data.PDUApiSwVersion),
        library_date=_date(data.PDUApiSwDate),
    )


class Module:
    """A connected module. Made by `Library.module`; ends with `close` or the `with` statement.

    info: how the library listed it.
    """

    def __init__(self, library: "Library", info: ModuleInfo) -> None:
        self.library = library
        self.info = info
        self.functions = library.functions
        self.handle: int = info.handle
        self.timeline = Timeline()
        self.queue = EventQueue(self.functions, self.handle, PDU_HANDLE_UNDEF, self.timeline)
        self.queue.route = self._route
        self.errors: List[ErrorEvent] = []  # the newest one at most
        self.error_count = 0
        self._links: "List[BaseLink]" = []
        self._lock = threading.RLock()
        self._is_closed = False
        check("PDUModuleConnect", self.functions.PDUModuleConnect(self.handle))
        self.functions.PDURegisterEventCallback(
            self.handle, PDU_HANDLE_UNDEF, library.dispatcher.callback
        )

    def __enter__(self) -> "Module":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<Module {self.info.vendor_name}{' (closed)' if self._is_closed else ''}>"

    def close(self) -> None:
        """Closes its links and disconnects it. A second call does nothing."""
        with self._lock:
            if self._is_closed:
                return
            self._is_closed = True
        try:
            for link in reversed(list(self._links)):
                link.close()
        finally:
            self.functions.PDURegisterEventCallback(
                self.handle, PDU_HANDLE_UNDEF, NO_CALLBACK
            )
            self.queue.close()
            self.functions.PDUModuleDisconnect(self.handle)
            self.library._forget(self)

    def _require_open(self) -> None:
        if self._is_closed:
            raise Closed("the module was closed")

    def _route(self, event: Event) -> None:
        if isinstance(event, ErrorEvent):
            self.errors = [event]
            self.error_count += 1
        self.queue.events.append(event)

    def _remember(self, link: "BaseLink") -> None:
        with self._lock:
            self._require_open()
            self._links.append(link)

    def _forget(self, link: "BaseLink") -> None:
        with self._lock:
            if link in self._links:
                self._links.remove(link)

    # --- state ---

    def state(self) -> int:
        """PDU_MODST_…, as the library knows it now. Some notice a loss only in `Library.scan`."""
        self._require_open()
        return self.library.module_state(self.handle)

    def is_lost(self) -> bool:
        """True if the module is gone. Lets the library look for it, which takes 0.2 s and more."""
        self._require_open()
        if self.state() != constants.PDU_MODST_NOT_AVAIL:
            self.library.scan()
        return self.state() == constants.PDU_MODST_NOT_AVAIL

    def check(self) -> None:
        """Raises LostModule if the module is gone. Takes as long as `is_lost`."""
        if self.is_lost():
            raise self.lost()

    def lost(self) -> LostModule:
        """The exception for this module."""
        return LostModule(f"the module is gone: {self.info.vendor_name or self.handle}")

    def version(self) -> Version:
        """Raises PduError."""
        self._require_open()
        data = records.PDU_VERSION_DATA()
        check("PDUGetVersion", self.functions.PDUGetVersion(self.handle, byref(data)))
        return _read_version(data)

    def timestamp_us(self) -> int:
        """The time now of the clock that stamps its events, in microseconds that never wrap."""
        self._require_open()
        now = c_uint32()
        check("PDUGetTimestamp", self.functions.PDUGetTimestamp(self.handle, byref(now)))
        return self.timeline.extend(now.value)

    def events(self, timeout: Optional[float] = None) -> Iterator[Event]:
        """The events of the module itself, not those of its links.

        Ends when none comes for that many seconds; without a time it never ends. Raises Closed.
        """
        return iterate(self.library.dispatcher, [self.queue, self.library.queue], timeout)

    # --- IOCTLs ---

    def ioctl(self, name: str, value: Input = None, *, link: int = PDU_HANDLE_UNDEF) -> Output:
        """Executes an IOCTL by its name, with or without `PDU_IOCTL_`: `module.ioctl("READ_VBATT")`.

        See the module `ioctl` for the types of inputs and outputs. Raises UnknownName, PduError.
        """
        self._require_open()
        full = name if name.startswith(_IOCTL_PREFIX) else _IOCTL_PREFIX + name
        number = self.library.id_of(constants.PDU_OBJT_IO_CTRL, full)
        given = InputItem(value)
        pointer = byref(given.item) if given.item is not None else None
        output = POINTER(records.PDU_DATA_ITEM)()
        try:
            status = self.functions.PDUIoCtl(self.handle, link, number, pointer, byref(output))
            check("PDUIoCtl", status)
            return read_output(output.contents) if output else None
        finally:
            self.functions.destroy(output)

    def battery_mv(self) -> int:
        """The battery voltage in millivolts. Raises PduError."""
        value = self.ioctl("READ_VBATT")
        return value if isinstance(value, int) else 0

    # --- links ---

    def link(
        self,
        request_id: int = 0x7E0,
        response_id: int = 0x7E8,
        *,
        extended: Optional[bool] = None,
        protocol: str = CAN_PROTOCOL,
        bus_type: str = CAN_BUS,
        p2_max: float = 1.0,
        p2_star: Optional[float] = None,
        tester_present: Optional[float] = None,
        tester_present_message: bytes = b"\x3e\x80",
        comparams: Optional[Mapping[str, Any]] = None,
        timeout: float = 60.0,
    ) -> "Link":
        """A connected link to one control unit.

        request_id, response_id: CAN identifiers. extended: True for 29-bit ones; by default those
        above 0x7FF are. p2_max, p2_star: how long an answer may take, at first and after "response
        pending", in seconds. tester_present: its interval in seconds; None: none is sent.
        comparams: further ComParams by name. timeout: of one request in seconds, for control units
        that keep it pending.

        Raises UnknownName, PduError, LostModule.
        """
        from .link import Link, LinkSettings

        settings = LinkSettings(
            protocol=protocol,
            bus_type=bus_type,
            extended=extended,
            p2_max=p2_max,
            p2_star=p2_star,
            tester_present=tester_present,
            tester_present_message=tester_present_message,
            comparams=dict(comparams or {}),
            timeout=timeout,
        )
        return Link(self, settings, request_id, response_id)

    def functional_link(
        self,
        units: Optional[Iterable[Tuple[int, int]]] = None,
        functional_id: int = 0x7DF,
        *,
        extended: Optional[bool] = None,
        protocol: str = CAN_PROTOCOL,
        bus_type: str = CAN_BUS,
        p2_max: float = 1.0,
        p2_star: Optional[float] = None,
        comparams: Optional[Mapping[str, Any]] = None,
        timeout: float = 60.0,
    ) -> "FunctionalLink":
        """A connected link that asks many control units at once.

        units: pairs of request and response identifier, each response identifier once; by default
        7E0:7E8 to 7E7:7EF. functional_id: the identifier that all listen to. The others as for
        `link`. Raises UnknownName, PduError, LostModule.
        """
        from .link import FunctionalLink, LinkSettings

        settings = LinkSettings(
            protocol=protocol,
            bus_type=bus_type,
            extended=extended,
            p2_max=p2_max,
            p2_star=p2_star,
            comparams=dict(comparams or {}),
            timeout=timeout,
        )
        return FunctionalLink(self, settings, units, functional_id)

    def raw_link(
        self,
        *,
        protocol: str = RAW_PROTOCOL,
        bus_type: str = CAN_BUS,
        comparams: Optional[Mapping[str, Any]] = None,
        receive: bool = True,
        send_with: int = constants.PDU_COPT_STARTCOMM,
    ) -> "RawLink":
        """A connected link that carries CAN frames. Use one that receives at a time for a module.

        receive: False: only to send. send_with: type of the ComPrimitive that sends a frame;
        PDU_COPT_STARTCOMM as this project's library needs it, or PDU_COPT_SENDRECV for others.
        Raises UnknownName, PduError, LostModule.
        """
        from .raw import RawLink

        return RawLink(self, protocol, bus_type, dict(comparams or {}), receive, send_with)
