"""Throughput beside a program in C, by turns in one run: the least processor time of each, its children's too.

    throughput.py KEY_FOLDER C_PROGRAM [ROUNDS]        (cc -O2 -o C_PROGRAM throughput.c -lkestrune)
"""

import os
import pathlib
import resource
import subprocess
import sys
import time

import kestrune

PASS_PHRASE = b"a_b_c_d"
TURNS = 5


def processor_time():
    ended = resource.getrusage(resource.RUSAGE_CHILDREN)
    alive = pathlib.Path(f"/proc/self/task/{os.getpid()}/children").read_text().split()
    tasks = [task for child in alive for task in pathlib.Path("/proc", child, "task").glob("*/schedstat")]
    nanoseconds = sum(int(task.read_text().split()[0]) for task in tasks)
    return time.process_time() + ended.ru_utime + ended.ru_stime + nanoseconds / 1e9


def least(rounds, call):
    times = []
    for _ in range(rounds):
        start = processor_time()
        call()
        times.append(processor_time() - start)
    return min(times)


def in_python(keys, size, rounds):
    text = "a" * size
    given = dict(user="durand", signer="medecin", pass_phrase=PASS_PHRASE, keys=keys, to="b", subject="s")
    block = kestrune.seal(text, **given).block
    grey = kestrune.check(block, keys=keys).grey
    return (
        least(rounds, lambda: kestrune.seal(text, **given)),
        least(rounds, lambda: kestrune.check(block, keys=keys)),
        least(rounds, lambda: kestrune.open_message(grey, keys=keys, pass_phrase=PASS_PHRASE)),
    )


def in_c(program, keys, size, rounds):
    command = [program, os.path.join(keys, ""), str(size), str(rounds)]
    return tuple(map(float, subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout.split()))


def main(keys, program, rounds=10):
    best = {}
    for _ in range(TURNS):
        for size in 10, 1_000_000:
            for who, times in ("C", in_c(program, keys, size, rounds)), ("Python", in_python(keys, size, rounds)):
                known = best.get((who, size), times)
                best[who, size] = tuple(map(min, zip(known, times)))
    for number, what in enumerate(("seal", "check", "open")):
        c_small, c, small, py = (best[who, size][number] * 1e3 for who in ("C", "Python") for size in (10, 1_000_000))
        print(f"{what}: 1 MB in C {c:.2f} ms, in Python {py:.2f} ms; 10 bytes {c_small:.2f} and {small:.2f} ms")
        print(f"{what}: Python / C {py / c:.3f}; what a megabyte adds {(py - small) / (c - c_small):.3f}")


if __name__ == "__main__":
    main(*sys.argv[1:3], *map(int, sys.argv[3:]))
