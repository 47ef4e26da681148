"""The ComParams of a link, by name."""

from ctypes import POINTER, byref
from typing import TYPE_CHECKING, Any, Tuple

from . import constants, records
from .errors import PduError, UnknownName, check, status_error
from .values import ParamItem, ParamType, Value, read_value, type_of

if TYPE_CHECKING:
    from .base_link import BaseLink


class ComParams:
    """`link.comparams["CP_P2Max"] = 1000000` sets one, in the unit of the ComParam; reading
    it is the same.

    See the module `values` for the Python types. A value that is set on a connected link holds from
    the next request on. This project's library has one table for all links of the process.

    Raises UnknownName if the library has no such ComParam, PduError if it refuses the value,
    TypeError or ValueError for one that the ComParam cannot have.
    """

    def __init__(self, link: "BaseLink") -> None:
        self._link = link

    def _read(self, name: str) -> Tuple[ParamType, Any]:
        link = self._link
        link.require_open()
        number = link.library.id_of(constants.PDU_OBJT_COMPARAM, name)
        item = POINTER(records.PDU_PARAM_ITEM)()
        try:
            status = link.functions.PDUGetComParam(
                link.module.handle, link.handle, number, byref(item)
            )
            if status == constants.PDU_ERR_COMPARAM_NOT_SUPPORTED:
                raise UnknownName(f"the library has no ComParam '{name}' on this link")
            check("PDUGetComParam", status)
            kind = type_of(item.contents)
            try:
                return kind, read_value(item.contents)
            except ValueError as error:
                return kind, error
        finally:
            link.functions.destroy(item)

    def __getitem__(self, name: str) -> Value:
        value = self._read(name)[1]
        if isinstance(value, ValueError):
            raise value
        return value  # type: ignore[no-any-return]

    def __setitem__(self, name: str, value: Any) -> None:
        kind = self._read(name)[0]
        param = ParamItem(kind, value)
        link = self._link
        status = link.functions.PDUSetComParam(link.module.handle, link.handle, byref(param.item))
        if status != constants.PDU_STATUS_NOERROR:
            reason = status_error("PDUSetComParam", status)
            raise PduError(
                f"the library refused {name}={value!r}: {reason.meaning}",
                status=status,
                name=reason.name,
                function="PDUSetComParam",
            )
        link.note_comparam(name, value)

    def __contains__(self, name: object) -> bool:
        try:
            self._read(str(name))
        except PduError:
            return False
        return True

    def type_of(self, name: str) -> ParamType:
        """Its id, data type and class."""
        return self._read(name)[0]

    def try_set(self, name: str, value: Any) -> bool:
        """Sets a ComParam that a library need not have. True if it has taken the value."""
        try:
            self[name] = value
        except (PduError, ValueError, TypeError):
            return False
        return True
