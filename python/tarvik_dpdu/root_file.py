"""The machine's root file, which lists the installed D-PDU libraries of all vendors."""

import os
import re
import sys
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass
from typing import List, Optional, Union

from . import windows
from .errors import NoLibrary

_ROOT_ELEMENT = "MVCI_PDU_API_ROOT"
_ENTRY_ELEMENT = "MVCI_PDU_API"
_LINUX_ROOT_FILE = "/etc/pdu_api_root.xml"
_SCHEME = "file:///"

PathName = Union[str, "os.PathLike[str]"]


@dataclass(frozen=True)
class Entry:
    """An installed library. A text is empty if the file does not have it."""

    short_name: str
    supplier: str
    description: str
    path: str


def machine_root_file() -> str:
    """/etc/pdu_api_root.xml, on Windows the file that the registry names; empty if it names none."""
    return windows.registered_root_file() if sys.platform == "win32" else _LINUX_ROOT_FILE


def path_of_uri(uri: str) -> str:
    """`file:///C:/a b` is `C:/a b`, `file:///opt/x` is `/opt/x`; empty for any other form.

    Percent-encoding stays as it is: applications do not decode it.
    """
    if not uri.startswith(_SCHEME):
        return ""
    path = uri[len(_SCHEME) :]
    return path if re.match("[A-Za-z]:/", path) else "/" + path


def _local_name(element: ElementTree.Element) -> str:
    return element.tag.rpartition("}")[2] if isinstance(element.tag, str) else ""


def _child(element: ElementTree.Element, name: str) -> Optional[ElementTree.Element]:
    return next((child for child in element if _local_name(child) == name), None)


def _text(element: ElementTree.Element, name: str) -> str:
    child = _child(element, name)
    return (child.text or "").strip() if child is not None else ""


def _entry(element: ElementTree.Element) -> Entry:
    library = _child(element, "LIBRARY_FILE")
    uri = library.get("URI", "") if library is not None else ""
    return Entry(
        short_name=_text(element, "SHORT_NAME"),
        supplier=_text(element, "SUPPLIER_NAME"),
        description=_text(element, "DESCRIPTION"),
        path=path_of_uri(uri),
    )


def read_entries(root_file: Optional[PathName] = None) -> List[Entry]:
    """The entries in the order of the file, by default the machine's; none if there is no file.

    Raises NoLibrary for a file that cannot be read or is not a root file.
    """
    path = machine_root_file() if root_file is None else os.fspath(root_file)
    if not path or not os.path.exists(path):
        return []
    try:
        root = ElementTree.parse(path).getroot()
    except (ElementTree.ParseError, OSError, ValueError, LookupError) as error:
        raise NoLibrary(f"the root file {path} cannot be read: {error}") from error
    if _local_name(root) != _ROOT_ELEMENT:
        raise NoLibrary(f"{path} is not a root file: its element is {_local_name(root)}")
    return [_entry(child) for child in root if _local_name(child) == _ENTRY_ELEMENT]


def find_entry(short_name: str, root_file: Optional[PathName] = None) -> Entry:
    """The one entry of that name. Raises NoLibrary if there is none, or more than one."""
    entries = read_entries(root_file)
    found = [entry for entry in entries if entry.short_name == short_name]
    if len(found) == 1:
        return found[0]
    if found:
        raise NoLibrary(f"'{short_name}' is there {len(found)} times in the root file")
    names = ", ".join(entry.short_name for entry in entries)
    there = f"there are: {names}" if names else "the root file lists none"
    raise NoLibrary(f"no library is installed as '{short_name}'; {there}")
