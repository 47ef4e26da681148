"""Inputs and outputs of IOCTLs.

| Python type | item |
|---|---|
| None | no input |
| int | PDU_IT_IO_UNUM32 |
| bytes | PDU_IT_IO_BYTEARRAY |
| ProgVoltage | PDU_IT_IO_PROG_VOLTAGE |
| list of Filter | PDU_IT_IO_FILTER |
| QueueProperties | PDU_IT_IO_EVENT_QUEUE_PROPERTY |
| VehicleIdRequest | PDU_IT_IO_VEHICLE_ID_REQUEST |
| EthernetSwitch | PDU_IT_IO_ETH_SWITCH_STATE |
| EntityAddress | PDU_IT_IO_ENTITY_ADDRESS |
| EntityStatus (output only) | PDU_IT_IO_ENTITY_STATUS |
"""

import ctypes
import ipaddress
from ctypes import POINTER, addressof, c_uint8, c_uint32
from typing import Any, List, NamedTuple, Optional, Sequence, Tuple, Union

from . import constants, records
from .errors import PduError
from .values import byte_array

_LONGEST_FILTER = 12


class ProgVoltage(NamedTuple):
    """A programming voltage on a pin of the vehicle connector."""

    millivolts: int
    pin: int


class Filter(NamedTuple):
    """A message filter: kind PDU_FLT_…, a number of the caller's, mask and pattern of equal length."""

    kind: int
    number: int
    mask: bytes
    pattern: bytes


class QueueProperties(NamedTuple):
    """Size of an event queue in items, and mode PDU_QUE_…"""

    size: int
    mode: int


class VehicleIdRequest(NamedTuple):
    """Which DoIP entities should identify themselves.

    preselection: 0 none, 1 by VIN, 2 by EID, with its value. combination: 0 none, 1 by VIN, 2 by
    group id, 3 all. discovery_ms: how long to wait. destinations: IP addresses as texts.
    """

    preselection: int = 0
    value: str = ""
    combination: int = 0
    discovery_ms: int = 1000
    destinations: Sequence[str] = ()


class EthernetSwitch(NamedTuple):
    """The Ethernet activation line."""

    is_on: bool
    pin: int = 8


class EntityAddress(NamedTuple):
    """The DoIP entity that is asked."""

    logical_address: int
    timeout_ms: int = 2000


class EntityStatus(NamedTuple):
    """What a DoIP entity reports. max_data_size in bytes; 0: not reported."""

    entity_type: int
    tcp_clients_max: int
    tcp_clients: int
    max_data_size: int


Input = Union[
    None,
    int,
    bytes,
    ProgVoltage,
    List[Filter],
    QueueProperties,
    VehicleIdRequest,
    EthernetSwitch,
    EntityAddress,
]
Output = Union[None, int, bytes, EntityStatus]


def _filter_record(one: Filter) -> Any:
    length = len(one.mask)
    if length != len(one.pattern) or not 1 <= length <= _LONGEST_FILTER:
        raise ValueError("mask and pattern need the same length, 1 to 12 bytes")
    record = records.PDU_IO_FILTER_DATA(one.kind, one.number, length)
    record.FilterMaskMessage[:length] = list(one.mask)
    record.FilterPatternMessage[:length] = list(one.pattern)
    return record


class InputItem:
    """A PDU_DATA_ITEM with everything that it points to."""

    def __init__(self, value: Input) -> None:
        self._kept: List[Any] = []
        self.item: Optional[records.PDU_DATA_ITEM] = None
        if value is not None:
            kind, record = self._record(value)
            self._kept.append(record)
            self.item = records.PDU_DATA_ITEM(kind, addressof(record))

    def _record(self, value: Any) -> Tuple[int, Any]:
        if isinstance(value, int):
            if not 0 <= value <= 0xFFFFFFFF:
                raise ValueError(f"{value} is not a number of 32 bits")
            return constants.PDU_IT_IO_UNUM32, c_uint32(value)
        if isinstance(value, (bytes, bytearray)):
            array = self._keep(byte_array(bytes(value)))
            pointer = ctypes.cast(array, POINTER(c_uint8))
            record = records.PDU_IO_BYTEARRAY_DATA(len(value), pointer)
            return constants.PDU_IT_IO_BYTEARRAY, record
        if isinstance(value, ProgVoltage):
            voltage = records.PDU_IO_PROG_VOLTAGE_DATA(value.millivolts, value.pin)
            return constants.PDU_IT_IO_PROG_VOLTAGE, voltage
        if isinstance(value, QueueProperties):
            properties = records.PDU_IO_EVENT_QUEUE_PROPERTY_DATA(value.size, value.mode)
            return constants.PDU_IT_IO_EVENT_QUEUE_PROPERTY, properties
        if isinstance(value, VehicleIdRequest):
            return constants.PDU_IT_IO_VEHICLE_ID_REQUEST, self._vehicle(value)
        if isinstance(value, EthernetSwitch):
            switch = records.PDU_IO_ETH_SWITCH_STATE(int(value.is_on), value.pin)
            return constants.PDU_IT_IO_ETH_SWITCH_STATE, switch
        if isinstance(value, EntityAddress):
            address = records.PDU_IO_ENTITY_ADDRESS_DATA(value.logical_address, value.timeout_ms)
            return constants.PDU_IT_IO_ENTITY_ADDRESS, address
        if isinstance(value, list) and all(isinstance(one, Filter) for one in value):
            filters = self._keep((records.PDU_IO_FILTER_DATA * max(1, len(value)))())
            for at, one in enumerate(value):
                filters[at] = _filter_record(one)
            pointer_to_filters = ctypes.cast(filters, POINTER(records.PDU_IO_FILTER_DATA))
            return constants.PDU_IT_IO_FILTER, records.PDU_IO_FILTER_LIST(
                len(value), pointer_to_filters
            )
        raise TypeError(f"an IOCTL takes no {type(value).__name__}")

    def _keep(self, array: Any) -> Any:
        self._kept.append(array)
        return array

    def _vehicle(self, value: VehicleIdRequest) -> Any:
        destinations = self._keep((records.PDU_IP_ADDR_INFO * max(1, len(value.destinations)))())
        for at, text in enumerate(value.destinations):
            address = ipaddress.ip_address(text)
            packed = self._keep(byte_array(address.packed))
            destinations[at].IpVersion = address.version
            destinations[at].pAddress = ctypes.cast(packed, POINTER(c_uint8))
        return records.PDU_IO_VEHICLE_ID_REQUEST(
            value.preselection,
            value.value.encode("latin-1") if value.value else None,
            value.combination,
            value.discovery_ms,
            len(value.destinations),
            ctypes.cast(destinations, POINTER(records.PDU_IP_ADDR_INFO)),
        )


def read_output(item: Any) -> Output:
    """Copies what a PDU_DATA_ITEM says. Raises PduError for a type that is unknown."""
    if not item.pData:
        return None
    if item.ItemType == constants.PDU_IT_IO_UNUM32:
        return c_uint32.from_address(item.pData).value
    if item.ItemType == constants.PDU_IT_IO_BYTEARRAY:
        array = records.PDU_IO_BYTEARRAY_DATA.from_address(item.pData)
        return ctypes.string_at(array.pData, array.DataSize) if array.pData else b""
    if item.ItemType == constants.PDU_IT_IO_PROG_VOLTAGE:
        return int(records.PDU_IO_PROG_VOLTAGE_DATA.from_address(item.pData).ProgVoltage_mv)
    if item.ItemType == constants.PDU_IT_IO_ENTITY_STATUS:
        status = records.PDU_IO_ENTITY_STATUS_DATA.from_address(item.pData)
        return EntityStatus(
            status.EntityType, status.TcpClientsMax, status.TcpClients, status.MaxDataSize
        )
    raise PduError(f"the IOCTL returned an item of the unknown type 0x{item.ItemType:04X}")
