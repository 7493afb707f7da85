"""What lies in a key folder."""

from __future__ import annotations

import ctypes
import enum
import os
from dataclasses import dataclass
from pathlib import Path
from typing import Optional, Tuple

from . import _library as library
from . import _texts
from ._errors import KestruneError, ensure, failure
from ._texts import PathText


class KeyKind(enum.Enum):
    PERSONAL = 1
    MASTER = 2
    SIGNING = 3
    CERTIFICATE = 4


class Protection(enum.Enum):
    NONE = 0
    PASS_PHRASE = 1
    UNREADABLE = 2  # by a way that the library does not read


@dataclass(frozen=True)
class Pad:
    """A pad of a personal or master key: its bytes, the next unused one, and how often it began again."""

    size: int
    used: int
    turns: int


@dataclass(frozen=True)
class Key:
    """A file of a key folder."""

    kind: KeyKind
    path: Path
    name: str
    year: Optional[int]  # of the calendar
    letter: Optional[str]  # of signing keys and certificates
    problem: Optional[KestruneError]  # None: its reader takes it
    protection: Protection  # of signing keys
    pads: Tuple[Pad, ...]


def list_keys(keys: PathText) -> Tuple[Key, ...]:
    """The keys and certificates of a folder, sorted by file name. Nothing is opened with a pass phrase, nor locked.

    >>> [(key.name, key.kind.name, key.pads[0].turns) for key in kestrune.list_keys("keys") if key.pads]
    [('Master', 'MASTER', 0), ('durand', 'PERSONAL', 0)]
    """
    found = ctypes.POINTER(library.KeyFolder)()
    ensure("kestrune_list_keys", library.c.kestrune_list_keys(_texts.folder(keys), ctypes.byref(found)))
    try:
        return tuple(_key(Path(keys), found.contents.key[i]) for i in range(found.contents.keys))
    finally:
        library.c.kestrune_free_key_folder(found)


_READERS = {
    KeyKind.PERSONAL: "Api2CrypterMem",
    KeyKind.MASTER: "Api2CrypterMem",
    KeyKind.SIGNING: "Api2GetSignatureXMLLight",
    KeyKind.CERTIFICATE: "Api2ExtractFromSignature",
}


def _key(folder: Path, key: library.Key) -> Key:
    kind = KeyKind(key.kind)
    pads = zip(key.pad, key.used, key.turns)
    return Key(
        kind=kind,
        path=folder / os.fsdecode(key.file),
        name=os.fsdecode(key.name),
        year=key.year or None,
        letter=key.letter.rstrip(b"\0").decode() or None,
        problem=failure(_READERS[kind], key.state) if key.state else None,
        protection=Protection(key.protection),
        pads=tuple(Pad(*pad) for pad in pads if pad[0]),
    )
