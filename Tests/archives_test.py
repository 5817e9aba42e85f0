"""Keyed archives against an independent reader: ours read by it, and others' read by us."""

import json
import os
import plistlib
import struct
import subprocess
import sys
import unittest

HELPER = os.environ["SEVRIN_ARCHIVE_TEST_HELPER"]
ARCHIVES = os.environ["SEVRIN_ARCHIVES"]
GOOD = os.path.join(ARCHIVES, "good")
BAD = os.path.join(ARCHIVES, "bad")

# Holds an object of a class that exists nowhere, so it is read as a graph only.
UNKNOWN_CLASS = {"svexception_unknownclass": "FooBar"}

# A volume that is mounted on no machine of ours; see the test of it.
VOLUME = "ktvolumeinfo"

# Nothing at all is no archive, but gives null instead of an exception.
EMPTY = "c_empty"


def run(*arguments, stdin=b""):
    return subprocess.run([HELPER, *arguments], input=stdin, capture_output=True, timeout=60, check=False)


def names_in(folder):
    return sorted(name[:-len(".archive")] for name in os.listdir(folder) if name.endswith(".archive"))


def content(folder, name):
    with open(os.path.join(folder, name + ".archive"), "rb") as file:
        return file.read()


class Archive:
    """An archive as plistlib reads it, with its references followed, in the form of the .json files."""

    def __init__(self, data):
        self.outer = plistlib.loads(data, aware_datetime=False) if sys.version_info >= (3, 13) else plistlib.loads(data)
        self.objects = self.outer["$objects"]
        self.seen = set()

    def root(self):
        return self.value(self.outer["$top"]["root"])

    def value(self, value):
        if isinstance(value, plistlib.UID):
            return self.object(value.data)
        if isinstance(value, bytes):
            return {"$data": value.hex()}
        if isinstance(value, float):
            return {"$real": "inf" if value == float("inf") else value}
        if isinstance(value, dict):
            return {key: self.value(item) for key, item in value.items()}
        if isinstance(value, list):
            return [self.value(item) for item in value]
        if hasattr(value, "timestamp"):
            return {"$date": value}
        return value

    def object(self, number):
        value = self.objects[number]
        if number == 0:
            return None
        if not isinstance(value, dict):
            return self.value(value)
        if number in self.seen:
            return {"$ref": number}
        self.seen.add(number)
        name = self.objects[value["$class"].data]["$classname"]
        result = {"$id": number, "$class": name}
        if "Dictionary" in name:
            keys = [self.value(key) for key in value["NS.keys"]]
            result["entries"] = [list(entry) for entry in zip(keys, map(self.value, value["NS.objects"]))]
        elif "Array" in name or name in ("NSSet", "NSMutableSet"):
            result["items"] = [self.value(item) for item in value["NS.objects"]]
        else:
            result.update({key: self.value(item) for key, item in sorted(value.items()) if key != "$class"})
        return result


class Graph:
    """Two such trees, made comparable: references lead to the object again, and what has no order is sorted."""

    def __init__(self, tree):
        self.known = {}
        self.tree = tree
        self.learn(tree)

    def learn(self, tree):
        if isinstance(tree, dict):
            if "$id" in tree:
                self.known[tree["$id"]] = tree
            for item in tree.values():
                self.learn(item)
        elif isinstance(tree, list):
            for item in tree:
                self.learn(item)

    def resolved(self, tree):
        if isinstance(tree, dict) and "$ref" in tree:
            return self.known[tree["$ref"]]
        return tree


def plain(tree):
    """What a value of ours keeps: not whether text was mutable, nor which of its forms a date had."""
    if not isinstance(tree, dict):
        return tree
    if tree.get("$class") == "NSMutableString":
        return tree["NS.string"]
    if tree.get("$class") == "NSMutableData":
        return tree["NS.data"]
    if tree.get("$class") == "NSDate":
        return {"$date": tree["NS.time"]["$real"]}
    return tree


def sort_key(tree):
    return json.dumps(plain(tree), sort_keys=True, default=str)


def difference(left, right, left_graph, right_graph, path="root", pairs=None):
    """Where two graphs differ first; None where they are the same, objects met twice included."""
    pairs = {} if pairs is None else pairs
    left, right = plain(left_graph.resolved(left)), plain(right_graph.resolved(right))
    if isinstance(left, dict) and "$id" in left and isinstance(right, dict) and "$id" in right:
        if left["$id"] in pairs:
            return None if pairs[left["$id"]] == right["$id"] else path
        if right["$id"] in pairs.values():
            return path
        pairs[left["$id"]] = right["$id"]
    if type(left) is not type(right):
        return path
    if isinstance(left, list):
        if len(left) != len(right):
            return path
        parts = [(i, a, b) for i, (a, b) in enumerate(zip(left, right))]
    elif isinstance(left, dict):
        left, right = ordered(left), ordered(right)
        if list(left) != list(right):
            return path
        parts = [(key, left[key], right[key]) for key in left if key != "$id"]
    else:
        return None if left == right else path
    for key, a, b in parts:
        found = difference(a, b, left_graph, right_graph, f"{path}/{key}", pairs)
        if found:
            return found
    return None


def ordered(tree):
    tree = dict(sorted(tree.items()))
    if "entries" in tree:
        tree["entries"] = sorted(tree["entries"], key=lambda entry: sort_key(entry[0]))
    if tree.get("$class") in ("NSSet", "NSMutableSet"):
        tree["items"] = sorted(tree["items"], key=sort_key)
    if "$real" in tree and isinstance(tree["$real"], float):
        tree["$real"] = struct.pack(">d", tree["$real"])
    return tree


class VectorsTest(unittest.TestCase):
    def test_there_are_as_many_as_there_should_be(self):
        self.assertEqual((len(names_in(GOOD)), len(names_in(BAD))), (26, 41))

    def test_good_archives_read_equal(self):
        for name in names_in(GOOD):
            with self.subTest(name):
                if name in UNKNOWN_CLASS or name == VOLUME:
                    continue
                outcome = run("rewrite", stdin=content(GOOD, name))
                self.assertEqual(outcome.returncode, 0, outcome.stderr)
                with open(os.path.join(GOOD, name + ".json"), encoding="utf-8") as file:
                    expected = Graph(json.load(file)["graph"]["top"]["root"])
                found = Graph(Archive(outcome.stdout).root())
                self.assertIsNone(difference(expected.tree, found.tree, expected, found))
                self.check_details(found.tree)

    def check_details(self, tree):
        """The details of our own exception are those that it changes."""
        if isinstance(tree, dict) and tree["$class"] == "SVException":
            self.assertEqual(tree["NS.userinfo"]["$class"], "NSMutableDictionary")

    def test_a_class_that_exists_nowhere_is_refused_by_name(self):
        for name, unknown in UNKNOWN_CLASS.items():
            outcome = run("rewrite", stdin=content(GOOD, name))
            self.assertEqual(outcome.returncode, 1)
            self.assertIn(f"cannot decode object of class ({unknown})", outcome.stderr.decode())

    def test_a_volume_is_read_as_it_is_mounted_now(self):
        archive = plistlib.loads(content(GOOD, VOLUME))
        mounted = archive["$objects"].index("/Volumes/Data")

        outcome = run("rewrite", stdin=content(GOOD, VOLUME))
        self.assertEqual((outcome.returncode, outcome.stderr), (1, b"IO\nproblem getting volume statfs\n"))

        archive["$objects"][mounted] = "/"
        outcome = run("rewrite", stdin=plistlib.dumps(archive, fmt=plistlib.FMT_BINARY))
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        root = Archive(outcome.stdout).root()
        self.assertEqual((root["$class"], root["mountpoint"]), ("KTVolumeInfo", "/"))

    def test_bad_archives_are_refused(self):
        for name in names_in(BAD):
            with self.subTest(name):
                outcome = run("rewrite", stdin=content(BAD, name))
                if name == EMPTY:
                    self.assertEqual(outcome.returncode, 3)
                    self.assertIn(b"data is empty", outcome.stderr)
                    continue
                self.assertEqual(outcome.returncode, 1, outcome.stderr)
                exception, reason = outcome.stderr.decode().splitlines()
                expected = ["NSInvalidUnarchiveOperationException"]
                if name[0] in "ca":
                    expected.append("NSInvalidArgumentException")
                self.assertIn(exception, expected)
                self.assertRegex(reason, r"^\*\*\* -\[NSKeyedUnarchiver [a-zA-Z:]+\]: .{10,}")

    def test_an_archive_cut_anywhere_is_refused(self):
        whole = content(GOOD, "svexception_cause")
        for length in range(1, len(whole), 7):
            outcome = run("rewrite", stdin=whole[:length])
            self.assertEqual(outcome.returncode, 1, length)
            self.assertIn(b"incomprehensible archive", outcome.stderr)


class SampleTest(unittest.TestCase):
    def setUp(self):
        data = run("sample").stdout
        self.archive = Archive(data)
        self.entries = {json.dumps(key): item for key, item in self.archive.root()["entries"]}

    def entry(self, key):
        return self.entries[json.dumps(key)]

    def items(self, key):
        return self.entry(key)["items"]

    def test_the_outermost_dictionary_says_what_it_is(self):
        self.assertEqual(sorted(self.archive.outer), ["$archiver", "$objects", "$top", "$version"])
        self.assertEqual(self.archive.outer["$archiver"], "NSKeyedArchiver")
        self.assertEqual(self.archive.outer["$version"], 100000)
        self.assertEqual(self.archive.objects[0], "$null")

    def test_text_is_read_as_it_was_written(self):
        self.assertEqual(self.items("text"), ["", "caf\u00e9", "\U0001F600", "a\0b"])

    def test_numbers_keep_kind_and_value(self):
        integers = self.items("integers")
        self.assertEqual(integers, [0, 255, 256, -1, -2**63, 2**64 - 1])
        self.assertTrue(all(type(number) is int for number in integers))
        self.assertIs(self.items("booleans")[0], True)
        self.assertIs(self.items("booleans")[1], False)
        reals = [struct.pack(">d", number["$real"]) for number in self.items("reals")]
        self.assertEqual(reals, [struct.pack(">d", number) for number in (1.0, 0.0, -0.0, 1e300)])

    def test_data_and_dates_have_their_forms(self):
        self.assertEqual(self.entry("data"), {"$data": "00ff"})
        date = self.entry("date")
        self.assertEqual((date["$class"], date["NS.time"]), ("NSDate", {"$real": 700000000.25}))

    def test_keys_need_not_be_text(self):
        self.assertEqual(self.entry(7), "a number for a key")

    def test_null_in_a_container_is_an_object(self):
        self.assertEqual(self.entry("null")["$class"], "NSNull")

    def test_what_is_met_twice_is_there_once(self):
        first, second = self.items("twice")
        self.assertEqual(second, {"$ref": first["$id"]})
        self.assertEqual(self.entry("same error"), {"$ref": self.entry("error")["$id"]})

    def test_urls_and_uuids_have_their_forms(self):
        url = self.entry("url")
        self.assertEqual((url["$class"], url["NS.base"], url["NS.relative"]), ("NSURL", None, "file:///tmp/x"))
        relative = self.entry("relative")
        self.assertEqual(relative["NS.relative"], "page")
        self.assertEqual(relative["NS.base"]["NS.relative"], "https://example.com/")
        self.assertEqual(self.entry("uuid")["NS.uuidbytes"], {"$data": b"0123456789abcdef".hex()})

    def test_errors_have_their_form(self):
        error = self.entry("error")
        self.assertEqual((error["NSCode"], error["NSDomain"]), (13, "NSPOSIXErrorDomain"))
        self.assertEqual(error["NSUserInfo"]["entries"], [["NSLocalizedDescription", "Permission denied"]])

    def test_every_class_is_described_once_up_to_the_root(self):
        classes = [item for item in self.archive.objects if isinstance(item, dict) and "$classname" in item]
        names = [item["$classname"] for item in classes]
        self.assertEqual(len(names), len(set(names)))
        for item in classes:
            self.assertEqual((item["$classes"][0], item["$classes"][-1]), (item["$classname"], "NSObject"))


if __name__ == "__main__":
    unittest.main()
