#!/usr/bin/env python3
"""The shared log file as its documentation tells others to read it."""

import re
import signal
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "Tests/Support"))
from programs import ProgramTest  # noqa: E402

LINE = re.compile(re.search(r"^```\n(\^\(\?P<date>.*)\n```$", (ROOT / "docs/files.md").read_text(), re.MULTILINE)[1])
WORDS = {"       ", "-------", "Curious", "Caution", "Warning", "Failure", "Minutia", "Details", "Subrosa", "#debug#"}


class LogFileTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.log = Path(self.home, "Library/Logs/Sevrin/Sevrin.log")

    def run_switchboard(self):
        service = self.start_switchboard()
        service.signal(signal.SIGINT)
        self.assertEqual(service.wait(), 0)

    def test_the_expression_of_the_documentation_takes_every_line_apart(self):
        self.run_switchboard()
        lines = self.log.read_text(encoding="ascii").splitlines()
        records = [LINE.match(line) for line in lines]
        self.assertNotIn(None, records)
        self.assertLessEqual({record["word"] for record in records}, WORDS)
        messages = [record["message"] for record in records]
        self.assertIn("started Switchboard-2.2.5.12", messages)
        self.assertEqual(messages[-1], "stopping Switchboard-2.2.5.12")
        identifiers = [record["id"] for record in records]
        self.assertEqual(len(set(identifiers)), len(identifiers))
        head = identifiers[messages.index("started Switchboard-2.2.5.12")]
        self.assertTrue(all(each.startswith(head + ".") for each, message in zip(identifiers, messages)
                            if message.startswith(("arch: ", "port: ", "users: "))))

    def test_a_second_run_goes_on_in_the_same_file(self):
        self.run_switchboard()
        before = self.log.read_bytes()
        self.run_switchboard()
        self.assertTrue(self.log.read_bytes().startswith(before))
        self.assertEqual(self.log.read_text().count(" stopping Switchboard-2.2.5.12 ["), 2)

    def test_two_at_once_share_it(self):
        first = self.start_switchboard()
        second = self.start(self.programs.switchboard)  # Finds the name taken, and says so in the log.
        for service in (second, first):
            service.signal(signal.SIGINT)
            service.wait()
        self.assertNotIn(None, [LINE.match(line) for line in self.log.read_text().splitlines()])


if __name__ == "__main__":
    unittest.main()
