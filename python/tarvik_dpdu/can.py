"""A python-can bus on a raw link of a D-PDU library.

    import can

    with can.Bus(interface="tarvik", channel=0) as bus:
        bus.send(can.Message(arbitration_id=0x123, data=[1, 2, 3], is_extended_id=False))
        print(bus.recv(timeout=1.0))

python-can (Debian: python3-can) finds the interface "tarvik" by the package's entry point.
"""

import contextlib
import re
import threading
import time
from typing import Any, Dict, List, Mapping, Optional, Tuple, Union

from can.bus import BusABC
from can.exceptions import CanInitializationError, CanOperationError
from can.message import Message
from can.typechecking import AutoDetectedConfig

from .errors import NoModule, PduError
from .library import Library
from .module import Module, ModuleInfo
from .raw import LARGEST_FRAME, CanFrame, RawLink

INTERFACE = "tarvik"

_LONGEST_WAIT_S = 0.5
_SILENCE_BEFORE_LOOK_S = 2.0
_BITRATE = "CP_Baudrate"


def _position(channel: Union[int, str]) -> Optional[int]:
    """The number that a channel is, also as a text, as configuration files have it."""
    text = str(channel)
    if not re.fullmatch("-?[0-9]+", text):
        return None
    number = int(text)
    if number < 0:
        raise ValueError(f"the channel {number} is negative: positions count from 0")
    return number


def _choose(found: List[ModuleInfo], channel: Union[int, str]) -> Optional[ModuleInfo]:
    """The module with this name or serial number; else the one at this position, or the only one
    with this text. None if it is not there; raises NoModule if the text does not say which."""
    text = str(channel).lower()
    exact = [
        each
        for each in found
        if text in (each.name.lower(), each.serial_number.lower(), each.vendor_name.lower())
    ]
    number = _position(channel)
    if not exact and number is not None:
        return found[number] if number < len(found) else None
    fitting = exact or [each for each in found if each.matches(text)]
    if len(fitting) > 1:
        names = "; ".join(each.serial_number or each.vendor_name for each in fitting)
        raise NoModule(f"{len(fitting)} modules match '{channel}': {names}")
    return fitting[0] if fitting else None


def _find_module(library: Library, channel: Union[int, str], timeout: float) -> Module:
    _position(channel)  # a negative one is refused before anything is looked for
    deadline = time.monotonic() + timeout
    while True:
        found = library.modules()
        chosen = _choose(found, channel)
        if chosen is not None:
            return library._connect(chosen)
        left = deadline - time.monotonic()
        if left <= 0:
            raise NoModule(f"there is no module {channel}: {len(found)} were found")
        library._pause_between_scans(left)


class _Lookout:
    """Looks on a thread of its own whether a module is still there: a look takes as long as the
    library looks for modules, and receiving must not wait for that."""

    def __init__(self, module: Module) -> None:
        self._module = module
        self._thread: Optional[threading.Thread] = None
        self._error: Optional[PduError] = None

    def look(self) -> None:
        """Starts a look, unless one is under way."""
        if self._thread is None:
            self._thread = threading.Thread(target=self._check, name="tarvik look", daemon=True)
            self._thread.start()

    def is_done(self) -> bool:
        """True once for each look, after it has ended. Raises what it found."""
        if self._thread is None or self._thread.is_alive():
            return False
        self._thread = None
        if self._error is not None:
            raise self._error
        return True

    def _check(self) -> None:
        try:
            self._module.check()
        except PduError as error:
            self._error = error

    def close(self) -> None:
        """Waits for the end of a look."""
        thread = self._thread
        if thread is not None:
            thread.join()


class TarvikBus(BusABC):
    """CAN frames of the vehicle behind a module, as a bus of python-can.

    channel: the name or the serial number of a module; else a number from 0 is its position in the
    library's list, and another text is a part of the module's texts that only one has. library,
    vendor, root_file, options: as of `Library`; a Library that is open may be given too and is left
    open. bitrate: in bits per second, sets CP_Baudrate; by default the module's own. comparams:
    further ComParams by name. timeout: seconds to look for the module. protocol, bus_type: the raw
    link's names in the library.

    A bus serves CAN frames of up to 8 bytes: no CAN FD, no remote frames, no echo of what was sent,
    and no error frames. Filters work in this process. Time stamps of messages are seconds since 1970,
    taken from the library's clock.

    Raises CanInitializationError if the library or the module is missing or refuses.
    """

    def __init__(
        self,
        channel: Union[int, str] = 0,
        can_filters: Any = None,
        *,
        library: Union[Library, str, None] = None,
        vendor: Optional[str] = None,
        root_file: Optional[str] = None,
        options: str = "",
        bitrate: Optional[int] = None,
        comparams: Optional[Mapping[str, Any]] = None,
        timeout: float = 3.0,
        protocol: str = "ISO_11898_RAW",
        bus_type: str = "ISO_11898_2_DWCAN",
        fd: bool = False,
        receive_own_messages: bool = False,
        **kwargs: Any,
    ) -> None:
        if fd:
            raise CanInitializationError("the D-PDU API has no CAN FD frames")
        if receive_own_messages:
            raise CanInitializationError("frames that were sent are not received")
        values: Dict[str, Any] = dict(comparams or {})
        if bitrate is not None:
            values[_BITRATE] = int(bitrate)
        self._opened = contextlib.ExitStack()
        try:
            with contextlib.ExitStack() as opening:
                if not isinstance(library, Library):
                    library = opening.enter_context(Library(library, vendor, root_file, options))
                self._module = opening.enter_context(_find_module(library, channel, timeout))
                self._link: RawLink = opening.enter_context(
                    self._module.raw_link(protocol=protocol, bus_type=bus_type, comparams=values)
                )
                # Its library's clock counts from anywhere.
                self._clock_offset_s = time.time() - self._module.timestamp_us() / 1e6
                self._last_sign_s = time.monotonic()
                self._lookout = _Lookout(self._module)
                opening.callback(self._lookout.close)  # before the module is closed
                self._opened = opening.pop_all()
        except (PduError, ValueError, OSError) as error:
            raise CanInitializationError(str(error)) from error
        self.channel_info = f"{INTERFACE}: {self._module.info.name or self._module.info.vendor_name}"
        super().__init__(channel=channel, can_filters=can_filters, **kwargs)

    def _message_of(self, frame: CanFrame) -> Message:
        return Message(
            timestamp=frame.timestamp_us / 1e6 + self._clock_offset_s,
            arbitration_id=frame.can_id,
            is_extended_id=frame.extended,
            data=frame.data,
            channel=self._module.info.serial_number or None,
            is_rx=True,
        )

    def _recv_internal(self, timeout: Optional[float]) -> Tuple[Optional[Message], bool]:
        """The next message and False: python-can applies its filters.

        Waits no longer than the time, and again and again without one. Raises
        CanOperationError if the module is gone or the bus was shut down.
        """
        deadline = None if timeout is None else time.monotonic() + timeout
        try:
            while True:
                left = _LONGEST_WAIT_S
                if deadline is not None:
                    left = min(left, max(0.0, deadline - time.monotonic()))
                frame = self._link.receive(left)
                if frame is not None:
                    self._last_sign_s = time.monotonic()
                    return self._message_of(frame), False
                # A silent bus and a module that was pulled out look the same.
                if self._lookout.is_done():
                    self._last_sign_s = time.monotonic()
                if time.monotonic() - self._last_sign_s > _SILENCE_BEFORE_LOOK_S:
                    self._lookout.look()
                if deadline is not None and time.monotonic() >= deadline:
                    return None, False
        except PduError as error:
            raise CanOperationError(str(error)) from error

    def send(self, msg: Message, timeout: Optional[float] = None) -> None:
        """Passes a message to the library. timeout: waits so many seconds until it was sent.

        Raises CanOperationError if the library refuses it, the module is gone or the time is
        over; ValueError for a message that such a bus does not have.
        """
        if msg.is_fd or msg.is_remote_frame or msg.is_error_frame:
            raise ValueError("only data frames of classical CAN can be sent")
        if len(msg.data) > LARGEST_FRAME:
            raise ValueError(f"{len(msg.data)} data bytes are more than a CAN frame has")
        try:
            self._link.send(msg.arbitration_id, bytes(msg.data), msg.is_extended_id)
            if timeout:
                self._link.flush(timeout)
        except PduError as error:
            raise CanOperationError(str(error)) from error

    def shutdown(self) -> None:
        """Ends the periodic messages, the link, the module and the library. A second call does
        nothing."""
        super().shutdown()
        self._opened.close()

    @staticmethod
    def _detect_available_configs() -> List[AutoDetectedConfig]:
        """For can.detect_available_configs: a configuration for each module that is there now."""
        try:
            with Library() as library:
                count = len(library.modules(0.5))
        except PduError:
            return []
        return [{"interface": INTERFACE, "channel": number} for number in range(count)]
