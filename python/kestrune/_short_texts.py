"""Short texts under a pass phrase, or for the holder of a certificate."""

from __future__ import annotations

import base64
import contextlib
import ctypes
from typing import Iterator, Optional, Union

from . import _library as library
from . import _texts
from ._errors import DamagedBlock, ensure, failure, refused
from ._texts import PassPhrase, PathText

_ENCIPHER = 0
_HEX_PASSWORD = 64
_MOST_FOR_CERTIFICATE = 3743  # bytes; the library leaves a longer text out, without a word
_FORM_ROOM = 6500  # and the certificate's name
_TEXT_ROOM = 3745
_NO_TEXT = -503


def encrypt(
    text: Union[str, bytes],
    *,
    pass_phrase: Optional[PassPhrase] = None,
    to: Optional[str] = None,
    keys: Optional[PathText] = None,
) -> str:
    """Enciphers a short text under a pass phrase, or `to` the holder of a certificate (NAME.pem) in the folder `keys`.

    The form tells a reader nothing but how long the text is, but it is not protected against changes: sign what must
    not change. For a certificate the text has 3743 bytes at most.

    >>> form = kestrune.encrypt("rendez-vous a 9 h", pass_phrase=b"a_b_c_d")
    >>> kestrune.decrypt(form, pass_phrase=b"a_b_c_d")
    'rendez-vous a 9 h'
    """
    encoded = _texts.text(text, "text")
    if pass_phrase is not None and to is None and keys is None:
        room = 4 * ((len(encoded) + 18) // 3) + 64
        with _hex_password(pass_phrase) as key, library.Secret(room=room) as out:
            ensure("Api2Aes", library.c.Api2Aes(encoded, key, _ENCIPHER, out, 0))
            return out.value.decode()
    if pass_phrase is not None or to is None or keys is None:
        raise refused("Either a pass phrase, or `to` and `keys`.")
    if len(encoded) > _MOST_FOR_CERTIFICATE:
        raise refused(f"A text for a certificate has {_MOST_FOR_CERTIFICATE} bytes at most, this one {len(encoded)}.")
    name = _texts.key_name(to, "certificate's name") + b".pem"
    out = ctypes.create_string_buffer(_FORM_ROOM + len(name))
    ensure("Api2AesPub", library.c.Api2AesPub(encoded, name, _texts.folder(keys), out, 0))
    return out.value.decode()


def decrypt(
    form: Union[str, bytes],
    *,
    pass_phrase: Optional[PassPhrase] = None,
    keys: Optional[PathText] = None,
    encoding: str = "utf-8",
) -> str:
    """The text of a form of `encrypt`. With `keys`, by the private key beside the certificate that the form names;
    `pass_phrase` is then that key file's.

    Nothing in a form proves that it is whole, so a wrong pass phrase is told by what comes out: when that has not the
    zeros behind it that a text has, or is no text in `encoding`, WrongPassPhrase. Answer no strangers with it: whoever
    may try forms, and sees which are refused, can read a form that he caught.

    >>> form = kestrune.encrypt("code 1234", to="medecin", keys="keys")
    >>> kestrune.decrypt(form, keys="keys")
    'code 1234'
    """
    encoded = _texts.text(form, "form")
    if keys is None:
        if pass_phrase is None:
            raise refused("Either a pass phrase, or `keys`.")
        entry_point = "kestrune_decipher_text"
        _require(encoded, "IV", "AE")
        with _hex_password(pass_phrase) as key, library.Secret(room=len(encoded)) as out:
            ensure(entry_point, library.c.kestrune_decipher_text(encoded, key, out))
            deciphered = out.value
    else:
        entry_point = "kestrune_decipher_text_for_holder"
        _require(encoded, "S", "AED")
        with library.Secret(_texts.pass_phrase(pass_phrase or b"")) as secret, library.Secret(room=_TEXT_ROOM) as out:
            folder = _texts.folder(keys)
            ensure(entry_point, library.c.kestrune_decipher_text_for_holder(encoded, secret, folder, out))
            deciphered = out.value
    try:
        return deciphered.decode(encoding)
    except UnicodeDecodeError:
        raise failure(entry_point, _NO_TEXT) from None


@contextlib.contextmanager
def _hex_password(pass_phrase: PassPhrase) -> Iterator["ctypes.Array[ctypes.c_char]"]:
    with library.Secret(_texts.pass_phrase(pass_phrase)) as secret, library.Secret(room=_HEX_PASSWORD) as key:
        ensure("BuildHexPassword", library.c.BuildHexPassword(secret, key))
        yield key


def _require(form: bytes, *tags: str) -> None:
    """Elements that must be there and hold Base64 or hexadecimal digits: the library takes others for empty ones."""
    for tag in tags:
        value = form.partition(b"<%s>" % tag.encode())[2].partition(b"</%s>" % tag.encode())[0]
        try:
            is_whole = base64.b64decode(value, validate=True) != b""
        except ValueError:
            is_whole = False
        if not is_whole:
            raise refused(f"The element {tag} is missing or damaged.", "Is it a form of the other kind?", DamagedBlock)
