"""Arguments on their way into the library: texts without zeros, folders with their separator."""

from __future__ import annotations

import os
import re
from typing import Union

from ._errors import refused

Data = Union[bytes, bytearray, memoryview]
PathText = Union[str, "os.PathLike[str]"]
PassPhrase = Union[bytes, bytearray]

# Ends, or opens, an element of the routing XML, in which nothing is escaped; or a line of the mail.
_NO_ROUTING_VALUE = re.compile(r"[<>\x00-\x1f\x7f]")


def text(value: Union[str, bytes], what: str) -> bytes:
    """As the library takes it: it would take the first zero for the end."""
    encoded = value.encode() if isinstance(value, str) else bytes(value)
    if b"\0" in encoded:
        raise refused(f"The {what} holds a zero byte.", "Take it out; an attachment may hold any bytes.")
    return encoded


def routing_value(value: str, what: str, also_refused: str = "") -> bytes:
    found = _NO_ROUTING_VALUE.search(value)
    if found or any(character in value for character in also_refused):
        raise refused(f"The {what} {value!r} holds a character that cannot stand there.")
    return value.encode()


def key_name(value: str, what: str) -> bytes:
    if not value:
        raise refused(f"The {what} is empty.")
    return routing_value(value, what, also_refused="/")


def folder(path: PathText) -> bytes:
    """A prefix: with its last separator."""
    return text(os.fsencode(os.path.join(path, "")), "key folder")


def pass_phrase(value: PassPhrase, what: str = "pass phrase") -> PassPhrase:
    if not isinstance(value, (bytes, bytearray)):
        raise TypeError(f"a {what} is bytes or a bytearray, which can be wiped")
    if 0 in value:
        raise refused(f"The {what} holds a zero byte.")
    return value


def block(value: Data) -> bytes:
    return value if isinstance(value, bytes) else bytes(value)
