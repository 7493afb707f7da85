"""A relay: workers check, route and open messages, among them a damaged one and one that never opens.

    relay.py [MESSAGES [WORKERS]]        (KESTRUNE_BUILD: the build folder)
"""

import collections
import concurrent.futures
import pathlib
import sys
import tempfile
import time

import kestrune
from folder import PASS_PHRASE, make


def made(folder, messages):
    names = dict(user="durand", signer="medecin", to=["dr.b@service.example"], pass_phrase=PASS_PHRASE, keys=folder / "keys")
    blocks = [
        kestrune.seal(f"Message {number}", [("note.txt", b"%d" % number)], subject=str(number), **names).block
        for number in range(messages - 1)
    ]
    middle = len(blocks) // 2
    blocks[middle] = blocks[middle][:-1] + bytes([blocks[middle][-1] ^ 1])
    return [*blocks[:middle], (folder / "trap.grey").read_bytes(), *blocks[middle:]]


def handle(block, keys, deadline):
    try:
        routing = kestrune.route(block, keys=keys)
        message = kestrune.open_message(block, keys=keys, pass_phrase=PASS_PHRASE, deadline=deadline)
        whole = message.routing.identifier == routing.identifier and message.text == f"Message {routing.subject}"
        return "delivered" if whole and message.attachments[0].data == routing.subject.encode() else "MIXED UP"
    except kestrune.KestruneError as error:
        return type(error).__name__


def run(folder, messages, workers, deadline):
    blocks = made(folder, messages)
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        return dict(collections.Counter(pool.map(lambda block: handle(block, folder / "keys", deadline), blocks)))


if __name__ == "__main__":
    start = time.monotonic()
    counts = [int(word) for word in sys.argv[1:]] + [1000, 4][len(sys.argv) - 1 :]
    with tempfile.TemporaryDirectory() as folder:
        make(pathlib.Path(folder))
        print(run(pathlib.Path(folder), *counts, deadline=10.0), f"in {time.monotonic() - start:.1f} s")
