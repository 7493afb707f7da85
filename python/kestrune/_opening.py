"""Opening a message, and making a mail of it."""

from __future__ import annotations

import os
import re
import unicodedata
from dataclasses import dataclass, replace
from datetime import timedelta
from email.message import EmailMessage
from email.parser import BytesHeaderParser
from email.policy import compat32
from email.utils import format_datetime
from typing import Iterator, List, Optional, Sequence, Set, Tuple, Union

from . import _library as library
from . import _texts
from ._child import ChildFailed, open_in_child
from ._errors import DeadlineExceeded, KestruneError, SignatureError, UnknownSigner, ensure, meaning, refused
from ._routing import Routing, is_sender, parse, to_grey
from ._texts import Data, PassPhrase, PathText

DEADLINE = 30.0
_MOST_SECONDS = 1e6
_ENTRY = "kestrune_open_message"
_SIGNATURES = "Api2ExtractGrisFromHTTPSBlock"  # whose codes tell why a signature does not hold
_NO_CERTIFICATE = -106
_FIELDS_OF_PART = 5
_MOST_NAME_BYTES = 200
_MOST_SUFFIX = 16


@dataclass(frozen=True)
class Signature:
    """What the signature of a part says."""

    signer: str  # whom it names, NAME.LETTER.YEAR; proven only where it holds
    code: int  # 0: it holds; else the library's code
    by_sender: bool  # it holds, and the signer is the message's sender

    @property
    def holds(self) -> bool:
        return self.code == 0

    @property
    def problem(self) -> str:
        """Why it is not the sender's; empty when it is."""
        if not self.holds:
            return meaning(_SIGNATURES, self.code)[1]
        return "" if self.by_sender else f"It is signed by {self.signer}, who is not the sender."


@dataclass(frozen=True)
class Text:
    """A text of a message, as UTF-8; what is none shows as U+FFFD."""

    text: str
    data: bytes
    signature: Signature


@dataclass(frozen=True)
class Attachment:
    """An attachment. `name` is the sender's and may be a path; write to `safe_name`, which no other one of it has."""

    name: str
    safe_name: str
    data: bytes
    signature: Signature


@dataclass(frozen=True)
class Message:
    """An opened message. `verified`: every signature holds and is the sender's, that of the whole too."""

    routing: Routing
    texts: Tuple[Text, ...]
    attachments: Tuple[Attachment, ...]
    signature: Signature  # of the whole: routing, texts and attachments, their names too
    problems: Tuple[str, ...]  # a line for each signature that is not the sender's

    @property
    def text(self) -> str:
        """All its texts, an empty line between two."""
        return "\n\n".join(part.text for part in self.texts)

    @property
    def verified(self) -> bool:
        return not self.problems


def open_message(
    block: Data,
    *,
    keys: PathText,
    pass_phrase: PassPhrase,
    deadline: Union[float, timedelta] = DEADLINE,
    accept_unverified: bool = False,
) -> Message:
    """Opens a transport or a grey block with the personal key that it names, and checks every signature in it.

    SignatureError when one is missing, does not hold or is not the sender's; with `accept_unverified` the message comes
    out nevertheless, and each part's `signature` says what is wrong. A transport block is checked before, as `check`
    does, and its signature must hold in any case. The opening runs in a process of its own, for a message can be made so
    that it never ends: DeadlineExceeded after `deadline` seconds.

    >>> block = Path("message.block").read_bytes()
    >>> message = kestrune.open_message(block, keys="keys", pass_phrase=b"a_b_c_d")
    >>> message.routing.subject, message.text, [part.safe_name for part in message.attachments]
    ('Bonjour', 'Voir la pièce jointe.', ['note.txt'])
    """
    folder = _texts.folder(keys)
    secret = _texts.pass_phrase(pass_phrase)
    seconds = deadline.total_seconds() if isinstance(deadline, timedelta) else float(deadline)
    if not 0 < seconds < _MOST_SECONDS:
        raise refused("The deadline is no time to come, or none at all.")
    grey, outer = to_grey(_texts.block(block), keys, accept_unverified)
    try:
        code, *fields = open_in_child(grey, folder, secret, seconds)
    except TimeoutError:
        cause = f"The message was not open after {seconds:g} s."
        remedy = "If others open in that time, it was made to hold you up; else allow more."
        raise refused(cause, remedy, DeadlineExceeded) from None
    except (ChildFailed, OSError) as error:
        raise refused(f"The process that opens the message failed: {error}.", "", KestruneError) from error
    ensure(_ENTRY, int(code))
    message = _message(fields, outer)
    if message.problems and not accept_unverified:
        unknown = message.signature.code == _NO_CERTIFICATE
        raise refused(" ".join(message.problems), "Show nothing of it.", UnknownSigner if unknown else SignatureError)
    return message


def to_mail(
    block: Union[Data, Message],
    *,
    keys: PathText = "",
    pass_phrase: PassPhrase = b"",
    deadline: Union[float, timedelta] = DEADLINE,
    accept_unverified: bool = False,
) -> EmailMessage:
    """An Internet mail of a message: of an opened one, or of a block, which is opened first as `open_message` does.

    Addresses are those of the service's gateway. Attachments have their safe names, and the date has no zone, since the
    routing does not tell it.

    >>> block = Path("message.block").read_bytes()
    >>> mail = kestrune.to_mail(block, keys="keys", pass_phrase=b"a_b_c_d")
    >>> mail["Subject"], mail.get_body().get_content().strip()
    ('Bonjour', 'Voir la pièce jointe.')
    """
    if isinstance(block, Message):
        message = block
    else:
        message = open_message(
            block, keys=keys, pass_phrase=pass_phrase, deadline=deadline, accept_unverified=accept_unverified
        )
    mail = EmailMessage()
    for name, value in _address_headers(message.routing):
        mail[name] = value
    if message.routing.date is not None:
        mail["Date"] = format_datetime(message.routing.date)
    mail["Subject"] = _without_controls(message.routing.subject)
    mail.set_content(message.text)
    for part in message.attachments:
        mail.add_attachment(part.data, maintype="application", subtype="octet-stream", filename=part.safe_name)
    return mail


def _address_headers(routing: Routing) -> Iterator[Tuple[str, str]]:
    """The library's headers of a routing, but for those that it writes in its own way."""
    header = library.Handed()
    code = library.c.getHeaderMimeFromRoutXML(os.fsencode(routing.xml), header.pointer)
    if code == -69:
        return  # kept so by the library: a routing that cannot be read makes no headers, but a mail
    ensure("getHeaderMimeFromRoutXML", code)
    for name, value in BytesHeaderParser(policy=compat32).parsebytes(header.take_text()).items():
        if name not in ("Date", "Subject") and str(value).strip():
            yield name, _without_controls(re.sub(r"\r\n ", "", str(value)))


# ---- From the child's answer ------------------------------------------------------------------------


def _message(fields: Sequence[bytes], outer: Optional[Routing]) -> Message:
    routing = parse(fields[0])
    if outer is not None:
        routing = replace(routing, signer=outer.signer)
    # A message with ready recipients may name no sender: then whom the block's signature vouches for.
    sender = routing.sender or (outer.sender if outer is not None else "")
    texts: List[Text] = []
    attachments: List[Attachment] = []
    problems: List[str] = []
    taken: Set[str] = set()
    whole = Signature("", -76, False)
    for at in range(1, len(fields), _FIELDS_OF_PART):
        kind, code, signer, name, data = fields[at : at + _FIELDS_OF_PART]
        signature = _signature(int(code), os.fsdecode(signer), sender)
        what = "The message"
        if kind == b"red":
            whole = signature
        elif kind == b"text":
            texts.append(Text(data.decode(errors="replace"), data, signature))
            what = f"Text {len(texts)}"
        else:
            shown = name.decode(errors="replace")
            attachments.append(Attachment(shown, safe_name(shown, taken), data, signature))
            what = f"Attachment {shown!r}"
        if signature.problem:
            problems.append(f"{what}: {signature.problem}")
    if outer is not None and sender != outer.sender:
        problems.append(f"Inside, the sender is {sender!r}, outside {outer.sender!r}.")
    elif outer is not None and not is_sender(outer.signer or "", sender):
        problems.append(f"The block is signed by {outer.signer}, who is not the sender.")
    return Message(routing, tuple(texts), tuple(attachments), whole, tuple(problems))


def _signature(code: int, signer: str, sender: str) -> Signature:
    return Signature(signer, code, code == 0 and is_sender(signer, sender))


# ---- Names of attachments ---------------------------------------------------------------------------

_RESERVED = re.compile(r"(?i)(con|prn|aux|nul|com\d|lpt\d)(\.|$)")
_NO_NAME = "attachment"


def safe_name(name: str, taken: Optional[Set[str]] = None) -> str:
    """A file name out of one that a stranger chose: no path, no control or invisible character, not hidden, none that
    another system reserves, 200 bytes at most; and none of `taken`, to which it is added.

    >>> kestrune.safe_name("../../.profile"), kestrune.safe_name("a\\nb\\u202egpj.exe"), kestrune.safe_name("..")
    ('profile', 'a_b_gpj.exe', 'attachment')
    """
    last = re.split(r"[/\\]", name)[-1]
    shown = "".join("_" if unicodedata.category(c)[0] == "C" or c in '<>:"|?*' else c for c in last)
    shown = unicodedata.normalize("NFC", shown).strip(" .").lstrip("- .") or _NO_NAME
    if _RESERVED.match(shown):
        shown = "_" + shown
    stem, dot, suffix = shown.rpartition(".")
    if not dot or len(suffix) > _MOST_SUFFIX:
        stem, suffix = shown, ""
    end = "." + suffix if suffix else ""
    taken = set() if taken is None else taken
    number, result = 1, _fitting(stem, end)
    while result.casefold() in taken:
        number += 1
        result = _fitting(stem, f" ({number}){end}")
    taken.add(result.casefold())
    return result


def _fitting(stem: str, end: str) -> str:
    room = _MOST_NAME_BYTES - len(end.encode())
    return stem.encode()[:room].decode(errors="ignore") + end


def _without_controls(text: str) -> str:
    return "".join(" " if unicodedata.category(c) == "Cc" else c for c in text)
