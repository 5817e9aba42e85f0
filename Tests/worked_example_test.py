"""The worked example of docs/wire-protocol.md, sent to the real switchboard byte by byte as it is printed there."""

import os
import re
import socket
import stat
import sys
import unittest
from pathlib import Path

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import PATIENCE, SERVICE, USER, ProgramTest  # noqa: E402
from wire import acting_as  # noqa: E402

DOCUMENT = Path(__file__).resolve().parent.parent / "docs/wire-protocol.md"


def frames():
    """The greeting, the question, the answer, and the answer that there is none."""
    example = DOCUMENT.read_text().split("\n## 8.")[1]
    blocks = re.findall(r"(?:^    [0-9a-f]{4}  .*\n)+", example, re.MULTILINE)
    return [bytes.fromhex("".join(re.findall(r"^    [0-9a-f]{4}  ((?:[0-9a-f]{2} )+)", block, re.MULTILINE)))
            for block in blocks]


class WorkedExampleTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.start_switchboard()
        self.greeting, self.question, self.found, self.nothing = frames()

    def ask(self, size):
        """The first `size` bytes that answer the greeting and the question, and the descriptors with them."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as asker:
            asker.settimeout(PATIENCE)
            with acting_as(USER):
                asker.connect(os.path.join(self.bootstrap, SERVICE))
            asker.sendall(self.greeting + self.question)
            received, descriptors = b"", []
            while len(received) < size:
                data, own, *_ = socket.recv_fds(asker, size - len(received), 253)
                self.assertTrue(data, "the connection has ended")
                received += data
                descriptors += own
        for descriptor in descriptors:
            self.addCleanup(os.close, descriptor)
        return received, descriptors

    def test_nobody_publishes_it(self):
        wanted = self.greeting + self.nothing
        self.assertEqual(self.ask(len(wanted)), (wanted, []))

    def test_somebody_publishes_it(self):
        self.publish("com.example.clock")
        wanted = self.greeting + self.found
        received, descriptors = self.ask(len(wanted))
        self.assertEqual((received, len(descriptors)), (wanted, 1))
        self.assertTrue(stat.S_ISSOCK(os.fstat(descriptors[0]).st_mode))
        with self.assertRaises(OSError):
            os.read(descriptors[0], 1)


if __name__ == "__main__":
    unittest.main()
