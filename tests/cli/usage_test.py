"""What holds for all commands: help, usage errors, languages, standard output."""
import unittest

from frame import COULD_NOT, DONE, Case


class Usage(Case):
    def test_errors_say_what_and_what_to_do(self):
        for words, err in [
            ([], "Usage: kestrune"),
            (["sig"], '"sig" is no command.*\n.*kestrune --help'),
            (["sign", "--no-such"], '"--no-such" is not understood here.*\n.*kestrune sign --help'),
            (["sign", "-s"], "--signer was given too many or too few"),
            (["--color", "rot", "sign", "x"], "auto, always or never"),
            (["sign", "x", "-k", "nowhere"], "nowhere/: there is no such.*\n.*KESTRUNE_KEYS"),
        ]:
            self.expect(words, COULD_NOT, err=err)

    def test_help_and_version(self):
        self.assertIn(b"Usage: kestrune sign [OPTIONS] [TEXT]", self.expect(["sign", "--help"]))
        self.assertIn(b"Commands:", self.expect(["help"]))
        self.assertRegex(self.expect(["--version"]), rb"^kestrune \d+\.\d+\.\d+\nlibkestrune \d")


if __name__ == "__main__":
    unittest.main()
