"""The functions of a loaded D-PDU library."""

import ctypes
from ctypes import POINTER, c_char_p, c_uint8, c_uint32, c_void_p
from typing import TYPE_CHECKING, Any, Callable, Dict, Tuple

from . import records
from .errors import NoLibrary

if TYPE_CHECKING:
    _Function = Callable[..., int]

# 32-bit Windows has a calling convention of its own for the functions and the callback.
_CALLBACK_TYPE = getattr(ctypes, "WINFUNCTYPE", ctypes.CFUNCTYPE)
EventCallback = _CALLBACK_TYPE(None, c_uint32, c_uint32, c_uint32, c_void_p, c_void_p)
NO_CALLBACK: Any = EventCallback(0)

_N = c_uint32
_NUMBER = POINTER(c_uint32)


def _to(record: Any) -> Any:
    return POINTER(record)


def _to_item(record: Any) -> Any:
    return POINTER(POINTER(record))


# In the order of the header dpdu_api.h. Each returns a 32-bit status.
PROTOTYPES: Dict[str, Tuple[Any, ...]] = {
    "PDUConstruct": (c_char_p, c_void_p),
    "PDUDestruct": (),
    "PDUIoCtl": (_N, _N, _N, _to(records.PDU_DATA_ITEM), _to_item(records.PDU_DATA_ITEM)),
    "PDUGetVersion": (_N, _to(records.PDU_VERSION_DATA)),
    "PDUGetStatus": (_N, _N, _N, _NUMBER, _NUMBER, _NUMBER),
    "PDUGetLastError": (_N, _N, _NUMBER, _NUMBER, _NUMBER, _NUMBER),
    "PDUGetResourceStatus": (_to(records.PDU_RSC_STATUS_ITEM),),
    "PDUCreateComLogicalLink": (
        _N,
        _to(records.PDU_RSC_DATA),
        _N,
        c_void_p,
        _NUMBER,
        _to(records.PDU_FLAG_DATA),
    ),
    "PDUDestroyComLogicalLink": (_N, _N),
    "PDUConnect": (_N, _N),
    "PDUDisconnect": (_N, _N),
    "PDULockResource": (_N, _N, _N),
    "PDUUnlockResource": (_N, _N, _N),
    "PDUGetComParam": (_N, _N, _N, _to_item(records.PDU_PARAM_ITEM)),
    "PDUSetComParam": (_N, _N, _to(records.PDU_PARAM_ITEM)),
    "PDUStartComPrimitive": (
        _N,
        _N,
        _N,
        _N,
        POINTER(c_uint8),
        _to(records.PDU_COP_CTRL_DATA),
        c_void_p,
        _NUMBER,
    ),
    "PDUCancelComPrimitive": (_N, _N, _N),
    "PDUGetEventItem": (_N, _N, _to_item(records.PDU_EVENT_ITEM)),
    "PDUDestroyItem": (_to(records.PDU_ITEM),),
    "PDURegisterEventCallback": (_N, _N, EventCallback),
    "PDUGetObjectId": (_N, c_char_p, _NUMBER),
    "PDUGetModuleIds": (_to_item(records.PDU_MODULE_ITEM),),
    "PDUGetResourceIds": (_N, _to(records.PDU_RSC_DATA), _to_item(records.PDU_RSC_ID_ITEM)),
    "PDUGetConflictingResources": (
        _N,
        _to(records.PDU_MODULE_ITEM),
        _to_item(records.PDU_RSC_CONFLICT_ITEM),
    ),
    "PDUGetUniqueRespIdTable": (_N, _N, _to_item(records.PDU_UNIQUE_RESP_ID_TABLE_ITEM)),
    "PDUSetUniqueRespIdTable": (_N, _N, _to(records.PDU_UNIQUE_RESP_ID_TABLE_ITEM)),
    "PDUModuleConnect": (_N,),
    "PDUModuleDisconnect": (_N,),
    "PDUGetTimestamp": (_N, _NUMBER),
}


class Functions:
    """The 29 functions of a library under their names, each with its types."""

    def __init__(self, library: Any, path: str) -> None:
        missing = []
        for name, types in PROTOTYPES.items():
            try:
                function = getattr(library, name)
            except AttributeError:
                missing.append(name)
                continue
            function.argtypes = list(types)
            function.restype = c_uint32
            setattr(self, name, function)
        if missing:
            others = f" and {len(missing) - 1} more functions" if len(missing) > 1 else ""
            raise NoLibrary(
                f"'{path}' is not a complete D-PDU library, it lacks {missing[0]}{others}"
            )

    if TYPE_CHECKING:

        def __getattr__(self, name: str) -> _Function: ...

    def destroy(self, item: Any) -> None:
        """Passes an item to PDUDestroyItem unless its pointer is null."""
        if item:
            self.PDUDestroyItem(ctypes.cast(item, POINTER(records.PDU_ITEM)))


def text_of(raw: "bytes | None") -> str:
    """A text of the library: UTF-8, else one byte a character."""
    if not raw:
        return ""
    try:
        return raw.decode("utf-8")
    except UnicodeDecodeError:
        return raw.decode("latin-1")
