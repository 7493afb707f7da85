"""The completions, asked as each shell asks them."""
import os
import shutil
import subprocess
import unittest
from pathlib import Path

from frame import PROGRAM, Case

COMPLETIONS = Path(__file__).resolve().parent.parent.parent / "completions"
ROWS = [  # what is typed, what is offered, what is not
    ("kestrune ", {"sign", "open", "keys", "bench"}, {"--help", "kestrune"}),
    ("kestrune keys ", {"list", "check", "unpack"}, {"sign"}),
    ("kestrune -k keys seal --at", {"--attach"}, {"--to"}),
    ("kestrune seal -s ", {"medecin"}, {"durand", "Master"}),
    ("kestrune -k keys seal -u ", {"durand"}, {"medecin", "Master"}),
    ("kestrune encrypt --to m", {"medecin.z."}, {"durand"}),
    ("kestrune open ph", {"phrase"}, {"keys"}),
    ("kestrune sign -k k", {"keys"}, {"phrase"}),
    ("kestrune --color a", {"auto", "always"}, {"never"}),
]


class Completion(Case):
    def check(self, offered_for):
        # A search for leaks stops its process, and was seen to wait for ever below zsh.
        environment = self.environment(PATH=f"{Path(PROGRAM).parent}:{os.environ['PATH']}", HOME=str(self.folder), LANG="C.UTF-8",
                                       ASAN_OPTIONS="detect_leaks=0")
        for line, wanted, unwanted in ROWS:
            offered = offered_for(line, environment)
            with self.subTest(line):
                for word in wanted:
                    self.assertTrue(any(one.startswith(word) for one in offered), (word, offered))
                for word in unwanted:
                    self.assertNotIn(word, offered)

    def test_bash(self):
        script = f"""source '{COMPLETIONS}/kestrune.bash'
            read -r -a COMP_WORDS <<<"$1"; [[ $1 = *' ' ]] && COMP_WORDS+=('')
            COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _kestrune; printf '%s\\n' "${{COMPREPLY[@]}}" """
        self.check(lambda line, env: subprocess.run(["bash", "-c", script, "bash", line], cwd=self.folder, env=env,
                                                    capture_output=True, text=True, check=True).stdout.split())

    @unittest.skipUnless(shutil.which("fish"), "no fish")
    def test_fish(self):
        script = f"source '{COMPLETIONS}/kestrune.fish'; complete --do-complete $argv[1]"
        self.check(lambda line, env: [row.split("\t")[0].rstrip("/") for row in subprocess.run(
            ["fish", "--no-config", "-c", script, line], cwd=self.folder, env=env, capture_output=True, text=True,
            check=True).stdout.splitlines()])

    @unittest.skipUnless(shutil.which("zsh"), "no zsh")
    def test_zsh(self):
        # The shell's own part is played: what is handed to it is what it offers.
        script = f"""compadd() {{ print -rl -- ${{@:#--}} }}; _files() {{ [[ -n $1 ]] && print -rl -- *(/) || print -rl -- * }}
            words=(${{(z)1}}); [[ $1 = *' ' ]] && words+=(''); CURRENT=$#words PREFIX=$words[-1]; source '{COMPLETIONS}/_kestrune'"""
        self.check(lambda line, env: [one for one in subprocess.run(
            ["zsh", "-f", "-c", script, "zsh", line], cwd=self.folder, env=env, capture_output=True, text=True,
            check=True).stdout.splitlines() if line.endswith(" ") or one.startswith(line.split()[-1])])


if __name__ == "__main__":
    unittest.main()
