"""Drives the real program as a shell does: words, status, both streams, what is left in the folder."""
import os
import pty
import re
import select
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROGRAM = os.environ["KESTRUNE"]
DATA = Path(__file__).resolve().parent.parent / "data"
PASS_PHRASE = "a_b_c_d"  # of all keys here
TODAY = time.localtime().tm_year
SIGNING_YEAR, PERSONAL_YEAR = TODAY - 1900, TODAY - 1800
DONE, NO, COULD_NOT = 0, 1, 2
# Where a program of another machine runs under an emulator, it has neither the clock nor the locales of this one.
of_this_machine = unittest.skipIf("KESTRUNE_EMULATED" in os.environ, "the program runs under an emulator")


class Case(unittest.TestCase):
    """A folder for each test, the current one of what is run, with keys/ in it: medecin's signing key without a pass
    phrase and its certificate, durand's personal key, the master key."""

    @classmethod
    def setUpClass(cls):
        cls.origin = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.origin.cleanup)
        subprocess.run([os.environ["MAKE_KEYS"], cls.origin.name + "/keys/"], check=True, stdout=subprocess.DEVNULL)

    def setUp(self):
        place = tempfile.TemporaryDirectory(prefix="kestrune é ")  # with a blank and an accent, as people have them
        self.addCleanup(place.cleanup)
        self.folder = Path(place.name)
        shutil.copytree(self.origin.name + "/keys", self.folder / "keys")
        self.write("phrase", PASS_PHRASE + "\n")

    def write(self, name, content):
        path = self.folder / name
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        return path

    def read(self, name):
        return (self.folder / name).read_bytes()

    def files(self):
        """What is there, but for the keys and the pass phrase."""
        return sorted(str(path.relative_to(self.folder)) for path in self.folder.rglob("*")
                      if path.name != "phrase" and "keys" not in path.relative_to(self.folder).parts)

    def add_signing_key(self, name, data, year=SIGNING_YEAR, key=True, certificate=True):
        for suffix in [".key"] * key + [".pem"] * certificate:
            shutil.copy(DATA / (data + suffix), self.folder / "keys" / f"{name}.z.{year}{suffix}")

    def environment(self, **changes):
        kept = {name: os.environ[name] for name in os.environ if not name.startswith(("LC_", "LANG", "KESTRUNE_", "NO_COLOR"))}
        return {**kept, "KESTRUNE_KEYS": str(self.folder / "keys"), "TERM": "xterm", **changes}

    def run_program(self, *words, stdin=b"", **changes):
        """(status, standard output, standard error); `changes` to the environment. Never has a terminal."""
        done = subprocess.run([PROGRAM, *map(str, words)], cwd=self.folder, input=stdin, capture_output=True,
                              env=self.environment(**changes), timeout=120, start_new_session=True)
        return done.returncode, done.stdout, done.stderr.decode()

    def expect(self, words, status=DONE, out=None, err=None, stdin=b"", **changes):
        """Runs it; `out` is the whole standard output, `err` a pattern in standard error. What fails prints nothing."""
        got = self.run_program(*words, stdin=stdin, **changes)
        said = f"{words}: {got}"
        self.assertEqual(got[0], status, said)
        if out is not None or status != DONE:
            self.assertEqual(got[1], (out or "").encode() if not isinstance(out, bytes) else out, said)
        if err is not None:
            self.assertRegex(got[2], err, said)
        return got[1]

    def on_terminal(self, words, talk=(), until=None, **changes):
        """(status, all that the terminal showed). `talk`: (what is waited for, what is then typed) in turn."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            os.execve(PROGRAM, [PROGRAM, *map(str, words)], self.environment(**changes))
        shown, talk, end = "", list(talk), time.monotonic() + 60
        while time.monotonic() < end:
            if select.select([terminal], [], [], 0.1)[0]:
                try:
                    shown += os.read(terminal, 65536).decode(errors="replace")
                except OSError:
                    break
            if talk and re.search(talk[0][0], shown):
                os.write(terminal, talk.pop(0)[1].encode())
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown


def running_in(session):
    """The processes of a session that have not ended."""
    found = []
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            state, _, _, of = stat.read_text().rpartition(")")[2].split()[:4]
        except OSError:
            continue
        if of == str(session) and state not in "ZX":
            found.append(stat.parent.name)
    return found


if __name__ == "__main__":
    raise SystemExit("run the files that end in _test.py")
