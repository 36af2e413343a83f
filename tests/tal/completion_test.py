"""The completions and the manual page have every command of the help, and shells can read them."""

import re
import shutil
import subprocess
import unittest

from support import PROGRAM, USAGE, TalTest


class Completion(TalTest):
    def commands(self):
        listed = self.tal("--help").split("\nSubcommands:\n")[1]
        names = re.findall(r"(?m)^  ([a-z-]+)", listed)
        self.assertIn("commit", names)
        self.assertIn("completion", names)
        return names

    def test_every_command_is_in_every_completion_and_in_the_manual(self):
        texts = {shell: self.tal("completion", shell) for shell in ("bash", "zsh", "fish")}
        manual = self.tal("manual").replace("\\-", "-")
        for name in self.commands():
            self.assertRegex(texts["bash"], rf"(?m)^    {name}\) options=")
            self.assertRegex(texts["zsh"], rf"(?m)^    {name}\)$")
            self.assertIn(f"__fish_use_subcommand -a {name} ", texts["fish"])
            self.assertIn(f"\\fBtal {name}\\fR", manual)

    def test_every_option_is_in_every_completion_and_in_the_manual(self):
        bash = self.tal("completion", "bash")
        zsh = self.tal("completion", "zsh")
        fish = self.tal("completion", "fish")
        manual = self.tal("manual").replace("\\-", "-")
        options = set()
        for name in self.commands():
            options |= set(re.findall(r"(--[a-z-]+)", self.tal(name, "--help").split("Options:")[1]))
        self.assertIn("--dry-run", options)
        for option in options:
            self.assertIn(option, bash)
            self.assertIn(option, zsh)
            self.assertIn("-l " + option[2:], fish)
            self.assertIn(option, manual)

    def test_bash_completes_commands_options_and_branches(self):
        self.tal("init")
        self.commit("first", one="1")
        self.tal("branch", "feature/one")
        (self.scratch / "completion").write_text(self.tal("completion", "bash"))
        tools = self.scratch / "tools"
        tools.mkdir()
        (tools / "tal").symlink_to(PROGRAM)
        script = ("source ../completion; compopt() { :; }; COMP_WORDS=(tal \"$@\"); "
                  "COMP_CWORD=$#; _tal; printf '%s\\n' \"${COMPREPLY[@]}\"")

        def complete(*words):
            environment = dict(self.environment, PATH=f"{tools}:{self.environment['PATH']}")
            done = subprocess.run(["bash", "-c", script, "bash", *words], cwd=self.folder,
                                  env=environment, capture_output=True, check=True, text=True)
            return done.stdout.split()

        self.assertEqual(complete("swi"), ["switch"])
        self.assertEqual(complete("-C", ".", "comm"), ["commit"])
        self.assertIn("--dry-run", complete("commit", "--"))
        self.assertEqual(complete("switch", "fea"), ["feature/one"])

    def test_an_unknown_shell_is_wrong_usage(self):
        self.tal("completion", "csh", code=USAGE)
        self.assertIn("bash, zsh or fish", self.talk)

    def test_shells_and_man_can_read_them(self):
        """Checks those that are installed; bash always is."""
        checks = {"bash": ["bash", "-n"], "zsh": ["zsh", "-n"], "fish": ["fish", "--no-execute"]}
        checked = 0
        for shell, command in checks.items():
            if shutil.which(command[0]):
                path = self.scratch / shell
                path.write_text(self.tal("completion", shell))
                subprocess.run([*command, str(path)], check=True)
                checked += 1
        self.assertGreater(checked, 0)
        if shutil.which("man"):
            page = self.scratch / "tal.1"
            page.write_text(self.tal("manual"))
            shown = subprocess.run(["man", "--warnings", "-l", str(page)], capture_output=True,
                                   check=True, text=True, env=dict(self.environment, MANPAGER="cat"))
            self.assertEqual(shown.stderr, "")
            self.assertIn("export-git", shown.stdout)
            lines = [line.strip() for line in shown.stdout.splitlines()]
            for begin in ("Environment:", "Exit codes:"):
                self.assertTrue(any(line.startswith(begin) for line in lines), begin)


if __name__ == "__main__":
    unittest.main()
