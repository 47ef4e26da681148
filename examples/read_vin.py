"""Prints the VIN that the engine's control unit has, with the library that Library() finds."""

import tarvik_dpdu

with tarvik_dpdu.Library() as library, library.module() as module, module.link(0x7E0, 0x7E8) as link:
    answer = link.request(bytes.fromhex("22F190"), raise_negative=True)
    print("VIN", answer.data[3:].decode())
