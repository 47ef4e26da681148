"""Values of ComParams as Python types.

| type of the ComParam | Python type |
|---|---|
| number | int |
| byte field | bytes |
| long field | list of int |
| struct field | list of SessionTiming or AccessTiming |
"""

import ctypes
from ctypes import c_int8, c_int16, c_int32, c_uint8, c_uint16, c_uint32
from typing import Any, Dict, List, NamedTuple, Tuple, Union

from . import constants, records


class SessionTiming(NamedTuple):
    """The timing of one diagnostic session: P2 in 1 ms, P2* in 10 ms, as upper and lower byte."""

    session: int
    p2_max_high: int
    p2_max_low: int
    p2_star_high: int
    p2_star_low: int


class AccessTiming(NamedTuple):
    """The access timing of ISO 14230: P2Min, P3Min and P4Min in 0.5 ms, P3Max in 250 ms."""

    p2_min: int
    p2_max: int
    p3_min: int
    p3_max: int
    p4_min: int
    timing_set: int


Value = Union[int, bytes, List[int], List[SessionTiming], List[AccessTiming]]

_NUMBERS: Dict[int, Any] = {
    constants.PDU_PT_UNUM8: c_uint8,
    constants.PDU_PT_SNUM8: c_int8,
    constants.PDU_PT_UNUM16: c_uint16,
    constants.PDU_PT_SNUM16: c_int16,
    constants.PDU_PT_UNUM32: c_uint32,
    constants.PDU_PT_SNUM32: c_int32,
}
_RECORDS: Dict[int, Tuple[Any, Any]] = {
    constants.PDU_CPST_SESSION_TIMING: (records.PDU_PARAM_STRUCT_SESS_TIMING, SessionTiming),
    constants.PDU_CPST_ACCESS_TIMING: (records.PDU_PARAM_STRUCT_ACCESS_TIMING, AccessTiming),
}
_TYPE_NAMES = {
    getattr(constants, name): name for name in vars(constants) if name.startswith("PDU_PT_")
}
_CLASS_NAMES = {
    getattr(constants, name): name for name in vars(constants) if name.startswith("PDU_PC_")
}


class ParamType(NamedTuple):
    """What a ComParam is: its id and the numbers of its type, class and, for a struct field, records."""

    id: int
    type: int
    param_class: int
    struct_type: int = 0

    @property
    def type_name(self) -> str:
        return _TYPE_NAMES.get(self.type, f"0x{self.type:03X}")

    @property
    def class_name(self) -> str:
        return _CLASS_NAMES.get(self.param_class, str(self.param_class))


def type_of(item: Any) -> ParamType:
    """Of a PDU_PARAM_ITEM."""
    struct_type = 0
    if item.ComParamDataType == constants.PDU_PT_STRUCTFIELD and item.pComParamData:
        field = records.PDU_PARAM_STRUCTFIELD_DATA.from_address(item.pComParamData)
        struct_type = field.ComParamStructType
    return ParamType(item.ComParamId, item.ComParamDataType, item.ComParamClass, struct_type)


def _read_structs(address: int) -> Value:
    field = records.PDU_PARAM_STRUCTFIELD_DATA.from_address(address)
    if field.ComParamStructType not in _RECORDS:
        raise ValueError(f"the struct type {field.ComParamStructType} is unknown")
    record, row = _RECORDS[field.ComParamStructType]
    rows: List[Any] = []
    if field.pStructArray:
        for entry in (record * field.ParamActEntries).from_address(field.pStructArray):
            rows.append(row(*(getattr(entry, name) for name, _ in record._fields_)))
    return rows


def read_value(item: Any) -> Value:
    """Copies the value of a PDU_PARAM_ITEM. Raises ValueError for a type that is unknown."""
    kind, address = item.ComParamDataType, item.pComParamData
    if not address:
        raise ValueError("the library returned no value")
    if kind in _NUMBERS:
        return int(_NUMBERS[kind].from_address(address).value)
    if kind == constants.PDU_PT_BYTEFIELD:
        field = records.PDU_PARAM_BYTEFIELD_DATA.from_address(address)
        return ctypes.string_at(field.pDataArray, field.ParamActLen) if field.pDataArray else b""
    if kind == constants.PDU_PT_LONGFIELD:
        words = records.PDU_PARAM_LONGFIELD_DATA.from_address(address)
        return list(words.pDataArray[: words.ParamActLen] if words.pDataArray else ())
    if kind == constants.PDU_PT_STRUCTFIELD:
        return _read_structs(address)
    raise ValueError(f"the ComParam type 0x{kind:03X} is unknown")


def _within(value: Any, low: int, high: int) -> int:
    if isinstance(value, bool):
        value = int(value)
    if not isinstance(value, int):
        raise TypeError(f"{value!r} is not an integer")
    if not low <= value <= high:
        raise ValueError(f"{value} is not between {low} and {high}")
    return value


def _number_data(kind: int, value: Any) -> "ctypes._SimpleCData[int]":
    number = _NUMBERS[kind]
    bits = 8 * ctypes.sizeof(number)
    is_signed = number(-1).value < 0
    low, high = (-(1 << bits - 1), (1 << bits - 1) - 1) if is_signed else (0, (1 << bits) - 1)
    # Four bytes in any case; a library reads the lower ones of a narrower type.
    return c_uint32(_within(value, low, high) & 0xFFFFFFFF)


def byte_array(data: bytes) -> Any:
    """The bytes as an array of UNUM8; at least one, so that it has an address."""
    return (c_uint8 * max(1, len(data))).from_buffer_copy(data or b"\0")


class ParamItem:
    """A PDU_PARAM_ITEM with everything that it points to."""

    def __init__(self, kind: ParamType, value: Any) -> None:
        """Raises TypeError or ValueError for a value that the ComParam cannot have."""
        self._array: Any = None
        self._data = self._record(kind, value)
        self.item = records.PDU_PARAM_ITEM(
            constants.PDU_IT_PARAM,
            kind.id,
            kind.type,
            kind.param_class,
            ctypes.addressof(self._data),
        )

    def _record(self, kind: ParamType, value: Any) -> Any:
        if kind.type in _NUMBERS:
            return _number_data(kind.type, value)
        if kind.type == constants.PDU_PT_BYTEFIELD:
            if not isinstance(value, (bytes, bytearray, memoryview)):
                raise TypeError("a byte field takes bytes")
            data = bytes(value)
            self._array = byte_array(data)
            pointer = ctypes.cast(self._array, ctypes.POINTER(c_uint8))
            return records.PDU_PARAM_BYTEFIELD_DATA(len(data), len(data), pointer)
        if kind.type == constants.PDU_PT_LONGFIELD:
            words = [_within(word, 0, 0xFFFFFFFF) for word in value]
            self._array = (c_uint32 * max(1, len(words)))(*words)
            words_pointer = ctypes.cast(self._array, ctypes.POINTER(c_uint32))
            return records.PDU_PARAM_LONGFIELD_DATA(len(words), len(words), words_pointer)
        if kind.type == constants.PDU_PT_STRUCTFIELD and kind.struct_type in _RECORDS:
            return self._struct_record(kind.struct_type, list(value))
        raise ValueError(f"the ComParam type {kind.type_name} is unknown")

    def _struct_record(self, struct_type: int, rows: List[Any]) -> Any:
        record, row_type = _RECORDS[struct_type]
        self._array = (record * max(1, len(rows)))()
        for entry, row in zip(self._array, rows):
            for (name, field_type), number in zip(record._fields_, row_type(*row)):
                high = (1 << 8 * ctypes.sizeof(field_type)) - 1
                setattr(entry, name, _within(number, 0, high))
        address = ctypes.addressof(self._array)
        return records.PDU_PARAM_STRUCTFIELD_DATA(struct_type, len(rows), len(rows), address)
