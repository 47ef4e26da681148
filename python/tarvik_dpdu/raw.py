"""Links that carry CAN frames."""

import threading
from collections import deque
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Deque, Dict, List, Optional

from . import constants
from .base_link import NO_FLAGS, BaseLink, ExpectedResponse
from .constants import PDU_COPT_SENDRECV, PDU_COPT_STARTCOMM, PDU_HANDLE_UNDEF
from .errors import NoAnswer, PduError
from .events import ErrorEvent, Event, ResultEvent, Response
from .link import LARGEST_11_BIT_ID, check_can_id

if TYPE_CHECKING:
    from .module import Module

LARGEST_FRAME = 8

_ID_BYTES = 4
_ENDLESS = -1
_FLUSH_S = 10.0
_29_BIT_FLAGS = bytes([0, 0, constants.PDU_TX_FLAG2_CAN_29BIT_ID, 0])


@dataclass(frozen=True)
class CanFrame:
    """A CAN frame. extended: the identifier has 29 bits. timestamp_us: when it was received, in
    microseconds that never wrap."""

    can_id: int
    data: bytes
    extended: bool = False
    timestamp_us: int = 0


def read_frame(response: Response) -> Optional[CanFrame]:
    """The frame in a result of a raw link; None if the identifier is missing."""
    if len(response.data) < _ID_BYTES:
        return None
    can_id = int.from_bytes(response.data[:_ID_BYTES], "big")
    flags = response.rx_flags
    is_flagged = len(flags) > 2 and bool(flags[2] & constants.PDU_RX_FLAG2_CAN_29BIT_ID)
    # Not every library sets the flag for all 29-bit identifiers.
    extended = is_flagged or can_id > LARGEST_11_BIT_ID
    return CanFrame(can_id, response.data[_ID_BYTES:], extended, response.timestamp_us)


class RawLink(BaseLink):
    """A link that carries CAN frames. Made by `Module.raw_link`.

    One thread may send while another receives.
    """

    def __init__(
        self,
        module: "Module",
        protocol: str,
        bus_type: str,
        comparams: Dict[str, Any],
        receive: bool,
        send_with: int,
    ) -> None:
        if send_with not in (PDU_COPT_STARTCOMM, PDU_COPT_SENDRECV):
            raise ValueError("send_with is PDU_COPT_STARTCOMM or PDU_COPT_SENDRECV")
        self._frames: Deque[CanFrame] = deque()
        self._errors: List[ErrorEvent] = []
        self._send_with = send_with
        super().__init__(module, protocol, bus_type, is_raw=True)
        self._open(comparams)
        if receive:
            try:
                self._start_receiving()
            except BaseException:
                self.close()
                raise

    # Lasts until the link ends, so what it points to is kept that long.
    def _start_receiving(self) -> None:
        primitive = self.start(
            PDU_COPT_SENDRECV,
            expected=[ExpectedResponse()],
            send_cycles=0,
            receive_cycles=_ENDLESS,
            is_reported=False,
        )
        self._kept.append(primitive)

    # A library may report the ComPrimitive that receives as finished, and continue to receive.
    def _route(self, event: Event) -> None:
        if isinstance(event, ResultEvent):
            frame = read_frame(event.response)
            if frame is not None:
                self._frames.append(frame)
            return
        if isinstance(event, ErrorEvent) and event.primitive not in self._primitives:
            self._errors.append(event)
        super()._route(event)

    def send(self, can_id: int, data: bytes = b"", extended: Optional[bool] = None) -> None:
        """Passes a frame of at most 8 data bytes to the library and does not wait until it is sent.

        extended: the identifier has 29 bits; by default one above 0x7FF. A library may accept frames
        for a module that is gone: `Module.check`. Raises ValueError, PduError, LostModule.
        """
        data = bytes(data)
        if len(data) > LARGEST_FRAME:
            raise ValueError(f"{len(data)} data bytes are more than a CAN frame has")
        check_can_id(can_id, extended)
        is_long = can_id > LARGEST_11_BIT_ID if extended is None else extended
        self.start(
            self._send_with,
            can_id.to_bytes(_ID_BYTES, "big") + data,
            receive_cycles=0,
            tx_flags=_29_BIT_FLAGS if is_long else NO_FLAGS,
            is_reported=False,
        )

    def flush(self, timeout: float = _FLUSH_S) -> None:
        """Waits until the library has processed every frame that was passed to it.

        Raises RequestTimeout, LostModule; NoAnswer if the library reports an error.
        """
        # It need not report the end of a ComPrimitive that sends, but executes them in order.
        primitive = self.execute(constants.PDU_COPT_UPDATEPARAM, timeout=timeout)
        if primitive.error is not None:
            self.raise_no_answer(primitive)

    def receive(self, timeout: Optional[float] = None) -> Optional[CanFrame]:
        """The oldest frame that was received; None if none comes within that many seconds.

        Without a time it waits as long as it takes; with 0 it does not wait. Raises LostModule if
        the module is gone, NoAnswer for another error that the library has reported, Closed.
        """
        frame = self._next_frame()
        if frame is not None:
            return frame
        self.queue.pump()
        frame = self._next_frame()
        if frame is None and timeout != 0:
            self.wait_until(lambda: bool(self._frames or self._errors), timeout)
            frame = self._next_frame()
        if frame is None:
            self._raise_error()
        return frame

    def _next_frame(self) -> Optional[CanFrame]:
        try:
            return self._frames.popleft()
        except IndexError:
            return None

    def _raise_error(self) -> None:
        if self._errors:
            error = self._errors.pop(0)
            if error.code == constants.PDU_ERR_EVT_LOST_COMM_TO_VCI:
                raise self.module.lost()
            raise NoAnswer(error.meaning, status=error.code, name=error.name)
        if self.module.state() == constants.PDU_MODST_NOT_AVAIL:
            raise self.module.lost()

    def clear(self) -> None:
        """Forgets the frames that were received."""
        self.queue.pump()
        self._frames.clear()
