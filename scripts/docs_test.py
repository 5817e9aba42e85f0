#!/usr/bin/python3
"""Tests of the documents: that they speak of what is there.

Links lead somewhere, files and functions that are named exist, and what docs/wire-protocol.md lays down (limits,
selectors, the worked example) is what the code does. Reads files of the tree only; builds and starts nothing.
"""

import re
import struct
import unittest
from pathlib import Path

import cbor2

ROOT = Path(__file__).resolve().parent.parent
DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md"))]
SOURCES = [path for folder in ["Platform", "Common", "switchboard", "client", "tools", "examples", "Tests", "bench"]
           for path in sorted((ROOT / folder).rglob("*")) if path.suffix in (".h", ".cpp")]
WIRE = (ROOT / "docs/wire-protocol.md").read_text()


def prose(document):
    """What stands outside code blocks."""
    return re.sub(r"^```.*?^```", "", document.read_text(), flags=re.DOTALL | re.MULTILINE)


def quoted(document):
    """The words in backticks."""
    return re.findall(r"`([^`\n]+)`", prose(document))


class NamesTest(unittest.TestCase):
    """What is named exists."""

    def test_every_link_leads_to_a_file(self):
        for document in DOCUMENTS:
            for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", prose(document)):
                if not target.startswith(("http:", "https:")):
                    self.assertTrue((document.parent / target).exists(), f"{document.name} links to {target}")

    def test_every_path_named_exists(self):
        folders = "Platform|Common|switchboard|client|tools|examples|Tests|bench|fuzz|scripts|docs|cmake"
        for document in DOCUMENTS:
            for words in quoted(document):
                for path in re.findall(rf"(?<![\w/.$-])(?:{folders})/[\w./-]*", words):
                    self.assertTrue((ROOT / path).exists(), f"{document.name} names {path}")

    def test_every_function_named_exists(self):
        texts = [path.read_text() for path in SOURCES]
        for document in DOCUMENTS:
            for words in quoted(document):
                found = re.fullmatch(r"(\w+)::(\w+)(\(\))?", words)
                if not found or found[1] == "std":
                    continue
                scope, name = re.compile(rf"\b{found[1]}\b"), re.compile(rf"\b{found[2]}\b")
                self.assertTrue(any(scope.search(text) and name.search(text) for text in texts),
                                f"{document.name} names {words}")


class Limits(dict):
    """Limits by name, which remember the names that were asked for."""

    def __init__(self):
        super().__init__()
        self.compared = set()

    def __getitem__(self, name):
        self.compared.add(name)
        return super().__getitem__(name)


class WireProtocolTest(unittest.TestCase):
    """The wire protocol's document is what the code does."""

    def test_the_limits_are_those_of_the_code(self):
        code = (ROOT / "Platform/XPCLimits.h").read_text()
        limits = Limits()
        for name, value in re.findall(r"inline constexpr \w[\w:]* (k\w+) = ([^;]+);", code):
            limits[name] = eval(re.sub(r"std::size_t\{(\d+)\}", r"\1", value))  # Products and shifts of numbers.
        self.assertEqual(code.count("inline constexpr"), len(limits))
        stated = {
            "body of a frame, client to listener": limits["kFrameBodyBytesMax"],
            "body of a frame, listener to client": limits["kFrameBodyBytesMax"] + limits["kRelayBytesMax"],
            "nesting inside an argument": limits["kNestingMax"],
            "descriptors of one frame": limits["kDescriptorsPerFrameMax"],
            "identifier, observer id, or name that is subscribed to": limits["kIdentifierBytesMax"],
            "endpoints published by one connection": limits["kEndpointsPerConnectionMax"],
            "subscriptions of one connection": limits["kObserversPerConnectionMax"],
            "Requests of one connection that are unanswered": limits["kUnansweredRequestsMax"],
            "bytes waiting for a peer that does not read": limits["kOutboxBytesMax"],
            "connections of one user": limits["kConnectionsPerUserMax"],
            "subscriptions of one user": limits["kObserversPerUserMax"],
            "descriptors of one user": limits["kDescriptorsPerUserMax"],
            "half-received frames and unread answers of one user": limits["kWaitingBytesPerUserMax"],
        }
        table = WIRE[WIRE.index("## 6. Limits"):WIRE.index("## 7.")]
        rows = dict(re.findall(r"^\| ([^|]+) \| ([\d,]+)", table, re.MULTILINE))
        self.assertEqual({what: int(number.replace(",", "")) for what, number in rows.items()}, stated)

        batch = re.search(r"whole frames of at most ([\d,]+) bytes in all and at most (\d+) descriptors",
                          re.sub(r"\s+", " ", WIRE))
        self.assertEqual([int(number.replace(",", "")) for number in batch.groups()],
                         [limits["kDescriptorBatchBytesMax"], limits["kDescriptorBatchMax"]])
        self.assertEqual(set(limits) - limits.compared, set(), "limits that the document does not tell")

    def test_the_selectors_are_those_of_the_code(self):
        code = (ROOT / "switchboard/SwitchboardProtocols.cpp").read_text()
        names = {"kString": "string", "kStringOrNull": "string or null", "kDictionaryOrNull": "dictionary or null",
                 "kEndpointOrNull": "endpoint or null", "kUnsigned": "uint32"}

        def types(text):
            return tuple(names[name] for name in re.findall(r"k\w+", text or ""))

        declared = set()
        call = re.compile(r'\b(oneWay|optionalOneWay|replying)\(\s*"([^"]+)"(?:,\s*\{([^}]*)\})?(?:,\s*\{([^}]*)\})?\)')
        for kind, selector, arguments, replies in call.findall(code):
            declared.add((selector, types(arguments), types(replies), "Request" if kind == "replying" else "Message"))

        stated = set()
        for row in re.findall(r"^\| (`[^|]+:?` \|.*) \|$", WIRE[WIRE.index("## 4."):WIRE.index("## 5.")], re.MULTILINE):
            cells = [cell.strip() for cell in row.split("|")]
            selector, arguments, replies, kind = cells if len(cells) == 4 else [*cells[:2], "", cells[2]]
            stated.add((selector.strip("`"), self.typesIn(arguments), self.typesIn(replies), kind))
        self.assertEqual(stated, declared)

    def typesIn(self, cell):
        """The types in a cell such as `observer id: string; name: string or null`."""
        parts = re.split(r"[;,]\s*", cell) if cell not in ("", "nothing") else []
        return tuple(part.split(": ")[-1] for part in parts)


class WorkedExampleTest(unittest.TestCase):
    """The example's bytes, read by a decoder that is not ours, say what the text around them says."""

    @classmethod
    def setUpClass(cls):
        example = WIRE[WIRE.index("## 8."):]
        cls.blocks = []
        for block in re.findall(r"(?:^    [0-9a-f]{4}  .*\n)+", example, re.MULTILINE):
            cls.blocks.append([re.fullmatch(r" {4}([0-9a-f]{4})  ((?:[0-9a-f]{2} )+) *(\S.*)", line).groups()
                               for line in block.splitlines()])
        cls.frames = [b"".join(bytes.fromhex(row[1]) for row in block) for block in cls.blocks]
        cls.sizes = [int(size) for size in re.findall(r"\((\d+) bytes\)", example)]

    def test_there_are_four_frames_of_the_stated_sizes(self):
        self.assertEqual([len(frame) for frame in self.frames], self.sizes)
        self.assertEqual(len(self.frames), 4)

    def test_offsets_and_characters_are_those_of_the_bytes(self):
        for block, frame in zip(self.blocks, self.frames):
            for number, (offset, _, characters) in enumerate(block):
                row = frame[16 * number:16 * number + 16]
                self.assertEqual(int(offset, 16), 16 * number)
                self.assertEqual(characters, "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row))

    def test_the_frames_say_what_the_text_says(self):
        question = ["queryEndpointForIdentifier:withReply:", "com.example.clock"]
        expected = [
            (1, 0, 0, ["sevrin-xpc", 1]),
            (3, 0, 1, question),
            (4, 1, 1, [cbor2.CBORTag(50331, 0)]),
            (4, 0, 1, [None]),
        ]
        for frame, wanted in zip(self.frames, expected):
            length, kind, descriptors, serial = struct.unpack("<IHHQ", frame[:16])
            self.assertEqual(length, len(frame) - 16)
            self.assertEqual((kind, descriptors, serial, cbor2.loads(frame[16:])), wanted)


if __name__ == "__main__":
    unittest.main()
