"""switchboardctl archive: every archive as a tree, as JSON and back, two compared; and what is no archive."""

import datetime
import json
import os
import plistlib
import subprocess
import tempfile
import unittest

CTL = os.environ["SEVRIN_SWITCHBOARDCTL_PROGRAM"]
ARCHIVES = os.environ["SEVRIN_ARCHIVES"]

# Wrong only in what its objects mean, which a graph does not know; or in nothing that it is made of.
SOUND_GRAPHS = ("v_", "a_class", "a_top_root_inline")

CAUSE = """\
root: SVException #1
  NS.name: "IO"
  NS.reason: "outer"
  NS.userinfo: NSMutableDictionary #4
    "Cause": SVException #7
      NS.name: "Bug"
      NS.reason: "inner"
      NS.userinfo: NSMutableDictionary #10
        "POSIXErr": 2
    "Object": NSArray #15
      [0]: SVException #7, see above
"""


def ctl(*arguments, stdin=b""):
    return subprocess.run([CTL, "archive", *arguments], input=stdin, capture_output=True, timeout=60, check=False)


def archives(folder):
    folder = os.path.join(ARCHIVES, folder)
    return [os.path.join(folder, name) for name in sorted(os.listdir(folder)) if name.endswith(".archive")]


def good(name):
    return os.path.join(ARCHIVES, "good", name + ".archive")


def archive_of(objects):
    return plistlib.dumps({"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": plistlib.UID(1)},
                           "$objects": ["$null", *objects]}, fmt=plistlib.FMT_BINARY, sort_keys=False)


class ArchiveVerbTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="sevrin-archive-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def file(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def assertRefused(self, outcome, reason):
        self.assertEqual((outcome.returncode, outcome.stdout), (1, b""))
        self.assertRegex(outcome.stderr.decode(), reason)

    def test_a_tree_shows_each_object_once(self):
        outcome = ctl("show", good("svexception_cause"))
        self.assertEqual((outcome.returncode, outcome.stdout.decode()), (0, CAUSE))

    def test_a_tree_shows_what_values_are(self):
        tree = ctl("show", good("svexception_full")).stdout.decode()
        for line in ('"POSIXErr": 13', '".SoftError": true', '"Real": 0.1', '"Raw": 4 bytes: 000102ff', '"Null": NSNull #47',
                     "NS.base: nil", '"Path": "/tmp/x \u00e9\u20ac"', '"When": NSDate 2023-03-08 20:26:40 +0000 (700000000.25 s'):
            self.assertIn(line, tree)

    def test_classes_that_exist_nowhere_are_shown(self):
        tree = ctl("show", good("svexception_unknownclass")).stdout.decode()
        self.assertIn('"Object": FooBar #6\n      a: 1\n      b: "str"\n', tree)

    def test_control_characters_do_not_reach_the_terminal(self):
        outcome = ctl("show", "-", stdin=archive_of(["\033[2J"]))
        self.assertEqual(outcome.stdout.decode(), 'root: "\\u001b[2J"\n')

    def test_every_archive_survives_json(self):
        for path in archives("good"):
            with self.subTest(path):
                text = ctl("to-json", path).stdout
                self.assertEqual(json.loads(text)["v"], 1)
                outcome = ctl("from-json", "-", stdin=text)
                self.assertEqual(outcome.returncode, 0, outcome.stderr)
                with open(path, "rb") as file:
                    self.assertEqual(repr(plistlib.loads(outcome.stdout)), repr(plistlib.load(file)))
                again = ctl("to-json", "-", stdin=outcome.stdout)
                self.assertEqual(again.stdout, text)
                same = ctl("diff", path, self.file("again", outcome.stdout))
                self.assertEqual((same.returncode, same.stdout), (0, b""))

    def test_json_tells_kinds_apart(self):
        objects = [1, 1.0, True, 2**53, 2**53 + 1, -2**63, 2**64 - 1, float("inf"), -0.0, b"\0", "1", plistlib.UID(3),
                   float("-inf"), datetime.datetime(2023, 3, 8, 20, 26, 40)]
        archive = archive_of(objects)
        text = ctl("to-json", "-", stdin=archive).stdout
        members = json.loads(text)["archive"]["dictionary"]["$objects"]["array"][1:]
        self.assertEqual(repr(members), repr([
            1, {"real": 1.0}, True, 2**53, {"integer": str(2**53 + 1)}, {"integer": str(-2**63)},
            {"integer": str(2**64 - 1)}, {"real": "inf"}, {"real": -0.0}, {"data": "AA=="}, "1", {"uid": 3},
            {"real": "-inf"}, {"date": 700000000.0}]))
        self.assertEqual(repr(plistlib.loads(ctl("from-json", "-", stdin=text).stdout)), repr(plistlib.loads(archive)))

    def test_what_is_not_a_number_keeps_its_bits(self):
        objects = [float("nan")]
        archive = archive_of(objects)
        place = archive.index(b"\x23\x7f\xf8")
        archive = archive[:place + 1] + b"\xff\xf4" + b"\0" * 5 + b"\x07" + archive[place + 9:]
        record = json.loads(ctl("to-json", "-", stdin=archive).stdout)
        member = record["archive"]["dictionary"]["$objects"]["array"][1]
        self.assertEqual(member, {"real": "nan", "bits": "fff4000000000007"})
        # As who sorts the members of every object has it.
        sorted_text = json.dumps(record, sort_keys=True).encode()
        self.assertIn(bytes.fromhex("23fff4000000000007"), ctl("from-json", "-", stdin=sorted_text).stdout)
        plain = json.dumps(record).replace(', "bits": "fff4000000000007"', "").encode()
        self.assertIn(bytes.fromhex("237ff8000000000000"), ctl("from-json", "-", stdin=plain).stdout)

    def test_json_that_says_no_archive_is_refused(self):
        wrong = {
            b"": "no JSON: it is empty", b"[": "no JSON: parse error at line 1, column 2: ",
            b'{"v": 1,\n"archive": {"real" 1}}': "no JSON: parse error at line 2, column 20: .*expected ':'",
            b'{"archive":{"real":1e400}}': "no JSON: number overflow parsing '1e400'",
            b'{"archive":{"' + b"x" * 1000: "no JSON: .{200}\\.\\.\\.$",
            b"[]": 'no member "archive"', b'{"archive":null}': "stands alone",
            b'{"archive":"x"}': "no dictionary", b'{"archive":{"dictionary":{}}}': "archiver",
            b'{"archive":1.5}': "the number 1.5 stands alone", b'{"archive":{}}': "without a kind",
            b'{"archive":99999999999999999999}': 'the number 1e.20 stands alone; .*{"integer": "..."}',
            b'{"archive":{"real":"much"}}': 'no number: "much"', b'{"archive":{"real":null}}': "no number: null",
            b'{"archive":{"real":"nan","bits":""}}': 'not those of a nan: ""',
            b'{"archive":{"real":"nan","bits":"0"}}': "not those of a nan",
            b'{"archive":{"real":"nan","bits":"7ff8x"}}': "not those of a nan",
            b'{"archive":{"real":"nan","bits":"7ff80000000000000"}}': "not those of a nan",
            b'{"archive":{"real":"nan","bits":7}}': "not those of a nan: 7",
            b'{"archive":{"real":1.5,"bits":"7ff8000000000000"}}': "several members: .*1.5",
            b'{"archive":{"wheel":1}}': "no known kind", b'{"archive":{"data":"x"}}': "base64",
            b'{"archive":{"uid":4294967296}}': "reference", b'{"archive":{"uid":-1}}': "reference",
            b'{"archive":{"integer":"1e5"}}': "64 bits", b'{"archive":{"integer":"18446744073709551616"}}': "64 bits",
            b'{"archive":{"a":1,"b":2}}': "several members",
            b'{"archive":{"dictionary":{"a":1,"b":2,"a":3}}}': 'twice: "a"', b'{"v":2,"archive":1}': "version",
            b'{"archive":' + b'{"array":[' * 600 + b"]}" * 600 + b"}": "too deep",
            b"[" * 1000000: "no JSON",
        }
        for text, reason in wrong.items():
            with self.subTest(text[:40]):
                self.assertRefused(ctl("from-json", "-", stdin=text), reason)

    def test_diff_tells_what_differs_and_where(self):
        text = ctl("to-json", good("svexception_cause")).stdout
        changed = text.replace(b'"inner"', b'"INNER"').replace(b'"POSIXErr",2', b'"POSIXErr",3')
        other = self.file("changed", ctl("from-json", "-", stdin=changed).stdout)
        outcome = ctl("diff", good("svexception_cause"), other)
        self.assertEqual(outcome.returncode, 1)
        self.assertEqual(set(outcome.stdout.decode().splitlines()), {
            'root/NS.userinfo/"Cause"/NS.reason: "inner" -> "INNER"',
            'root/NS.userinfo/"Cause"/NS.userinfo/"POSIXErr": 2 -> 3'})
        record = json.loads(ctl("diff", "--json", good("svexception_cause"), other).stdout.splitlines()[0])
        self.assertEqual(sorted(record), ["left", "path", "right", "v"])

    def test_diff_sees_entries_that_only_one_has(self):
        def dictionary(*names):
            keys = [plistlib.UID(3 + i) for i in range(len(names))]
            return archive_of([{"NS.keys": keys, "NS.objects": keys, "$class": plistlib.UID(2)},
                               {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]}, *names])
        left, right = self.file("left", dictionary("a", "b")), self.file("right", dictionary("b", "c"))
        outcome = ctl("diff", left, right)
        self.assertEqual(outcome.stdout.decode(), 'root/"a": "a" -> nothing\nroot/"c": nothing -> "c"\n')

    def test_diff_sees_kinds_and_whether_an_object_is_one(self):
        def array(*numbers):
            return archive_of([{"NS.objects": [plistlib.UID(n) for n in numbers], "$class": plistlib.UID(2)},
                               {"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]},
                               {"$class": plistlib.UID(5)}, {"$class": plistlib.UID(5)},
                               {"$classname": "NSNull", "$classes": ["NSNull", "NSObject"]}, 1, 1.0, True])
        one, two = self.file("one", array(3, 3)), self.file("two", array(3, 4))
        self.assertEqual(ctl("diff", one, two).returncode, 1)
        self.assertEqual(ctl("diff", one, self.file("swapped", array(4, 4))).returncode, 0)
        for left, right in ((6, 7), (6, 8), (7, 8)):
            files = self.file("left", array(left)), self.file("right", array(right))
            self.assertEqual(ctl("diff", *files).returncode, 1)

    def test_what_is_no_archive_is_refused_with_the_reason(self):
        for path in archives("bad"):
            if os.path.basename(path).startswith(SOUND_GRAPHS):
                continue
            for action in ("show", "to-json"):
                with self.subTest(path, action=action):
                    self.assertRefused(ctl(action, path), f"switchboardctl: archive: {path}: no keyed archive: .+")

    def test_a_graph_of_senseless_objects_is_shown(self):
        for path in archives("bad"):
            if os.path.basename(path).startswith(SOUND_GRAPHS):
                with self.subTest(path):
                    self.assertEqual(ctl("show", path).returncode, 0)

    def test_a_reference_that_leads_nowhere_is_refused(self):
        lost = archive_of([{"field": plistlib.UID(7)}])
        self.assertRefused(ctl("show", "-", stdin=lost), "a reference to object 7, of 2")

    def test_a_chain_of_any_length_is_shown_and_compared(self):
        chain = archive_of([{"next": plistlib.UID(i + 2)} for i in range(100000)] + [0])
        path = self.file("chain", chain)
        self.assertIn(b"deeper than is shown", ctl("show", path).stdout)
        self.assertEqual(ctl("diff", path, path).returncode, 0)

    def test_a_file_that_cannot_be_read_is_refused_with_the_reason(self):
        self.assertRefused(ctl("show", os.path.join(self.folder, "missing")), "missing: No such file")
        self.assertRefused(ctl("show", self.folder), "Is a directory")
        self.assertRefused(ctl("show", ""), 'archive: "": No such file')
        self.assertRefused(ctl("diff", good("ktpath"), "missing"), "archive: missing: No such file")

    def test_standard_input_is_called_by_its_name(self):
        self.assertRefused(ctl("show", "-"), "archive: standard input: no keyed archive: it is empty")
        self.assertRefused(ctl("from-json", "-"), "archive: standard input: no JSON: it is empty")
        with open(good("ktpath"), "rb") as file:
            content = file.read()
        self.assertEqual(ctl("diff", "-", good("ktpath"), stdin=content).returncode, 0)
        twice = ctl("diff", "-", "-", stdin=content)
        self.assertEqual((twice.returncode, twice.stdout), (2, b""))
        self.assertIn(b"standard input can be read once only", twice.stderr)

    def test_an_answer_that_cannot_be_written_is_not_taken_for_one(self):
        text = ctl("to-json", good("ktpath")).stdout
        for arguments, stdin in ((("show", good("ktpath")), b""), (("to-json", good("ktpath")), b""),
                                 (("from-json", "-"), text)):
            with self.subTest(arguments), open("/dev/full", "wb") as full:
                outcome = subprocess.run([CTL, "archive", *arguments], input=stdin, stdout=full,
                                         stderr=subprocess.PIPE, timeout=60, check=False)
                self.assertEqual(outcome.returncode, 125)
                self.assertIn(b"cannot write the answer: No space left on device", outcome.stderr)

    def test_an_archive_is_not_written_to_a_terminal(self):
        terminal, program_side = os.openpty()
        try:
            outcome = subprocess.run([CTL, "archive", "from-json", "-"], input=ctl("to-json", good("ktpath")).stdout,
                                     stdout=program_side, stderr=subprocess.PIPE, timeout=60, check=False)
        finally:
            os.close(program_side)
            os.close(terminal)
        self.assertEqual(outcome.returncode, 2)
        self.assertIn(b"an archive is not for a terminal. Try: switchboardctl archive from-json FILE > ARCHIVE",
                      outcome.stderr)

    def test_a_tree_as_json_is_the_archive_as_json(self):
        self.assertEqual(ctl("show", "--json", good("ktpath")).stdout, ctl("to-json", good("ktpath")).stdout)

    def test_the_number_of_files_is_checked(self):
        self.assertEqual(ctl("diff", good("ktpath")).returncode, 2)
        self.assertEqual(ctl("show", good("ktpath"), good("ktpath")).returncode, 2)
        self.assertEqual(ctl("diff", good("ktpath"), good("ktpath"), good("ktpath")).returncode, 2)
        self.assertEqual(ctl("show").returncode, 2)
        self.assertEqual(ctl("frob", good("ktpath")).returncode, 2)


if __name__ == "__main__":
    unittest.main()
