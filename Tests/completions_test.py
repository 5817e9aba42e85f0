"""What is written by hand about the command line of switchboardctl says what its --help says.

That are the completions of three shells (tools/completions) and the manual page. Where a shell is installed it is asked
what it would complete; bash always is.
"""

import os
import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import ProgramTest  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent
COMPLETIONS = ROOT / "tools/completions"
BASH, ZSH, FISH = (COMPLETIONS / name for name in ("switchboardctl.bash", "_switchboardctl", "switchboardctl.fish"))
MANUAL = ROOT / "docs/man/switchboardctl.1.scd"

ASK_BASH = """
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_switchboardctl
printf '%s\\n' "${COMPREPLY[@]}"
"""


class CompletionsTest(ProgramTest):
    def setUp(self):
        super().setUp()
        verbs = self.ctl("--help").output.split("Subcommands:\n")[1].split("\n\n")[0].splitlines()
        self.verbs = [line.split()[0] for line in verbs]
        self.options = {verb: self.options_in(self.ctl(verb, "--help").output) for verb in self.verbs}
        self.all_options = set().union(*self.options.values())
        self.assertTrue(self.verbs)
        self.assertLess(self.options_in(self.ctl("--help").output), self.all_options)

    def options_in(self, text):
        """The short and long options that a help text lists."""
        names = re.findall(r"^  (-\w,)?(--[\w-]+)", text, re.MULTILINE)
        return {name.strip(",") for pair in names for name in pair if name}

    def long(self, options):
        return {option for option in options if option.startswith("--")}

    def bash(self, *words):
        """What bash completes, the last word being the one under the cursor."""
        completed = subprocess.run(["bash", "--norc", "-c", ASK_BASH, "bash", str(BASH), "switchboardctl", *words],
                                   stdout=subprocess.PIPE, check=True, text=True)
        return set(completed.stdout.split())

    def fish(self, line):
        script = f"source '{FISH}'; complete -C '{line}'"
        completed = subprocess.run(["fish", "--no-config", "-c", script], stdout=subprocess.PIPE, check=True, text=True,
                                   env=self.environment(HOME=self.folder))
        return {candidate.split("\t")[0] for candidate in completed.stdout.splitlines()}

    def test_every_verb_and_long_option_and_no_other_is_in_the_files_of_all_shells(self):
        spelled = {
            BASH: (r"local verbs='([^']*)'", r"(?<![\w-])(--\w[\w-]*)"),
            ZSH: (r"^    '(\w+):", r"(?<![\w-])(--\w[\w-]*)"),
            FISH: (r"-n __switchboardctl_no_verb -a (\w+)", r"^complete .* -l (\w[\w-]*)"),
        }
        for path, (verb, option) in spelled.items():
            with self.subTest(path=path.name):
                text = path.read_text()
                self.assertEqual(" ".join(re.findall(verb, text, re.MULTILINE)).split(), self.verbs)
                found = {"--" + name.lstrip("-") for name in re.findall(option, text, re.MULTILINE)}
                self.assertEqual(found, self.long(self.all_options))

    def test_bash_completes_the_verbs_and_the_options_of_each(self):
        self.assertEqual(self.bash(""), set(self.verbs))
        self.assertEqual(self.bash("p"), {"ping", "publish", "post", "prefs", "path"})
        for verb, options in self.options.items():
            with self.subTest(verb=verb):
                self.assertEqual(self.bash(verb, "-"), options)
                self.assertEqual(self.bash(verb, "--"), self.long(options))

    def test_bash_finds_the_verb_among_options_and_their_values(self):
        self.assertEqual(self.bash("--color", "always", "-j", ""), set(self.verbs))
        self.assertEqual(self.bash("--timeout", "=", "5s", "wait", "--g"), {"--gone"})
        self.assertEqual(self.bash("--user", "ping", "--cou"), {"--count"})
        self.assertEqual(self.bash("--", ""), set(self.verbs))

    def test_bash_completes_values_that_the_program_knows(self):
        self.assertEqual(self.bash("version", "--color", "a"), {"auto", "always"})
        self.assertEqual(self.bash("version", "--color", "="), {"auto", "always", "never"})
        self.assertEqual(self.bash("call", "com.example.clock", ""), {"version", "build", "barrier"})
        self.assertEqual(self.bash("query", "-o", "pid,u"), {"pid,user", "pid,uid"})

    def test_bash_completes_no_identifier_and_nothing_behind_the_end_of_the_options(self):
        for words in (["query", ""], ["call", ""], ["post", "--source", ""], ["wait", "a", ""], ["query", "--", "-"],
                      ["version", "--timeout", ""]):
            with self.subTest(words=words):
                self.assertEqual(self.bash(*words), set())

    def test_columns_are_those_that_the_program_knows(self):
        for verb in ("ping", "query", "monitor"):
            with self.subTest(verb=verb):
                columns = self.bash(verb, "--output", "")
                arguments = [] if verb == "ping" else ["a"]
                refusal = self.ctl(verb, *arguments, "--output", "frob").errors
                self.assertEqual(columns, set(re.search(r"Try: (\S+)$", refusal, re.MULTILINE)[1].split(",")))

    def test_the_columns_of_path_are_those_of_what_it_is_to_do(self):
        for action in ("stat", "ls", "tree", "volumes"):
            with self.subTest(action=action):
                columns = self.bash("path", action, "--output", "")
                refusal = self.ctl("path", action, "/", "--output", "frob").errors
                self.assertEqual(columns, set(re.search(r"Try: (\S+)$", refusal, re.MULTILINE)[1].split(",")))
                for path in (ZSH, FISH, MANUAL):
                    self.assertLessEqual({column.removeprefix("native_").removesuffix("_attributes") for column in columns},
                                         set(re.findall(r"\w+", path.read_text().replace("_attributes", ""))))

    def test_path_completes_its_actions_and_then_files(self):
        self.assertEqual(self.bash("path", ""), {"stat", "ls", "tree", "volumes", "real"})
        self.assertEqual(self.bash("path", "ls", "--sort", "n"), {"name", "none"})
        self.assertEqual(self.bash("path", "ls", self.folder + "/h"), {self.home})

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish_completes_the_verbs_and_the_options_of_each(self):
        self.assertEqual(self.fish("switchboardctl "), set(self.verbs))
        self.assertEqual(self.fish("switchboardctl --color always call version "), {"version", "build", "barrier"})
        for verb, options in self.options.items():
            with self.subTest(verb=verb):
                self.assertEqual(self.fish(f"switchboardctl {verb} --"), self.long(options))

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh_can_read_its_completion(self):
        completed = subprocess.run(["zsh", "-f", "-n", str(ZSH)], stderr=subprocess.PIPE, check=False, text=True)
        self.assertEqual((completed.returncode, completed.stderr), (0, ""))

    def test_the_manual_page_tells_every_verb_and_option_and_no_other(self):
        text = MANUAL.read_text()
        verbs = re.search(r"^# VERBS\n(.*?)^# ", text, re.DOTALL | re.MULTILINE)[1]
        self.assertEqual(re.findall(r"^\*(\w+)\*", verbs, re.MULTILINE), self.verbs)
        self.assertEqual(set(re.findall(r"\*(--?\w[\w-]*)=?\*", text)), self.all_options)


if __name__ == "__main__":
    unittest.main()
