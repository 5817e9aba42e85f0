"""The switchboard of the machine and processes of several users: who finds what, who hears what, and who may move.

Root alone can start these. Where switchboardctl would not go so far, a connection speaks for itself.
"""

import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import IS_ROOT, NOBODY, SYSTEM_SERVICE, ProgramTest  # noqa: E402
from wire import Connection, listen  # noqa: E402

CLOCK = "com.example.clock"
ROOT, ALICE, BOB, STRANGER = 0, NOBODY, NOBODY - 1, NOBODY - 2
SERVED = (ROOT, ALICE, BOB)


@unittest.skipUnless(IS_ROOT, "only root starts the switchboard of the machine")
class SeveralUsersTest(ProgramTest):
    def setUp(self):
        super().setUp()
        os.chown(self.bootstrap, ROOT, -1)
        for folder in (self.folder, self.bootstrap):
            os.chmod(folder, 0o755)
        self.start_switchboard("--users", str(ALICE), str(BOB), user=ROOT)

    def query(self, user, identifier=CLOCK):
        return self.ctl("query", identifier, "--system", "--json", user=user)

    def connect(self, user):
        connection = Connection(os.path.join(self.bootstrap, SYSTEM_SERVICE), user)
        self.addCleanup(connection.socket.close)
        return connection

    def endpoint(self):
        """Of a listener in this process."""
        listener, descriptor = listen(self.folder)
        self.addCleanup(listener.close)
        self.addCleanup(os.close, descriptor)
        return descriptor

    def start_monitor(self, user, name):
        """A monitor that ends with the first notification called `name`, and misses none from now on."""
        monitor = self.start_ctl("monitor", name, "--count=1", "--json", "--system", user=user)
        self.assertEqual(monitor.record()["event"], "subscribed")
        return monitor

    def test_each_user_finds_what_that_user_published(self):
        publishers = {user: self.publish(CLOCK, "--system", user=user) for user in SERVED}
        for user in SERVED:
            with self.subTest(user=user):
                record = self.query(user).record()
                self.assertEqual((record["pid"], record["uid"]), (publishers[user].pid, user))

    def test_nobody_finds_what_another_user_published(self):
        self.publish(CLOCK, "--system", user=ALICE)
        self.assertEqual({user: self.query(user).status for user in SERVED}, {ROOT: 1, ALICE: 0, BOB: 1})

    def test_a_user_without_a_registry_is_refused_whatever_is_asked(self):
        self.publish(CLOCK, "--system", user=ALICE)
        for words in (["version"], ["query", CLOCK], ["publish", CLOCK], ["post", "tick"], ["monitor"]):
            with self.subTest(words=words):
                self.assertFails(self.ctl(*words, "--system", user=STRANGER), 4, "turned away")

    def test_what_one_user_posts_reaches_subscribers_of_every_user(self):
        monitors = [self.start_monitor(user, "tick") for user in SERVED]
        self.assertEqual(self.ctl("post", "tick", "--source=bob", "--system", user=BOB).status, 0)
        for monitor in monitors:
            record = monitor.record()
            self.assertEqual((record["name"], record["source"]), ("tick", "bob"))
            self.assertEqual(monitor.wait(), 0)

    def test_what_one_user_publishes_is_announced_to_subscribers_of_every_user(self):
        monitors = [self.start_monitor(user, "SwitchboardEndpointPublished") for user in SERVED]
        self.publish(CLOCK, "--system", user=ALICE)
        for monitor in monitors:
            record = monitor.record()
            self.assertEqual((record["source"], record["info"]), ("Switchboard", {"id": CLOCK}))

    def test_a_connection_of_root_moves_and_takes_along_what_it_published(self):
        moving = self.connect(ROOT)
        moving.publish(self.endpoint(), CLOCK)
        moving.wait_until_handled()
        self.assertEqual({user: self.query(user).status for user in SERVED}, {ROOT: 0, ALICE: 1, BOB: 1})
        moving.tell("setUser:", ALICE)
        moving.wait_until_handled()
        self.assertEqual({user: self.query(user).status for user in SERVED}, {ROOT: 1, ALICE: 0, BOB: 1})
        self.assertEqual(self.query(ALICE).record()["pid"], os.getpid())

    def test_a_connection_of_root_moves_once(self):
        moving = self.connect(ROOT)
        moving.publish(self.endpoint(), CLOCK)
        for user in (ALICE, BOB, ROOT):
            moving.tell("setUser:", user)
        moving.wait_until_handled()
        self.assertEqual({user: self.query(user).status for user in SERVED}, {ROOT: 1, ALICE: 0, BOB: 1})

    def test_a_connection_that_moves_comes_after_those_that_are_there(self):
        moving = self.connect(ROOT)
        moving.publish(self.endpoint(), CLOCK)
        moving.wait_until_handled()
        publisher = self.publish(CLOCK, "--system", user=ALICE)
        moving.tell("setUser:", ALICE)
        moving.wait_until_handled()
        self.assertEqual(self.query(ALICE).record()["pid"], publisher.pid)

    def test_a_wish_to_move_to_nobody_changes_nothing(self):
        staying = self.connect(ROOT)
        staying.publish(self.endpoint(), CLOCK)
        for user in (STRANGER, ROOT):
            staying.tell("setUser:", user)
        staying.wait_until_handled()
        self.assertEqual({user: self.query(user).status for user in SERVED}, {ROOT: 0, ALICE: 1, BOB: 1})

    def test_a_connection_of_an_ordinary_user_stays_and_is_served_on(self):
        self.publish(CLOCK, "--system", user=BOB)
        staying = self.connect(ALICE)
        staying.publish(self.endpoint(), "com.example.mine")
        staying.tell("setUser:", BOB)
        self.assertFalse(staying.finds(CLOCK))
        self.assertTrue(staying.finds("com.example.mine"))
        self.assertEqual(self.query(BOB, "com.example.mine").status, 1)


if __name__ == "__main__":
    unittest.main()
