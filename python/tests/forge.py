"""Blocks that no honest sender makes, from their formats alone; the deciphering is openssl's."""

import datetime
import hashlib
import pathlib
import subprocess

PASS_PHRASE = b"a_b_c_d"
CHUNK = 4096


def flat(name, xml, data):
    """A flat tree of one cell."""
    head = bytes([2, 0, len(name)]) + name.ljust(5, b"\0") + len(xml).to_bytes(8, "big") + len(data).to_bytes(8, "big")
    cell = head + xml + data
    return cell + hashlib.sha512(cell).digest()


def deciphered(key, iv, data):
    command = ["openssl", "enc", "-d", "-aes-256-cbc", "-nopad", "-K", key.hex(), "-iv", iv.hex()]
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout


def trap(keys):
    """A grey block whose body, deciphered, ends before it begins."""
    year = datetime.date.today().year - 1800
    personal, master = (pathlib.Path(keys, f"{name}.{year}").read_bytes() for name in ("durand", "Master"))
    key = hashlib.sha512(PASS_PHRASE).digest()[:32]
    pads = int.from_bytes(personal[88:96], "big") + int.from_bytes(personal[96:104], "big")
    iv_bytes = (pads // CHUNK * 16 + CHUNK) // CHUNK * CHUNK
    iv = deciphered(key, bytes(16), personal[512 : 512 + iv_bytes])[:16]
    pad = deciphered(key, iv, personal[512 + iv_bytes :][:CHUNK])
    # Offsets of 0 in all pads, then one byte, the length of both random strings. All is masked from byte 16 on, and
    # nothing enciphered: 17 bytes are no whole blocks.
    green = bytes(16) + pad[16:24] + bytes([pad[24] ^ master[4608] ^ 5])
    return flat(b"DATA", b"<M><C>durand.%d</C><F>medecin</F></M>" % year, green)
