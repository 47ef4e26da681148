"""From the library's callback and its event queues to the threads that wait."""

import queue
import threading
import time
from collections import deque
from contextlib import contextmanager
from ctypes import POINTER, byref
from typing import Any, Callable, Deque, Dict, Iterator, List, Optional, Tuple

from . import constants, records
from .errors import Closed
from .events import Event, Notification, read_event
from .functions import EventCallback, Functions
from .timeline import Timeline

_Key = Tuple[int, int]

# A library may call back until the process ends, so a callback is never freed.
_callbacks: List[Any] = []

# Queues are also looked at without a call: some libraries make none, and on Windows a thread that
# waits does not notice Ctrl-C.
_POLL_S = 0.1

# On a busy bus frames may arrive as fast as they are taken.
_MOST_AT_ONCE = 1000

# Of events that nobody takes, the newest are kept.
_KEPT_EVENTS = 4096


class Dispatcher:
    """The event callback of one library. It only puts tokens into queues."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        # Tuples that are replaced, never changed: the callback reads them without the lock.
        self._waiters: Dict[_Key, Tuple[Any, ...]] = {}
        self._listeners: Tuple["queue.Queue[Notification]", ...] = ()
        self.callback = EventCallback(self._on_event)
        _callbacks.append(self.callback)

    def _on_event(self, kind: int, module: int, link: int, _link_tag: Any, _api_tag: Any) -> None:
        for wake in self._waiters.get((module, link), ()):
            wake.put(None)
        for listener in self._listeners:
            try:
                listener.put_nowait(Notification(kind, module, link))
            except queue.Full:
                pass

    def add_listener(self, listener: "queue.Queue[Notification]") -> None:
        with self._lock:
            self._listeners += (listener,)

    def remove_listener(self, listener: "queue.Queue[Notification]") -> None:
        with self._lock:
            self._listeners = tuple(each for each in self._listeners if each is not listener)

    @contextmanager
    def _waiting(self, keys: List[_Key]) -> Iterator["queue.SimpleQueue[None]"]:
        # Unlike a queue.Queue this one may be filled by a thread that is inside another call of it.
        wake: "queue.SimpleQueue[None]" = queue.SimpleQueue()
        with self._lock:
            for key in keys:
                self._waiters[key] = self._waiters.get(key, ()) + (wake,)
        try:
            yield wake
        finally:
            with self._lock:
                for key in keys:
                    left = tuple(each for each in self._waiters[key] if each is not wake)
                    if left:
                        self._waiters[key] = left
                    else:
                        del self._waiters[key]

    def wait_until(
        self,
        queues: List["EventQueue"],
        is_done: Callable[[], bool],
        timeout: Optional[float],
    ) -> bool:
        """Empties the queues until it is done. False if the time in seconds passes before."""
        deadline = None if timeout is None else time.monotonic() + timeout
        _pump(queues)
        if is_done():
            return True
        with self._waiting([each.key for each in queues]) as wake:
            while True:
                is_empty = _pump(queues)
                if is_done():
                    return True
                left = _POLL_S if deadline is None else deadline - time.monotonic()
                if left <= 0:
                    return False
                if is_empty:
                    _wait_for_token(wake, min(left, _POLL_S))


def _pump(queues: List["EventQueue"]) -> bool:
    """True if all of them are empty now."""
    return all([each.pump() for each in queues])


def _wait_for_token(wake: "queue.SimpleQueue[None]", timeout: float) -> None:
    """One look at the queues is enough for all tokens that are there."""
    try:
        wake.get(timeout=timeout)
        while True:
            wake.get_nowait()
    except queue.Empty:
        pass


class EventQueue:
    """One event queue of the library: a link's, a module's or the system's.

    Any thread may empty it. `route` gets each event, under the lock.
    """

    def __init__(
        self, functions: Functions, module: int, link: int, timeline: Timeline
    ) -> None:
        self.key = (module, link)
        self.lock = threading.RLock()
        self.events: Deque[Event] = deque(maxlen=_KEPT_EVENTS)
        self.route: Callable[[Event], None] = self.events.append
        self.is_closed = False
        self._functions = functions
        self._timeline = timeline

    def _take(
        self, read: Callable[[Any, Timeline], Optional[Event]]
    ) -> Tuple[bool, Optional[Event]]:
        """Whether there was an item, and what was read from it."""
        item = POINTER(records.PDU_EVENT_ITEM)()
        try:
            status = self._functions.PDUGetEventItem(self.key[0], self.key[1], byref(item))
            if status != constants.PDU_STATUS_NOERROR or not item:
                return False, None
            return True, read(item.contents, self._timeline)
        finally:
            self._functions.destroy(item)

    def pump(self) -> bool:
        """Takes every item, up to a limit: False. Raises Closed after the end of the link, the module
        or the library."""
        with self.lock:
            if self.is_closed:
                raise Closed("the library, the module or the link was closed")
            for _ in range(_MOST_AT_ONCE):
                is_there, event = self._take(read_event)
                if event is not None:
                    self.route(event)
                if not is_there:
                    return True
            return False

    def close(self) -> None:
        """Throws away what is in it."""
        with self.lock:
            self.is_closed = True
            while self._take(lambda _item, _timeline: None)[0]:
                pass
            self.events.clear()

    def take_event(self) -> Optional[Event]:
        """The oldest event that was kept."""
        with self.lock:
            return self.events.popleft() if self.events else None


def iterate(
    dispatcher: Dispatcher, queues: List[EventQueue], timeout: Optional[float]
) -> Iterator[Event]:
    """The events of the first queue, until none comes for that many seconds."""
    first = queues[0]
    while dispatcher.wait_until(queues, lambda: bool(first.events), timeout):
        event = first.take_event()
        if event is not None:
            yield event
