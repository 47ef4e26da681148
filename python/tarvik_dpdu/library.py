"""A loaded and constructed D-PDU library."""

import atexit
import os
import queue
import threading
import time
from ctypes import POINTER, byref, c_uint32
from types import TracebackType
from typing import Iterator, List, Optional, Set, Type

from . import constants, records
from .constants import PDU_HANDLE_UNDEF
from .dispatch import Dispatcher, EventQueue, iterate
from .errors import Closed, NoModule, PduError, UnknownName, check
from .events import Event, Notification
from .functions import NO_CALLBACK, Functions, text_of
from .loading import load_library
from .module import Module, ModuleInfo
from .root_file import PathName
from .timeline import Timeline

_SCAN_PAUSE_S = 0.1

# The libraries that are constructed. A library that nobody closed is closed when Python ends: its
# threads must not call back into an interpreter that is gone. A forked process leaves them to its parent.
_open_libraries: "Set[Library]" = set()


@atexit.register
def _close_all() -> None:
    for library in list(_open_libraries):
        if library.process == os.getpid():
            library.close()


class Library:
    """A D-PDU library in use, from PDUConstruct to PDUDestruct.

    path: the library file. vendor: its SHORT_NAME in the machine's root file, or in `root_file`.
    Without both, the environment variable DPDU_LIBRARY names the file; if there is none, this
    project's library is taken (see `loading.default_candidates`). options: the option string for
    PDUConstruct, as the library's maker describes it.

    A library can be constructed only once in a process. Any thread may use it. Ends with `close`,
    with the `with` statement, or with the process.

    Raises NoLibrary if there is none, PduError if it refuses to start.
    """

    def __init__(
        self,
        path: Optional[PathName] = None,
        vendor: Optional[str] = None,
        root_file: Optional[PathName] = None,
        options: str = "",
    ) -> None:
        loaded = load_library(path, vendor, root_file)
        self.path = loaded.path
        self.process = os.getpid()
        self.functions = Functions(loaded.handle, loaded.path)
        self.dispatcher = Dispatcher()
        self.timeline = Timeline()
        self.queue = EventQueue(
            self.functions, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, self.timeline
        )
        self._modules: List[Module] = []
        self._lock = threading.RLock()
        self._scan_lock = threading.Lock()
        self._is_closed = False
        # Some libraries keep the pointer.
        self._options = options.encode("utf-8") if options else None
        check("PDUConstruct", self.functions.PDUConstruct(self._options, None))
        _open_libraries.add(self)
        # A library without callbacks is usable: its queues are also looked at without them.
        self.functions.PDURegisterEventCallback(
            PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, self.dispatcher.callback
        )

    def __enter__(self) -> "Library":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<Library {self.path}{' (closed)' if self._is_closed else ''}>"

    def close(self) -> None:
        """Closes links and modules and ends the library. A second call does nothing."""
        with self._lock:
            if self._is_closed:
                return
            self._is_closed = True
        try:
            for module in reversed(list(self._modules)):
                module.close()
        finally:
            functions = self.functions
            functions.PDURegisterEventCallback(
                PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, NO_CALLBACK
            )
            self.queue.close()
            functions.PDUDestruct()
            _open_libraries.discard(self)

    def _require_open(self) -> None:
        if self._is_closed:
            raise Closed("the library was closed")

    # --- names ---

    def find_id(self, kind: int, name: str) -> Optional[int]:
        """The id of an object (kind PDU_OBJT_…); None if the library does not know the name."""
        self._require_open()
        found = c_uint32(constants.PDU_ID_UNDEF)
        status = self.functions.PDUGetObjectId(kind, name.encode("latin-1"), byref(found))
        # For an unknown name some libraries return an error, others an undefined id.
        is_known = status == constants.PDU_STATUS_NOERROR and found.value != constants.PDU_ID_UNDEF
        return found.value if is_known else None

    def id_of(self, kind: int, name: str) -> int:
        """As find_id, but raises UnknownName."""
        found = self.find_id(kind, name)
        if found is None:
            raise UnknownName(f"the library does not know the name '{name}'")
        return found

    # --- modules ---

    def scan(self) -> List[ModuleInfo]:
        """Looks for modules once and returns all that the library knows, those that are gone too.

        Takes as long as the library needs: 0.2 s and more. Raises PduError.
        """
        self._require_open()
        with self._scan_lock:
            item = POINTER(records.PDU_MODULE_ITEM)()
            try:
                check("PDUGetModuleIds", self.functions.PDUGetModuleIds(byref(item)))
                if not item or not item.contents.pModuleData:
                    return []
                rows = item.contents.pModuleData[: item.contents.NumEntries]
                return [self._describe(row) for row in rows]
            finally:
                self.functions.destroy(item)

    def _describe(self, row: records.PDU_MODULE_DATA) -> ModuleInfo:
        # The list contains a state too, but not every library keeps it up to date.
        return ModuleInfo(
            handle=row.hMod,
            type_id=row.ModuleTypeId,
            state=self.module_state(row.hMod, row.ModuleStatus),
            vendor_name=text_of(row.pVendorModuleName),
            additional_info=text_of(row.pVendorAdditionalInfo),
        )

    def module_state(self, handle: int, known: int = constants.PDU_MODST_READY) -> int:
        """The state PDU_MODST_… of a module; `known` if the library does not answer."""
        state, timestamp, extra = c_uint32(known), c_uint32(), c_uint32()
        status = self.functions.PDUGetStatus(
            handle,
            PDU_HANDLE_UNDEF,
            PDU_HANDLE_UNDEF,
            byref(state),
            byref(timestamp),
            byref(extra),
        )
        return state.value if status == constants.PDU_STATUS_NOERROR else known

    def modules(self, timeout: float = 0.0, text: str = "") -> List[ModuleInfo]:
        """The modules that are there, those whose texts contain `text`, ignoring case.

        Looks for them until there is at least one or the time in seconds has passed, at least once.
        Raises PduError.
        """
        deadline = time.monotonic() + timeout
        while True:
            found = [each for each in self.scan() if each.is_there and each.matches(text)]
            left = deadline - time.monotonic()
            if found or left <= 0:
                return found
            self._pause_between_scans(left)

    def _pause_between_scans(self, left: float) -> None:
        """At most `left` seconds; ends early if the library reports that its list has changed."""
        seen = len(self.queue.events)
        self.dispatcher.wait_until(
            [self.queue], lambda: len(self.queue.events) != seen, min(left, _SCAN_PAUSE_S)
        )

    def module(self, name_or_text: Optional[str] = None, timeout: float = 3.0) -> Module:
        """Connects the one module whose texts contain the text, ignoring case; without a text, any.

        Looks for it for up to that many seconds. Raises NoModule if there is none or more than one,
        PduError if the library refuses or the module is connected already.
        """
        wanted = name_or_text or ""
        found = self.modules(timeout, wanted)
        if not found and wanted:
            raise NoModule(f"no module found that matches '{wanted}'")
        if not found:
            raise NoModule(
                "no module found; is the dongle connected and its transport switched on in the "
                "library's configuration?"
            )
        if len(found) > 1:
            names = "; ".join(
                f"{each.serial_number} {each.connection}".strip() or each.vendor_name
                for each in found
            )
            raise NoModule(f"{len(found)} modules found, name one of them: {names}")
        return self._connect(found[0])

    def _connect(self, info: ModuleInfo) -> Module:
        with self._lock:
            self._require_open()
            if any(each.handle == info.handle for each in self._modules):
                raise PduError(f"the module is connected already: {info.vendor_name}")
            module = Module(self, info)
            self._modules.append(module)
        return module

    def _forget(self, module: Module) -> None:
        with self._lock:
            if module in self._modules:
                self._modules.remove(module)

    # --- events ---

    def events(self, timeout: Optional[float] = None) -> Iterator[Event]:
        """The events of the library itself, such as InfoEvent with PDU_INFO_MODULE_LIST_CHG.

        Ends when none comes for that many seconds; without a time it never ends. Raises Closed.
        """
        return iterate(self.dispatcher, [self.queue], timeout)

    def notify(self, listener: "queue.Queue[Notification]") -> None:
        """From now on puts a Notification into the queue whenever the library calls back.

        A queue that is full misses some. No code of the caller runs on the library's threads: take
        the notification on a thread of your own, then the event with `events(0)` of the library, the
        module or the link.
        """
        self.dispatcher.add_listener(listener)

    def stop_notifying(self, listener: "queue.Queue[Notification]") -> None:
        """Ends `notify` for this queue."""
        self.dispatcher.remove_listener(listener)
