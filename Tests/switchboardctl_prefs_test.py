#!/usr/bin/env python3
"""switchboardctl prefs and locations: what they print, what they write, what others read of it."""

import json
import os
import plistlib
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent / "Support"))
from programs import USER, ProgramTest  # noqa: E402

DOMAIN = "com.example.app"


class PreferencesTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.machine = os.path.join(self.folder, "machine")
        os.mkdir(self.machine, mode=0o755)
        self.user_file = Path(self.home, "Library/Preferences", DOMAIN + ".plist")

    def prefs(self, *words, **options):
        return self.ctl("prefs", *words, SEVRIN_LOCAL_ROOT=self.machine, **options)

    def write_file(self, root, domain, values):
        path = Path(root, "Library/Preferences", domain + ".plist")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(plistlib.dumps(values, fmt=plistlib.FMT_BINARY))
        for each in (path, path.parent, path.parent.parent):
            os.chown(each, USER, -1)

    def test_what_is_written_is_read_back_and_by_others(self):
        written = {
            "text": ("string", "good morning", "good morning"),
            "flag": ("boolean", "true", True),
            "count": ("integer", "12", 12),
            "share": ("real", "0.5", 0.5),
            "bytes": ("data", "AAEC", b"\0\1\2"),
            "list": ("json", '[1,{"a":"b"}]', [1, {"a": "b"}]),
        }
        for key, (kind, words, _) in written.items():
            with self.subTest(kind=kind):
                outcome = self.prefs("write", DOMAIN, key, words, "--type", kind)
                self.assertEqual((outcome.status, outcome.output, outcome.errors), (0, "", ""))
                self.assertEqual(self.prefs("read", DOMAIN, key).output, words + "\n")
        self.assertEqual(plistlib.loads(self.user_file.read_bytes()),
                         {key: value for key, (_, _, value) in written.items()})
        self.assertEqual(self.user_file.stat().st_mode & 0o7777, 0o600)

    def test_a_value_is_a_string_unless_a_type_is_given(self):
        self.prefs("write", DOMAIN, "key", "5")
        self.assertEqual(plistlib.loads(self.user_file.read_bytes()), {"key": "5"})

    def test_a_negative_value_follows_the_end_of_the_options(self):
        self.assertEqual(self.prefs("write", "--type", "integer", DOMAIN, "key", "--", "-5").status, 0)
        self.assertEqual(self.prefs("read", DOMAIN, "key").output, "-5\n")

    def test_a_value_is_looked_up_where_programs_look(self):
        self.write_file(self.machine, ".GlobalPreferences", {"key": 4})
        self.assertEqual(self.prefs("read", DOMAIN, "key").output, "4\n")
        self.write_file(self.machine, DOMAIN, {"key": 3})
        self.assertEqual(self.prefs("read", DOMAIN, "key").output, "3\n")
        self.write_file(self.home, ".GlobalPreferences", {"key": 2})
        self.assertEqual(self.prefs("read", DOMAIN, "key").output, "2\n")
        self.write_file(self.home, DOMAIN, {"key": 1})
        self.assertEqual(self.prefs("read", DOMAIN, "key").output, "1\n")

    def test_what_is_missing_is_the_answer_no(self):
        for action in ("read", "delete"):
            with self.subTest(action=action):
                outcome = self.prefs(action, DOMAIN, "key")
                self.assertEqual((outcome.status, outcome.output), (1, ""))
                self.assertIn("there is no such value", outcome.errors)
        self.assertEqual(self.prefs("read", DOMAIN, "key", "--json").record(),
                         {"v": 1, "domain": DOMAIN, "key": "key", "found": False})

    def test_a_deleted_value_is_gone_and_the_others_stay(self):
        self.write_file(self.home, DOMAIN, {"a": 1, "b": 2})
        self.assertEqual(self.prefs("delete", DOMAIN, "a").status, 0)
        self.assertEqual(plistlib.loads(self.user_file.read_bytes()), {"b": 2})

    def test_the_users_values_are_listed_with_their_types(self):
        self.write_file(self.machine, DOMAIN, {"machine": 1})
        self.write_file(self.home, DOMAIN, {"a": "x y", "b": 2**63, "c": [True]})
        self.assertEqual([line.split(None, 2) for line in self.prefs("list", DOMAIN).output.splitlines()],
                         [["a", "string", "x y"], ["b", "integer", str(2**63)], ["c", "array", "[true]"]])
        records = [json.loads(line) for line in self.prefs("list", DOMAIN, "--json").output.splitlines()]
        self.assertEqual(records[1], {"v": 1, "domain": DOMAIN, "key": "b", "type": "integer", "value": str(2**63)})
        self.assertEqual(self.prefs("list", DOMAIN, "--output", "key").output, "a\nb\nc\n")

    def test_a_name_that_is_no_domain_is_a_usage_error(self):
        for domain in ("../x", "", "a/b", ".hidden"):
            with self.subTest(domain=domain):
                outcome = self.prefs("write", domain, "key", "value")
                self.assertEqual((outcome.status, outcome.output), (2, ""))
                self.assertIn("is no preference domain", outcome.errors)
        self.assertFalse(Path(self.home, "Library").exists())

    def test_words_that_make_no_sense_are_a_usage_error(self):
        for words in (["read", DOMAIN], ["list", DOMAIN, "key"], ["write", DOMAIN, "key"], ["frob", DOMAIN, "key"],
                      ["write", DOMAIN, "key", "x", "--type", "integer"],
                      ["write", DOMAIN, "key", "x", "--type", "colour"]):
            with self.subTest(words=words):
                self.assertEqual(self.prefs(*words).status, 2)

    def test_a_damaged_file_is_said_and_kept(self):
        self.write_file(self.home, DOMAIN, {})
        self.user_file.write_bytes(b"damaged")
        outcome = self.prefs("read", DOMAIN, "key")
        self.assertEqual(outcome.status, 1)
        self.assertIn("preferences ignored", outcome.errors)
        outcome = self.prefs("write", DOMAIN, "key", "value")
        self.assertEqual(outcome.status, 0)
        self.assertIn("damaged preferences kept as", outcome.errors)
        self.assertEqual(Path(str(self.user_file) + ".damaged-1").read_bytes(), b"damaged")

    def test_what_cannot_be_written_is_said(self):
        Path(self.home, "Library").write_bytes(b"in the way")
        outcome = self.prefs("write", DOMAIN, "key", "value")
        self.assertEqual((outcome.status, outcome.output), (125, ""))
        self.assertIn("cannot write the preferences", outcome.errors)


class LocationsTest(ProgramTest):
    def locations(self, *words):
        outcome = self.ctl("locations", *words, SEVRIN_LOCAL_ROOT=self.folder)
        self.assertEqual((outcome.status, outcome.errors), (0, ""))
        return outcome.output

    def test_every_location_has_its_path_its_presence_and_its_attributes(self):
        os.mkdir(Path(self.home, "Library"))
        records = {record["name"]: record for record in map(json.loads, self.locations("--json").splitlines())}
        self.assertEqual(len(records), 16)
        self.assertEqual(records["userLibraryPath"],
                         {"v": 1, "name": "userLibraryPath", "exists": True, "mode": None, "owner": None, "group": None,
                          "path": self.home + "/Library"})
        support = "/Library/Application Support/Sevrin"
        self.assertEqual(records["userSVApplicationSupportPath"],
                         {"v": 1, "name": "userSVApplicationSupportPath", "exists": False, "mode": "0700",
                          "owner": None, "group": None, "path": self.home + support})
        self.assertEqual(records["localSVApplicationSupportPath"],
                         {"v": 1, "name": "localSVApplicationSupportPath", "exists": False, "mode": "0775",
                          "owner": "0", "group": "admin", "path": self.folder + support})
        self.assertEqual(records["perUserLocalSVApplicationSupportPath"]["path"], f"{self.folder}{support}/{USER}")

    def test_the_table_has_the_columns_asked_for(self):
        lines = self.locations("--output", "exists,path").splitlines()
        self.assertIn(f"no      {self.home}/Library/Logs", lines)

    def test_nothing_is_made(self):
        self.locations()
        self.assertEqual(os.listdir(self.home), [])


if __name__ == "__main__":
    unittest.main()
