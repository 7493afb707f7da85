"""Sealed and signed messages: the kestrune library.

Pass phrases are `bytes` or `bytearray`; the copies made of them are wiped, a bytearray is the caller's to wipe. Key
folders are paths, with or without the last separator. Any number of threads may call. What fails raises a
`KestruneError`; a signature that does not hold never just returns false.
"""

from . import _library
from ._errors import (
    AttachmentError,
    DamagedBlock,
    DeadlineExceeded,
    InvalidArgument,
    KestruneError,
    KeyNotFound,
    SignatureError,
    UnknownSigner,
    WrongPassPhrase,
)
from ._keys import Key, KeyKind, Pad, Protection, list_keys
from ._opening import Attachment, Message, Signature, Text, open_message, safe_name, to_mail
from ._routing import CheckedBlock, Routing, check, route
from ._sealing import SealedMessage, seal
from ._short_texts import decrypt, encrypt
from ._signing import SignedText, sign, verify
from ._version import __version__

__all__ = [
    "Attachment",
    "AttachmentError",
    "CheckedBlock",
    "DamagedBlock",
    "DeadlineExceeded",
    "InvalidArgument",
    "Key",
    "KeyKind",
    "KeyNotFound",
    "KestruneError",
    "Message",
    "Pad",
    "Protection",
    "Routing",
    "SealedMessage",
    "Signature",
    "SignatureError",
    "SignedText",
    "Text",
    "UnknownSigner",
    "WrongPassPhrase",
    "__version__",
    "check",
    "decrypt",
    "encrypt",
    "library_version",
    "list_keys",
    "open_message",
    "route",
    "safe_name",
    "seal",
    "sign",
    "to_mail",
    "verify",
]


def library_version() -> str:
    """The version of the shared library that runs.

    >>> kestrune.library_version() == kestrune.__version__
    True
    """
    return str(_library.c.kestrune_version().decode())
