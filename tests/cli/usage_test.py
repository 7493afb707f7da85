"""What holds for all commands: help, usage errors, languages, standard output."""
import os
import re
import subprocess
import unittest
from pathlib import Path

from frame import COULD_NOT, DONE, Case, of_this_machine

SOURCES = Path(__file__).resolve().parents[2] / "cli"


class Usage(Case):
    def test_errors_say_what_and_what_to_do(self):
        for words, err in [
            ([], "Usage: kestrune"),
            (["sig"], '"sig" is no command.*\n.*kestrune --help'),
            (["sign", "--no-such"], '"--no-such" is not understood here.*\n.*kestrune sign --help'),
            (["sign", "-s"], "--signer wants one value"),
            (["sign", "-p", "geheim", "x"], '"-p" is not understood here'),
            (["open"], "FILE is missing"),
            (["open", "x", "--deadline", "bald"], "A value that is not possible: .*bald"),
            (["--color", "rot", "sign", "x"], "auto, always or never"),
            (["sign", "x", "-k", "nowhere"], "nowhere/: there is no such.*\n.*KESTRUNE_KEYS"),
        ]:
            self.expect(words, COULD_NOT, err=err)

    def test_help_and_version(self):
        self.assertIn(b"Usage: kestrune sign [OPTIONS] [TEXT]", self.expect(["sign", "--help"]))
        self.assertIn(b"Commands:", self.expect(["help"]))
        self.assertEqual(self.expect(["version"]), self.expect(["--version"]))
        self.assertRegex(self.expect(["--version"]), rb"^kestrune \d+\.\d+\.\d+\nlibkestrune \d")

    @of_this_machine
    def test_speaks_the_language_of_the_locale(self):
        # A bare machine has no French locale; the C library takes one of any content for it.
        os.environ["LOCPATH"] = str(self.folder / "locales")
        self.addCleanup(os.environ.pop, "LOCPATH")
        (self.folder / "locales").mkdir()
        (self.folder / "locales/fr_FR.UTF-8").symlink_to("/usr/lib/locale/C.utf8")
        french, english = b"Usage\xc2\xa0: kestrune [OPTIONS] COMMANDE", b"Usage: kestrune [OPTIONS] COMMAND\n"
        for environment, word in [
            ({"LC_ALL": "fr_FR.UTF-8"}, french),
            ({"LANG": "fr_FR.UTF-8"}, french),
            ({"LANG": "fr_FR.UTF-8", "LANGUAGE": "de:en"}, english),
            ({"LANG": "de_DE.UTF-8"}, english),
            ({"LC_ALL": "C", "LANG": "fr_FR.UTF-8"}, english),
        ]:
            self.assertIn(word, self.expect(["--help"], **environment))
        self.expect(["sign", "--no-such"], COULD_NOT, err="«\xa0--no-such\xa0» n'est pas compris ici", LANG="fr_FR.UTF-8")
        # The library's own words, too.
        self.expect(["verify", "--file", "phrase"], 1, stdin=b"<SIGN><N>x</N><S>AA</S></SIGN>", err="certificat",
                    LANG="fr_FR.UTF-8")

    def test_french_is_complete(self):
        pot = subprocess.run(["xgettext", "--language=C++", "--keyword=_", "--keyword=_:1,2", "--keyword=N_", "--from-code=UTF-8", "-o", "-",
                              *map(str, SOURCES.glob("*.cpp"))], check=True, capture_output=True).stdout
        self.write("kestrune.pot", pot.replace(b"CHARSET", b"UTF-8"))
        compared = subprocess.run(["msgcmp", str(SOURCES / "po/fr.po"), "kestrune.pot"], cwd=self.folder,
                                  capture_output=True, text=True)
        self.assertEqual((compared.returncode, compared.stderr), (0, ""))
        for english, french in re.findall(r'^msgid (".*")\nmsgstr (".*")$', (SOURCES / "po/fr.po").read_text(), re.M):
            self.assertEqual(*(sorted(re.findall(r"{\d}|--[a-z-]+|code -?\d+", text)) for text in (english, french)))


if __name__ == "__main__":
    unittest.main()
