import pathlib
import sys

import pytest
from folder import PASS_PHRASE, ROOT, make

sys.path.append(str(ROOT / "python"))  # behind an installed one

import kestrune  # noqa: E402


@pytest.fixture(scope="session")
def kept(tmp_path_factory):
    folder = tmp_path_factory.mktemp("kept")
    make(folder)
    block = sealed("Voir la pièce jointe.", [("note.txt", b"a note")], keys=folder / "keys").block
    (folder / "message.block").write_bytes(block)
    return folder


@pytest.fixture(autouse=True)
def folder(kept, monkeypatch):
    monkeypatch.chdir(kept)
    return kept


@pytest.fixture(autouse=True)
def names(doctest_namespace):
    doctest_namespace.update(kestrune=kestrune, Path=pathlib.Path)


def sealed(text="Bonjour", attachments=(), **other):
    given = dict(user="durand", signer="medecin", pass_phrase=PASS_PHRASE, keys="keys", to="dr.b@service.example")
    return kestrune.seal(text, attachments, **{**given, "subject": "Bonjour", **other})


def opened(block, **other):
    return kestrune.open_message(block, **{"keys": "keys", "pass_phrase": PASS_PHRASE, **other})
