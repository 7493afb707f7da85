"""A relay: workers check, route and open messages, among them a damaged one and one that never opens.

    relay.py KEY_FOLDER [MESSAGES [WORKERS]]
"""

import collections
import concurrent.futures
import sys
import time

import kestrune
from forge import trap

PASS_PHRASE = b"a_b_c_d"


def sealed(keys, text, attachments, subject):
    names = dict(user="durand", signer="medecin", to=["dr.b@service.example"])
    return kestrune.seal(text, attachments, pass_phrase=PASS_PHRASE, keys=keys, subject=subject, **names).block


def made(keys, messages):
    for number in range(messages - 2):
        yield sealed(keys, f"Message {number}", [("note.txt", b"%d" % number)], str(number))
        if number == (messages - 2) // 2:
            block = bytearray(sealed(keys, "Damaged", [], ""))
            block[len(block) // 2] ^= 1
            yield bytes(block)
            yield trap(keys)


def handle(block, keys, deadline):
    try:
        routing = kestrune.route(block, keys=keys)
        message = kestrune.open_message(block, keys=keys, pass_phrase=PASS_PHRASE, deadline=deadline)
        whole = message.routing.identifier == routing.identifier and message.text == f"Message {routing.subject}"
        return "delivered" if whole and message.attachments[0].data == routing.subject.encode() else "MIXED UP"
    except kestrune.KestruneError as error:
        return type(error).__name__


def run(keys, messages, workers, deadline):
    blocks = list(made(keys, messages))
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        return dict(collections.Counter(pool.map(lambda block: handle(block, keys, deadline), blocks)))


if __name__ == "__main__":
    start = time.monotonic()
    counts = [int(word) for word in sys.argv[2:]] + [1000, 4][len(sys.argv) - 2 :]
    print(run(sys.argv[1], *counts, deadline=10.0), f"in {time.monotonic() - start:.1f} s")
