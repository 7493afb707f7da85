"""A folder to try things in: throw-away keys, and messages that no honest program makes."""

import datetime
import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KESTRUNE_BUILD", ROOT / "build/release")).resolve()
YEAR = datetime.date.today().year - 1900  # as certificates have it
PASS_PHRASE = b"a_b_c_d"


def make(folder):
    keys = folder / "keys"
    for name in "keys", "others":
        subprocess.run([BUILD / "examples/make_keys", f"{folder / name}/"], check=True, stdout=subprocess.DEVNULL)
    for suffix in "key", "pem":  # another holder of a certificate; and one whose name has no year
        shutil.copy(folder / f"others/medecin.z.{YEAR}.{suffix}", keys / f"intrus.z.{YEAR}.{suffix}")
        shutil.copy(keys / f"medecin.z.{YEAR}.{suffix}", keys / f"medecin.{suffix}")
    subprocess.run([BUILD / "tests/cli/forge", keys], check=True)
