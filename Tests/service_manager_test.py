"""The switchboard under a service manager: what it tells it, and the socket that it takes over from it.

The manager's end of both protocols is played here, with real sockets.
"""

import os
import signal
import socket
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import PATIENCE, SERVICE, USER, Child, ProgramTest  # noqa: E402
from wire import Connection, acting_as  # noqa: E402

# Starts a program with one descriptor as a service manager does; the process id is known only in the process itself.
LAUNCH = """
import os, sys
os.dup2(int(sys.argv[1]), 3)
os.environ["LISTEN_PID"] = str(os.getpid())
os.execv(sys.argv[2], sys.argv[2:])
"""


class ServiceManagerTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.manager.close)
        self.manager.settimeout(PATIENCE)
        place = os.path.join(self.folder, "notify")
        self.manager.bind(place)
        os.chmod(place, 0o666)
        self.started = self.environment(NOTIFY_SOCKET=place)
        self.socket = os.path.join(self.bootstrap, SERVICE)

    def start_managed(self, listener=None, arguments=()):
        command, descriptors = [self.programs.switchboard, *arguments], ()
        if listener:
            descriptors = (listener.fileno(),)
            command = [sys.executable, "-c", LAUNCH, str(listener.fileno()), *command]
        child = Child(command, USER, self.started, descriptors)
        self.addCleanup(child.end)
        return child

    def told(self):
        return self.manager.recv(4096).decode()

    def connects(self):
        connection = Connection(self.socket, USER)
        self.addCleanup(connection.socket.close)
        return connection.ask("queryComponentVersionWithReply:")

    def test_it_is_ready_when_it_can_be_reached_and_not_before(self):
        self.start_managed()
        self.assertEqual(self.told(), "READY=1")
        self.assertEqual(self.connects(), ["Switchboard-2.2.5.12"])

    def test_it_tells_that_it_ends(self):
        for number, status in ((signal.SIGTERM, 2), (signal.SIGINT, 0)):
            with self.subTest(number=number):
                service = self.start_managed()
                self.assertEqual(self.told(), "READY=1")
                service.signal(number)
                self.assertEqual((self.told(), service.wait()), ("STOPPING=1", status))

    def test_one_that_cannot_be_reached_says_why_instead_of_ready(self):
        first = self.start_managed()
        self.assertEqual(self.told(), "READY=1")
        self.start_managed()
        self.assertEqual(self.told(), "STATUS=Not reachable: another process serves that name already "
                                      f"(pid {first.pid})")

    def test_a_wrong_command_line_is_never_ready(self):
        self.assertEqual(self.start_managed(arguments=["--users"]).wait(), 2)
        self.manager.settimeout(0)
        self.assertRaises(BlockingIOError, self.manager.recv, 4096)

    def test_one_whose_manager_is_gone_serves_all_the_same(self):
        self.started = self.environment(NOTIFY_SOCKET=os.path.join(self.folder, "nobody"))
        service = self.start_managed()
        self.wait_until_answered(service, lambda: self.ctl("version"))

    def listen(self):
        """The socket of the service, which the manager opens and keeps."""
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(listener.close)
        listener.bind(self.socket)
        os.chown(self.socket, USER, -1)
        listener.listen()
        self.started |= {"LISTEN_FDS": "1", "LISTEN_FDNAMES": SERVICE}
        return listener

    def connect_unanswered(self):
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(connection.close)
        connection.settimeout(PATIENCE)
        with acting_as(USER):
            connection.connect(self.socket)
        return connection

    def test_whoever_connected_before_it_was_started_is_served(self):
        listener = self.listen()
        early = self.connect_unanswered()
        self.start_managed(listener)
        self.assertEqual(self.told(), "READY=1")
        self.assertNotEqual(early.recv(1), b"", "no greeting")

    def test_the_socket_of_the_manager_outlives_it(self):
        listener = self.listen()
        for _ in range(2):
            waiting = self.connect_unanswered()
            service = self.start_managed(listener)
            self.assertEqual(self.told(), "READY=1")
            self.assertNotEqual(waiting.recv(1), b"", "no greeting")
            service.signal(signal.SIGTERM)
            self.assertEqual((self.told(), service.wait()), ("STOPPING=1", 2))
            self.assertTrue(os.path.exists(self.socket))


if __name__ == "__main__":
    unittest.main()
