"""Who sent a block to whom: transport blocks checked, routings read."""

from __future__ import annotations

import base64
import ctypes
import os
from dataclasses import dataclass, replace
from datetime import datetime
from typing import Optional, Tuple

from . import _library as library
from . import _texts
from ._errors import DamagedBlock, ensure, refused
from ._signing import another_signer
from ._texts import Data, PathText

DATE_FORMAT = "%Y-%m-%d %H:%M:%S"
_DATE_CHARACTERS = 19


@dataclass(frozen=True)
class Routing:
    """What a routing says. Its values are the sender's own words."""

    sender: str
    reply_to: str
    to: Tuple[str, ...]  # of a grey block: all recipients, hidden ones too
    cc: Tuple[str, ...]
    subject: str
    date: Optional[datetime]  # the sender's local time, without a zone; None where it is no date
    identifier: str
    key: str  # the personal key that opens the message: NAME.YEAR, YEAR the calendar's less 1800
    xml: str
    signer: Optional[str] = None  # NAME.LETTER.YEAR, when a signature around it was checked and held


@dataclass(frozen=True)
class CheckedBlock:
    """A transport block whose signature holds."""

    signer: str
    grey: bytes
    routing: Routing


def check(block: Data, *, keys: PathText, any_signer: bool = False) -> CheckedBlock:
    """Checks a transport block's digests and its signature, and that its signer is the sender whom it names.

    SignatureError, or UnknownSigner, when the signature does not hold or the signer is somebody else; the latter is let
    pass with `any_signer`. DamagedBlock when the block is not as it was sent.

    >>> checked = kestrune.check(Path("message.block").read_bytes(), keys="keys")
    >>> checked.signer.startswith("medecin."), checked.routing.sender
    (True, 'medecin')
    """
    encoded = _texts.block(block)
    grey, signer = library.Handed(), ctypes.create_string_buffer(library.SIGNER_BYTES)
    ensure(
        "Api2ExtractGrisFromHTTPSBlock",
        library.c.Api2ExtractGrisFromHTTPSBlock(
            encoded, len(encoded), _texts.folder(keys), grey.pointer, grey.length, signer
        ),
    )
    name, content = os.fsdecode(signer.value), grey.take()
    routing = replace(parse(library.xml_of(content)), signer=name)  # its digest was looked at already
    if not any_signer and not is_sender(name, routing.sender):
        raise another_signer(name, routing.sender, "block")
    return CheckedBlock(name, content, routing)


def route(block: Data, *, keys: Optional[PathText] = None) -> Routing:
    """Whom a block is for. A transport block is checked as `check` does, with the certificates in `keys`; of a grey
    block, which has no signature, only the digest, and the routing's `signer` is None. No key opens anything.

    >>> kestrune.route(Path("message.block").read_bytes(), keys="keys").to
    ('dr.b@service.example',)
    """
    encoded = _texts.block(block)
    if library.c.kestrune_block_kind(encoded, len(encoded)) != library.TRANSPORT_BLOCK:
        return _grey_routing(encoded)
    if keys is None:
        raise refused("A transport block's routing is believed behind its signature only.", "Give the folder `keys`.")
    return check(encoded, keys=keys).routing


def to_grey(block: bytes, folder: PathText, any_signer: bool) -> Tuple[bytes, Optional[Routing]]:
    """The grey block of either kind, and its routing where a signature vouches for it."""
    kind = library.c.kestrune_block_kind(block, len(block))
    if kind == library.TRANSPORT_BLOCK:
        checked = check(block, keys=folder, any_signer=any_signer)
        return checked.grey, checked.routing
    if kind == library.GREY_BLOCK:
        return block, None
    raise refused("This is neither a transport block nor a grey block.", "Is it the file that was sent?", DamagedBlock)


def is_sender(signer: str, sender: str) -> bool:
    return bool(library.c.kestrune_is_sender(os.fsencode(signer), os.fsencode(sender)))


def _grey_routing(grey: bytes) -> Routing:
    xml = library.Handed()
    ensure("kestrune_grey_routing", library.c.kestrune_grey_routing(grey, len(grey), xml.pointer))
    return parse(xml.take_text())


def parse(xml: bytes) -> Routing:
    # Inside <M> alone, as the library makes the mail: a sender in front of it would be another than the mail's.
    record = _element(xml, "M")

    def value(tag: str) -> str:
        return os.fsdecode(_element(record, tag))

    try:
        subject = base64.b64decode(value("S")).decode(errors="replace")
    except ValueError:
        subject = ""
    return Routing(
        sender=value("F"),
        reply_to=value("R"),
        to=_addresses(value("D")),
        cc=_addresses(value("CC")),
        subject=subject,
        date=_date(value("TE")),
        identifier=value("I"),
        key=value("C"),
        xml=os.fsdecode(xml),
    )


def _element(xml: bytes, tag: str) -> bytes:
    """Of the first element of that name, what stands up to the first closing tag."""
    _, start, rest = xml.partition(b"<%s>" % tag.encode())
    found, end, _ = rest.partition(b"</%s>" % tag.encode())
    return found if start and end else b""


def _addresses(text: str) -> Tuple[str, ...]:
    return tuple(address.strip() for address in text.split(",") if address.strip())


def _date(text: str) -> Optional[datetime]:
    try:
        return datetime.strptime(text[:_DATE_CHARACTERS], DATE_FORMAT)
    except ValueError:
        return None
