"""What is different on Windows: the loader and the registry.

Other modules call these functions on Windows only. Names that only Windows has are looked up when
they are needed.
"""

import ctypes
import importlib
import os
from typing import Any, List

_KEY = r"SOFTWARE\D-PDU API"
_VALUE = "Root File"
_LOAD_WITH_ALTERED_SEARCH_PATH = 0x8


def load(path: str) -> Any:
    """Loads a DLL; it finds the DLLs beside it. Raises OSError."""
    full = os.path.abspath(path)
    return getattr(ctypes, "WinDLL")(full, winmode=_LOAD_WITH_ALTERED_SEARCH_PATH)


def registered_root_file() -> str:
    """The machine's root file; an empty text if the registry's 64-bit view names none."""
    winreg: Any = importlib.import_module("winreg")
    access = winreg.KEY_READ | winreg.KEY_WOW64_64KEY
    try:
        with winreg.OpenKey(winreg.HKEY_LOCAL_MACHINE, _KEY, 0, access) as key:
            value, kind = winreg.QueryValueEx(key, _VALUE)
    except OSError:
        return ""
    if kind == winreg.REG_EXPAND_SZ:
        value = winreg.ExpandEnvironmentStrings(value)
    return str(value)


def installed_libraries() -> List[str]:
    """Where the setup puts this project's library."""
    drive = os.environ.get("SystemDrive", "C:")
    return [drive + r"\Tarvik\Brennix\bin\tarvik_dpdu_x64.dll"]
