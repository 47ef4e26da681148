"""Finds and loads a D-PDU library.

A library stays loaded until the process ends, as its own threads may run after its last function
has returned.
"""

import ctypes
import os
import sys
from typing import Any, List, NamedTuple, Optional

from . import windows
from .errors import NoLibrary
from .root_file import PathName, find_entry, read_entries

_VARIABLE = "DPDU_LIBRARY"
_OWN_ENTRY = "Tarvik_DPDU_API_x64_"
_ADVICE = "name a D-PDU library with path=, vendor= or the environment variable DPDU_LIBRARY"


class LoadedLibrary(NamedTuple):
    """path: the file, or the name under which the system's loader found it."""

    handle: Any
    path: str


def _is_windows() -> bool:
    return sys.platform == "win32"


def _load(path: str) -> Any:
    """Raises OSError."""
    if _is_windows():
        return windows.load(path)
    # The loader looks for a bare name in the system's folders only.
    is_bare = os.path.basename(path) == path
    return ctypes.CDLL(os.path.join(".", path) if is_bare and os.path.exists(path) else path)


def _reason(path: str, error: OSError) -> str:
    text = str(error)
    return text[len(path) + 2 :] if text.startswith(path + ": ") else text


def _load_named(path: str) -> LoadedLibrary:
    try:
        return LoadedLibrary(_load(path), path)
    except OSError as error:
        reason = f"cannot load the library '{path}': {_reason(path, error)}"
        raise NoLibrary(f"{reason}; {_ADVICE}") from error


def _entry_path() -> str:
    """Of this project's newest entry in the root file, else of the only entry there is."""
    entries = [entry for entry in read_entries() if entry.path]
    own = [entry for entry in entries if entry.short_name.startswith(_OWN_ENTRY)]
    chosen = own[-1:] or (entries if len(entries) == 1 else [])
    return chosen[0].path if chosen else ""


def default_candidates() -> List[str]:
    """Where this project's library is looked for if nothing names one, in this order.

    Beside this package; on Linux by the loader under its name; on Windows in the folder of the
    setup; last the root file's entry of this project, or its only entry.
    """
    name = "tarvik_dpdu_x64.dll" if _is_windows() else "libtarvik_dpdu_x64.so"
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), name)
    candidates = [beside] if os.path.exists(beside) else []
    if _is_windows():
        candidates += [path for path in windows.installed_libraries() if os.path.exists(path)]
    else:
        candidates += [name + ".0", name]
    entry = _entry_path()
    return candidates + ([entry] if entry else [])


def _load_default() -> LoadedLibrary:
    reasons = []
    for path in default_candidates():
        try:
            return LoadedLibrary(_load(path), path)
        except OSError as error:
            reasons.append(f"{path}: {_reason(path, error)}")
    found = "; ".join(reasons) or "it is not installed and the root file does not name it"
    raise NoLibrary(f"this project's library was not found: {found}; {_ADVICE}")


def load_library(
    path: Optional[PathName], vendor: Optional[str], root_file: Optional[PathName]
) -> LoadedLibrary:
    """By its path, else by its SHORT_NAME in the root file, else by DPDU_LIBRARY, else this project's.

    Raises NoLibrary.
    """
    if path is not None and vendor is not None:
        raise ValueError("give either path or vendor")
    if root_file is not None and vendor is None:
        raise ValueError("root_file needs vendor")
    if vendor is not None:
        entry = find_entry(vendor, root_file)
        if not entry.path:
            raise NoLibrary(f"the entry '{vendor}' of the root file names no library file")
        return _load_named(entry.path)
    named = os.fspath(path) if path is not None else os.environ.get(_VARIABLE, "")
    return _load_named(named) if named else _load_default()
