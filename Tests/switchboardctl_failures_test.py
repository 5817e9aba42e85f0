"""switchboardctl where something is wrong: a clear message and its own exit status each time, and never a hang.

The servers that misbehave are sockets of the test's own, spoken to in bytes as docs/wire-protocol.md has them.
"""

import os
import shutil
import signal
import socket
import struct
import sys
import threading
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import IS_ROOT, NOBODY, SERVICE, USER, Child, ProgramTest  # noqa: E402

NEXT_STEP = "Try: systemctl --user start switchboard"
VERBS = {"version": [], "build": [], "ping": [], "publish": ["a"], "query": ["a"], "call": ["a", "version"],
         "wait": ["a"], "post": ["a"], "monitor": []}
# These ask no switchboard.
ALONE = {"archive", "prefs", "locations", "path", "log"}


def greeting(version):
    body = b"\x82\x6asevrin-xpc" + bytes([version])
    return struct.pack("<IHHQ", len(body), 1, 0, 0) + body


class NoSwitchboardTest(ProgramTest):
    def test_every_verb_says_that_there_is_none_and_what_to_do(self):
        for verb, arguments in VERBS.items():
            with self.subTest(verb=verb):
                self.assertFails(self.ctl(verb, *arguments), 3, f"switchboardctl: {verb}: no switchboard: ", SERVICE,
                                 NEXT_STEP)

    def test_a_socket_that_a_killed_switchboard_left_is_no_switchboard(self):
        self.kill_switchboard(self.start_switchboard())
        self.assertTrue(os.path.exists(os.path.join(self.bootstrap, SERVICE)))
        self.assertFails(self.ctl("version"), 3, SERVICE, NEXT_STEP)

    def test_a_folder_that_is_not_there_is_named(self):
        os.rmdir(self.bootstrap)
        self.assertFails(self.ctl("version"), 3, SERVICE, f"bootstrap folder {self.bootstrap}: No such file", NEXT_STEP)

    def test_the_folder_of_the_session_is_named(self):
        runtime = os.path.join(self.folder, "runtime")
        self.assertFails(self.ctl("version", SEVRIN_BOOTSTRAP_DIR=None, XDG_RUNTIME_DIR=runtime), 3,
                         f"bootstrap folder {runtime}/sevrin: No such file", NEXT_STEP)

    def test_without_a_session_a_folder_is_named_all_the_same(self):
        self.assertFails(self.ctl("version", SEVRIN_BOOTSTRAP_DIR=None, XDG_RUNTIME_DIR=None), 3, SERVICE, "sevrin")

    def test_a_session_whose_folder_is_no_absolute_path_is_none(self):
        unset = self.ctl("version", SEVRIN_BOOTSTRAP_DIR=None, XDG_RUNTIME_DIR=None).errors
        for folder in ("run", "./run", "~/run", ""):
            with self.subTest(folder=folder):
                outcome = self.ctl("version", SEVRIN_BOOTSTRAP_DIR=None, XDG_RUNTIME_DIR=folder)
                self.assertFails(outcome, 3, unset)

    @unittest.skipUnless(IS_ROOT, "only root starts a switchboard of a user who has none")
    def test_without_a_session_both_sides_meet_in_a_private_folder(self):
        user = 61_000 + os.getpid() % 4_000
        folder = f"/tmp/sevrin-{user}"
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        os.chown(self.folder, user, -1)
        environment = {"SEVRIN_BOOTSTRAP_DIR": None, "XDG_RUNTIME_DIR": None}
        service = Child([self.programs.switchboard], user, self.environment(**environment))
        self.addCleanup(service.end)
        self.wait_until_answered(service, lambda: self.ctl("version", user=user, **environment))
        status = os.stat(folder)
        self.assertEqual((status.st_uid, status.st_mode & 0o777), (user, 0o700))
        name = f"com.sevrin.switchboard.{user}"
        self.assertEqual(set(os.listdir(folder)), {name, f"{name}.lock"})

    def test_a_folder_that_others_may_write_to_is_not_trusted(self):
        self.start_switchboard()
        os.chmod(self.bootstrap, 0o777)
        self.assertFails(self.ctl("version"), 3, "no switchboard to trust", self.bootstrap, "is writable by others",
                         "Try: ")

    @unittest.skipUnless(IS_ROOT, "only root gives a folder away")
    def test_a_folder_of_somebody_else_is_not_trusted(self):
        self.start_switchboard()
        os.chown(self.bootstrap, NOBODY - 1, -1)
        os.chmod(self.bootstrap, 0o755)
        self.assertFails(self.ctl("version"), 3, "no switchboard to trust", f"belongs to user {NOBODY - 1}", "Try: ")

    def test_a_link_in_the_place_of_the_folder_is_not_followed(self):
        self.start_switchboard()
        link = os.path.join(self.folder, "link")
        os.symlink(self.bootstrap, link)
        self.assertFails(self.ctl("version", SEVRIN_BOOTSTRAP_DIR=link), 3, link)

    def test_a_second_switchboard_takes_nothing_from_the_first(self):
        first = self.start_switchboard()
        second = self.start(self.programs.switchboard)
        self.assertIn(SERVICE, second.line(second.errors))
        self.assertIn(f"process {first.pid} ", self.ctl("version", "--verbose").errors)
        second.signal(signal.SIGTERM)
        second.wait()
        self.assertEqual(self.ctl("version").status, 0)


class StrangeServerTest(ProgramTest):
    """With a server of the test's own under the user's service name."""

    def setUp(self):
        super().setUp()
        path = os.path.join(self.bootstrap, SERVICE)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(self.listener.close)
        self.listener.bind(path)
        os.chown(path, USER, -1)
        if IS_ROOT:
            # Whom the kernel names is whoever calls listen().
            os.seteuid(USER)
            self.listener.listen()
            os.seteuid(0)
        else:
            self.listener.listen()

    def answer(self, reply):
        """Sends every client `reply` once it has spoken, and hangs up when it does."""
        def serve():
            while True:
                try:
                    client, _ = self.listener.accept()
                except OSError:
                    return
                with client:
                    client.recv(4096)
                    client.sendall(reply)
                    while client.recv(4096):
                        pass

        thread = threading.Thread(target=serve, daemon=True)
        thread.start()
        # Ended before the listener is closed: its number may be the next test's listener.
        self.addCleanup(thread.join)
        self.addCleanup(self.listener.shutdown, socket.SHUT_RDWR)

    def test_silence_ends_with_the_deadline(self):
        for verb, arguments in VERBS.items():
            with self.subTest(verb=verb):
                self.assertFails(self.ctl(verb, *arguments, "--timeout", "50ms"), 124, "no answer in time", SERVICE,
                                 "Try: a longer --timeout")

    def test_an_interrupt_does_not_wait_for_the_deadline(self):
        for verb in ("version", "publish"):
            with self.subTest(verb=verb):
                child = self.start_ctl(verb, *VERBS[verb], "--timeout", "10m")
                client, _ = self.listener.accept()
                client.recv(1)
                child.signal(signal.SIGINT)
                self.assertEqual(child.wait(), 130)
                client.close()

    def test_another_version_is_named_beside_ours(self):
        self.answer(greeting(2))
        self.assertFails(self.ctl("version"), 5, "protocol versions differ", SERVICE, "version 2", "version 1",
                         "this side is the older one", "Try: ")

    def test_an_older_version_is_to_be_restarted(self):
        self.answer(greeting(0))
        self.assertFails(self.ctl("version"), 5, "version 0", "version 1", "the other side is the older one",
                         "systemctl --user restart switchboard")

    def test_who_speaks_something_else_is_no_switchboard(self):
        self.answer(b"HTTP/1.1 400 Bad Request\r\n\r\n")
        self.assertFails(self.ctl("version"), 3, "no sensible answer", SERVICE)

    def test_who_hangs_up_without_a_word_has_refused(self):
        def hang_up():
            client, _ = self.listener.accept()
            client.close()

        threading.Thread(target=hang_up, daemon=True).start()
        self.assertFails(self.ctl("version"), 4, "turned away", SERVICE)

    def test_a_program_told_to_wait_no_time_does_not(self):
        self.assertFails(self.ctl("version", "--timeout=0"), 124, SERVICE)


@unittest.skipUnless(IS_ROOT, "only root listens as somebody else")
class ImpostorTest(ProgramTest):
    def test_a_server_of_another_user_hears_nothing(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
            path = os.path.join(self.bootstrap, SERVICE)
            listener.bind(path)
            os.chmod(path, 0o666)
            os.seteuid(NOBODY - 1)
            listener.listen()
            os.seteuid(0)
            self.assertFails(self.ctl("version"), 3, "no switchboard to trust", f"is served by user {NOBODY - 1}")
            client, _ = listener.accept()
            with client:
                self.assertEqual(client.recv(1), b"")


class UsageTest(ProgramTest):
    def test_mistakes_on_the_command_line_end_with_status_2(self):
        for words in (["frob"], [], ["version", "--frob"], ["version", "extra"], ["query"], ["version", "--sys"],
                      ["--sys", "version"], ["version", "--timeout"], ["version", "--timeout", "soon"],
                      ["version", "--timeout=-1"], ["version", "--color=blue"], ["version", "--user", "--system"],
                      ["version", "--user=x"], ["query", "a", "--output", "frob"], ["version", "--output", "pid"],
                      ["call", "a", "frob"], ["publish", "a", "--build-number", "x"],
                      ["publish", "a", "--build-number", "4294967296"], ["ping", "--count", "0"],
                      ["post", "a", "--info", "b"], ["post", "a", "--info-json", "[]"], ["version", "-x"]):
            with self.subTest(words=words):
                self.assertFails(self.ctl(*words), 2, "switchboardctl: ")

    def test_help_shows_an_example_of_every_verb(self):
        for verb in {*VERBS, *ALONE}:
            with self.subTest(verb=verb):
                for flag in ("-h", "--help"):
                    outcome = self.ctl(verb, flag)
                    self.assertEqual((outcome.status, outcome.errors), (0, ""))
                    self.assertIn(f"\n  switchboardctl {verb}", outcome.output)

    def test_help_lists_every_verb_and_no_other(self):
        lines = self.ctl("--help").output.split("Subcommands:\n")[1].split("\n\n")[0].splitlines()
        self.assertEqual({line.split()[0] for line in lines}, {*VERBS, *ALONE})

    def test_the_program_knows_its_own_version(self):
        for words in (["--version"], ["query", "--version"]):
            self.assertEqual(self.ctl(*words).output, "switchboardctl 2.2.5.12\n")

    def test_a_mistake_is_answered_with_where_to_look(self):
        self.assertIn("Try: switchboardctl query --help", self.ctl("query").errors)
        self.assertIn("Try: switchboardctl --help", self.ctl("frob").errors)


if __name__ == "__main__":
    unittest.main()
