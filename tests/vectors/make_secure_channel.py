#!/usr/bin/env python3
"""Writes secure_channel.json: whole sessions of the cloud's secure channel with fixed keys and every
intermediate value, computed with Python's cryptography package. It uses no code of the library or
the relay, so the result can check both.

    python3 tests/vectors/make_secure_channel.py > tests/vectors/secure_channel.json

Needs Debian's python3-cryptography. The result is the same on every run.
"""

import hashlib
import json
import struct
import sys

from cryptography.hazmat.primitives import hashes, hmac, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
from cryptography.hazmat.primitives.kdf.hkdf import HKDFExpand

CURVE = ec.SECP256R1()
ORDER = 0xFFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551

MAX_WHOLE_PACKET = 4072


def key(label):
    """A private key that anyone can make again: the hash of its label as a scalar."""
    scalar = int.from_bytes(hashlib.sha256(label.encode()).digest(), "big") % (ORDER - 1) + 1
    return ec.derive_private_key(scalar, CURVE)


def private_bytes(private_key):
    return private_key.private_numbers().private_value.to_bytes(32, "big")


def public_bytes(private_key):
    return private_key.public_key().public_bytes(
        serialization.Encoding.X962, serialization.PublicFormat.UncompressedPoint
    )


def ecdh(private_key, peer):
    return private_key.exchange(ec.ECDH(), peer.public_key())


def extract(ikm):
    mac = hmac.HMAC(bytes(32), hashes.SHA256())
    mac.update(ikm)
    return mac.finalize()


def expand(prk, info):
    return HKDFExpand(algorithm=hashes.SHA256(), length=32, info=info).derive(prk)


def packet(letters, payload=b""):
    return struct.pack("<II", int.from_bytes(letters.encode(), "big"), 8 + len(payload)) + payload


def nonce_of(salt, counter):
    mask = bytes(4) + struct.pack("<Q", counter)
    return bytes(a ^ b for a, b in zip(salt[:12], mask))


def encrypt(aes_key, nonce, plain, aad):
    """Ciphertext and tag."""
    sealed = AESGCM(aes_key).encrypt(nonce, plain, aad)
    return sealed[:-16], sealed[-16:]


def seal(session, direction, counter, plain):
    aes_key, aad = {
        "tx": (session["tx_key"], b"v1|role=device|server"),
        "rx": (session["rx_key"], b"v1|role=server|device"),
    }[direction]
    nonce = nonce_of(session["nonce_salt"], counter)
    text, tag = encrypt(aes_key, nonce, plain, aad)
    return {
        "direction": direction,
        "counter": counter,
        "nonce": nonce,
        "plain": plain,
        "sealed": packet("CRYP", tag + text),
    }


def pattern(length):
    return bytes(i * 7 % 251 for i in range(length))


def device_packets(device_public):
    devi = packet("DEVI", device_public[1:7] + bytes(2) + device_public + bytes(3))
    assert len(devi) == 84
    request = struct.pack("<IIIIHBBI", 0x7DF, 0x7E0, 0x7E8, 1000, 3, 0, 0, 17) + bytes.fromhex("22f190")
    return [
        (0, devi),
        (1, packet("IDEN")),
        (2, packet("CREQ", request)),
        (3, packet("FRAG", pattern(MAX_WHOLE_PACKET - 8))),
        (0xFF, packet("IDEN")),
        (0x100, packet("IDEN")),
        (0x0123456789ABCDEF, packet("IDEN")),
    ]


def relay_packets(status):
    answer = struct.pack("<III", 12, 5, 17) + bytes.fromhex("62f1905741")
    return [
        (0, packet("DEVA", struct.pack("<II", status, 0x80000003))),
        (1, packet("PING", b"abcd")),
        (2, packet("CRES", answer)),
        (3, packet("FRAG", pattern(MAX_WHOLE_PACKET - 8))),
        (0xFF, packet("IDEN")),
        (0x100, packet("IDEN")),
        (0xFEDCBA9876543210, packet("IDEN")),
    ]


def make_case(name, keys, welcome, status):
    device, server, device_ephemeral, relay_ephemeral = keys
    ss1 = ecdh(device_ephemeral, server)
    ss2 = ecdh(device, relay_ephemeral)
    assert ss1 == ecdh(server, device_ephemeral) and ss2 == ecdh(relay_ephemeral, device)

    k1 = extract(ss1)
    text, tag = encrypt(k1, bytes(12), public_bytes(device), b"ad:dev_pk")
    nhs1 = packet("NHS1", tag + public_bytes(device_ephemeral) + text + bytes(2))
    assert len(nhs1) == 156

    prk = extract(ss2 + ss1)
    session = {
        "tx_key": expand(prk, b"hop-tx"),
        "rx_key": expand(prk, b"hop-rx"),
        "nonce_salt": expand(prk, b"hop-nonce-salt"),
    }
    text, tag = encrypt(session["rx_key"], session["nonce_salt"][:12], welcome, b"ad:welcome")
    nhs2 = packet("NHS2", tag + public_bytes(relay_ephemeral) + bytes(7) + text)
    assert len(nhs2) == 96 + len(welcome)

    return {
        "name": name,
        "device_private_key": private_bytes(device),
        "device_public_key": public_bytes(device),
        "server_private_key": private_bytes(server),
        "server_public_key": public_bytes(server),
        "device_ephemeral_private_key": private_bytes(device_ephemeral),
        "device_ephemeral_public_key": public_bytes(device_ephemeral),
        "relay_ephemeral_private_key": private_bytes(relay_ephemeral),
        "relay_ephemeral_public_key": public_bytes(relay_ephemeral),
        "shared_secret_1": ss1,
        "shared_secret_2": ss2,
        "nhs1_key": k1,
        "nhs1": nhs1,
        "session_prk": prk,
        **session,
        "welcome": welcome,
        "nhs2": nhs2,
        "packets": [
            seal(session, "tx", counter, plain)
            for counter, plain in device_packets(public_bytes(device))
        ]
        + [seal(session, "rx", counter, plain) for counter, plain in relay_packets(status)],
    }


def keys_of(name):
    labels = ("device", "server", "device ephemeral", "relay ephemeral")
    return [key(f"{name}, {label}") for label in labels]


def keys_with_short_secrets(name):
    """Both shared secrets begin with a zero byte, which must not shorten them."""
    device, server, _, _ = keys_of(name)
    attempt = 0
    while True:
        device_ephemeral = key(f"{name}, device ephemeral {attempt}")
        if ecdh(device_ephemeral, server)[0] == 0:
            break
        attempt += 1
    while True:
        relay_ephemeral = key(f"{name}, relay ephemeral {attempt}")
        if ecdh(device, relay_ephemeral)[0] == 0:
            break
        attempt += 1
    return device, server, device_ephemeral, relay_ephemeral


def as_text(value):
    if isinstance(value, bytes):
        return value.hex()
    raise TypeError(type(value))


def main():
    shortest, longer = b"welcome", b"any text, which nobody reads"
    cases = [
        make_case("shortest welcome, registered", keys_of("first"), shortest, 0),
        make_case("longer welcome, isolated", keys_of("second"), longer, 1),
        make_case("leading zeroes", keys_with_short_secrets("third"), shortest, 0),
    ]
    json.dump({"cases": cases}, sys.stdout, indent=2, default=as_text)
    print()


if __name__ == "__main__":
    main()
