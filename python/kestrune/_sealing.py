"""Sealing a message."""

from __future__ import annotations

import base64
import contextlib
import ctypes
import os
import stat
import tempfile
from dataclasses import dataclass
from datetime import datetime
from pathlib import Path
from typing import Iterator, List, Optional, Sequence, Tuple, Union

from . import _library as library
from . import _texts
from ._errors import AttachmentError, ensure, refused
from ._routing import DATE_FORMAT
from ._texts import PassPhrase, PathText

MOST_ATTACHMENTS = 99
MOST_ATTACHMENT_BYTES = 1_000_000
_MOST_PATH_BYTES = 255
_SEPARATOR = "|"
_IDENTIFIER_BYTES = 128
_NO_PASS_PHRASE = b"none"  # an empty one is refused, and a key without one takes any

Attachment = Union[PathText, Tuple[str, bytes]]


@dataclass(frozen=True)
class SealedMessage:
    """A transport block, and the identifier that the message has inside it, too."""

    block: bytes
    identifier: str


def seal(
    text: Union[str, bytes] = "",
    attachments: Sequence[Attachment] = (),
    *,
    user: str,
    signer: str,
    pass_phrase: PassPhrase,
    signing_pass_phrase: Optional[PassPhrase] = None,
    keys: PathText,
    to: Union[str, Sequence[str]],
    cc: Union[str, Sequence[str]] = (),
    bcc: Union[str, Sequence[str]] = (),
    reply_to: Optional[str] = None,
    subject: str = "",
    date: Optional[datetime] = None,
) -> SealedMessage:
    """Seals a message for the holder of the personal key `user`, and signs it with this year's key of `signer`.

    `pass_phrase` is the personal key's, `signing_pass_phrase` the signing key's, None when it has none. An attachment
    is a path, or a name with its bytes: 99 at most, of 1,000,000 bytes each; one that cannot be sealed raises
    AttachmentError, none is ever left out. `date` is the moment of sending, now when it is None; one with a zone is
    told in local time. Pad bytes of both keys are used up, as many as the message has, also by a wrong pass phrase.

    >>> sealed = kestrune.seal(
    ...     "Bonjour", [("note.txt", b"a note")],
    ...     user="durand", signer="medecin", pass_phrase=b"a_b_c_d", keys="keys",
    ...     to=["dr.b@service.example"], subject="Bonjour")
    >>> kestrune.check(sealed.block, keys="keys").routing.identifier == sealed.identifier
    True
    """
    body = _texts.text(text, "text")
    if not body and not attachments:
        raise refused("The message has neither text nor attachments.")
    lists = [_recipients(names, what) for names, what in ((to, "to"), (cc, "cc"), (bcc, "bcc"))]
    if not any(lists):
        raise refused("The message has no recipient.")
    names = [_texts.key_name(user, "user"), _texts.key_name(signer, "signer")]
    sender = _texts.routing_value(reply_to, "reply-to address") if reply_to else names[1]
    title = _texts.text(subject, "subject")
    moment = _moment(date).encode()
    folder = _texts.folder(keys)
    block, identifier = library.Handed(), ctypes.create_string_buffer(_IDENTIFIER_BYTES)
    signing = _texts.pass_phrase(signing_pass_phrase or _NO_PASS_PHRASE)
    with _offered(attachments) as offered, library.Secret(_texts.pass_phrase(pass_phrase)) as secret:
        # The library may write into the signing pass phrase: it is a copy.
        with library.Secret(signing) as signing_secret:
            ensure(
                "Api2CrypterMem",
                library.c.Api2CrypterMem(
                    body, offered.paths, *names, secret, signing_secret, folder, *lists, sender, title, moment,
                    block.pointer, block.length, identifier, 0,
                ),
            )  # fmt: skip
    sealed = block.take()
    if len(sealed) < _least_length(sealed, body, offered.sizes, lists):
        remedy = "Is there memory, and a free file descriptor?"
        raise refused("The library left an attachment out.", remedy, AttachmentError)
    return SealedMessage(sealed, os.fsdecode(identifier.value))


def _recipients(names: Union[str, Sequence[str]], what: str) -> bytes:
    each = (names,) if isinstance(names, str) else names
    return b",".join(_texts.routing_value(name, f"{what} address", also_refused=",") for name in each if name)


def _moment(date: Optional[datetime]) -> str:
    if date is None:
        date = datetime.now()
    elif date.tzinfo is not None:
        date = date.astimezone()
    return date.strftime(DATE_FORMAT)


# ---- Attachments ------------------------------------------------------------------------------------
#
# The library takes paths, leaves out without a word what it cannot read, and splits them at '|'. So each attachment is
# read here, into a file without a name, which cannot vanish or grow; the library finds it by a link with its name.


@dataclass
class _Offered:
    paths: bytes
    sizes: List[Tuple[int, int]]  # of each attachment: its name in Base64, its bytes


@contextlib.contextmanager
def _offered(attachments: Sequence[Attachment]) -> Iterator[_Offered]:
    if len(attachments) > MOST_ATTACHMENTS:
        raise refused(f"{len(attachments)} attachments are more than {MOST_ATTACHMENTS}.", "", AttachmentError)
    if not attachments:
        yield _Offered(b"", [])
        return
    with contextlib.ExitStack() as ends:
        folder = Path(ends.enter_context(tempfile.TemporaryDirectory(prefix="kestrune-")))
        if _SEPARATOR in str(folder):
            raise refused(f"The folder for temporary files {str(folder)!r} holds a {_SEPARATOR!r}.", "Set TMPDIR.")
        paths, sizes = [], []
        for number, attachment in enumerate(attachments):
            name, content = attachment if isinstance(attachment, tuple) else _read(attachment)
            link = folder / str(number) / _file_name(name)
            _check_attachment(name, content, link)
            descriptor = os.memfd_create("attachment")
            ends.callback(os.close, descriptor)
            with open(descriptor, "wb", closefd=False) as file:
                file.write(content)
            link.parent.mkdir()
            link.symlink_to(f"/proc/self/fd/{descriptor}")
            paths.append(os.fsencode(link))
            sizes.append((len(base64.b64encode(os.fsencode(name))), len(content)))
        yield _Offered(_SEPARATOR.encode().join(paths), sizes)


def _read(path: PathText) -> Tuple[str, bytes]:
    try:
        # A pipe would make the opening wait.
        with open(path, "rb", opener=lambda name, flags: os.open(name, flags | os.O_NONBLOCK)) as file:
            if not stat.S_ISREG(os.fstat(file.fileno()).st_mode):
                raise OSError("it is no regular file")
            return Path(path).name, file.read(MOST_ATTACHMENT_BYTES + 1)
    except OSError as error:
        reason = error.strerror or error
        raise refused(f"The attachment {os.fspath(path)!r} cannot be read: {reason}.", "", AttachmentError) from error


def _file_name(name: str) -> str:
    if name in ("", ".", "..") or any(character in name for character in "/\0" + _SEPARATOR):
        raise refused(f"{name!r} is no name for an attachment.", "Give it another, with its bytes.", AttachmentError)
    return name


def _check_attachment(name: str, content: bytes, link: Path) -> None:
    if len(content) > MOST_ATTACHMENT_BYTES:
        raise refused(f"The attachment {name!r} has more than {MOST_ATTACHMENT_BYTES:,} bytes.", "", AttachmentError)
    if len(os.fsencode(link)) > _MOST_PATH_BYTES:
        raise refused(f"The name of the attachment {name!r} is too long.", "Give it a shorter one.", AttachmentError)


_HEADER = library.HEADER_BYTES
_TRAILER = 64  # of a flat block
_LEAST_SEALING = 24 + 15 + 33  # what enciphering adds


def _least_length(block: bytes, text: bytes, attachments: List[Tuple[int, int]], lists: List[bytes]) -> int:
    """The length below which something is missing. Each part has a signature as long as the block's own, so even an
    empty attachment weighs more than the random strings that are left out of the account."""
    signature = len(library.xml_of(block))
    routing = len(library.xml_of(block, _HEADER + signature))
    inner_routing = routing - len(b",".join(filter(None, lists))) + len(lists[0]) + len(lists[1]) + len("<CC></CC>")
    tree = 2 * _HEADER + inner_routing + (_HEADER + signature + len(text))
    tree += sum(_HEADER + len("<AT><N></N></AT>") + name + signature + size for name, size in attachments)
    layers = 2 * (_HEADER + signature) + (_HEADER + routing) + 4 * _TRAILER
    return tree + layers + _LEAST_SEALING
