"""seal, route and open: messages of friends and of strangers."""
import json
import os
import shutil
import signal
import subprocess
import time
import unittest

from frame import COULD_NOT, DONE, NO, PERSONAL_YEAR, PROGRAM, SIGNING_YEAR, Case, running_in

SIGNER = f"medecin.z.{SIGNING_YEAR}"
PERSONAL = f"keys/durand.{PERSONAL_YEAR}"
PHRASE = ["--passphrase-file", "phrase"]


class Messages(Case):
    def setUp(self):
        super().setUp()
        self.write("note.txt", "Bonjour,\nça va.\n")
        self.write("scan|1.pdf", bytes(range(256)))

    def seal(self, *words, **how):
        return self.expect(["seal", "--to", "dr.b@service.example", "note.txt", *PHRASE, *words], **how)

    def test_a_message_goes_round(self):
        self.seal("--attach", "scan|1.pdf", "--subject", "Été", "--cc", "c,d", "-o", "m.tr", err=r"^Message identifier: \w{41,}\n$")
        err = (rf"^From: medecin\nSigned by: {SIGNER}\nTo: dr.b@service.example\nCopies: c, d\nDate: .*\nSubject: Été\n"
               r"Attachment: scan\|1.pdf \(256 bytes\)\n$")
        self.expect(["open", "m.tr", *PHRASE], out="Bonjour,\nça va.\n", err=err)
        self.expect(["open", "m.tr", *PHRASE, "--quiet"], out="Bonjour,\nça va.\n", err="^$")
        route = self.expect(["route", "m.tr"]).decode().split("\t")
        self.assertEqual(route[:5], ["m.tr", SIGNER, "medecin", "dr.b@service.example,c,d", f"durand.{PERSONAL_YEAR}"])
        as_json = json.loads(self.expect(["route", "--json", "m.tr"]))
        self.assertEqual((as_json["identifier"], as_json["subject"]), (route[5].strip(), "Été"))
        self.expect(["open", "m.tr", *PHRASE, "-o", "out", "--eml", "m.eml", "--xml", "m.xml"], out="")
        self.assertEqual(self.read("out/message.txt").decode(), "Bonjour,\nça va.\n")
        self.assertEqual(self.read("out/scan|1.pdf"), bytes(range(256)))
        self.assertIn(b"From: medecin@", self.read("m.eml"))
        self.assertTrue(self.read("m.xml").startswith(b"<RED>"))
        for name in ("out/scan|1.pdf", "m.eml", "m.xml"):
            self.assertEqual(os.stat(self.folder / name).st_mode & 0o777, 0o600)
        self.write("out/message.txt", "mine")
        (self.folder / "out/scan|1.pdf").unlink()
        before = self.files()
        self.expect(["open", "m.tr", *PHRASE, "-o", "out"], COULD_NOT, err="message.txt: it is there already")
        self.assertEqual(self.files(), before)
        self.expect(["open", "m.tr", *PHRASE, "-o", "out", "--force"], out="")

    def test_many_go_on_after_a_bad_one(self):
        self.seal("-o", "m.tr")
        for name in ("a.tr", "b.tr", "c.tr", "in"):
            shutil.copy(self.folder / "m.tr", self.folder / name)
        self.write("b.tr", self.read("b.tr")[:-1] + b"x")
        self.write("none", b"")
        words = ["a.tr", "b.tr", "c.tr", "none", "m.tr"]
        self.assertEqual(len(self.run_program("route", *words)[1].splitlines()), 3)
        self.assertEqual(self.run_program("open", "-j", "3", "-o", "all", *PHRASE, *words)[0], NO)
        self.assertEqual([f for f in self.files() if f.startswith("all")],
                         ["all", "all/a", "all/a/message.txt", "all/c", "all/c/message.txt", "all/m", "all/m/message.txt"])
        self.expect(["open", "a.tr", "b.tr", *PHRASE], COULD_NOT, err="-o FOLDER")
        self.assertEqual(self.run_program("route", "a.tr", "missing", "b.tr")[0], COULD_NOT)

    def test_what_cannot_be_sealed_is_said_before_pads_are_used(self):
        self.write("big", bytes(1_000_001))
        key = self.read(f"keys/durand.{PERSONAL_YEAR}")
        for words, err in [
            (["--attach", "big"], "big has 1000001 bytes"),
            (["--attach", "nowhere"], "nowhere: there is no such"),
            (["--date", "2026-02-30 10:00:00"], "is no date"),
            (["--to", "a<b"], "is no address"),
            (["--to", ""], "is no address"),
            (["-o", "no/m.tr"], "no/m.tr: there is no such"),
            (["-s", "autre"], "autre: There is no signing key of"),
            (["--attach", "note.txt"] * 100, "99 attachments at most"),
        ]:
            self.seal(*words, status=COULD_NOT, err=err)
        for text, err in [(b"", "standard input is empty: there is nothing"), (b"a\0b", "a zero byte.*\n.*--attach")]:
            self.expect(["seal", "--to", "a@b.example", *PHRASE], COULD_NOT, stdin=text, err=err)
        self.expect(["seal", "note.txt", *PHRASE], COULD_NOT, err="There is no recipient")
        self.assertEqual(self.read(f"keys/durand.{PERSONAL_YEAR}"), key)
        self.add_signing_key("second", "rsa2048")
        self.seal(status=COULD_NOT, err="several signing keys: medecin, second.\n.*--signer NAME")

    def test_a_full_disk_a_closed_output_a_wrong_phrase_leave_nothing(self):
        self.seal("-o", "m.tr")
        before = self.files()
        self.write("wrong", "autre\n")
        self.expect(["open", "m.tr", "--passphrase-file", "wrong", "-o", "out"], NO, err=r"durand.*\(code -92\)")
        self.expect(["open", "m.tr"], COULD_NOT, err="no terminal to ask.*\n.*--passphrase-file")
        for command in (f"seal --to a note.txt {' '.join(PHRASE)} -o /dev/full", f"open m.tr {' '.join(PHRASE)} >/dev/full",
                        f"open m.tr {' '.join(PHRASE)} >&-", f"open m.tr {' '.join(PHRASE)} --eml /dev/full",
                        "sign bonjour >/dev/full", "route m.tr >&-", f"seal --to a note.txt {' '.join(PHRASE)} >/dev/full"):
            done = subprocess.run(["sh", "-c", f'exec "$0" {command}', PROGRAM], cwd=self.folder, env=self.environment(),
                                  capture_output=True)
            self.assertEqual((done.returncode, done.stdout), (COULD_NOT, b""), command)
        (self.folder / "wrong").unlink()
        self.assertEqual(self.files(), before)


class Strangers(Case):
    def setUp(self):
        super().setUp()
        self.add_signing_key("intrus", "rsa2048")
        subprocess.run([os.environ["FORGE"], self.folder / "keys"], check=True)

    def test_nothing_is_shown_of_what_is_not_proven(self):
        before = self.files()
        for name, err in [
            ("posed.tr", r"posed.tr says that medecin sent it, but intrus\.z\.\d+ signed it"),
            ("inside.tr", "names two senders: intrus outside, medecin inside"),
            ("changed.tr", r"the attachment scan.pdf, which names medecin.*\(code -68\)"),
        ]:
            self.expect(["open", name, *PHRASE, "-o", "out", "--eml", "m.eml"], NO, err=err)
            self.assertEqual(self.files(), before)
            self.expect(["open", name, *PHRASE, "--accept-unverified"], out="\x1b[31mred", err=err)
        self.expect(["route", "posed.tr"], NO, err="but intrus")
        (self.folder / f"keys/{SIGNER}.pem").unlink()
        for command in (["route"], ["open", *PHRASE]):
            self.expect([*command, "names.tr"], NO, err=r"\(code -106\)")

    def test_the_trap_ends_at_the_deadline(self):
        begin = time.monotonic()
        self.expect(["open", "trap.grey", *PHRASE, "--deadline", "1"], COULD_NOT, err="not open after 1 s.*\n.*forged")
        self.assertLess(time.monotonic() - begin, 20)

    def test_names_stay_in_the_folder(self):
        self.expect(["open", "names.tr", *PHRASE, "-o", "out"], out="")
        self.assertEqual([f for f in self.files() if f.startswith("out")], sorted([
            "out", "out/_profile", "out/attachment", "out/report.pdf", "out/Report-2.PDF", "out/_rf", "out/_[2J_.txt",
            "out/attachment-2", "out/message.txt", "out/message-2.txt"]))

    def test_a_terminal_is_not_written_to_by_strangers(self):
        status, shown = self.on_terminal(["open", "names.tr"], [("Pass phrase of durand", "a_b_c_d\n")], NO_COLOR="1")
        self.assertEqual(status, DONE, shown)
        self.assertIn("\\x1b[31mred", shown)
        self.assertNotIn("\x1b", shown)
        self.assertNotIn("a_b_c_d", shown)

    def test_a_terminal_gets_colours_and_no_blocks(self):
        words = ["seal", "-s", "medecin", "--to", "a", "phrase", *PHRASE]
        for environment, option, is_red in [({}, [], True), ({"NO_COLOR": "1"}, [], False), ({}, ["--color=never"], False)]:
            status, shown = self.on_terminal([*words, *option], **environment)
            self.assertEqual((status, "\x1b[1;31mkestrune:" in shown), (COULD_NOT, is_red), shown)
            self.assertIn("would go to the terminal", shown)
        self.expect(["open", "--color=always", "x"], COULD_NOT, err="^\x1b.1;31mkestrune:")

    def test_progress_and_signals(self):
        status, shown = self.on_terminal(["open", "trap.grey", "--deadline", "4", *PHRASE])
        self.assertEqual(status, COULD_NOT)
        self.assertRegex(shown, r"2 s  Deciphering and checking trap.grey")
        before = self.files()
        for number in (signal.SIGINT, signal.SIGTERM):
            run = subprocess.Popen([PROGRAM, "open", "trap.grey", "names.tr", *PHRASE, "-o", "out"], cwd=self.folder,
                                   env=self.environment(), start_new_session=True, stderr=subprocess.DEVNULL)
            for _ in range(1000):
                if (self.folder / "out").exists():
                    break
                time.sleep(0.01)
            self.assertTrue((self.folder / "out").exists())
            time.sleep(0.3)
            run.send_signal(number)
            self.assertEqual(run.wait(), -number)
            self.assertEqual(self.files(), before)
            for _ in range(100):
                if not running_in(run.pid):
                    break
                time.sleep(0.05)
            self.assertEqual(running_in(run.pid), [], "the process apart goes too")

    def test_a_signal_in_the_middle_leaves_nothing(self):
        """Each stands still where it reads the pass phrase or key, which nobody gives, its output begun."""
        self.write("n.enc", "<IV>00</IV><AE>AAAAAAAAAAAAAAAAAAAAAA==</AE>")
        self.write("key", "7" * 64)
        self.expect(["keys", "pack", PERSONAL, "-o", "packed", "--transport-key-file", "key"])
        before = self.files()
        for words in (["seal", "-s", "medecin", "--to", "a", "phrase", "-o", "m.tr"], ["encrypt", "phrase", "-o", "x"], ["decrypt", "n.enc", "-o", "x"],
                      ["open", "names.tr", "trap.grey", "-o", "out"], ["keys", "pack", PERSONAL, "-o", "p"],
                      ["keys", "unpack", "packed", "-o", "p"]):
            secret = ["--transport-key-file", "/dev/stdin"] if words[0] == "keys" else ["--passphrase-fd", "0"]
            run = subprocess.Popen([PROGRAM, *words, *secret], cwd=self.folder, env=self.environment(),
                                   stdin=subprocess.PIPE, start_new_session=True)
            for _ in range(100):
                if self.files() != before:
                    break
                time.sleep(0.05)
            self.assertNotEqual(self.files(), before, words)
            run.send_signal(signal.SIGTERM)
            self.assertEqual(run.wait(), -signal.SIGTERM)
            run.stdin.close()
            self.assertEqual(self.files(), before, words)

    def test_a_full_file_system_keeps_nothing(self):
        (self.folder / "full").mkdir()
        self.write("big", bytes(900_000))
        self.write("key", "7" * 64)
        seal, key = ["seal", "-s", "medecin", "--to", "a", "--attach", "big", "phrase", *PHRASE], ["--transport-key-file", "key"]
        self.expect([*seal, "-o", "big.tr"])
        self.expect(["keys", "pack", PERSONAL, "-o", "packed", *key])
        before = self.files()
        mount = 'mount -t tmpfs -o size=16k none full || exit 77; "$@"; echo $?; ls -A full'
        for words in ([*seal, "-o", "full/m.tr"], ["open", "big.tr", *PHRASE, "-o", "full/out"], ["open", "big.tr", *PHRASE, "--eml", "full/m.eml"],
                      ["open", "big.tr", *PHRASE, "--xml", "full/m.xml"], ["keys", "pack", PERSONAL, *key, "-o", "full/p"],
                      ["keys", "unpack", "packed", *key, "-o", "full/k"], ["keys", "new", "x", *PHRASE, "-k", "full/keys"]):
            run = subprocess.run(["unshare", "-m", "sh", "-c", mount, "sh", PROGRAM, *words], cwd=self.folder,
                                 env=self.environment(), capture_output=True, text=True)
            if run.returncode in (1, 77):
                self.skipTest("no file system can be mounted here")
            self.assertEqual(run.stdout, "2\n", (words, run))
            self.assertIn("the disk is full", run.stderr)
        self.assertEqual(self.files(), before)


if __name__ == "__main__":
    unittest.main()
