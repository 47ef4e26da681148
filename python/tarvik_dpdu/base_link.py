"""What all links have in common, and the ComPrimitives that they execute."""

import ctypes
import threading
from collections import deque
from ctypes import POINTER, byref, c_uint8, c_uint32
from dataclasses import dataclass, replace
from types import TracebackType
from typing import (
    TYPE_CHECKING,
    Any,
    Deque,
    Dict,
    Iterator,
    List,
    Mapping,
    NoReturn,
    Optional,
    Sequence,
    Type,
    TypeVar,
)

from . import constants, records
from .comparams import ComParams
from .constants import PDU_HANDLE_UNDEF
from .dispatch import EventQueue, iterate
from .errors import Closed, LostModule, NoAnswer, PduError, RequestTimeout, check
from .events import ErrorEvent, Event, ResultEvent, Response, StatusEvent
from .functions import NO_CALLBACK, Functions
from .ioctl import Input, Output
from .values import byte_array

if TYPE_CHECKING:
    from .library import Library
    from .module import Module

# The pins that carry the diagnostic CAN bus on the vehicle connector.
_CAN_PINS = {"HI": 6, "LOW": 14}

_CANCEL_S = 1.0
_UPDATE_S = 5.0

# Statuses of a library that has lost the module.
_LOST_STATUSES = (
    constants.PDU_ERR_COMM_PC_TO_VCI_FAILED,
    constants.PDU_ERR_INVALID_HANDLE,
    constants.PDU_ERR_MODULE_NOT_CONNECTED,
    constants.PDU_ERR_RESOURCE_ERROR,
)

# A library may read the transmit flags until the ComPrimitive ends, so they are never freed.
_tx_flags: Dict[bytes, Any] = {}

# Of ComPrimitives whose end nobody reports, what the newest point to is kept.
_KEPT_SENDS = 64

_Self = TypeVar("_Self", bound="BaseLink")


@dataclass(frozen=True)
class ExpectedResponse:
    """A response that a request may get: equal to the pattern in all bits that the mask has.

    mask and pattern have the same length; without bytes any response is expected.
    """

    pattern: bytes = b""
    mask: bytes = b""
    is_negative: bool = False

    def __post_init__(self) -> None:
        if len(self.mask) != len(self.pattern):
            raise ValueError("mask and pattern need the same length")


class _Control:
    """A PDU_COP_CTRL_DATA with everything that it points to."""

    def __init__(
        self,
        expected: Sequence[ExpectedResponse],
        send_cycles: int,
        receive_cycles: int,
        tx_flags: bytes,
    ) -> None:
        self._arrays: List[Any] = []
        self._expected = (records.PDU_EXP_RESP_DATA * max(1, len(expected)))()
        for at, response in enumerate(expected):
            row = self._expected[at]
            row.ResponseType = int(response.is_negative)
            row.AcceptanceId = at + 1
            row.NumMaskPatternBytes = len(response.pattern)
            row.pMaskData = self._bytes(response.mask)
            row.pPatternData = self._bytes(response.pattern)
        flags = _tx_flags.setdefault(tx_flags, byte_array(tx_flags))
        self.data = records.PDU_COP_CTRL_DATA()
        self.data.NumSendCycles = send_cycles
        self.data.NumReceiveCycles = receive_cycles
        self.data.TxFlag.NumFlagBytes = len(tx_flags)
        self.data.TxFlag.pFlagData = ctypes.cast(flags, POINTER(c_uint8))
        self.data.NumPossibleExpectedResponses = len(expected)
        self.data.pExpectedResponseArray = ctypes.cast(
            self._expected, POINTER(records.PDU_EXP_RESP_DATA)
        )

    def _bytes(self, data: bytes) -> Any:
        array = byte_array(data)
        self._arrays.append(array)
        return ctypes.cast(array, POINTER(c_uint8))


NO_FLAGS = bytes(4)


class ComPrimitive:
    """One ComPrimitive in execution, and what came of it so far.

    responses: in the order in which they came. error: the last error item. state: PDU_COPST_…, None
    before the library has reported one.
    """

    def __init__(self, link: "BaseLink", data: bytes, control: _Control) -> None:
        self.link = link
        self.handle = PDU_HANDLE_UNDEF
        self.request = data
        self.responses: List[Response] = []
        self.error: Optional[ErrorEvent] = None
        self.state: Optional[int] = None
        self.module_errors = link.module.error_count
        self._started_us: Optional[int] = None
        self.bytes = byte_array(data)
        self.control = control

    @property
    def is_finished(self) -> bool:
        """True if nothing more comes of it."""
        return self.state in (constants.PDU_COPST_FINISHED, constants.PDU_COPST_CANCELLED)

    def feed(self, event: Event) -> None:
        """Takes an event of its own, or an error of its link."""
        if isinstance(event, ResultEvent):
            after = None if self._started_us is None else event.timestamp_us - self._started_us
            self.responses.append(replace(event.response, after_us=after))
        elif isinstance(event, ErrorEvent):
            self.error = event
        elif isinstance(event, StatusEvent):
            self.state = event.state
            if event.state == constants.PDU_COPST_EXECUTING:
                self._started_us = event.timestamp_us

    def wait(self, timeout: Optional[float] = None) -> bool:
        """Waits until it is finished. False if the time in seconds passes before. Raises Closed."""
        return self.link.wait_until(lambda: self.is_finished, timeout)

    def wait_for_response(self, timeout: Optional[float] = None) -> bool:
        """Waits until there is a response or it is finished. False if the time passes before."""
        return self.link.wait_until(lambda: bool(self.responses) or self.is_finished, timeout)

    def cancel(self, timeout: float = _CANCEL_S) -> bool:
        """Asks the library to end it and waits for that. False if it has not ended in time.

        A library may complete a request that is under way first. What it points to stays.
        """
        if not self.is_finished:
            self.link.functions.PDUCancelComPrimitive(
                self.link.module.handle, self.link.handle, self.handle
            )
        return self.wait(timeout)


class BaseLink:
    """A logical link from its creation to its end. Ends with `close` or the `with` statement.

    Any thread may use it; requests of several threads are executed one after the other.
    """

    handle: int

    def __init__(self, module: "Module", protocol: str, bus_type: str, is_raw: bool) -> None:
        self.module: "Module" = module
        self.library: "Library" = module.library
        self.functions: Functions = module.functions
        self.handle = PDU_HANDLE_UNDEF
        self.comparams = ComParams(self)
        self._lock = threading.RLock()
        self._primitives: Dict[int, ComPrimitive] = {}
        self._sent: Deque[ComPrimitive] = deque(maxlen=_KEPT_SENDS)
        self._kept: List[Any] = []  # what the library may still point to
        self._set_comparams: Dict[str, Any] = {}
        self._is_connected = False
        self._is_closing = False
        self._is_closed = False
        self._has_new_comparams = False
        module._require_open()
        try:
            self.handle = self._create(protocol, bus_type, is_raw)
        except PduError as error:
            self._raise_if_lost(error)
            raise
        self.queue = EventQueue(self.functions, module.handle, self.handle, module.timeline)
        self.queue.route = self._route
        self._queues = [self.queue, module.queue, self.library.queue]
        try:
            module._remember(self)
            self.functions.PDURegisterEventCallback(
                module.handle, self.handle, self.library.dispatcher.callback
            )
        except BaseException:
            self.close()
            raise

    def _create(self, protocol: str, bus_type: str, is_raw: bool) -> int:
        library = self.library
        pins = []
        for name, number in _CAN_PINS.items():
            kind = library.find_id(constants.PDU_OBJT_PINTYPE, name)
            if kind is not None:
                pins.append(records.PDU_PIN_DATA(number, kind))
        pin_array = (records.PDU_PIN_DATA * max(1, len(pins)))(*pins)
        resource = records.PDU_RSC_DATA(
            library.id_of(constants.PDU_OBJT_BUSTYPE, bus_type),
            library.id_of(constants.PDU_OBJT_PROTOCOL, protocol),
            len(pins),
            ctypes.cast(pin_array, POINTER(records.PDU_PIN_DATA)),
        )
        flags = byte_array(
            bytes([constants.PDU_CREATE_FLAG0_RAW_MODE if is_raw else 0, 0, 0, 0])
        )
        create_flag = records.PDU_FLAG_DATA(len(flags), ctypes.cast(flags, POINTER(c_uint8)))
        self._kept += [pin_array, resource, flags, create_flag]
        handle = c_uint32(PDU_HANDLE_UNDEF)
        status = self.functions.PDUCreateComLogicalLink(
            self.module.handle,
            byref(resource),
            constants.PDU_ID_UNDEF,
            None,
            byref(handle),
            byref(create_flag),
        )
        check("PDUCreateComLogicalLink", status)
        return handle.value

    def _open(self, comparams: Mapping[str, Any]) -> None:
        """Sets ComParams and connects. Ends the link if that fails."""
        try:
            self._configure()
            for name, value in comparams.items():
                self.comparams[name] = value
            self._address()
            check("PDUConnect", self.functions.PDUConnect(self.module.handle, self.handle))
            self._is_connected = True
            self._has_new_comparams = False
        except PduError as error:
            self.close()
            self._raise_if_lost(error)
            raise
        except BaseException:
            self.close()
            raise

    def _configure(self) -> None:
        """What a kind of link sets before the caller's ComParams."""

    def _address(self) -> None:
        """What a kind of link sets after the caller's ComParams."""

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        state = " (closed)" if self._is_closed else ""
        return f"<{type(self).__name__} {self.handle} of {self.module!r}{state}>"

    def close(self) -> None:
        """Disconnects and destroys it. A second call does nothing."""
        with self._lock:
            if self._is_closing:
                return
            self._is_closing = True
        module = self.module.handle
        try:
            if self._is_connected:
                self._say_goodbye()
        finally:
            with self.queue.lock:
                self._is_closed = True
                if self._is_connected:
                    self.functions.PDUDisconnect(module, self.handle)
                self.functions.PDURegisterEventCallback(module, self.handle, NO_CALLBACK)
                self.queue.close()
                self.functions.PDUDestroyComLogicalLink(module, self.handle)
            self._primitives.clear()
            self.module._forget(self)

    def _say_goodbye(self) -> None:
        """What a kind of link does before it is disconnected."""

    def require_open(self) -> None:
        """Raises Closed after `close`."""
        if self._is_closed:
            raise Closed("the link was closed")

    # --- events ---

    def _route(self, event: Event) -> None:
        primitive = self._primitives.get(event.primitive)
        if primitive is None:
            if event.primitive == PDU_HANDLE_UNDEF and isinstance(event, ErrorEvent):
                for each in self._primitives.values():
                    each.feed(event)
            self.queue.events.append(event)
            return
        primitive.feed(event)
        if primitive.is_finished:
            del self._primitives[event.primitive]

    def wait_until(self, is_done: Any, timeout: Optional[float]) -> bool:
        """Takes events until it is done. False if the time in seconds passes before."""
        return self.library.dispatcher.wait_until(self._queues, is_done, timeout)

    def events(self, timeout: Optional[float] = None) -> Iterator[Event]:
        """The events of the link, except those of ComPrimitives that were started with this package.

        Ends when none comes for that many seconds; without a time it never ends. Raises Closed.
        """
        return iterate(self.library.dispatcher, self._queues, timeout)

    # --- ComParams ---

    def note_comparam(self, name: str, value: Any) -> None:
        """For ComParams: this one was set."""
        self._set_comparams[name] = value
        self._has_new_comparams = True

    def apply_comparams(self) -> None:
        """Lets the library use the ComParams that were set on the connected link.

        A request does that itself. Raises NoAnswer, PduError.
        """
        if not self._has_new_comparams or not self._is_connected:
            return
        self._has_new_comparams = False
        self.execute(constants.PDU_COPT_UPDATEPARAM, timeout=_UPDATE_S)

    def ioctl(self, name: str, value: Input = None) -> Output:
        """As `Module.ioctl`, for this link."""
        self.require_open()
        return self.module.ioctl(name, value, link=self.handle)

    # --- ComPrimitives ---

    def start(
        self,
        kind: int,
        data: bytes = b"",
        *,
        expected: Sequence[ExpectedResponse] = (),
        send_cycles: int = 1,
        receive_cycles: int = 1,
        tx_flags: bytes = NO_FLAGS,
        is_reported: bool = True,
    ) -> ComPrimitive:
        """Starts a ComPrimitive (kind PDU_COPT_…) and returns at once.

        is_reported: False for one whose end the library need not report. Raises PduError,
        LostModule.
        """
        self.require_open()
        primitive = ComPrimitive(
            self, data, _Control(expected, send_cycles, receive_cycles, tx_flags)
        )
        handle = c_uint32(PDU_HANDLE_UNDEF)
        try:
            # Nobody takes its events before it is known here.
            with self.queue.lock:
                status = self.functions.PDUStartComPrimitive(
                    self.module.handle,
                    self.handle,
                    kind,
                    len(data),
                    primitive.bytes,
                    byref(primitive.control.data),
                    None,
                    byref(handle),
                )
                check("PDUStartComPrimitive", status)
                primitive.handle = handle.value
                if is_reported:
                    self._primitives[handle.value] = primitive
                else:
                    self._sent.append(primitive)
        except PduError as error:
            self._raise_if_lost(error)
            raise
        except BaseException:
            if handle.value != PDU_HANDLE_UNDEF:
                self._kept.append(primitive)
                self.functions.PDUCancelComPrimitive(
                    self.module.handle, self.handle, handle.value
                )
            raise
        return primitive

    def finish(self, primitive: ComPrimitive, timeout: Optional[float]) -> None:
        """Waits until it is finished. Cancels it when the time passes, or an exception does.

        Raises RequestTimeout, LostModule, Closed.
        """
        try:
            is_finished = primitive.wait(timeout)
        except Closed:
            raise
        except BaseException:
            primitive.cancel()
            raise
        if not is_finished:
            primitive.cancel()
            if self.module.is_lost():
                raise self.module.lost()
            raise RequestTimeout(f"the library did not finish the request within {timeout:g} s")

    def execute(
        self, kind: int, data: bytes = b"", *, timeout: Optional[float] = None, **options: Any
    ) -> ComPrimitive:
        """Starts a ComPrimitive and waits until it is finished. Options as for `start`.

        Raises RequestTimeout, LostModule, PduError.
        """
        primitive = self.start(kind, data, **options)
        self.finish(primitive, timeout)
        return primitive

    def error_of(self, primitive: ComPrimitive) -> Optional[ErrorEvent]:
        """Its own error, or one of the module since its start."""
        if primitive.error is None and self.module.error_count != primitive.module_errors:
            return self.module.errors[-1] if self.module.errors else None
        return primitive.error

    def raise_no_answer(self, primitive: ComPrimitive) -> NoReturn:
        """Raises LostModule if the module is gone, else NoAnswer."""
        error = self.error_of(primitive)
        if error is not None and error.code == constants.PDU_ERR_EVT_LOST_COMM_TO_VCI:
            raise self.module.lost()
        self.module.check()
        if error is None:
            raise NoAnswer("no answer")
        raise NoAnswer(error.meaning, status=error.code, name=error.name)

    def _raise_if_lost(self, error: PduError) -> None:
        """A library that has lost the module refuses in various ways."""
        if isinstance(error, LostModule) or error.status not in _LOST_STATUSES:
            return
        if self.module.is_lost():
            raise self.module.lost() from error
