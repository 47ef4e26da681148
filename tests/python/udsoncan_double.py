"""The interface of the udsoncan library that a connection sees, as modules of that name."""
import abc, sys, types


class TimeoutException(Exception):
    pass


class BaseConnection(abc.ABC):
    def __init__(self, name=None):
        self.name = name or "Connection"

    def send(self, payload):
        self.specific_send(payload)

    def wait_frame(self, timeout=None, exception=False):
        try:
            return self.specific_wait_frame(timeout)
        except TimeoutException:
            if exception:
                raise
            return None

    @abc.abstractmethod
    def open(self): ...

    @abc.abstractmethod
    def close(self): ...

    @abc.abstractmethod
    def is_open(self): ...

    @abc.abstractmethod
    def specific_send(self, payload): ...

    @abc.abstractmethod
    def specific_wait_frame(self, timeout=None): ...

    @abc.abstractmethod
    def empty_rxqueue(self): ...

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.close()


def install():
    """From now on `import udsoncan` finds the double."""
    package = types.ModuleType("udsoncan")
    package.connections = types.ModuleType("udsoncan.connections")
    package.connections.BaseConnection = BaseConnection
    package.exceptions = types.ModuleType("udsoncan.exceptions")
    package.exceptions.TimeoutException = TimeoutException
    sys.modules.update({"udsoncan": package, "udsoncan.connections": package.connections,
                        "udsoncan.exceptions": package.exceptions})
