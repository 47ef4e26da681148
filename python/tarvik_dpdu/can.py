"""A python-can bus on a raw link of a D-PDU library.

    import can

    with can.Bus(interface="tarvik", channel=0) as bus:
        bus.send(can.Message(arbitration_id=0x123, data=[1, 2, 3], is_extended_id=False))
        print(bus.recv(timeout=1.0))

python-can (Debian: python3-can) finds the interface "tarvik" by the package's entry point.
"""

import contextlib
import time
from typing import Any, Dict, List, Mapping, Optional, Tuple, Union

from can.bus import BusABC
from can.exceptions import CanInitializationError, CanOperationError
from can.message import Message
from can.typechecking import AutoDetectedConfig

from .errors import NoModule, PduError
from .library import Library
from .module import Module
from .raw import LARGEST_FRAME, CanFrame, RawLink

INTERFACE = "tarvik"

_LONGEST_WAIT_S = 0.5
_SILENCE_BEFORE_CHECK_S = 2.0  # a check may take as long as the library looks for modules
_BITRATE = "CP_Baudrate"


def _find_module(library: Library, channel: Union[int, str], timeout: float) -> Module:
    """A number counts the modules that are there, in the library's order; a text is looked for in
    their names, as `Library.module` does."""
    if not isinstance(channel, int) and not str(channel).isdigit():
        return library.module(str(channel), timeout)
    number = int(channel)
    deadline = time.monotonic() + timeout
    while True:
        found = library.modules(max(0.0, deadline - time.monotonic()))
        if number < len(found):
            return library.module(found[number].vendor_name, 0)
        if time.monotonic() >= deadline:
            raise NoModule(f"there is no module {number}: {len(found)} were found")


class TarvikBus(BusABC):
    """CAN frames of the vehicle behind a module, as a bus of python-can.

    channel: the position of the module in the library's list, from 0, or a text of its name, such as
    its serial number. library, vendor, root_file, options: as of `Library`; a Library that is open
    may be given too and is left open. bitrate: in bits per second, sets CP_Baudrate; by default the
    module's own. comparams: further ComParams by name. timeout: seconds to look for the module.
    protocol, bus_type: the raw link's names in the library.

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
                if time.monotonic() - self._last_sign_s > _SILENCE_BEFORE_CHECK_S:
                    self._module.check()
                    self._last_sign_s = time.monotonic()
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
