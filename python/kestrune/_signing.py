"""Signature blocks of short texts."""

from __future__ import annotations

import ctypes
import os
from dataclasses import dataclass
from typing import Optional, Union

from . import _library as library
from . import _texts
from ._errors import DamagedBlock, KestruneError, SignatureError, ensure, failure, refused
from ._texts import PassPhrase, PathText

_BLOCK_ROOM = 2048  # 1500 bytes hold the block of the largest key, 1100 every answer
_ANSWER_ROOM = 2048


@dataclass(frozen=True)
class SignedText:
    """What was signed, and by whom: `signer` is the certificate's name, NAME.LETTER.YEAR."""

    data: bytes
    signer: str

    @property
    def text(self) -> str:
        """The data as UTF-8; what is none shows as U+FFFD."""
        return self.data.decode(errors="replace")


def sign(
    data: Union[str, bytes],
    *,
    signer: str,
    keys: PathText,
    pass_phrase: Optional[PassPhrase] = None,
) -> str:
    """Signs a short text (245 bytes with a key of 2048 bits) with this year's key of `signer`; gives the block.

    The text itself is signed: never one of 64 bytes that somebody else chose, for that can be the digest of a message.
    `pass_phrase` is that of the key file, None when it has none.

    >>> block = kestrune.sign("Bonjour Docteur", signer="medecin", keys="keys")
    >>> block.startswith("<SIGN><N>medecin.")
    True
    """
    entry = "Api2GetSignatureXMLLight"
    text, name, folder = _texts.text(data, "text"), _texts.key_name(signer, "signer"), _texts.folder(keys)
    out = ctypes.create_string_buffer(_BLOCK_ROOM)
    with library.Secret(_texts.pass_phrase(pass_phrase or b"")) as secret:
        ensure(entry, library.c.Api2GetSignatureXMLLight(text, name, secret, folder, out))
    return os.fsdecode(out.value)


def verify(block: Union[str, bytes], *, keys: PathText, signer: Optional[str] = None) -> SignedText:
    """The text that a signature block carries; SignatureError, or UnknownSigner, when the signature does not hold.

    It is checked with the certificate that the block itself names. Whose signature you want says `signer`, a key's
    NAME; without it, look at the answer's `signer`.

    >>> block = kestrune.sign("Bonjour Docteur", signer="medecin", keys="keys")
    >>> kestrune.verify(block, keys="keys", signer="medecin").text
    'Bonjour Docteur'
    """
    entry = "Api2ExtractFromSignature"
    encoded = os.fsencode(block) if isinstance(block, str) else bytes(block)
    if b"\0" in encoded:
        raise refused("The signature block holds a zero byte.", "It is not a signature block.", DamagedBlock)
    out = ctypes.create_string_buffer(_ANSWER_ROOM)
    ensure(entry, library.c.Api2ExtractFromSignature(encoded, _texts.folder(keys), out, 0))
    # <ERR>0</ERR><N>NAME</N><DT>TEXT</DT>, with TEXT as it stands, tags in it too
    head, _, rest = out.value.partition(b"<DT>")
    name = head.partition(b"<N>")[2].rpartition(b"</N>")[0]
    if not rest.endswith(b"</DT>"):
        raise failure(entry, -96)
    if signer is not None and not library.c.kestrune_is_sender(name, signer.encode()):
        raise another_signer(os.fsdecode(name), signer)
    return SignedText(rest[: -len(b"</DT>")], os.fsdecode(name))


def another_signer(signer: str, sender: str, what: str = "text") -> KestruneError:
    return refused(
        f"The {what} is signed by {signer or 'nobody'}, not by {sender or 'the sender, who is not named'}.",
        "Show nothing of it under the sender's name.",
        SignatureError,
    )
