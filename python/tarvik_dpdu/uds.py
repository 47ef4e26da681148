"""The few things that a link has to know about UDS."""

from typing import List

from .base_link import ExpectedResponse

_POSITIVE_OFFSET = 0x40
_NEGATIVE_RESPONSE = 0x7F
_SUPPRESS_BIT = 0x80

# The services whose second byte is a sub-function.
_WITH_SUB_FUNCTION = frozenset(
    (0x10, 0x11, 0x19, 0x27, 0x28, 0x29, 0x2C, 0x31, 0x3E, 0x83, 0x85, 0x86, 0x87)
)


def is_suppressed(request: bytes) -> bool:
    """True if the request asks for no positive response: bit 0x80 of its sub-function."""
    return (
        len(request) >= 2 and request[0] in _WITH_SUB_FUNCTION and bool(request[1] & _SUPPRESS_BIT)
    )


def responses_to(request: bytes) -> List[ExpectedResponse]:
    """The positive and the negative response to a request, by their service bytes.

    The positive one is first: some libraries mask the pattern with the response as well.
    """
    service = request[0]
    positive = (service + _POSITIVE_OFFSET) & 0xFF
    return [
        ExpectedResponse(bytes([positive]), b"\xff"),
        ExpectedResponse(bytes([_NEGATIVE_RESPONSE, service]), b"\xff\xff", is_negative=True),
    ]
