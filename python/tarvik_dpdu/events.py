"""What a library reports: results, states, errors and information."""

import ctypes
from dataclasses import dataclass
from typing import Any, NamedTuple, Optional, Union

from . import constants, records
from .errors import (
    ERROR_EVENT_MEANINGS,
    NegativeResponse,
    error_event_name,
    negative_response_name,
    state_name,
)
from .timeline import Timeline

_NEGATIVE_RESPONSE = 0x7F


class EcuAddress(NamedTuple):
    """The CAN identifiers of a control unit: for requests and for its responses."""

    request_id: int
    response_id: int


@dataclass(frozen=True)
class Response:
    """One response to a request.

    data: its bytes; none for a suppressed positive response that did not come.
    timestamp_us: when it came, in microseconds that never wrap; their zero is the module's.
    unique_id: as the library reports it, of an entry of the link's unique response table.
    acceptance_id: position of the expected response that it matched, from 1.
    unit: the control unit that answered a functional request; None if it is not one of those asked.
    after_us: microseconds since the execution began; None if the library did not report that. This
        project's library stamps all answers to a functional request when the last one has come.
    rx_flags: the flag bytes of the result.
    """

    data: bytes
    timestamp_us: int = 0
    unique_id: int = constants.PDU_ID_UNDEF
    acceptance_id: int = 0
    unit: Optional[EcuAddress] = None
    after_us: Optional[int] = None
    rx_flags: bytes = b""

    def __bool__(self) -> bool:
        return bool(self.data)

    @property
    def is_negative(self) -> bool:
        """True for a negative response: 7F, the service, the code."""
        return len(self.data) >= 3 and self.data[0] == _NEGATIVE_RESPONSE

    @property
    def code(self) -> Optional[int]:
        """The negative response code; None for a positive response."""
        return self.data[2] if self.is_negative else None

    @property
    def code_name(self) -> str:
        """The name of the negative response code; empty for a positive response."""
        return negative_response_name(self.data[2]) if self.is_negative else ""

    def raise_if_negative(self) -> "Response":
        """Raises NegativeResponse for a negative response, else returns the response itself."""
        if self.is_negative:
            raise NegativeResponse(self.data)
        return self


@dataclass(frozen=True)
class ResultEvent:
    """A response or a received frame. primitive: handle of the ComPrimitive that it belongs to."""

    timestamp_us: int
    primitive: int
    response: Response


@dataclass(frozen=True)
class StatusEvent:
    """The new state of a ComPrimitive, or, without a handle, of the link."""

    timestamp_us: int
    primitive: int
    state: int

    @property
    def name(self) -> str:
        return state_name(self.state)

    @property
    def is_final(self) -> bool:
        """True if nothing more comes of the ComPrimitive."""
        return self.state in (constants.PDU_COPST_FINISHED, constants.PDU_COPST_CANCELLED)


@dataclass(frozen=True)
class ErrorEvent:
    """An error of a ComPrimitive, a link or a module. extra: a number of the library's maker."""

    timestamp_us: int
    primitive: int
    code: int
    extra: int = 0

    @property
    def name(self) -> str:
        return error_event_name(self.code)

    @property
    def meaning(self) -> str:
        return ERROR_EVENT_MEANINGS.get(self.name, "unknown error")


@dataclass(frozen=True)
class InfoEvent:
    """Information, for instance PDU_INFO_MODULE_LIST_CHG."""

    timestamp_us: int
    primitive: int
    code: int
    extra: int = 0


Event = Union[ResultEvent, StatusEvent, ErrorEvent, InfoEvent]


@dataclass(frozen=True)
class Notification:
    """A call of the event callback. Handles are PDU_HANDLE_UNDEF where there is none.

    kind: PDU_EVT_DATA_AVAILABLE or PDU_EVT_DATA_LOST.
    """

    kind: int
    module: int
    link: int


def _bytes_of(count: int, pointer: Any) -> bytes:
    return ctypes.string_at(pointer, count) if count and pointer else b""


def _response(item: Any, result: Any, timestamp_us: int) -> Response:
    return Response(
        data=_bytes_of(result.NumDataBytes, result.pDataBytes),
        timestamp_us=timestamp_us,
        unique_id=result.UniqueRespIdentifier,
        acceptance_id=result.AcceptanceId,
        rx_flags=_bytes_of(result.RxFlag.NumFlagBytes, result.RxFlag.pFlagData),
    )


def read_event(item: Any, timeline: Timeline) -> Optional[Event]:
    """Copies what a PDU_EVENT_ITEM says; None for one without data or of an unknown type."""
    if not item.pData:
        return None
    timestamp_us = timeline.extend(item.Timestamp)
    kind, primitive = item.ItemType, item.hCop
    if kind == constants.PDU_IT_RESULT:
        result = records.PDU_RESULT_DATA.from_address(item.pData)
        return ResultEvent(timestamp_us, primitive, _response(item, result, timestamp_us))
    if kind == constants.PDU_IT_STATUS:
        state = ctypes.c_uint32.from_address(item.pData).value
        return StatusEvent(timestamp_us, primitive, state)
    if kind == constants.PDU_IT_ERROR:
        error = records.PDU_ERROR_DATA.from_address(item.pData)
        return ErrorEvent(timestamp_us, primitive, error.ErrorCodeId, error.ExtraErrorInfoId)
    if kind == constants.PDU_IT_INFO:
        info = records.PDU_INFO_DATA.from_address(item.pData)
        return InfoEvent(timestamp_us, primitive, info.InfoCode, info.ExtraInfoData)
    return None
