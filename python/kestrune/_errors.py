"""What can go wrong, as exceptions."""

from __future__ import annotations

from typing import Dict, Tuple, Type

from . import _library as library


class KestruneError(Exception):
    """Something failed. Subclasses stand for what callers tell apart.

    code    the library's result code, negative; 0 when this package found the fault by itself
    name    its name, which says whose code it is: numbers have several meanings, names have one
    cause   what happened, a sentence
    remedy  what to do, a sentence

    >>> try:
    ...     kestrune.sign("Bonjour", signer="nobody", keys="keys")
    ... except kestrune.KestruneError as error:
    ...     print(type(error).__name__, error.code, error.name)
    KeyNotFound -103 signer::kNoKeyFile
    """

    def __init__(self, code: int, name: str, cause: str, remedy: str) -> None:
        super().__init__(code, name, cause, remedy)
        self.code, self.name, self.cause, self.remedy = code, name, cause, remedy

    def __str__(self) -> str:
        number = f" ({self.code}, {self.name})" if self.code else ""
        return f"{self.cause}{number} {self.remedy}".rstrip()


class InvalidArgument(KestruneError, ValueError):
    """An argument that cannot be meant: refused before anything was done."""


class SignatureError(KestruneError):
    """A signature is missing, does not hold, or is another's than the sender's."""


class UnknownSigner(SignatureError):
    """The folder has no certificate that can be read of whom the signature names."""


class WrongPassPhrase(KestruneError):
    """The pass phrase does not open the key, or the key is not the one that a short text was made for."""


class KeyNotFound(KestruneError):
    """A key, or the file with it, is not there or cannot be read."""


class DamagedBlock(KestruneError):
    """Not a block, or one that did not arrive as it was sent."""


class AttachmentError(KestruneError):
    """An attachment that cannot be sealed: nothing was."""


class DeadlineExceeded(KestruneError, TimeoutError):
    """Opening took longer than the deadline. Most likely the message was made so."""


# By name, since numbers repeat; a name that is not here is looked up by its subsystem.
_CLASSES: Dict[str, Type[KestruneError]] = {
    "verifier::kCertificate": UnknownSigner,
    "verifier::kFolder": InvalidArgument,
    "verifier": SignatureError,
    "signer::kWrongPassword": WrongPassPhrase,
    "key::kCheckFailed": WrongPassPhrase,
    "hybrid::kNoText": WrongPassPhrase,
    "signer::kNoKeyFile": KeyNotFound,
    "signer::kKeyUnreadable": KeyNotFound,
    "hybrid::kKeyUnreadable": KeyNotFound,
    "hybrid::kEncrypt": KeyNotFound,
    "file::kMissing": KeyNotFound,
    "file::kOpen": KeyNotFound,
    "hybrid::kBase64": DamagedBlock,
    "block": DamagedBlock,
}


def meaning(entry_point: str, code: int) -> Tuple[str, str, str]:
    """Name, cause and remedy of a code from a function of the library."""
    found = library.c.kestrune_code_find(entry_point.encode(), code, None)
    if not found:
        return "unknown", f"{entry_point} returned {code}.", ""
    words = found.contents
    return words.name.decode(), words.cause.decode(), words.remedy.decode()


def failure(entry_point: str, code: int) -> KestruneError:
    name, cause, remedy = meaning(entry_point, code)
    subsystem = name.partition("::")[0]
    kind = _CLASSES.get(name, _CLASSES.get(subsystem, KestruneError))
    return kind(code, name, cause, remedy)


def ensure(entry_point: str, code: int) -> None:
    if code != 0:
        raise failure(entry_point, code)


def refused(cause: str, remedy: str = "", kind: Type[KestruneError] = InvalidArgument) -> KestruneError:
    """What the package itself refuses."""
    return kind(0, kind.__name__, cause, remedy)
