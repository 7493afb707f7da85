"""Key folders and what lies in files: keys, inspect, explain, bench."""
import hashlib
import json
import os
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest

from frame import COULD_NOT, DATA, DONE, NO, PERSONAL_YEAR, PROGRAM, SIGNING_YEAR, TODAY, Case, of_this_machine

PHRASE = ["--passphrase-file", "phrase"]
TRANSPORT_KEY = ["--transport-key-file", "transport"]


def cell(name, data, is_super=0, xml=b""):
    return bytes([2, is_super, len(name)]) + name.ljust(5, b"\0") + struct.pack(">QQ", len(xml), len(data)) + xml + data


def sealed(flat):
    return flat + hashlib.sha512(flat).digest()


class Keys(Case):
    def setUp(self):
        super().setUp()
        for file in (self.folder / "keys").iterdir():
            file.chmod(0o600)
        self.personal, self.master = f"keys/durand.{PERSONAL_YEAR}", f"keys/Master.{PERSONAL_YEAR}"
        self.signing = f"keys/medecin.z.{SIGNING_YEAR}"
        self.write("transport", "0123456789abcdefABCDEF".ljust(64, "7") + "\n")

    def patch(self, name, at, value):
        content = bytearray(self.read(name))
        struct.pack_into(">Q", content, at, value)
        self.write(name, content)

    def check(self, status, *patterns, words=(), clock=f"{TODAY}-06-15 12:00:00"):
        # The address sanitizer wants to be loaded first; the clock's library is.
        environment = self.environment(ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0")
        done = subprocess.run(["faketime", "-f", clock, PROGRAM, "keys", "check", *words], cwd=self.folder,
                              env=environment, capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, status, done)
        for pattern in patterns:
            self.assertRegex(done.stdout + done.stderr, pattern)
        self.assertEqual(done.stdout == "", status == DONE, done.stdout)

    @of_this_machine
    def test_check_finds_what_is_wrong(self):
        self.check(DONE, "Nothing wrong")
        for month, status in [("10-31", DONE), ("11-01", NO)]:
            self.check(status, *["personal key of next year", "master key of next", "signing key of next"] * status,
                       clock=f"{TODAY}-{month} 12:00:00")
        self.check(NO, "no personal key of this year", "no signing key of this", clock=f"{TODAY + 1}-02-01 12:00:00")
        keys = self.folder / "keys"
        for spoil, *patterns in [
            (lambda: (self.folder / self.personal).chmod(0o640), r"may read this key \(mode 640\)", "chmod 600 '"),
            (lambda: keys.chmod(0o777), "certificates there"),
            (lambda: (self.folder / self.master).unlink(), f"The master key of {TODAY} is missing"),
            (lambda: self.patch(self.personal, 112, 3_900_000), "nearly used up: .* 92 %"),
            (lambda: self.patch(self.master, 128, 2), "bytes are used twice", "again 2 times"),
            (lambda: self.patch(self.personal, 88, 1 << 60), "-8"),
            (lambda: self.add_signing_key("medecin", "rsa2048", key=False), "certificate is another key's"),
            (lambda: (self.folder / (self.signing + ".pem")).unlink(), "certificate is missing"),
            (lambda: shutil.copy(DATA / "rsa2048-protected.key", self.folder / (self.signing + ".key")), "not checked of: medecin"),
            (lambda: subprocess.run(["openssl", "pkcs8", "-topk8", "-v2", "aes-256-cbc", "-scrypt", "-passout", "pass:x", "-in",
                                     self.signing + ".key", "-out", "e.key"], cwd=self.folder, check=True) and
             shutil.move(self.folder / "e.key", self.folder / (self.signing + ".key")),
             "protection cannot be read", "openssl rsa -traditional -aes256 -in '"),
        ]:
            saved = tempfile.mkdtemp()
            self.addCleanup(shutil.rmtree, saved)
            shutil.copytree(keys, saved, dirs_exist_ok=True)
            spoil()
            with self.subTest(patterns[0]):
                self.check(NO, *patterns)
            shutil.rmtree(keys)
            shutil.copytree(saved, keys)
            keys.chmod(0o700)
        shutil.copy(DATA / "rsa2048-protected.key", self.folder / (self.signing + ".key"))
        (self.folder / (self.signing + ".key")).chmod(0o600)
        self.check(NO, "another key's", words=PHRASE)

    def test_packed_keys_come_back_and_nothing_in_use_is_lost(self):
        clear = self.read(self.personal)
        self.expect(["keys", "pack", self.personal, "-o", "durand.226.packed", *TRANSPORT_KEY])
        self.assertNotIn(clear[512:560], self.read("durand.226.packed"))
        unpack = ["keys", "unpack", "durand.226.packed", *TRANSPORT_KEY]
        if PERSONAL_YEAR == 226:
            self.expect(unpack, COULD_NOT, err="there already.*\n.*--force")
        self.write("other", "8" * 64)
        self.expect([*unpack[:3], "-o", "new.key", "--transport-key-file", "other"], NO, err="-98")
        self.assertFalse((self.folder / "new.key").exists())
        self.write("keys/durand.226", "in use")
        self.expect([*unpack, "--force"], err="The key is in")
        self.assertEqual(self.read("keys/durand.226"), clear)
        self.assertEqual((self.folder / "keys/durand.226").stat().st_mode & 0o777, 0o600)
        # A text's blanks at its end are not the key's.
        self.expect(["keys", "pack", self.signing + ".key", "-o", "m.key.packed", *TRANSPORT_KEY])
        self.expect(["keys", "unpack", "m.key.packed", *TRANSPORT_KEY])
        self.assertEqual(self.read("keys/m.key"), self.read(self.signing + ".key"))
        for words, status, err in [
            (["keys", "pack", "phrase", "-o", "x", *TRANSPORT_KEY], NO, "no key file"),
            (["keys", "pack", self.personal, "-o", "/dev/full", *TRANSPORT_KEY], COULD_NOT, "disk is full"),
            (["keys", "pack", self.personal, "-o", "x"], COULD_NOT, "no terminal.*\n.*--transport-key-file"),
            (["keys", "unpack", "transport", *TRANSPORT_KEY], COULD_NOT, "cannot be told"),
            (["keys", "unpack", "m.key.packed", "-o", "y", "--transport-key-file", "phrase"], COULD_NOT, "64 hexadecimal.*here there are 7"),
        ]:
            self.expect(words, status, err=err)
        self.assertNotIn("x", self.files())

    def test_trial_keys_sign_seal_and_open(self):
        self.write("phrase", "a-b=c\n")  # with characters that become others in signing keys
        talk = [("Pass phrase of the trial keys: ", "x\n"), ("Once more: ", "y\n")]
        self.assertIn("not the same", self.on_terminal(["keys", "new", "martin", "-k", "new/keys"], talk)[1])
        self.assertFalse((self.folder / "new").exists())
        self.expect(["keys", "new", "martin", *PHRASE, "-k", "new/keys"], err="real keys come from the service")
        self.assertEqual({path.stat().st_mode & 0o777 for path in (self.folder / "new/keys").iterdir()}, {0o600})
        self.expect(["keys", "new", "martin", *PHRASE, "-k", "new/keys"], COULD_NOT, err="there already")
        self.expect(["keys", "new", "dupont", *PHRASE, "-k", "new/keys"])  # beside one master key
        self.assertEqual(len(list((self.folder / "new/keys").iterdir())), 7)
        who = ["-k", "new/keys", *PHRASE]
        self.expect(["seal", "--to", "a@b.example", "-s", "martin", "-u", "dupont", "-o", "sealed", *who], stdin=b"Bonjour")
        self.expect(["open", "sealed", *who], out="Bonjour", err="Signed by: martin")
        subprocess.run(f"openssl verify -CAfile martin.z.{SIGNING_YEAR}.pem martin.z.{SIGNING_YEAR}.pem && "
                       f"openssl rsa -check -noout -in martin.z.{SIGNING_YEAR}.key -passin pass:a_b_c",
                       shell=True, check=True, cwd=self.folder / "new/keys", capture_output=True)
        for name in ["../x", "Martin", "", "x" * 40]:
            self.expect(["keys", "new", name, *PHRASE], COULD_NOT, err="no name for a key")

    def test_inspect_says_what_files_are(self):
        self.expect(["seal", "--to", "a@b.example", "-o", "m", *PHRASE], stdin=b"Bonjour")
        self.write("s", self.expect(["sign", "x"]))
        damaged = bytearray(self.read("m"))
        damaged[-1] ^= 1
        self.write("damaged", damaged)
        self.write("cut", self.read(self.personal)[:5000])
        self.write("named", sealed(cell(b"\x1b[2J", b"", xml=b"<SIGN><N>\x1b]0;x\x07</N></SIGN>")))
        for words in (["ec", "-in", DATA / "ec.key", "-out", "ec.key"],
                      ["pkcs8", "-topk8", "-v2", "des3", "-outform", "DER", "-passout", "pass:x", "-in", self.signing + ".key", "-out", "der"],
                      ["pkcs8", "-topk8", "-v2", "camellia-256-cbc", "-outform", "DER", "-passout", "pass:x", "-in", self.signing + ".key",
                       "-out", "unread"]):
            subprocess.run(["openssl", *words], check=True, cwd=self.folder, capture_output=True)
        for name, kind in [("no.key", "RSA PRIVATE KEY"), ("no.pem", "CERTIFICATE")]:
            self.write(name, f"-----BEGIN {kind}-----\nAAAA\n-----END {kind}-----\n")
        self.write("nothing", b"")
        self.expect(["keys", "pack", self.personal, "-o", "packed", *TRANSPORT_KEY])
        for words, status, *lines in [
            (["ec.key", "no.key", "no.pem", "nothing"], NO, "elliptic-curve", "cannot be read as an RSA key", "its key is no RSA", "empty file"),
            (["der", "packed"], DONE, "signing key.*with a pass phrase", "perhaps a packed key file"),
            (["unread"], NO, "signing key.*protected in a way that is not read here", "openssl rsa"),
            (["m"], DONE, "transport block", "signature by medecin.z", "    DATA  .*from medecin; key durand.*enciphered"),
            (["damaged"], NO, "the digest does not hold: .*-73", "AUTH", "the digest holds", "DATA"),
            (["named"], DONE, r"\\x1b\[2J"),
            (["s"], DONE, "signature block", "2048 bits"),
            ([self.personal], DONE, f"of {TODAY}", "4.2 MB left", "second pad"),
            (["cut", self.signing + ".pem"], NO, "unknown", "certificate"),
            ([self.signing + ".key", "nowhere", self.master], COULD_NOT, "without a pass phrase", "master key"),
            (["phrase"], NO, "nothing that kestrune knows"),
        ]:
            status_found, out, _ = self.run_program("inspect", *words)
            self.assertEqual(status_found, status, words)
            self.assertRegex(out.decode(), "(?s)" + ".*".join(lines))
            self.assertNotIn(b"\x1b", out)
        for words in [["inspect", "m"], ["keys", "check"], ["explain", "-73"]]:
            shown = self.on_terminal(words)[1]
            self.assertIn("\x1b[1m", shown)
            self.assertNotIn("\\x1b", shown)
        told = [json.loads(line) for line in self.run_program("inspect", "--json", "m", "nowhere", "-", stdin=self.read("s"))[1].splitlines()]
        self.assertEqual([told[0]["kind"], told[0]["tree"][1]["from"], "error" in told[1], told[2]["kind"]],
                         ["transport block", "medecin", True, "signature block"])

    def test_inspect_is_bounded_whatever_the_tree(self):
        cells = 300_000
        wide = sealed(cell(b"WIDE", cell(b"C", b"") * cells, 1))
        heads = [bytes([2, 1, 1]) + b"D".ljust(5, b"\0") + struct.pack(">QQ", 0, 24 * i) for i in range(cells, 0, -1)]
        within = sealed(cell(b"IN", b""))
        for _ in range(40):
            within = sealed(cell(b"IN", within))
        for tree, count in [(wide, cells), (sealed(b"".join(heads) + cell(b"E", b"")), cells), (within, 0)]:
            status, out, err = self.run_program("inspect", "-", stdin=tree)
            self.assertEqual((status, err), (DONE, ""))
            self.assertLess(len(out), 40_000)
            if count:
                self.assertRegex(out.decode(), r"\.\.\. and \d{6} more blocks")

    def test_explain_and_bench(self):
        for code, pattern in [("-73", rb"^-73  .*block::"), ("73", rb"^-73"), ("153", rb"^-103"), ("0", rb"^0 ")]:
            self.assertRegex(self.expect(["explain", code]), pattern)
        self.expect(["explain", "-4711"], NO, err="No call")
        self.expect(["explain", "x"], COULD_NOT, err="no result code")
        (self.folder / "tmp").mkdir()
        begin = time.monotonic()
        self.assertRegex(self.expect(["bench"], TMPDIR=str(self.folder / "tmp")), rb"(.*\d\.\d.*\n){4}RSA")
        self.assertLess(time.monotonic() - begin, 60)
        started = subprocess.Popen([PROGRAM, "bench"], env=self.environment(TMPDIR=str(self.folder / "tmp")), start_new_session=True)
        while not any((self.folder / "tmp").iterdir()):
            time.sleep(0.01)
        os.kill(started.pid, signal.SIGINT)
        self.assertEqual(started.wait(), -signal.SIGINT)
        self.assertEqual(list((self.folder / "tmp").iterdir()), [])


if __name__ == "__main__":
    unittest.main()
