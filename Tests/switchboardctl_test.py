"""switchboardctl against the real switchboard: what each verb prints, and how it ends."""

import base64
import json
import os
import pty
import re
import signal
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import IS_ROOT, NOBODY, SERVICE, USER, ProgramTest  # noqa: E402
from wire import Connection, listen  # noqa: E402

CLOCK = "com.example.clock"


class Served(ProgramTest):
    """With a switchboard of the user's."""

    def setUp(self):
        super().setUp()
        self.service = self.start_switchboard()

    def assertDone(self, outcome, output=""):
        self.assertEqual((outcome.status, outcome.output), (0, output), outcome.errors)


class QuestionsTest(Served):
    def test_version_is_the_switchboards(self):
        self.assertDone(self.ctl("version"), "Switchboard-2.2.5.12\n")
        self.assertDone(self.ctl("version", "--json"), '{"v":1,"version":"Switchboard-2.2.5.12"}\n')

    def test_build_is_the_switchboards(self):
        self.assertDone(self.ctl("build"), "140556\n")
        self.assertDone(self.ctl("build", "-j"), '{"v":1,"build_number":140556}\n')

    def test_ping_prints_one_round_trip(self):
        outcome = self.ctl("ping")
        self.assertEqual(outcome.status, 0)
        self.assertRegex(outcome.output, r"\A1 +\d+\.\d{3} ms\n\Z")
        self.assertEqual(outcome.errors, "")

    def test_ping_counts_and_sums_up_beside_the_answers(self):
        outcome = self.ctl("ping", "--count", "3", "--json")
        records = [json.loads(line) for line in outcome.output.splitlines()]
        self.assertEqual([record["seq"] for record in records], [1, 2, 3])
        self.assertTrue(all(record["v"] == 1 and record["time_us"] > 0 for record in records))
        self.assertIn("3 answers: least", outcome.errors)
        self.assertEqual(self.ctl("ping", "--count=3", "--quiet").errors, "")

    def test_verbose_tells_whom_it_speaks_to(self):
        self.assertIn(f"connected to {SERVICE}, process {self.service.pid} of user {USER}",
                      self.ctl("version", "-v").errors)


class PublisherTest(Served):
    def test_query_tells_who_publishes(self):
        publisher = self.publish(CLOCK)
        words = self.ctl("query", CLOCK).output.split()
        self.assertEqual([words[0], words[1], words[3]], [CLOCK, str(publisher.pid), "switchboardctl"])
        record = self.ctl("query", CLOCK, "--json").record()
        user = words[2]
        self.assertLessEqual({"v": 1, "id": CLOCK, "found": True, "pid": publisher.pid, "user": user, "uid": USER,
                              "process": "switchboardctl"}.items(), record.items())

    def test_query_prints_the_columns_that_were_asked_for(self):
        publisher = self.publish(CLOCK)
        self.assertDone(self.ctl("query", CLOCK, "-o", "uid,pid"), f"{USER}{' ' * max(0, 3 - len(str(USER)))}  "
                        f"{publisher.pid}\n")

    def test_query_of_what_nobody_publishes_is_no(self):
        self.assertFails(self.ctl("query", CLOCK), 1, f"query: {CLOCK}: nobody publishes it")
        self.assertEqual(self.ctl("query", CLOCK, "--quiet").errors, "")
        outcome = self.ctl("query", CLOCK, "--json")
        self.assertEqual((outcome.status, outcome.record()), (1, {"v": 1, "id": CLOCK, "found": False}))

    def test_query_needs_no_word_of_the_publisher(self):
        publisher = self.publish(CLOCK)
        publisher.signal(signal.SIGSTOP)
        self.assertEqual(self.ctl("query", CLOCK, "-j").record()["pid"], publisher.pid)

    def test_a_name_that_is_not_utf8_is_found_and_shown_as_text_and_as_bytes(self):
        name = b"com.example.\xff"
        publisher = self.start_ctl("publish", name)
        self.assertEqual(publisher.line(), "published com.example.\\xff")
        record = self.ctl("query", name, "--json").record()
        self.assertEqual((record["found"], record["id"]), (True, "com.example.\ufffd"))
        self.assertEqual(base64.b64decode(record["id_bytes"]), name)

    def test_call_asks_the_publisher_itself(self):
        self.publish(CLOCK, "--component-version", "Clock-1.0", "--build-number=77")
        self.assertDone(self.ctl("call", CLOCK, "version"), "Clock-1.0\n")
        self.assertDone(self.ctl("call", CLOCK, "build"), "77\n")
        self.assertDone(self.ctl("call", CLOCK, "build", "-j"), f'{{"v":1,"id":"{CLOCK}","build_number":77}}\n')
        self.assertRegex(self.ctl("call", CLOCK, "barrier").output, r"\A\d+\.\d{3} ms\n\Z")

    def test_call_to_nobody_is_no(self):
        self.assertFails(self.ctl("call", CLOCK, "version"), 1, "nobody publishes it")

    def test_call_does_not_wait_for_ever(self):
        self.publish(CLOCK).signal(signal.SIGSTOP)
        self.assertFails(self.ctl("call", CLOCK, "version", "--timeout=200ms"), 124, f"the publisher of {CLOCK}")

    def test_an_endpoint_leads_to_its_publisher_when_the_switchboard_is_gone(self):
        self.publish(CLOCK, "--component-version=Clock-1.0")
        connection = Connection(os.path.join(self.bootstrap, SERVICE), USER)
        self.addCleanup(connection.socket.close)
        [endpoint] = connection.ask("queryEndpointForIdentifier:withReply:", CLOCK)
        self.addCleanup(os.close, endpoint)
        self.kill_switchboard(self.service)
        publisher = Connection(f"/proc/self/fd/{endpoint}", os.geteuid())
        self.addCleanup(publisher.socket.close)
        self.assertEqual(publisher.ask("queryComponentVersionWithReply:"), ["Clock-1.0"])

    def test_a_publisher_that_listens_no_more_is_known_at_once(self):
        connection = Connection(os.path.join(self.bootstrap, SERVICE), USER)
        self.addCleanup(connection.socket.close)
        listener, endpoint = listen(self.folder)
        self.addCleanup(os.close, endpoint)
        connection.publish(endpoint, CLOCK)
        connection.wait_until_handled()
        listener.close()
        # The deadline is further away than the test is patient.
        self.assertFails(self.ctl("query", CLOCK, "--timeout=10m"), 1,
                         f"{CLOCK}: its publisher does not listen any more")
        self.assertFails(self.ctl("call", CLOCK, "version", "--timeout=10m"), 1,
                         f"the publisher of {CLOCK}: nobody listens as the publisher of that endpoint")

    def test_an_interrupted_publisher_withdraws_and_says_so(self):
        publisher = self.publish(CLOCK)
        monitor = self.start_ctl("monitor", "--json", "SwitchboardEndpointRedacted")
        self.assertEqual(monitor.record()["event"], "subscribed")
        publisher.signal(signal.SIGINT)
        self.assertEqual(monitor.record()["info"], {"id": CLOCK})
        self.assertEqual(publisher.wait(), 130)
        self.assertEqual(self.ctl("query", CLOCK).status, 1)

    def test_a_terminated_publisher_withdraws_too(self):
        publisher = self.publish(CLOCK)
        publisher.signal(signal.SIGTERM)
        self.assertEqual(publisher.wait(), 128 + signal.SIGTERM)
        self.assertEqual(self.ctl("query", CLOCK).status, 1)

    def test_a_publisher_outlives_the_switchboard(self):
        publisher = self.start_ctl("publish", CLOCK, "--json")
        self.assertEqual(publisher.record()["event"], "published")
        self.kill_switchboard(self.service)
        self.assertEqual(publisher.record()["event"], "disconnected")
        self.start_switchboard()
        record = publisher.record()
        self.assertEqual((record["event"], record["id"]), ("republished", CLOCK))
        self.assertEqual(self.ctl("query", CLOCK, "-j").record()["pid"], publisher.pid)

    def test_a_publisher_says_that_another_one_is_found_first(self):
        first = self.publish(CLOCK)
        second = self.publish(CLOCK)
        self.assertIn(f"published by process {first.pid} (switchboardctl) too", second.line(second.errors))


class WaitTest(Served):
    def start_wait(self, *arguments):
        """A waiting switchboardctl, as soon as it waits."""
        waiting = self.start_ctl("wait", CLOCK, "--verbose", *arguments)
        waiting.wait_for_line("waiting", waiting.errors)
        return waiting

    def test_what_is_published_need_not_be_waited_for(self):
        self.publish(CLOCK)
        self.assertDone(self.ctl("wait", CLOCK))
        self.assertDone(self.ctl("wait", CLOCK, "--json"), f'{{"v":1,"id":"{CLOCK}","found":true}}\n')

    def test_a_publication_ends_it(self):
        waiting = self.start_wait()
        self.publish(CLOCK)
        self.assertEqual((waiting.wait(), waiting.line()), (0, None))

    def test_other_publications_do_not(self):
        waiting = self.start_wait("--timeout", "700ms")
        self.publish("com.example.other")
        self.assertEqual(waiting.wait(), 124)

    def test_the_deadline_ends_it(self):
        self.assertFails(self.ctl("wait", CLOCK, "--timeout", "0.1"), 124, CLOCK, "not published")

    def test_it_goes_on_with_the_next_switchboard(self):
        waiting = self.start_wait()
        self.kill_switchboard(self.service)
        self.start_switchboard()
        self.publish(CLOCK)
        self.assertEqual(waiting.wait(), 0)

    def test_what_is_not_published_is_gone(self):
        self.assertDone(self.ctl("wait", CLOCK, "--gone"))

    def test_what_is_published_is_not_gone(self):
        self.publish(CLOCK)
        self.assertFails(self.ctl("wait", CLOCK, "--gone", "--timeout", "100ms"), 124, "still published")

    def test_a_withdrawal_ends_the_wait_for_it(self):
        publisher = self.publish(CLOCK)
        waiting = self.start_wait("--gone")
        publisher.signal(signal.SIGINT)
        self.assertEqual(waiting.wait(), 0)

    def test_the_death_of_the_publisher_ends_it_though_nobody_announces_it(self):
        publisher = self.publish(CLOCK)
        waiting = self.start_wait("--gone", "--json")
        publisher.signal(signal.SIGKILL)
        self.assertEqual(waiting.record(), {"v": 1, "id": CLOCK, "found": False})
        self.assertEqual(waiting.wait(), 0)

    def test_a_second_publisher_is_waited_for_as_well(self):
        first = self.publish(CLOCK)
        second = self.publish(CLOCK)
        waiting = self.start_wait("--gone")
        first.signal(signal.SIGKILL)
        first.wait()
        self.assertEqual(self.ctl("wait", CLOCK, "--gone", "--timeout=1s").status, 124)
        self.assertIsNone(waiting.process.poll())
        second.signal(signal.SIGKILL)
        self.assertEqual(waiting.wait(), 0)

    def test_an_interrupt_ends_it(self):
        waiting = self.start_wait()
        waiting.signal(signal.SIGINT)
        self.assertEqual(waiting.wait(), 130)


class NotificationsTest(Served):
    def start_monitor(self, *arguments):
        """A monitor that misses nothing from now on."""
        monitor = self.start_ctl("monitor", "--verbose", *arguments)
        monitor.wait_for_line("subscribed", monitor.errors)
        return monitor

    def test_a_posted_notification_is_one_line(self):
        monitor = self.start_monitor("--count", "1")
        self.assertDone(self.ctl("post", "tick", "--source", CLOCK, "--info", "hour=12", "minute=3 0"))
        self.assertRegex(monitor.line(), r"\A\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d  tick +"
                         rf'{re.escape(CLOCK)}  hour=12 minute="3 0"\Z')
        self.assertEqual(monitor.wait(), 0)

    def test_json_says_everything_with_its_type(self):
        monitor = self.start_monitor("--json", "tick")
        self.assertEqual(monitor.record()["event"], "subscribed")
        info = {"n": -3, "r": 2.5, "ok": True, "list": [1, {"k": "v"}], "text": "\u20ac"}
        self.assertDone(self.ctl("post", "tick", "--info-json", json.dumps(info)))
        self.ctl("post", "tick")
        record = monitor.record()
        self.assertRegex(record.pop("time"), r"\A\d{4}-\d\d-\d\dT")
        self.assertEqual(record, {"v": 1, "event": "notification", "name": "tick", "source": None, "info": info})
        self.assertIsNone(monitor.record()["info"])

    def test_post_repeats_in_json_what_it_posted(self):
        self.assertEqual(self.ctl("post", "tick", "--source=me", "--info", "a=b", "--json").record(),
                         {"v": 1, "name": "tick", "source": "me", "info": {"a": "b"}})

    def test_only_the_names_that_were_asked_for_are_shown(self):
        monitor = self.start_monitor("--output", "name", "tick", "tock", "tick")
        for name in ("other", "tick", "tock"):
            self.ctl("post", name)
        self.assertEqual([monitor.line(), monitor.line()], ["tick", "tock"])

    def test_only_the_source_that_was_asked_for_is_shown(self):
        monitor = self.start_monitor("--output", "name", "--source", "me")
        self.ctl("post", "a", "--source", "you")
        self.ctl("post", "b", "--source", "me")
        self.assertEqual(monitor.line(), "b")

    def test_without_a_name_everything_is_shown(self):
        monitor = self.start_monitor("-o", "name,source,info")
        self.publish(CLOCK)
        self.assertEqual(monitor.line().split(), ["SwitchboardEndpointPublished", "Switchboard", f"id={CLOCK}"])

    def test_what_others_post_cannot_reach_the_terminal_as_commands(self):
        monitor = self.start_monitor("-o", "name")
        self.ctl("post", "\x1b[2Jred\nalert")
        self.assertEqual(monitor.line(), "\\u001b[2Jred\\u000aalert")

    def test_a_restart_is_survived_and_told(self):
        monitor = self.start_monitor("--json")
        self.kill_switchboard(self.service)
        self.start_switchboard()
        self.assertEqual([monitor.record()["event"] for _ in range(3)], ["subscribed", "disconnected", "resubscribed"])
        self.ctl("post", "tick")
        self.assertEqual(monitor.record()["name"], "tick")
        monitor.wait_for_line("waiting for a switchboard", monitor.errors)
        monitor.wait_for_line("what was posted meanwhile is missing", monitor.errors)

    def test_an_interrupt_ends_it(self):
        monitor = self.start_monitor()
        monitor.signal(signal.SIGINT)
        self.assertEqual((monitor.wait(), monitor.line()), (130, None))

    def test_it_ends_quietly_when_nobody_reads_any_more(self):
        reading, writing = os.pipe()
        os.close(reading)
        outcome = self.ctl("monitor", stdout=writing)
        os.close(writing)
        self.assertEqual((outcome.status, outcome.errors), (0, ""))

    def test_null_cannot_be_posted(self):
        self.assertFails(self.ctl("post", "tick", "--info-json", '{"a": null}'), 2, "null")

    def test_what_is_too_long_is_not_sent(self):
        words = [f"{number}={'x' * 100_000}" for number in range(11)]
        self.assertFails(self.ctl("post", "tick", "--info", *words), 2, "longer than")
        self.assertFails(self.ctl("monitor", "n" * 1025), 2, "1024")
        self.assertFails(self.ctl("query", "i" * 1025), 2, "1024")


class OutputTest(Served):
    def on_terminal(self, *arguments, **changes):
        """What switchboardctl prints on a terminal."""
        ours, its = pty.openpty()
        outcome = self.ctl(*arguments, stdout=its, **changes)
        os.close(its)
        text = b""
        try:
            while part := os.read(ours, 4096):
                text += part
        except OSError:  # How a terminal says that all its writers have gone.
            pass
        os.close(ours)
        self.assertEqual(outcome.status, 0, outcome.errors)
        return text.decode().replace("\r\n", "\n")

    def test_a_terminal_gets_a_header_and_a_pipe_none(self):
        self.assertRegex(self.on_terminal("ping", "--color=never"), r"\ASEQ +TIME\n1 ")
        self.assertRegex(self.on_terminal("ping", "--no-legend"), r"\A1 ")
        self.assertRegex(self.ctl("ping", "--color=always").output, r"\A1 ")

    def test_colour_is_for_terminals_that_did_not_decline(self):
        self.assertIn("\x1b[", self.on_terminal("ping"))
        self.assertNotIn("\x1b[", self.on_terminal("ping", NO_COLOR="1"))
        self.assertIn("\x1b[", self.on_terminal("ping", "--color", "always", NO_COLOR="1"))
        self.assertNotIn("\x1b[", self.on_terminal("ping", "--color", "never"))

    def test_json_is_never_coloured_and_has_no_header(self):
        self.assertEqual(json.loads(self.on_terminal("ping", "--json", "--color=always"))["seq"], 1)

    def test_an_answer_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            outcome = self.ctl("version", stdout=full)
        self.assertEqual(outcome.status, 125)
        self.assertIn("cannot write the answer: No space left on device", outcome.errors)

    def test_options_stand_before_and_after_the_verb(self):
        self.assertDone(self.ctl("--json", "version"), self.ctl("version", "--json").output)

    def test_two_hyphens_end_the_options(self):
        self.assertFails(self.ctl("query", "--", "--json"), 1, "--json: nobody publishes it")

    def test_a_verb_may_be_an_identifier(self):
        self.publish("version")
        self.assertEqual(self.ctl("query", "version", "-j").record()["id"], "version")

    def test_user_takes_no_word_that_follows(self):
        self.assertFails(self.ctl("query", "--user", CLOCK), 1, f"{CLOCK}: nobody publishes it")

    def test_ones_own_user_id_is_oneself(self):
        self.assertDone(self.ctl("version", f"--user={USER}"), "Switchboard-2.2.5.12\n")


@unittest.skipUnless(IS_ROOT, "only root starts the switchboard of the machine")
class SystemTest(ProgramTest):
    def setUp(self):
        super().setUp()
        os.chown(self.bootstrap, 0, -1)
        for folder in (self.folder, self.bootstrap):
            os.chmod(folder, 0o755)
        self.start_switchboard("--users", str(NOBODY), user=0)

    def test_users_are_kept_apart_and_root_may_look(self):
        publisher = self.publish(CLOCK, "--system")
        self.assertEqual(self.ctl("query", CLOCK, "--system").status, 0)
        self.assertEqual(self.ctl("query", CLOCK, "--system", user=0).status, 1)
        outcome = self.ctl("query", CLOCK, f"--user={NOBODY}", "--output=pid,uid", "--no-legend", user=0)
        self.assertEqual(outcome.output.split(), [str(publisher.pid), str(NOBODY)])

    def test_root_publishes_for_a_user(self):
        publisher = self.publish(CLOCK, f"--user={NOBODY}", user=0)
        record = self.ctl("query", CLOCK, "--system", "--json").record()
        self.assertEqual((record["pid"], record["uid"]), (publisher.pid, 0))

    def test_a_user_who_is_not_served_is_refused(self):
        self.assertFails(self.ctl("version", "--system", user=NOBODY - 1), 4, "com.sevrin.switchboard",
                         "Try: adding the user to SWITCHBOARD_USERS")

    def test_root_cannot_speak_for_a_user_who_is_not_served(self):
        self.assertFails(self.ctl("query", CLOCK, f"--user={NOBODY - 1}", user=0), 4, f"user {NOBODY - 1} is not served")

    def test_others_speak_for_nobody_else(self):
        self.assertFails(self.ctl("query", CLOCK, "--user=0"), 4, "only root may speak for another user")

    def test_root_is_told_where_its_switchboard_is(self):
        self.assertFails(self.ctl("version", user=0), 3, "com.sevrin.switchboard.0", "Try: --system")


if __name__ == "__main__":
    unittest.main()
