"""Throw-away keys and a sealed message in a folder, which becomes the current one."""

import datetime
import os
import pathlib
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KESTRUNE_BUILD", ROOT / "build/release")).resolve()
sys.path.append(str(ROOT / "python"))  # behind an installed one

import kestrune  # noqa: E402


def make_keys(folder):
    subprocess.run([BUILD / "examples/make_keys", f"{folder}/"], check=True, stdout=subprocess.DEVNULL)


@pytest.fixture(scope="session")
def kept(tmp_path_factory):
    folder = tmp_path_factory.mktemp("kept")
    keys = folder / "keys"
    make_keys(keys)
    make_keys(folder / "others")
    year = datetime.date.today().year - 1900
    for suffix in "key", "pem":  # another holder of a certificate; and one for the fixed name of the examples
        shutil.copy(folder / f"others/medecin.z.{year}.{suffix}", keys / f"martin.z.{year}.{suffix}")
        shutil.copy(keys / f"medecin.z.{year}.{suffix}", keys / f"medecin.{suffix}")
    (folder / "message.block").write_bytes(sealed("Voir la pièce jointe.", [("note.txt", b"a note")], keys=keys).block)
    return folder


@pytest.fixture(autouse=True)
def folder(kept, monkeypatch):
    monkeypatch.chdir(kept)
    return kept


@pytest.fixture(autouse=True)
def names(doctest_namespace):
    doctest_namespace.update(kestrune=kestrune, Path=pathlib.Path)


def sealed(text="Bonjour", attachments=(), **other):
    given = dict(user="durand", signer="medecin", pass_phrase=b"a_b_c_d", keys="keys", to="dr.b@service.example")
    return kestrune.seal(text, attachments, **{**given, "subject": "Bonjour", **other})


def opened(block, **other):
    return kestrune.open_message(block, **{"keys": "keys", "pass_phrase": b"a_b_c_d", **other})
