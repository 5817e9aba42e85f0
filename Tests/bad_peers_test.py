"""Peers of the real switchboard that break the rules of docs/wire-protocol.md, each in its own way.

Whatever a peer does costs that peer its connection and nobody anything else: a second client is served before it,
meanwhile and after it, and in the end the service has as many descriptors open as it had before.
"""

import os
import signal
import socket
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "Support"))
from programs import PATIENCE, SERVICE, USER, ProgramTest  # noqa: E402
from wire import (ENDPOINT_TAG, GREETING, GREETING_BODY, HEADER, MESSAGE, REPLY, REQUEST, Connection,  # noqa: E402
                  acting_as, cbor2, frame, message)

GREETED = frame(GREETING, GREETING_BODY)
VERSION = ["queryComponentVersionWithReply:"]
BODY_BYTES_MAX = 1_048_576
DESCRIPTORS_MAX = 8


def endpoint(index):
    return cbor2.CBORTag(ENDPOINT_TAG, index)


def publication(*indexes, descriptors):
    """A message that publishes the endpoints of `indexes`; more than one is one argument too many."""
    return message("publishEndpoint:forIdentifier:", *map(endpoint, indexes), "a", descriptors=descriptors)


class BadPeersTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.service = self.start_switchboard()
        self.path = os.path.join(self.bootstrap, SERVICE)
        self.good = Connection(self.path, USER)
        self.addCleanup(self.good.socket.close)
        self.assertServed()
        self.descriptors = self.wait_for_descriptors(lambda count: True)

    def assertServed(self):
        self.assertEqual(self.good.ask(*VERSION), ["Switchboard-2.2.5.12"])

    def wait_for_descriptors(self, is_right):
        """How many the service has open, as soon as that is right."""
        deadline = time.monotonic() + PATIENCE
        while not is_right(count := len(os.listdir(f"/proc/{self.service.pid}/fd"))):
            self.assertLess(time.monotonic(), deadline, f"{count} descriptors are open, {self.descriptors} were before")
        return count

    def assertNothingIsLeft(self):
        self.assertServed()
        self.wait_for_descriptors(lambda count: count == self.descriptors)
        self.assertIsNone(self.service.process.poll())

    def connect(self):
        peer = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(peer.close)
        peer.settimeout(PATIENCE)
        with acting_as(USER):
            peer.connect(self.path)
        return peer

    def assertCutOff(self, peer):
        """Whether the service ends the connection, whatever it still answers before that."""
        try:
            while peer.recv(65536):
                pass
        except ConnectionError:
            pass

    def assertBreach(self, data, descriptors=()):
        """Whether a peer that sends this loses its connection, and nobody else notices."""
        peer = self.connect()
        try:
            sent = socket.send_fds(peer, [data], descriptors)
            peer.sendall(data[sent:])
        except ConnectionError:
            pass  # Cut off before it had said all of it.
        self.assertServed()
        self.assertCutOff(peer)
        peer.close()
        self.assertNothingIsLeft()

    def assertBreaches(self, **bad):
        for what, data in bad.items():
            with self.subTest(what=what):
                self.assertBreach(data)

    def test_a_raw_peer_that_keeps_the_rules_is_served(self):
        peer = self.connect()
        peer.sendall(GREETED + frame(REQUEST, VERSION, serial=7))
        wanted = GREETED + frame(REPLY, ["Switchboard-2.2.5.12"], serial=7)
        received = b""
        while len(received) < len(wanted):
            received += peer.recv(len(wanted) - len(received))
        self.assertEqual(received, wanted)
        peer.close()
        self.assertNothingIsLeft()

    def test_garbage_before_the_greeting(self):
        self.assertBreaches(text=b"GET / HTTP/1.1\r\nHost: switchboard\r\n\r\n", zeros=bytes(64), ones=b"\xff" * 64,
                            noise=os.urandom(4096))

    def test_a_greeting_that_is_none(self):
        self.assertBreaches(word=frame(GREETING, ["other-xpc", 1]), number=frame(GREETING, 1),
                            empty=frame(GREETING, b""), version=frame(GREETING, ["sevrin-xpc", 2]),
                            text=frame(GREETING, ["sevrin-xpc", "1"]),
                            missing=frame(REQUEST, VERSION, serial=1), second=GREETED + GREETED)

    def test_a_frame_that_ends_too_early(self):
        whole = GREETED + frame(REQUEST, VERSION, serial=1)
        for size in (1, 15, 17, len(GREETED) + 1, len(whole) - 1):
            with self.subTest(size=size):
                peer = self.connect()
                peer.sendall(whole[:size])
                peer.shutdown(socket.SHUT_WR)
                self.assertServed()
                self.assertCutOff(peer)
                peer.close()
                self.assertNothingIsLeft()

    def test_an_oversized_frame(self):
        self.assertBreaches(barely=GREETED + HEADER.pack(BODY_BYTES_MAX + 1, MESSAGE, 0, 0),
                            absurdly=GREETED + HEADER.pack(2**32 - 1, MESSAGE, 0, 0))

    def test_a_length_that_lies(self):
        body = cbor2.dumps(["removeAllObservers"])
        self.assertBreaches(short=GREETED + HEADER.pack(len(body) - 1, MESSAGE, 0, 0) + body,
                            long=GREETED + HEADER.pack(len(body) + 1, MESSAGE, 0, 0) + body + body,
                            text=GREETED + frame(MESSAGE, b"\x81\x7b" + b"\xff" * 8 + b"a"),
                            array=GREETED + frame(MESSAGE, b"\x9b" + b"\xff" * 8))

    def test_nesting_without_end(self):
        def post(info):
            head = cbor2.dumps(["postNotificationName:source:userInfo:", "a", None, None])[:-1]
            return GREETED + frame(MESSAGE, head + info)

        self.assertBreaches(arrays=post(b"\xa1\x61k" + b"\x81" * 500_000), dictionaries=post(b"\xa1\x61k" * 200_000),
                            tags=post(b"\xa1\x61k" + b"\xc1" * 500_000), indefinite=post(b"\x9f" * 500_000))

    def test_an_unknown_selector(self):
        self.assertBreaches(unknown=GREETED + message("frob"), empty=GREETED + message(""),
                            almost=GREETED + message("removeObserver", "a"),
                            ours=GREETED + message("forwardToObserver:notification:fromSource:withInfo:", "a", "b",
                                                   None, None))

    def test_arguments_of_the_wrong_type_or_count(self):
        self.assertBreaches(number=GREETED + message("removeObserver:", 1),
                            null=GREETED + message("removeObserver:", None),
                            text=GREETED + message("setUser:", "501"), large=GREETED + message("setUser:", 2**32),
                            negative=GREETED + message("setUser:", -1), none=GREETED + message("setUser:"),
                            two=GREETED + message("setUser:", 1, 2), array=GREETED + message(
                                "postNotificationName:source:userInfo:", "a", None, []),
                            nulls=GREETED + message("postNotificationName:source:userInfo:", "a", None, {"k": None}),
                            latin=GREETED + frame(MESSAGE, b"\x82\x6fremoveObserver:\x61\xe9"))

    def test_a_message_that_wants_an_answer_and_a_request_that_gets_none(self):
        self.assertBreaches(message=GREETED + message(*VERSION),
                            request=GREETED + frame(REQUEST, ["removeAllObservers"], serial=1),
                            serial=GREETED + frame(REQUEST, VERSION))

    def test_a_reply_to_no_question(self):
        self.assertBreaches(reply=GREETED + frame(REPLY, [], serial=1))

    def test_too_many_and_missing_descriptors(self):
        path = os.open(self.path, os.O_PATH | os.O_NOFOLLOW)
        self.addCleanup(os.close, path)
        for what, data, count in (
                ("none", publication(0, descriptors=1), 0), ("undeclared", publication(0, descriptors=0), 0),
                ("wrong index", publication(1, descriptors=1), 1), ("named twice", publication(0, 0, descriptors=1), 1),
                ("not named", message("removeAllObservers", descriptors=1), 1),
                ("not declared", message("removeAllObservers"), 1),
                ("more than declared", publication(0, descriptors=1), 2),
                ("more than allowed", publication(0, descriptors=DESCRIPTORS_MAX + 1), DESCRIPTORS_MAX + 1),
                ("with the greeting", b"", 1), ("as many as go", publication(0, descriptors=1), 253)):
            with self.subTest(what=what):
                self.assertBreach(GREETED + data, [path] * count)

    def test_descriptors_that_are_no_endpoints(self):
        ends = socket.socketpair()
        listening = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        listening.bind(os.path.join(self.folder, "listening"))
        listening.listen()
        pipe = os.pipe()
        opened = [os.open("/dev/null", os.O_RDWR), os.open("/etc/passwd", os.O_RDONLY),
                  os.open("/etc/passwd", os.O_PATH)]
        for descriptor in (*ends, listening):
            self.addCleanup(descriptor.close)
        for descriptor in (*pipe, *opened):
            self.addCleanup(os.close, descriptor)
        for descriptor in (ends[0].fileno(), listening.fileno(), *pipe, *opened):
            with self.subTest(what=os.readlink(f"/proc/self/fd/{descriptor}")):
                self.assertBreach(GREETED + publication(0, descriptors=1), [descriptor])

    def test_an_identifier_that_is_too_long(self):
        self.assertBreaches(redacted=GREETED + message("redactEndpointForIdentifier:", "a" * 1025),
                            subscribed=GREETED + message("addProxyObserver:forName:source:", "a", "b" * 1025, None))

    def test_half_a_message_and_then_silence(self):
        whole = GREETED + message("postNotificationName:source:userInfo:", "a", None, {"k": "v" * 50_000})
        peers = [self.connect() for _ in range(20)]
        for number, peer in enumerate(peers):
            peer.sendall(whole[:1 + number * (len(whole) // 20)])
        self.assertServed()
        for peer in peers:
            peer.close()
        self.assertNothingIsLeft()

    def test_a_peer_that_never_reads(self):
        peer = self.connect()
        peer.sendall(GREETED + message("addProxyObserver:forName:source:", "me", "flood", None))
        for _ in range(12):
            self.good.tell("postNotificationName:source:userInfo:", "flood", None, {"k": bytes(BODY_BYTES_MAX - 1000)})
            self.good.wait_until_handled()
        self.assertCutOff(peer)
        peer.close()
        self.assertNothingIsLeft()

    def test_a_peer_killed_in_the_middle_of_a_message(self):
        peer = self.connect()
        child = os.fork()
        if child == 0:
            # Nothing but system calls: the threads of this process are not here.
            os.write(peer.fileno(), (GREETED + message("removeObserver:", "a" * 1000))[:500])
            os.kill(os.getpid(), signal.SIGSTOP)
            os._exit(1)
        peer.close()
        os.waitpid(child, os.WUNTRACED)
        self.assertServed()
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
        self.assertNothingIsLeft()


if __name__ == "__main__":
    unittest.main()
