"""`switchboardctl log` on logs of a home folder of its own: written by hand, by the real switchboard, and rotated."""

import json
import os
import pwd
import signal
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import IS_ROOT, USER, ProgramTest  # noqa: E402


def line(message, identifier="8.1.412.1", word="Failure", time="07:12:03.481"):
    return f"2026-11-16 {time} +0100 {word:7} {message} [{identifier}]\n"


class LogVerbTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.logs = Path(self.home, "Library/Logs/Sevrin")

    def write(self, *files):
        """The log with its older generations, the current one first."""
        for folder in (self.logs.parent.parent, self.logs.parent, self.logs):
            folder.mkdir(exist_ok=True)
            os.chown(folder, USER, -1)
        for number, text in enumerate(files):
            path = self.logs / ("Sevrin.log" + (f".{number}" if number else ""))
            path.write_bytes(text.encode() if isinstance(text, str) else text)

    def log(self, *arguments, **changes):
        return self.ctl("log", *arguments, **changes)

    def records(self, *arguments):
        outcome = self.log("--json", *arguments)
        self.assertEqual(outcome.errors, "")
        return [json.loads(text) for text in outcome.output.splitlines()]

    def messages(self, *arguments):
        return [record["message"] for record in self.records(*arguments)]

    # Reading

    def test_generations_are_printed_as_they_stand_the_oldest_first(self):
        self.write(line("three"), line("two"), line("one"))
        outcome = self.log()
        self.assertEqual((outcome.status, outcome.output, outcome.errors),
                         (0, line("one") + line("two") + line("three"), ""))

    def test_a_line_as_json_has_all_that_its_text_says(self):
        self.write(line("d\\u00e4mmrig\\\\", "8.73957130.412.1.3", "#debug#"))
        self.assertEqual(self.records(), [{
            "v": 1, "time": "2026-11-16T07:12:03.481+01:00", "classification": 9, "message": "dämmrig\\",
            "id": "8.73957130.412.1.3", "program": 8, "process": 412}])

    def test_bytes_that_are_no_text_are_in_json_as_bytes_too(self):
        self.write(line("a\\377"))
        [record] = self.records()
        self.assertEqual((record["message"], record["message_bytes"]), ("a\ufffd", "Yf8="))

    def test_text_that_is_no_line_of_a_log_is_not_lost(self):
        self.write("stray\n" + line("one"))
        self.assertEqual(self.records()[0], {"v": 1, "text": "stray"})
        self.assertEqual(self.log().output, "stray\n" + line("one"))

    def test_a_message_of_several_lines_is_one_record(self):
        self.write(line("one\ntwo") + line("three"))
        self.assertEqual(self.messages(), ["one\ntwo", "three"])
        self.assertEqual(self.log("--lines", "2").output, line("one\ntwo") + line("three"))

    def test_a_line_cannot_move_the_cursor(self):
        self.write(line("a\033[2Jb"))
        self.assertEqual(self.log().output, line("a\\u001b[2Jb"))

    def test_failures_stand_out_where_colours_are_wanted(self):
        self.write(line("bad") + line("fine", word="Minutia"))
        self.assertEqual(self.log("--color=always").output,
                         "\033[1;31m" + line("bad").rstrip("\n") + "\033[0m\n" + line("fine", word="Minutia"))

    # Choosing

    def test_the_last_lines_of_those_that_are_wanted(self):
        self.write(line("three") + line("x", word="#debug#"), line("one") + line("two"))
        self.assertEqual(self.messages("-n", "2", "--class", "failure"), ["two", "three"])

    def test_every_wish_narrows_what_is_printed(self):
        self.write(line("early", time="07:00:00.000") + line("late", "9.1.7.1", time="08:00:00.000") +
                   line("below", "9.1.7.1.2", "Details", time="08:00:00.000"))
        for wish, wanted in {("--since", "2026-11-16T07:30:00+01:00"): ["late", "below"],
                             ("--until", "2026-11-16 07:30 +0100"): ["early"],
                             ("--id", "9.1.7.1"): ["late", "below"],
                             ("--program", "8"): ["early"],
                             ("--pid", "7"): ["late", "below"],
                             ("--class", "5,details"): ["early", "late", "below"],
                             ("--class", "details"): ["below"],
                             ("--grep", "l"): ["early", "late", "below"],
                             ("--grep", "at"): ["late"]}.items():
            with self.subTest(wish=wish):
                self.assertEqual(self.messages(*wish), wanted)

    def test_a_tree_has_each_line_below_its_own(self):
        self.write(line("a", "8.1.2.1") + line("other", "8.1.3.1") + line("b", "8.1.2.2") +
                   line("a-2", "8.1.2.1.2") + line("a-10", "8.1.2.1.10"))
        self.assertEqual(self.log("--tree").output,
                         line("a", "8.1.2.1") + line("  a-2", "8.1.2.1.2") + line("  a-10", "8.1.2.1.10") +
                         line("b", "8.1.2.2") + line("other", "8.1.3.1"))

    # Other places

    def test_a_file_or_standard_input_can_be_named(self):
        path = Path(self.folder, "elsewhere")
        path.write_text(line("one"))
        os.chmod(path, 0o644)
        self.assertEqual(self.log("--file", str(path)).output, line("one"))
        read = subprocess.run([self.programs.switchboardctl, "log", "--file", "-"], input=line("two").encode(),
                              stdout=subprocess.PIPE, check=True, env=self.environment())
        self.assertEqual(read.stdout, line("two").encode())

    def test_the_program_for_logs_alone_is_the_same(self):
        self.write(line("one") + line("two"))
        done = subprocess.run([os.environ["SEVRIN_SWITCHBOARD_LOG_PROGRAM"], "--lines", "1"], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, check=True, env=self.environment())
        self.assertEqual(done.stdout, line("two").encode())

    @unittest.skipUnless(IS_ROOT, "only root may act for another user")
    def test_root_reads_the_log_of_a_user(self):
        self.assertFails(self.log("--user=4294967294", user=0), 2, "there is no such user")
        home = pwd.getpwuid(USER).pw_dir  # That of nobody, in which nobody logs.
        self.assertFails(self.log(f"--user={USER}", user=0), 1, f"{home}/Library/Logs/Sevrin/Sevrin.log: ",
                         "there is no log")

    def test_the_log_of_the_machine_is_elsewhere(self):
        self.assertFails(self.log("--system"), 2, "Try: journalctl --unit switchboard")

    # Mistakes

    def test_without_a_log_the_answer_is_no_and_nothing_is_made(self):
        self.assertFails(self.log(), 1, "Sevrin.log: there is no log")
        self.assertEqual(os.listdir(self.home), [])

    def test_when_nothing_is_like_that_the_answer_is_no(self):
        self.write(line("one"))
        outcome = self.log("--grep", "two")
        self.assertEqual((outcome.status, outcome.output), (1, ""))
        self.assertIn("nothing in the log is like that", outcome.errors)

    def test_mistakes_are_explained(self):
        for arguments, words in {("--since", "yesterday"): "neither a time such as 10m nor a date",
                                 ("--id", "8.x"): "not an identifier such as",
                                 ("--class", "loud"): "words of the log",
                                 ("--tree", "--follow"): "excludes",
                                 ("--lines", "-1"): "--lines",
                                 ("extra",): "extra"}.items():
            with self.subTest(arguments=arguments):
                self.assertFails(self.log(*arguments), 2, words, "Try: switchboardctl log --help")

    def test_what_cannot_be_read_is_said(self):
        self.assertFails(self.log("--file", "/"), 125, "/", "Is a directory")
        self.write(line("one"))
        (self.logs / "Sevrin.log").chmod(0)
        self.assertFails(self.log(), 4, "Sevrin.log", "Permission denied")

    # Following

    def test_following_begins_with_the_last_ten_and_goes_on_through_rotations(self):
        self.write("".join(line(str(number)) for number in range(20)))
        follower = self.start_ctl("log", "--follow")
        for number in range(10, 20):
            self.assertEqual(follower.line() + "\n", line(str(number)))
        current = self.logs / "Sevrin.log"
        with current.open("a") as file:
            file.write(line("before"))
            current.rename(self.logs / "Sevrin.log.1")
            file.write(line("meanwhile"))
        current.write_text(line("after"))
        for message in ("before", "meanwhile", "after"):
            self.assertEqual(follower.line() + "\n", line(message))
        follower.signal(signal.SIGINT)
        self.assertEqual(follower.wait(), 130)

    def test_following_waits_for_a_log_that_is_not_there_yet(self):
        follower = self.start_ctl("log", "--follow")
        self.write(line("first"))
        self.assertEqual(follower.line() + "\n", line("first"))

    def test_the_switchboard_can_be_watched_at_work(self):
        follower = self.start_ctl("log", "--follow", "--lines", "1000", "--json", "--program", "8")
        service = self.start_switchboard()
        while json.loads(follower.line())["message"] != "started Switchboard-2.2.5.12":
            pass
        service.signal(signal.SIGTERM)
        service.wait()
        while not (message := json.loads(follower.line())["message"]).startswith("stopping "):
            pass
        self.assertEqual(message, "stopping Switchboard-2.2.5.12, exiting with status 2")


if __name__ == "__main__":
    unittest.main()
