"""Connections to a switchboard below every library, for tests of what switchboardctl would never do.

They stand on the client in examples/, which is written from docs/wire-protocol.md and nothing else.
"""

import contextlib
import os
import socket
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples"))
import client  # noqa: E402
from client import ENDPOINT_TAG, GREETING, GREETING_BODY, HEADER, MESSAGE, REPLY, REQUEST, cbor2  # noqa: E402

__all__ = ["ENDPOINT_TAG", "GREETING", "GREETING_BODY", "HEADER", "MESSAGE", "REPLY", "REQUEST", "Connection",
           "acting_as", "cbor2", "frame", "listen", "message"]


@contextlib.contextmanager
def acting_as(user):
    """What is connected meanwhile is of `user`, as the kernel sees it. Whoever is not root stays who they are."""
    if os.geteuid() != 0:
        yield
        return
    os.seteuid(user)
    try:
        yield
    finally:
        os.seteuid(0)


def frame(kind, body, serial=0, descriptors=0):
    """A frame around `body`, which is bytes or a value."""
    encoded = body if isinstance(body, bytes) else cbor2.dumps(body)
    return HEADER.pack(len(encoded), kind, descriptors, serial) + encoded


def message(selector, *arguments, descriptors=0):
    return frame(MESSAGE, [selector, *arguments], descriptors=descriptors)


def listen(folder):
    """A listener that everybody may connect to who holds its endpoint: the listening socket and the path descriptor."""
    path = os.path.join(folder, "listener")
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    listener.bind(path)
    os.chmod(path, 0o666)
    listener.listen()
    descriptor = os.open(path, os.O_PATH | os.O_NOFOLLOW)
    os.unlink(path)
    return listener, descriptor


class Connection(client.Connection):
    """A connection of a user's that keeps the rules."""

    def __init__(self, path, user):
        with acting_as(user):
            super().__init__(path)

    def wait_until_handled(self):
        self.ask("barrierWithCompletion:")

    def publish(self, endpoint, identifier):
        """Publishes `endpoint`, a path descriptor."""
        published = message("publishEndpoint:forIdentifier:", cbor2.CBORTag(ENDPOINT_TAG, 0), identifier, descriptors=1)
        socket.send_fds(self.socket, [published], [endpoint])

    def finds(self, identifier):
        [endpoint] = self.ask("queryEndpointForIdentifier:withReply:", identifier)
        if endpoint is not None:
            os.close(endpoint)
        return endpoint is not None
