#!/usr/bin/env python3
"""switchboardctl path: what it shows of real files, folders and volumes, compared with what the system says of them."""

import base64
import contextlib
import ctypes
import datetime
import json
import os
import re
import socket
import stat
import struct
import subprocess
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent / "Support"))
from programs import IS_ROOT, PATIENCE, USER, ProgramTest, identity_of  # noqa: E402

STRANGE = b"line\nbreak \x1b[31m \xff.txt"
STRANGE_TEXT = "line\nbreak \x1b[31m \ufffd.txt"
STRANGE_SHOWN = "line\\u000abreak \\u001b[31m \\xff.txt"


def nanoseconds(text):
    """A time with nanoseconds, as a number since 1970."""
    moment, fraction, offset = re.fullmatch(r"(.*)\.(\d{9})([+-]\d\d:\d\d)", text).groups()
    return int(datetime.datetime.fromisoformat(moment + offset).timestamp()) * 10**9 + int(fraction)


class PathTest(ProgramTest):
    """A tree of the user's, and runs of the verb. Not run itself."""

    def setUp(self):
        super().setUp()
        self.tree = Path(self.folder, "tree")
        self.make_folder("")

    def make_folder(self, name, mode=0o755):
        path = self.tree / name
        path.mkdir()
        path.chmod(mode)
        os.chown(path, USER, -1)
        return path

    def make_file(self, name, content=b""):
        path = Path(os.fsdecode(os.path.join(os.fsencode(self.tree), os.fsencode(name))))
        path.write_bytes(content)
        os.chown(path, USER, -1)
        return path

    def path(self, *words, status=0, **options):
        outcome = self.ctl("path", *map(os.fsencode, words), **options)
        self.assertEqual(outcome.status, status, outcome.errors)
        if status == 0:
            self.assertEqual(outcome.errors, "")
        return outcome

    def records(self, *words, **options):
        return [json.loads(line) for line in self.path(*words, "--json", **options).output.splitlines()]

    def names(self, *words, **options):
        return [record["name"] for record in self.records("ls", self.tree, *words, **options)]


class PathStatTest(PathTest):
    def facts(self, path, **options):
        return self.records("stat", path, **options)[0]

    def assertSameFacts(self, facts, path):
        expected = os.lstat(path)
        self.assertEqual(facts["mode"], f"{stat.S_IMODE(expected.st_mode):04o}")
        self.assertEqual(facts["permissions"], stat.filemode(expected.st_mode))
        self.assertEqual((facts["owner_id"], facts["group_id"]), (expected.st_uid, expected.st_gid))
        self.assertEqual((facts["id"], facts["device"]), (expected.st_ino, expected.st_dev))
        self.assertEqual(facts["links"], expected.st_nlink)
        self.assertEqual(nanoseconds(facts["modified"]), expected.st_mtime_ns)
        self.assertEqual(nanoseconds(facts["changed"]), expected.st_ctime_ns)

    def test_a_file_has_the_attributes_that_the_system_has_of_it(self):
        path = self.make_file("a.txt", b"x" * 5000)
        os.link(path, self.tree / "b")
        path.chmod(0o4751)
        os.utime(path, ns=(0, 1234567890123456789))
        facts = self.facts(path)
        self.assertSameFacts(facts, path)
        self.assertEqual((facts["path"], facts["name"], facts["extension"]), (str(path), "a.txt", "txt"))
        self.assertEqual((facts["kind"], facts["type"], facts["exists"], facts["kept_by_backups"]), ("file", 1, True, True))
        self.assertEqual((facts["size"], facts["data_length"]), (5000, 5000))
        self.assertEqual(facts["allocated"], os.lstat(path).st_blocks * 512)
        self.assertEqual((facts["hard_link"], facts["access"]), (True, "rwx"))
        self.assertEqual((facts["hidden"], facts["package"], facts["target"], facts["entries"]), (False, None, None, None))

    def test_a_folder_has_entries_and_no_size(self):
        folder = self.make_folder("folder")
        self.make_file("folder/a")
        self.make_file("folder/.b")
        facts = self.facts(folder)
        self.assertSameFacts(facts, folder)
        self.assertEqual((facts["kind"], facts["entries"], facts["size"], facts["mount_point"]), ("folder", 2, None, False))
        self.assertIs(facts["package"], False)

    def test_a_link_is_told_of_and_not_what_it_leads_to(self):
        for target in (b"nowhere/at/all", os.fsencode(self.make_folder("folder")), b"\xff\n"):
            with self.subTest(target=target):
                path = self.tree / "link"
                os.symlink(target, path)
                facts = self.facts(path)
                self.assertSameFacts(facts, path)
                self.assertEqual((facts["kind"], facts["size"], facts["resource_length"]), ("link", len(target), 0))
                bytes_told = base64.b64decode(facts["target_bytes"]) if "target_bytes" in facts else facts["target"].encode()
                self.assertEqual(bytes_told, target)
                path.unlink()

    def test_pipes_and_sockets_are_looked_at_without_being_opened(self):
        os.mkfifo(self.tree / "pipe")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(self.tree / "socket"))
            for name, number in (("pipe", 7), ("socket", 6)):
                with self.subTest(name=name):
                    facts = self.facts(self.tree / name)
                    self.assertEqual((facts["kind"], facts["type"], facts["kept_by_backups"]), (name, number, False))

    def test_a_name_that_is_not_utf_8_is_told_as_text_and_as_bytes(self):
        path = self.make_file(STRANGE)
        facts = self.facts(path)
        self.assertEqual(facts["name"], STRANGE_TEXT)
        self.assertEqual(base64.b64decode(facts["name_bytes"]), STRANGE)
        self.assertEqual(base64.b64decode(facts["path_bytes"]), os.fsencode(path))

    def test_text_has_the_facts_of_the_record_one_a_line_and_nothing_that_a_terminal_obeys(self):
        path = self.make_file(STRANGE, b"content")
        lines = self.path("stat", path).output.splitlines()
        facts = self.facts(path)
        expected = [key for key in facts if key != "v" and not key.endswith("_bytes")]
        width = max(map(len, expected)) + 2
        told = {line[:width].rstrip().replace(" ", "_"): line[width:] for line in lines}
        self.assertEqual(list(told), expected)
        self.assertEqual((told["name"], told["size"], told["mode"]), (STRANGE_SHOWN, "7", "0644"))
        self.assertFalse(re.search(r"[\x00-\x09\x0b-\x1f\x7f]", "\n".join(lines)))

    def test_an_access_list_is_told_entry_by_entry(self):
        path = self.make_file("a")
        entries = ((1, 6, 2**32 - 1), (2, 4, 12345), (4, 4, 2**32 - 1), (16, 6, 2**32 - 1), (32, 0, 2**32 - 1))
        try:
            os.setxattr(path, "system.posix_acl_access",
                        struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries))
        except OSError as error:
            self.skipTest(f"no access lists on this file system: {error}")
        self.assertEqual(self.facts(path)["acl"],
                         ["user::rw-", "user:12345:r--", "group::r--", "mask::rw-", "other::---"])
        self.assertIn("\nacl                   user::rw-\n                      user:12345:r--\n",
                      self.path("stat", path).output)

    def test_what_is_excluded_from_backups_is_told(self):
        path = self.make_file("a")
        self.assertIs(self.facts(path)["excluded_from_backup"], False)
        try:
            os.setxattr(path, "user.xdg.robots.backup", b"false")
        except OSError as error:
            self.skipTest(f"no extended attributes on this file system: {error}")
        self.assertIs(self.facts(path)["excluded_from_backup"], True)

    def test_a_relative_path_is_told_from_the_root_on(self):
        self.assertEqual(self.facts("tmp")["path"], "/tmp")

    def test_what_is_not_there_has_a_record_that_says_so_and_the_others_follow(self):
        present = self.make_file("present")
        missing = self.tree / "missing"
        outcome = self.path("stat", missing, present / "below", present, "--json", status=1)
        records = [json.loads(line) for line in outcome.output.splitlines()]
        self.assertEqual([(record["exists"], record["kind"], record["size"]) for record in records],
                         [(False, "nothing", None), (False, "nothing", None), (True, "file", 0)])
        self.assertEqual([set(record) for record in records], [set(records[2])] * 3)
        self.assertIn(f"switchboardctl: path: {missing}: nothing is there\n", outcome.errors)
        text = self.path("stat", missing, present, status=1).output
        self.assertTrue(text.startswith(f"path                  {present}\n"))

    @unittest.skipUnless(IS_ROOT, "only root can be another user")
    def test_what_may_not_be_looked_at_is_said_with_the_reason(self):
        closed = self.make_folder("closed", 0o700)
        self.make_file("closed/a")
        os.chown(closed, 0, 0)
        outcome = self.path("stat", closed / "a", "--json", status=1)
        self.assertEqual(outcome.record(), {"v": 1, "path": f"{closed}/a",
                                            "error": "failed to probe object vtype: Permission denied"})
        self.assertIn(f"{closed}/a: failed to probe object vtype: Permission denied", outcome.errors)

    def test_a_path_that_is_too_long_is_said_to_be(self):
        outcome = self.path("stat", self.tree / ("a" * 256), status=1)
        self.assertIn("File name too long", outcome.errors)

    def test_attributes_named_make_a_table(self):
        self.make_file("a", b"abc")
        self.assertEqual(self.path("stat", "-o", "size,kind,name", self.tree / "a", self.tree).output,
                         "3     file    a\n-     folder  tree\n")


class PathListTest(PathTest):
    def test_names_come_in_the_order_that_people_expect(self):
        for name in ("file10", "File9", "file1", "b", ".hidden", "Äpfel", "-dash"):
            self.make_file(name)
        self.assertEqual(self.path("ls", self.tree).output.splitlines(), ["-dash", "Äpfel", "b", "file1", "File9", "file10"])
        self.assertEqual(sorted(set(self.names("-a")) - set(self.names())), [".hidden"])

    def test_other_orders_are_by_size_time_or_as_they_are_met(self):
        for name, size in (("a", 5), ("b", 50), ("c", 5), ("d", 500)):
            path = self.make_file(name, b"x" * size)
            os.utime(path, ns=(0, size * 10**9))
        self.assertEqual(self.names("--sort", "size"), ["d", "b", "a", "c"])
        self.assertEqual(self.names("--sort", "modified"), ["d", "b", "a", "c"])
        self.assertEqual(self.names("--sort", "none"), [entry.name for entry in os.scandir(self.tree)])

    def test_every_reader_sees_the_same(self):
        self.make_folder("folder")
        self.make_file(STRANGE, b"content")
        os.symlink("nowhere", self.tree / "link")
        os.mkfifo(self.tree / "pipe")
        best = self.records("ls", self.tree)
        self.assertEqual([record["kind"] for record in best], ["folder", "file", "link", "pipe"])
        for reader in ("best", "bulk", "attribute", "plain"):
            with self.subTest(reader=reader):
                self.assertEqual(self.records("ls", self.tree, "--reader", reader), best)

    def test_a_long_listing_shows_attributes_and_where_links_lead(self):
        path = self.make_file("a b", b"12345")
        path.chmod(0o640)
        os.symlink("a b", self.tree / "link")
        lines = self.path("ls", "-l", self.tree).output.splitlines()
        self.assertRegex(lines[0], r"^-rw-r-----  1 +\S+ +\S+ +5 +\d{4}-\d\d-\d\d \d\d:\d\d:\d\d  a b$")
        self.assertRegex(lines[1], r"^lrwxrwxrwx .*  link -> a b$")

    def test_names_of_any_bytes_stay_on_their_line(self):
        self.make_file(STRANGE)
        os.symlink(b"a\nb", self.tree / "link")
        self.assertEqual(self.path("ls", self.tree).output, STRANGE_SHOWN + "\nlink\n")
        self.assertTrue(self.path("ls", "-l", self.tree).output.endswith(" link -> a\\u000ab\n"))
        self.assertEqual(base64.b64decode(self.records("ls", self.tree)[0]["name_bytes"]), STRANGE)

    def test_several_folders_stand_under_their_paths(self):
        for name in ("a", "b"):
            self.make_folder(name)
            self.make_file(f"{name}/in-{name}")
        self.assertEqual(self.path("ls", self.tree / "a", self.tree / "b").output,
                         f"{self.tree}/a:\nin-a\n\n{self.tree}/b:\nin-b\n")

    def test_what_is_no_folder_is_listed_itself(self):
        link = self.tree / "link"
        os.symlink(self.tree, link)
        self.assertEqual(self.path("ls", link).output, f"{link}\n")

    def test_the_current_folder_is_listed_where_none_is_named(self):
        self.assertIn("tmp", self.path("ls").output.splitlines())

    def test_what_is_missing_is_said_and_the_others_are_listed(self):
        self.make_file("a")
        outcome = self.path("ls", self.tree / "missing", self.tree, status=1)
        self.assertEqual(outcome.output, f"{self.tree}:\na\n")
        self.assertIn("missing: nothing is there", outcome.errors)

    @unittest.skipUnless(IS_ROOT, "only root can be another user")
    def test_a_folder_that_may_not_be_read_is_not_taken_for_an_empty_one(self):
        closed = self.make_folder("closed", 0o700)
        os.chown(closed, 0, 0)
        for reader in ("bulk", "attribute", "plain"):
            with self.subTest(reader=reader):
                outcome = self.path("ls", closed, "--reader", reader, status=1)
                self.assertEqual(outcome.output, "")
                self.assertEqual(outcome.errors, f"switchboardctl: path: {closed}: cannot be read: Permission denied\n")

    @unittest.skipUnless(IS_ROOT, "only root can be another user")
    def test_names_are_listed_where_nothing_else_may_be_seen(self):
        closed = self.make_folder("closed")
        self.make_file("closed/a")
        os.chown(closed, 0, 0)
        closed.chmod(0o744)
        self.assertEqual(self.path("ls", closed).output, "a\n")
        outcome = self.path("ls", closed, "-o", "kind,size,mode,name", status=1)
        self.assertEqual(outcome.output, "file  ?     ?     a\n")
        self.assertEqual(outcome.errors, f"switchboardctl: path: {closed}/a: failed to get attributes: Permission denied\n")
        record = json.loads(self.path("ls", closed, "--json", status=1).output)
        self.assertEqual(record, {"v": 1, "path": f"{closed}/a", "name": "a", "kind": "file", "type": 1,
                                  "error": "failed to get attributes: Permission denied"})


class PathTreeTest(PathTest):
    def tree_paths(self, *words, **options):
        """The paths shown, and the totals."""
        *records, last = self.records("tree", self.tree, *words, **options)
        return [record["path"] for record in records], last["totals"]

    def plant(self):
        for name in ("a", "a/deep", "a/deep/deeper", "b"):
            self.make_folder(name)
        for name in ("a/1", "a/deep/2", "a/deep/deeper/3", "b/4", ".hidden"):
            self.make_file(name, b"12345678")
        os.symlink("../a", self.tree / "b/link")

    def test_everything_below_is_shown_once_and_links_are_not_followed(self):
        self.plant()
        paths, totals = self.tree_paths("-a")
        expected = [str(self.tree)]
        for folder, folders, files in os.walk(self.tree):
            expected += [os.path.join(folder, name) for name in folders + files]
        self.assertEqual(sorted(paths), sorted(expected))
        self.assertEqual((totals["folders"], totals["files"], totals["links"], totals["others"]), (5, 5, 1, 0))
        self.assertEqual((totals["size"], totals["unreadable"]), (5 * 8 + len("../a"), 0))

    def test_text_indents_what_is_in_a_folder_and_ends_with_the_totals(self):
        self.plant()
        lines = self.path("tree", self.tree, "--output", "kind,name").output.splitlines()
        self.assertEqual([line[18:] for line in lines[:-2]],
                         [f"{self.tree}/", "  a/", "    1", "    deep/", "      2", "      deeper/", "        3", "  b/",
                          "    4", "    link -> ../a"])
        self.assertRegex(lines[-1], r"^5 folders, 4 files, 1 links, 0 others; 36 bytes, \d+ allocated; 0 not read$")
        self.assertEqual(self.path("tree", self.tree, "-o", "kind,name", "--no-legend").output.splitlines(), lines[:-2])

    def test_a_depth_is_a_limit_and_is_told(self):
        self.plant()
        self.assertEqual([(record["name"], record["depth"]) for record in self.records("tree", self.tree, "--depth", "1")[:-1]],
                         [("tree", 0), ("a", 1), ("b", 1)])
        self.assertEqual(self.tree_paths("--depth", "0")[0], [str(self.tree)])

    def test_a_file_with_two_names_counts_once(self):
        os.link(self.make_file("a", b"x" * 5000), self.tree / "b")
        _, totals = self.tree_paths()
        self.assertEqual((totals["files"], totals["size"]), (2, 5000))
        self.assertEqual(totals["allocated"], os.stat(self.tree / "a").st_blocks * 512)

    @unittest.skipUnless(IS_ROOT, "only root can be another user")
    def test_what_cannot_be_read_is_said_and_the_rest_is_shown(self):
        self.plant()
        os.chown(self.tree / "a/deep", 0, 0)
        (self.tree / "a/deep").chmod(0o700)
        outcome = self.path("tree", self.tree, "--json", status=1)
        *records, last = map(json.loads, outcome.output.splitlines())
        self.assertEqual([record["name"] for record in records], ["tree", "a", "1", "deep", "b", "4", "link"])
        self.assertEqual(last["totals"]["unreadable"], 1)
        self.assertEqual(outcome.errors,
                         f"switchboardctl: path: {self.tree}/a/deep: cannot be read: Permission denied\n")

    def test_names_of_any_bytes_stay_on_their_line(self):
        folder = os.path.join(os.fsencode(self.tree), b"folder\n\xfe")
        os.mkdir(folder)
        os.chown(folder, USER, -1)
        self.make_file(os.path.join(b"folder\n\xfe", STRANGE))
        output = self.path("tree", self.tree, "-o", "name", "--no-legend").output
        self.assertEqual(output, f"{self.tree}/\n  folder\\u000a\\xfe/\n    {STRANGE_SHOWN}\n")

    def test_a_deep_tree_is_walked_to_its_end_or_to_where_paths_end(self):
        depth = 2100
        descriptors = [os.open(self.tree, os.O_RDONLY)]
        with contextlib.ExitStack() as stack:
            stack.callback(subprocess.run, ["rm", "-rf", self.tree / "d"], check=True)
            for _ in range(depth):
                os.mkdir("d", dir_fd=descriptors[-1])
                descriptors.append(os.open("d", os.O_RDONLY, dir_fd=descriptors[-1]))
                os.close(descriptors.pop(0))
            os.close(descriptors.pop())
            outcome = self.path("tree", self.tree, "--json", status=1, user=os.geteuid())
            *records, last = map(json.loads, outcome.output.splitlines())
        self.assertGreater(len(records), 2000)
        self.assertEqual([record["depth"] for record in records], list(range(len(records))))
        self.assertEqual(last["totals"]["unreadable"], 1)
        self.assertIn("File name too long", outcome.errors)

    def start_tree(self, *words):
        """A tree that is told as fast as its output is read."""
        process = subprocess.Popen(
            [self.programs.switchboardctl, "path", "tree", *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            bufsize=0, env=self.environment(), cwd="/", **identity_of(USER))
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def plant_more_than_a_pipe_holds(self):
        names = [f"{number:04}" + "x" * 200 for number in range(3000)]
        for name in names:
            self.make_file(name)
        return names

    def test_files_that_vanish_meanwhile_are_said_to_have_and_the_rest_is_shown(self):
        names = self.plant_more_than_a_pipe_holds()
        process = self.start_tree(str(self.tree), "--reader", "plain", "-o", "size,name", "--no-legend")
        first = process.stdout.readline()
        for name in names[2000:2500]:
            (self.tree / name).unlink()
        output, errors = process.communicate(timeout=PATIENCE)
        lines = (first + output).decode().splitlines()[1:]
        self.assertEqual([line.split()[1] for line in lines], names)
        self.assertEqual([line.split()[0] for line in lines], ["0"] * 2000 + ["?"] * 500 + ["0"] * 500)
        self.assertEqual(errors.decode().count("failed to get attributes: No such file or directory"), 500)
        self.assertEqual(process.returncode, 1)

    def test_folders_that_vanish_or_become_links_meanwhile_are_not_entered(self):
        names = self.plant_more_than_a_pipe_holds()
        self.make_folder("y-gone")
        self.make_folder("y-swapped")
        self.make_file("z")
        elsewhere = Path(self.folder, "elsewhere")
        elsewhere.mkdir()
        (elsewhere / "secret").write_bytes(b"")
        process = self.start_tree(str(self.tree), "--json")
        first = process.stdout.readline()
        for name in ("y-gone", "y-swapped"):
            (self.tree / name).rmdir()
        os.symlink(elsewhere, self.tree / "y-swapped")
        output, errors = process.communicate(timeout=PATIENCE)
        shown = [json.loads(line).get("name") for line in (first + output).splitlines()]
        self.assertEqual(shown, ["tree", *names, "y-gone", "y-swapped", "z", None])
        self.assertIn(f"{self.tree}/y-gone: cannot be read: No such file or directory", errors.decode())
        self.assertIn(f"{self.tree}/y-swapped: cannot be read: ", errors.decode())
        self.assertEqual(process.returncode, 1)

    def test_a_reader_that_goes_away_ends_it(self):
        self.plant_more_than_a_pipe_holds()
        process = self.start_tree(str(self.tree))
        process.stdout.readline()
        process.stdout.close()
        self.assertEqual(process.wait(timeout=PATIENCE), 0)
        self.assertEqual(process.stderr.read(), b"")
        process.stderr.close()

    @unittest.skipUnless(IS_ROOT, "only root can mount")
    def test_folders_of_other_volumes_are_entered_unless_asked_not_to(self):
        mount_here(self, self.make_folder("other"))
        self.make_file("other/a")
        self.make_file("b")
        self.assertEqual([Path(path).name for path in self.tree_paths()[0]], ["tree", "b", "other", "a"])
        self.assertEqual([Path(path).name for path in self.tree_paths("--one-volume")[0]], ["tree", "b", "other"])


def setUpModule():
    """Gives root's tests a table of mounts of their own, in which nothing of others comes and goes meanwhile."""
    new_table, private_below = 0x20000, 0x4000 | 0x40000  # CLONE_NEWNS; MS_REC | MS_PRIVATE
    libc = ctypes.CDLL(None)
    if IS_ROOT and libc.unshare(new_table) == 0:
        libc.mount(None, b"/", None, private_below, None)


def mount_here(test, folder, options="size=1m,mode=755"):
    """Mounts an empty volume for the length of a test."""
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", options, "sevrin-test", folder], stderr=subprocess.PIPE,
                             check=False)
    if mounted.returncode != 0:
        test.skipTest(f"no volume can be mounted: {mounted.stderr.decode().strip()}")
    test.addCleanup(subprocess.run, ["umount", folder], check=True)


class PathVolumesTest(PathTest):
    def test_the_volume_of_a_path_has_the_sizes_that_the_system_tells(self):
        volume = self.records("volumes", "/")[0]
        expected = os.statvfs("/")
        self.assertEqual((volume["path"], volume["block_size"]), ("/", expected.f_bsize))
        self.assertEqual(int(volume["total"]), expected.f_blocks * expected.f_frsize)
        self.assertEqual(volume["flags"]["writable"], expected.f_flag & os.ST_RDONLY == 0)
        self.assertLessEqual(int(volume["available"]), int(volume["total"]))
        self.assertEqual(set(volume["flags"]), {"writable", "local", "exec", "suid", "ownership", "browsable"})
        self.assertEqual((len(volume["format"]), len(volume["interfaces"])), (17, 15))
        self.assertTrue(volume["interfaces"]["getattrlist"])

    def test_every_mounted_volume_is_listed_with_all_there_is_to_know(self):
        volumes = self.records("volumes")
        mounted = {line.split()[4] for line in Path("/proc/self/mountinfo").read_text().splitlines()}
        self.assertIn("/", [volume["path"] for volume in volumes])
        for volume in volumes:
            self.assertIn(volume["path"].replace(" ", "\\040"), mounted)
            self.assertEqual(set(volume) - {"path_bytes", "name_bytes"}, set(volumes[0]))
            self.assertTrue(volume["uuid"] == volume["synthetic_uuid"] or volume["synthetic_uuid"].startswith("FSID-"))
        browsable = self.records("volumes", "--browsable")
        self.assertEqual([volume["path"] for volume in browsable],
                         [volume["path"] for volume in volumes if volume["flags"]["browsable"]])

    def test_text_has_a_block_for_each_volume_and_output_makes_a_table(self):
        blocks = self.path("volumes", "/", "/proc").output.split("\n\n")
        self.assertEqual(len(blocks), 2)
        self.assertTrue(blocks[0].startswith("path                         /\n"))
        self.assertRegex(blocks[1], r"\nflags +writable, ")
        self.assertEqual([line.split() for line in self.path("volumes", "/", "/proc", "-o", "path,type").output.splitlines()][1],
                         ["/proc", "proc"])

    @unittest.skipUnless(IS_ROOT, "only root can mount")
    def test_a_volume_mounted_for_reading_is_told_as_such_and_its_name_is_any_text(self):
        folder = self.make_folder("line\nbreak")
        mount_here(self, folder, "ro,nosuid,noexec,size=1m,mode=755")
        volume = self.records("volumes", folder)[0]
        self.assertEqual((volume["path"], volume["type"], volume["device"], volume["uuid"]),
                         (str(folder), "tmpfs", "sevrin-test", None))
        self.assertEqual({name for name, holds in volume["flags"].items() if not holds}, {"writable", "exec", "suid"})
        self.assertEqual(int(volume["total"]), 2**20)
        self.assertIn(f"path                         {self.tree}/line\\u000abreak\n",
                      self.path("volumes", folder).output)
        self.assertTrue(self.records("stat", folder)[0]["mount_point"])

    def test_a_path_that_no_volume_holds_is_said(self):
        outcome = self.path("volumes", self.tree / "missing", "/", status=1)
        self.assertIn("missing: problem getting volume statfs: No such file or directory", outcome.errors)
        self.assertTrue(outcome.output.startswith("path                         /\n"))


class PathRealTest(PathTest):
    def test_a_path_is_told_without_links_whatever_its_bytes(self):
        path = self.make_file(STRANGE)
        os.symlink(self.tree, Path(self.folder, "link"))
        os.symlink(os.fsencode(path), self.tree / "alias")
        real = os.path.realpath(os.fsencode(path))
        record = self.records("real", Path(self.folder, "link", "alias"))[0]
        self.assertEqual((base64.b64decode(record["real_bytes"]), record["exists"]), (real, True))
        self.assertEqual(self.path("real", self.tree / "../link/alias").output,
                         os.path.realpath(self.tree) + "/" + STRANGE_SHOWN + "\n")

    def test_a_path_that_leads_to_nothing_has_none_and_the_others_follow(self):
        os.symlink("nowhere", self.tree / "link")
        outcome = self.path("real", self.tree / "link", self.tree / "missing", "/", status=1)
        self.assertEqual(outcome.output, "/\n")
        self.assertEqual(outcome.errors.count("it leads to nothing"), 2)
        record = json.loads(self.path("real", self.tree / "link", "-j", status=1).output)
        self.assertEqual(record, {"v": 1, "path": f"{self.tree}/link", "exists": False, "real": None})


class PathUsageTest(PathTest):
    def test_words_that_make_no_sense_are_a_usage_error(self):
        for words, reason in ((["frob"], "not in {stat,ls,tree,volumes,real}"), (["stat"], "stat takes at least one path"),
                              (["real"], "real takes at least one path"), (["stat", ""], "an empty path"),
                              (["tree", "/", "--depth", "-1"], "--depth"), (["tree", "/", "--depth", "x"], "--depth"),
                              (["ls", "/", "--sort", "colour"], "not in {name,size,modified,none}"),
                              (["ls", "/", "--reader", "fast"], "not in {best,bulk,attribute,plain}"),
                              (["ls", "/", "--depth", "1"], "ls takes no --depth"),
                              (["stat", "/", "-l"], "stat takes no --long"), (["real", "/", "-o", "path"], "takes no --output"),
                              (["volumes", "-x"], "volumes takes no --one-volume"),
                              (["tree", "/", "--browsable"], "tree takes no --browsable"),
                              (["ls", "/", "-o", "colour"], "there is no column 'colour'"),
                              (["stat", "/", "-jo", "colour"], "there is no column 'colour'"),
                              (["volumes", "-jo", "colour"], "there is no column 'colour'")):
            with self.subTest(words=words):
                outcome = self.ctl("path", *words)
                self.assertEqual((outcome.status, outcome.output), (2, ""), outcome.errors)
                self.assertIn(reason, outcome.errors)

    def test_a_name_that_begins_with_a_dash_follows_the_end_of_the_options(self):
        outcome = self.ctl("path", "stat", "--", "-l")
        self.assertEqual((outcome.status, outcome.output), (1, ""))
        self.assertIn("switchboardctl: path: -l: nothing is there", outcome.errors)

    def test_control_characters_in_a_complaint_stay_in_it(self):
        outcome = self.path("stat", b"/\x1b[31m\nx", status=1)
        self.assertEqual(outcome.errors, "switchboardctl: path: /\\u001b[31m\\u000ax: nothing is there\n")

    def test_nothing_is_logged_or_made(self):
        self.make_file("a")
        self.path("stat", self.tree / "missing", self.tree, status=1)
        self.path("tree", self.tree)
        self.path("volumes")
        self.assertEqual(os.listdir(self.home), [])


if __name__ == "__main__":
    unittest.main()
