"""A connection for the udsoncan library over a link of this package.

    from tarvik_dpdu.udsoncan import DpduConnection

    with tarvik_dpdu.Library() as library, library.module() as module:
        with udsoncan.client.Client(DpduConnection(module, 0x7E0, 0x7E8)) as client:
            client.read_data_by_identifier(0xF190)

That library is imported when the first connection is made, so this package does not need it.
"""

import functools
import importlib
import types
from typing import Any, Optional, Tuple, Union

from .base_link import ComPrimitive
from .errors import NoAnswer
from .link import Link
from .module import Module


@functools.lru_cache(maxsize=None)
def _joined(kind: Any, base: Any) -> Any:
    return types.new_class(kind.__name__, (kind, base))


def _with_base(kind: Any) -> Any:
    """The class as one of that library's connections."""
    base = importlib.import_module("udsoncan.connections").BaseConnection
    return kind if issubclass(kind, base) else _joined(kind, base)


def _timeout_exception(text: str) -> Exception:
    exceptions: Any = importlib.import_module("udsoncan.exceptions")
    exception: Exception = exceptions.TimeoutException(text)
    return exception


class DpduConnection:
    """A connection of the udsoncan library.

    source: a module, on which `open` makes a link (request_id, response_id and the options of
    `Module.link`) that `close` ends; or a link, which stays as it is.
    pending_timeout: how many seconds longer than asked to wait for a frame while the control unit
    may still be working: the module itself waits through "response pending", so that the client does
    not see it. A silent control unit ends the wait by itself, after the link's p2_max.

    One thread uses it. Errors are those of this package, LostModule for instance, but for "no answer",
    which is that library's TimeoutException. Raises ImportError if that library is not installed.
    """

    def __new__(cls, *_arguments: Any, **_options: Any) -> "DpduConnection":
        connection: DpduConnection = object.__new__(_with_base(cls))
        return connection

    def __init__(
        self,
        source: Union[Module, Link],
        request_id: int = 0x7E0,
        response_id: int = 0x7E8,
        *,
        name: Optional[str] = None,
        pending_timeout: float = 5.0,
        **options: Any,
    ) -> None:
        base: Any = super()
        base.__init__(name)
        self._source = source
        self._arguments: Tuple[Any, ...] = (request_id, response_id)
        self._options = options
        self._pending_timeout = pending_timeout
        self._link: Optional[Link] = None
        self._primitive: Optional[ComPrimitive] = None

    def open(self) -> "DpduConnection":
        """Makes the link. Raises PduError."""
        if self._link is None:
            if isinstance(self._source, Link):
                self._link = self._source
            else:
                self._link = self._source.link(*self._arguments, **self._options)
        return self

    def close(self) -> None:
        """Ends the link, if `open` made it. A second call does nothing."""
        link, self._link, self._primitive = self._link, None, None
        if link is not None and link is not self._source:
            link.close()

    def is_open(self) -> bool:
        return self._link is not None

    def __enter__(self) -> "DpduConnection":
        return self.open()

    def __exit__(self, *_error: Any) -> None:
        self.close()

    def _open_link(self) -> Link:
        if self._link is None:
            raise RuntimeError("the connection is not open")
        return self._link

    def specific_send(self, payload: bytes, timeout: Optional[float] = None) -> None:
        """Starts a request and does not wait for its response. Raises PduError."""
        link = self._open_link()
        self._primitive = link.start_request(payload)

    def specific_wait_frame(self, timeout: Optional[float] = 2.0) -> bytes:
        """The response to the last request.

        Raises that library's TimeoutException if none comes: at once if the positive response was
        suppressed and no negative one came, when the library reports that there is none, else after
        the time in seconds. Raises LostModule, PduError.
        """
        link = self._open_link()
        primitive = self._primitive
        if primitive is None:
            raise _timeout_exception("no request is under way")
        limit = None if timeout is None else timeout + self._pending_timeout
        try:
            is_done = primitive.wait_for_response(limit)
        except BaseException:
            self._primitive = None
            raise
        self._primitive = None
        if primitive.responses:
            return primitive.responses.pop(0).data
        if not is_done:
            primitive.cancel()
            link.module.check()
            raise _timeout_exception(f"no response within {limit:g} s")
        try:
            link.no_response_to(primitive)
        except NoAnswer as error:
            raise _timeout_exception(str(error)) from error
        raise _timeout_exception("the positive response was suppressed")

    def empty_rxqueue(self) -> None:
        """Forgets the response to the last request, whether it came or not."""
        self._primitive = None
