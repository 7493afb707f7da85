"""The shared library's C face. Nothing above this module sees a pointer, and a child process imports it alone."""

from __future__ import annotations

import ctypes
from ctypes import POINTER, Structure, c_char, c_char_p, c_int, c_long, c_size_t, c_ulonglong, c_void_p

TYPE_CHECKING = False  # at run time nothing here needs `typing`, which a child would load for longer than all else
if TYPE_CHECKING:
    from typing import Any, Dict, Iterator, Tuple

    from ._texts import Data

SONAME = "libkestrune.so.2"
OLDEST = "2.3"
SIGNER_BYTES = 49
HEADER_BYTES = 24  # of a cell of a block
TRANSPORT_BLOCK, GREY_BLOCK = 1, 2


class Part(Structure):
    _fields_ = [
        ("data", c_void_p),
        ("length", c_ulonglong),
        ("name", c_char_p),
        ("signature", c_long),
        ("by_sender", c_int),
        ("signer", c_char * SIGNER_BYTES),
    ]


class Message(Structure):
    _fields_ = [
        ("routing", c_char_p),
        ("red", Part),
        ("texts", c_ulonglong),
        ("text", POINTER(Part)),
        ("attachments", c_ulonglong),
        ("attachment", POINTER(Part)),
    ]


class Key(Structure):
    _fields_ = [
        ("kind", c_int),
        ("file", c_char_p),
        ("name", c_char_p),
        ("year", c_int),
        ("letter", c_char),
        ("state", c_long),
        ("protection", c_int),
        ("pad", c_ulonglong * 2),
        ("used", c_ulonglong * 2),
        ("turns", c_ulonglong * 2),
    ]


class KeyFolder(Structure):
    _fields_ = [("keys", c_ulonglong), ("key", POINTER(Key))]


class CodeMeaning(Structure):
    _fields_ = [
        ("code", c_long),
        ("name", c_char_p),
        ("subsystem", c_char_p),
        ("cause", c_char_p),
        ("remedy", c_char_p),
    ]


_OUT = POINTER(c_void_p)  # a buffer or an object that the library hands out
_LENGTH = POINTER(c_ulonglong)
_BYTES = (c_char_p, c_ulonglong)  # c_char_p passes the bytes themselves, zeros among them too
_PROTOTYPES: Dict[str, Tuple[Any, ...]] = {
    "kestrune_version": (c_char_p,),
    "kestrune_use_system_random": (None,),
    "kestrune_code_find": (POINTER(CodeMeaning), c_char_p, c_long, c_char_p),
    "BuildHexPassword": (c_int, c_void_p, c_void_p),
    "Api2GetSignatureXMLLight": (c_int, c_char_p, c_char_p, c_void_p, c_char_p, c_void_p),
    "Api2ExtractFromSignature": (c_int, c_char_p, c_char_p, c_void_p, c_long),
    "Api2Aes": (c_int, c_char_p, c_char_p, c_int, c_void_p, c_int),
    "Api2AesPub": (c_int, c_char_p, c_char_p, c_char_p, c_void_p, c_int),
    "kestrune_decipher_text": (c_int, c_char_p, c_char_p, c_void_p),
    "kestrune_decipher_text_for_holder": (c_int, c_char_p, c_void_p, c_char_p, c_void_p),
    "Api2CrypterMem": (c_long, *[c_char_p] * 4, c_void_p, c_void_p, *[c_char_p] * 7, _OUT, _LENGTH, c_void_p, c_long),
    "Api2ExtractGrisFromHTTPSBlock": (c_long, *_BYTES, c_char_p, _OUT, _LENGTH, c_void_p),
    "kestrune_block_kind": (c_int, *_BYTES),
    "kestrune_grey_routing": (c_long, *_BYTES, _OUT),
    "kestrune_open_message": (c_long, *_BYTES, c_char_p, c_void_p, POINTER(POINTER(Message))),
    "kestrune_free_message": (None, POINTER(Message)),
    "kestrune_is_sender": (c_int, c_char_p, c_char_p),
    "kestrune_list_keys": (c_long, c_char_p, POINTER(POINTER(KeyFolder))),
    "kestrune_free_key_folder": (None, POINTER(KeyFolder)),
    "getHeaderMimeFromRoutXML": (c_int, c_char_p, _OUT),
}


def _load() -> Any:
    library = ctypes.CDLL(SONAME)
    try:
        for name, (result, *arguments) in _PROTOTYPES.items():
            function = getattr(library, name)
            function.restype = result
            function.argtypes = arguments
    except AttributeError as missing:
        raise ImportError(f"{SONAME} is older than {OLDEST}: {missing}") from None
    # Before any thread draws: rand() would give each process the same keys in the same order.
    library.kestrune_use_system_random()
    return library


c: Any = _load()
_libc: Any = ctypes.CDLL(None)
_free: Any = _libc.free
_free.restype, _free.argtypes = None, [c_void_p]
_libc.malloc.restype, _libc.malloc.argtypes = c_void_p, [c_size_t]
# Freed once, a buffer of this size has malloc keep as much: else it gives a message's memory back to the system several
# times while it is sealed, and the page faults take a tenth of the time.
_free(_libc.malloc(8 << 20))


class Secret:
    """A zero-terminated copy of a pass phrase, or room for a secret text, wiped at the end of a `with`."""

    def __init__(self, content: Data = b"", room: int = 0) -> None:
        size = max(len(content), room) + 1
        self._buffer = (c_char * size)()
        memoryview(self._buffer).cast("B")[: len(content)] = content

    def __enter__(self) -> "ctypes.Array[c_char]":
        return self._buffer

    def __exit__(self, *_: object) -> None:
        wipe(self._buffer)


def wipe(buffer: Any) -> None:
    ctypes.memset(buffer, 0, ctypes.sizeof(buffer))


def xml_of(block: bytes, cell: int = 0) -> bytes:
    """The XML of the first cell of an intact block, or of the cell that begins at `cell`."""
    begin = cell + HEADER_BYTES
    return block[begin : begin + int.from_bytes(block[cell + 8 : cell + 16], "big")]


class Handed:
    """A buffer that the library hands out: copied, wiped and freed."""

    def __init__(self) -> None:
        self.pointer = c_void_p()
        self.length = c_ulonglong()

    def take(self) -> bytes:
        return self._copy(self.length.value)

    def take_text(self) -> bytes:
        return self._copy(len(ctypes.cast(self.pointer, c_char_p).value or b""))

    def _copy(self, length: int) -> bytes:
        if not self.pointer:
            return b""
        try:
            return ctypes.string_at(self.pointer, length)
        finally:
            ctypes.memset(self.pointer, 0, length)
            _free(self.pointer)


def open_message(grey: Any, folder: bytes, pass_phrase: Data) -> Iterator[Any]:
    """Opens a grey block, which may never return. Yields the code, then the routing, then five fields for each part:
    `red`, `text` or `attachment`, then the code of its signature, its signer, its name, its bytes. What is yielded is
    the library's own memory, gone at the end."""
    message = POINTER(Message)()
    with Secret(pass_phrase) as secret:
        code = c.kestrune_open_message(grey, len(grey), folder, secret, ctypes.byref(message))
    yield b"%d" % code
    if code != 0:
        return
    try:
        opened = message.contents
        yield opened.routing
        yield from _part(b"red", opened.red)
        for i in range(opened.texts):
            yield from _part(b"text", opened.text[i])
        for i in range(opened.attachments):
            yield from _part(b"attachment", opened.attachment[i])
    finally:
        c.kestrune_free_message(message)


def _part(kind: bytes, part: Any) -> Iterator[Any]:
    yield from (kind, b"%d" % part.signature, part.signer, part.name or b"")
    yield (c_char * part.length).from_address(part.data)
