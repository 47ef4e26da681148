"""Links that carry requests and responses."""

import ctypes
import threading
from ctypes import POINTER, byref, c_uint32
from dataclasses import dataclass, field, replace
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Optional, Sequence, Tuple

from . import constants, records
from .base_link import NO_FLAGS, BaseLink, ComPrimitive, ExpectedResponse
from .errors import PduError, check
from .events import EcuAddress, Response
from .uds import is_suppressed, responses_to

if TYPE_CHECKING:
    from .module import Module

LARGEST_11_BIT_ID = 0x7FF
LARGEST_29_BIT_ID = 0x1FFFFFFF

_US_PER_S = 1_000_000
_PHYSICAL_ADDRESSING = 1
_FUNCTIONAL_ADDRESSING = 2
_RECEIVE_ALL_WITHIN_TIME = -2
_WAIT_AS_LONG_AS_PENDING = 2
_START_S = 5.0
_STOP_S = 2.0

# Bits of a CAN format ComParam.
_FLOW_CONTROL = 0x1
_29_BITS = 0x2
_SEGMENTED = 0x4

_SUPPRESS_FLAGS = bytes([constants.PDU_TX_FLAG0_SUPPRESS_POS_RESP, 0, 0, 0])

USUAL_UNITS = tuple(EcuAddress(0x7E0 + at, 0x7E8 + at) for at in range(8))


@dataclass
class LinkSettings:
    """The settings of a link that `Module.link` describes."""

    protocol: str
    bus_type: str
    extended: Optional[bool] = None
    p2_max: float = 1.0
    p2_star: Optional[float] = None
    tester_present: Optional[float] = None
    tester_present_message: bytes = b"\x3e\x80"
    comparams: Dict[str, Any] = field(default_factory=dict)
    timeout: float = 60.0


def check_can_id(can_id: int, extended: Optional[bool] = None) -> int:
    """Raises ValueError for a number that is no CAN identifier."""
    largest = LARGEST_11_BIT_ID if extended is False else LARGEST_29_BIT_ID
    if not 0 <= can_id <= largest:
        raise ValueError(f"0x{can_id:X} is not a CAN identifier of at most 0x{largest:X}")
    return can_id


def can_format(can_id: int, extended: Optional[bool]) -> int:
    """The CAN format ComParam for an identifier: segmented, with flow control."""
    is_long = can_id > LARGEST_11_BIT_ID if extended is None else extended
    return _SEGMENTED | _FLOW_CONTROL | (_29_BITS if is_long else 0)


class _TableBuilder:
    """A unique response table whose entries are the link's own first entry with other addresses."""

    def __init__(self, link: BaseLink, extended: Optional[bool]) -> None:
        self._link = link
        self._extended = extended
        self._template: List[Any] = []
        self._arrays: List[Any] = []
        self._values: List[Any] = []

    def use_template(self, own_table: Any) -> None:
        if not own_table or not own_table.contents.NumEntries or not own_table.contents.pUniqueData:
            return
        first = own_table.contents.pUniqueData[0]
        if first.pParams:
            self._template = first.pParams[: first.NumParamItems]

    def _params(self, unit: EcuAddress) -> Any:
        params = {item.ComParamId: item for item in self._template}
        for name, number in (
            ("CP_CanPhysReqId", unit.request_id),
            ("CP_CanPhysReqFormat", can_format(unit.request_id, self._extended)),
            ("CP_CanRespUSDTId", unit.response_id),
            ("CP_CanRespUSDTFormat", can_format(unit.response_id, self._extended)),
        ):
            param_id = self._link.library.id_of(constants.PDU_OBJT_COMPARAM, name)
            value = c_uint32(number)  # of a narrower type the low bytes are read
            self._values.append(value)
            own = params.get(param_id)
            params[param_id] = records.PDU_PARAM_ITEM(
                constants.PDU_IT_PARAM,
                param_id,
                own.ComParamDataType if own is not None else constants.PDU_PT_UNUM32,
                own.ComParamClass if own is not None else constants.PDU_PC_UNIQUE_ID,
                ctypes.addressof(value),
            )
        return (records.PDU_PARAM_ITEM * len(params))(*params.values())

    def build(self, units: Sequence[EcuAddress]) -> Any:
        rows = (records.PDU_ECU_UNIQUE_RESP_DATA * max(1, len(units)))()
        for at, unit in enumerate(units):
            params = self._params(unit)
            self._arrays.append(params)
            rows[at].UniqueRespIdentifier = at
            rows[at].NumParamItems = len(params)
            rows[at].pParams = ctypes.cast(params, POINTER(records.PDU_PARAM_ITEM))
        self._arrays.append(rows)
        return records.PDU_UNIQUE_RESP_ID_TABLE_ITEM(
            constants.PDU_IT_UNIQUE_RESP_ID_TABLE,
            len(units),
            ctypes.cast(rows, POINTER(records.PDU_ECU_UNIQUE_RESP_DATA)),
        )


class UdsLink(BaseLink):
    """What links to one control unit and to many have in common."""

    def __init__(
        self,
        module: "Module",
        settings: LinkSettings,
        units: Sequence[EcuAddress],
        functional_id: Optional[int],
    ) -> None:
        super().__init__(module, settings.protocol, settings.bus_type, is_raw=False)
        self.settings = settings
        self._units = units
        self._functional_id = functional_id
        self._is_started = False
        self._start_lock = threading.Lock()
        self._open(settings.comparams)

    def _configure(self) -> None:
        params, settings = self.comparams, self.settings
        params.try_set("CP_P2Max", round(settings.p2_max * _US_PER_S))
        params.try_set("CP_RC78Handling", _WAIT_AS_LONG_AS_PENDING)
        if settings.p2_star is not None:
            params["CP_P2Star"] = round(settings.p2_star * _US_PER_S)
        self._configure_tester_present()
        is_functional = self._functional_id is not None
        mode = _FUNCTIONAL_ADDRESSING if is_functional else _PHYSICAL_ADDRESSING
        params.try_set("CP_RequestAddrMode", mode)
        if self._functional_id is not None:
            params["CP_CanFuncReqId"] = self._functional_id
            params.try_set(
                "CP_CanFuncReqFormat", can_format(self._functional_id, settings.extended)
            )
        self._set_comparams.clear()

    def _configure_tester_present(self) -> None:
        params, settings = self.comparams, self.settings
        if settings.tester_present is None:
            params.try_set("CP_TesterPresentHandling", 0)
            # Libraries without that switch send nothing if the message is empty.
            params.try_set("CP_TesterPresentMessage", b"")
            return
        params.try_set("CP_TesterPresentHandling", 1)
        params.try_set("CP_TesterPresentReqRsp", 0)
        params["CP_TesterPresentMessage"] = settings.tester_present_message
        params["CP_TesterPresentTime"] = round(settings.tester_present * _US_PER_S)

    # The identifiers go into the table: a link need not read the ComParams after its creation.
    def _address(self) -> None:
        functions, handles = self.functions, (self.module.handle, self.handle)
        builder = _TableBuilder(self, self.settings.extended)
        self._kept.append(builder)
        own_table = POINTER(records.PDU_UNIQUE_RESP_ID_TABLE_ITEM)()
        try:
            status = functions.PDUGetUniqueRespIdTable(*handles, byref(own_table))
            check("PDUGetUniqueRespIdTable", status)
            builder.use_template(own_table)
            table = builder.build(self._units)
            self._kept.append(table)
            status = functions.PDUSetUniqueRespIdTable(*handles, byref(table))
            check("PDUSetUniqueRespIdTable", status)
        finally:
            functions.destroy(own_table)

    def start_communication(self) -> None:
        """Starts communication, and with it tester present if configured. Requests do that themselves.

        Raises NoAnswer, LostModule, PduError.
        """
        if self._is_started:
            return
        with self._start_lock:
            if self._is_started:
                return
            self.execute(constants.PDU_COPT_STARTCOMM, timeout=_START_S)
            self._is_started = True

    def _say_goodbye(self) -> None:
        # Tester present must end in the dongle; without it nobody has to wait for an old request.
        is_busy = bool(self._primitives)
        if not self._is_started or (is_busy and self.settings.tester_present is None):
            return
        try:
            self.start(constants.PDU_COPT_STOPCOMM).wait(_STOP_S)
        except PduError:
            pass  # the outcome of the request matters more

    def start_request(
        self, data: bytes, expected: Optional[Sequence[ExpectedResponse]] = None
    ) -> ComPrimitive:
        """Sends a request and returns at once; see `ComPrimitive` for what comes of it.

        expected: by default the positive and the negative response to the service. Raises PduError,
        LostModule; ValueError for a request without bytes.
        """
        data = bytes(data)
        if not data:
            raise ValueError("a request has at least one byte")
        self.apply_comparams()
        self.start_communication()
        is_functional = self._functional_id is not None
        return self.start(
            constants.PDU_COPT_SENDRECV,
            data,
            expected=responses_to(data) if expected is None else expected,
            receive_cycles=_RECEIVE_ALL_WITHIN_TIME if is_functional else 1,
            tx_flags=_SUPPRESS_FLAGS if is_suppressed(data) else NO_FLAGS,
        )

    def _limit(self, timeout: Optional[float]) -> float:
        return self.settings.timeout if timeout is None else timeout


class Link(UdsLink):
    """A link to one control unit. Made by `Module.link`."""

    def __init__(
        self, module: "Module", settings: LinkSettings, request_id: int, response_id: int
    ) -> None:
        self.address = EcuAddress(
            check_can_id(request_id, settings.extended),
            check_can_id(response_id, settings.extended),
        )
        self._functional: "Optional[FunctionalLink]" = None
        self._functional_lock = threading.Lock()
        self._functional_key: Any = None
        super().__init__(module, settings, [self.address], None)

    def request(
        self,
        data: bytes,
        timeout: Optional[float] = None,
        *,
        raise_negative: bool = False,
        expected: Optional[Sequence[ExpectedResponse]] = None,
    ) -> Response:
        """Sends a request and returns the response.

        timeout: in seconds, for control units that keep it pending; by default the link's. How long
        the first answer may take is the link's p2_max. raise_negative: raises NegativeResponse for
        a negative one. expected: see `start_request`.

        A request that suppresses its positive response (bit 0x80 of the sub-function) is not waited
        for: the Response has no bytes. With a timeout, a negative response may come within that time;
        if none does, that is no error either. The library sends the next request of the link when it
        is done with this one, after p2_max.

        Raises NoAnswer, RequestTimeout, LostModule, PduError. Ctrl-C cancels the request.
        """
        primitive = self.start_request(data, expected)
        if is_suppressed(primitive.request):
            primitive.wait_for_response(timeout or 0)
        else:
            self.finish(primitive, self._limit(timeout))
        if not primitive.responses:
            return self.no_response_to(primitive)
        response = replace(primitive.responses[-1], unit=self.address)
        return response.raise_if_negative() if raise_negative else response

    def no_response_to(self, primitive: ComPrimitive) -> Response:
        """The empty response to a request that wanted none. Raises LostModule or NoAnswer."""
        if not is_suppressed(primitive.request):
            self.raise_no_answer(primitive)
        if self.module.state() == constants.PDU_MODST_NOT_AVAIL:
            raise self.module.lost()
        return Response(b"", unit=self.address)

    def functional(
        self,
        data: bytes,
        units: Optional[Iterable[Tuple[int, int]]] = None,
        timeout: Optional[float] = None,
        *,
        functional_id: int = 0x7DF,
    ) -> List[Response]:
        """Asks many control units at once; see `Module.functional_link` and `FunctionalLink.request`.

        The link for that has the settings and ComParams of this one, but sends no tester present. It
        is kept for the next such request.
        """
        chosen = list(units) if units is not None else None
        with self._functional_lock:
            self.require_open()
            key = (chosen, functional_id, dict(self._set_comparams))
            if self._functional is None or self._functional_key != key:
                if self._functional is not None:
                    self._functional.close()
                    self._functional = None
                settings = replace(
                    self.settings,
                    tester_present=None,
                    comparams={**self.settings.comparams, **self._set_comparams},
                )
                self._functional = FunctionalLink(self.module, settings, chosen, functional_id)
                self._functional_key = key
            return self._functional.request(data, timeout)

    def close(self) -> None:
        try:
            if self._functional is not None:
                self._functional.close()
        finally:
            super().close()


class FunctionalLink(UdsLink):
    """A link to many control units. Made by `Module.functional_link`.

    units: the control units that are asked, in the order of the unique response table.
    """

    def __init__(
        self,
        module: "Module",
        settings: LinkSettings,
        units: Optional[Iterable[Tuple[int, int]]],
        functional_id: int,
    ) -> None:
        self.units = [EcuAddress(*unit) for unit in (USUAL_UNITS if units is None else units)]
        responses = [unit.response_id for unit in self.units]
        if not self.units or len(set(responses)) != len(responses):
            raise ValueError("at least one control unit, each with its own response identifier")
        for can_id in (functional_id, *responses, *(unit.request_id for unit in self.units)):
            check_can_id(can_id, settings.extended)
        table = list(self.units)
        if len(table) == 1:
            # A library may ask the only entry of a table physically.
            table.append(EcuAddress(table[0].request_id, table[0].response_id ^ 1))
        super().__init__(module, settings, table, functional_id)

    def request(
        self,
        data: bytes,
        timeout: Optional[float] = None,
        *,
        expected: Optional[Sequence[ExpectedResponse]] = None,
    ) -> List[Response]:
        """Sends a request and returns all responses that came until p2_max, none included.

        Each has the `unit` that it is from. timeout: as for `Link.request`. Raises RequestTimeout,
        LostModule, PduError.
        """
        primitive = self.start_request(data, expected)
        self.finish(primitive, self._limit(timeout))
        if not primitive.responses:
            self._look_for_reason(primitive)
        return [
            replace(response, unit=self.units[response.unique_id])
            for response in primitive.responses
            if response.unique_id < len(self.units)
        ]

    def _look_for_reason(self, primitive: ComPrimitive) -> None:
        error = self.error_of(primitive)
        if error is not None and error.code == constants.PDU_ERR_EVT_LOST_COMM_TO_VCI:
            raise self.module.lost()
        self.module.check()
