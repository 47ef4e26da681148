"""The simulated dongle around a test program: its configuration and its control channel."""
import json, os, socket
from pathlib import Path

import tarvik_dpdu

CONFIG = {"showDebug": False, "enableCopTrace": False, "enableDebugLogFile": True, "useWebsocket": False,
          "useSerial": True, "useCloud": False, "useBle": False, "dummyDevice": False}


def configure():
    """The library finds its configuration in the folder that the launcher provides."""
    folder = Path(os.environ["BRENNIX_SIM_SCRATCH"], "config", "Tarvik", "Brennix")
    folder.mkdir(parents=True, exist_ok=True)
    folder.joinpath("config.json").write_text(json.dumps(CONFIG), "utf-8")


def command(line):
    """What the simulator says after "ok"."""
    host, port = os.environ["BRENNIX_SIM_CONTROL"].split(":")
    with socket.create_connection((host, int(port)), timeout=60) as connection:
        connection.sendall(line.encode() + b"\n")
        answer = connection.makefile("r", encoding="utf-8").readline().strip()
    if answer != "ok" and not answer.startswith("ok "):
        raise AssertionError(f"{line}: {answer}")
    return answer[3:]


def find_module(library):
    """The simulated dongle, connected.

    On a busy machine it may miss the 300 ms in which a port must answer; then it is left alone until
    it is plugged in again.
    """
    for _ in range(5):
        try:
            return library.module(timeout=5)
        except tarvik_dpdu.NoModule:
            command("unplug")
            library.scan()
            command("replug")
    return library.module(timeout=30)
