"""sign, verify, encrypt and decrypt."""
import unittest

from frame import COULD_NOT, NO, PASS_PHRASE, SIGNING_YEAR, Case

PHRASE = ["--passphrase-file", "phrase"]


class Signatures(Case):
    def test_texts_and_files(self):
        block = self.expect(["sign", "Bonjour\nDocteur"])
        signed_by = rf"^Signed by medecin\.z\.{SIGNING_YEAR}\n$"
        self.expect(["verify"], stdin=block, out="Bonjour\nDocteur", err=signed_by)
        self.write("a.sign", block)
        self.write("report", bytes(1000))
        self.write("r.sign", self.expect(["sign", "--file", "report"]))
        self.expect(["verify", "--file", "report", "r.sign"], out="", err=signed_by)
        self.expect(["verify", "--file", "phrase", "r.sign"], NO, err=r"phrase, which names medecin.*\(code -68\)")
        self.expect(["verify", "r.sign"], COULD_NOT, err="r.sign signs a file.*\n.*verify --file FILE BLOCK")
        self.assertEqual(self.run_program("verify", "a.sign", "phrase", "a.sign")[:2],
                         (NO, b"Bonjour\nDocteur\nBonjour\nDocteur\n"))
        self.expect(["verify", "phrase"], NO, err="phrase holds no signature block")
        (self.folder / f"keys/medecin.z.{SIGNING_YEAR}.pem").unlink()
        self.expect(["verify", "a.sign"], NO, err=r"medecin.*\(code -106\)")

    def test_what_is_not_signed(self):
        for stdin, err in [(b"", "no text to sign"), (b"a\0b", "zero byte"), (bytes([200]) * 64, "These 64 bytes are no text"),
                           (b"x" * 246, r"246 bytes, more than this key signs. \(code -94\)\n.*--file FILE")]:
            self.expect(["sign"], COULD_NOT, stdin=stdin, err=err)
        self.expect(["sign", "x", "--file", "phrase"], COULD_NOT, err="A text and a file")
        self.expect(["sign", "-s", "autre", "x"], COULD_NOT, err="autre: There is no signing key")

    def test_pass_phrases(self):
        self.add_signing_key("sure", "rsa2048-protected")
        words = ["sign", "-s", "sure", "x"]
        self.expect(words + ["--passphrase-fd", "0"], stdin=PASS_PHRASE.encode())
        self.expect(words + ["--signing-passphrase-file", "phrase"])
        self.expect(words + ["--passphrase-fd", "0"], NO, stdin=b"autre\n", err=r"sure.*\(code -104\)")
        status, shown = self.on_terminal(words, [("Pass phrase of sure", PASS_PHRASE + "\n")])
        self.assertEqual((status, PASS_PHRASE in shown), (0, False), shown)
        self.assertIn("</SIGN>", shown)
        status, shown = self.on_terminal(words, [("Pass phrase of sure", "\x03")])
        self.assertEqual(status, -2, shown)


class ShortTexts(Case):
    def test_under_a_password_and_for_a_holder(self):
        self.write("note", "ça va\n")
        holder = f"medecin.z.{SIGNING_YEAR}"
        self.assertNotEqual(self.expect(["encrypt", "note", *PHRASE]), self.expect(["encrypt", "note", *PHRASE, "-o", "n.enc"]))
        self.expect(["decrypt", "n.enc", *PHRASE], out="ça va\n")
        self.write("wrong", "autre")
        self.expect(["decrypt", "n.enc", "--passphrase-file", "wrong"], NO, err="does not decipher to a text")
        self.expect(["encrypt", "--to", holder, "-o", "h.enc"], stdin=b"bonjour")
        self.expect(["decrypt", "h.enc"], out="bonjour")
        self.expect(["encrypt", "--to", holder], COULD_NOT, stdin=b"x" * 3744, err="3744 bytes, and 3743 at most")
        self.expect(["encrypt", "--to", "nobody", "note"], COULD_NOT, err="nobody.pem: there is no such")
        self.expect(["encrypt", "--to", f"../keys/{holder}", "note"], COULD_NOT, err="is no name of a certificate")
        self.expect(["encrypt", *PHRASE], COULD_NOT, stdin=b"a\0b", err="zero byte.*\n.*kestrune seal")
        self.write("long", "x" * 33)
        self.expect(["encrypt", "note", "--passphrase-file", "long"], err="first 32 characters")
        self.expect(["decrypt", "note"], NO, err="note is no text that kestrune encrypt made")
        (self.folder / f"keys/{holder}.key").unlink()
        self.expect(["decrypt", "h.enc"], COULD_NOT, err=f"{holder}.key is not in")

    def test_a_new_password_is_asked_twice(self):
        self.write("note", "bonjour")
        talk = [("Pass phrase of the text: ", "un\n"), ("Once more: ", "deux\n")]
        status, shown = self.on_terminal(["encrypt", "note"], talk)
        self.assertEqual(status, COULD_NOT)
        self.assertIn("The two are not the same", shown)


if __name__ == "__main__":
    unittest.main()
