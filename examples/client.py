#!/usr/bin/python3
"""A client of the switchboard on nothing but its wire protocol (docs/wire-protocol.md) and a CBOR codec.

    client.py [--system] version              prints the switchboard's version and build number
    client.py [--system] query IDENTIFIER     prints those of the component that is published so
    client.py [--system] post NAME [SOURCE [KEY=VALUE ...]]
    client.py [--system] monitor [NAME]       prints notifications as lines of JSON, until interrupted

The status is 0; 1 when nobody publishes the identifier; 3 when there is no answer.
"""

import argparse
import datetime
import json
import os
import socket
import stat
import struct
import sys

import cbor2

GREETING, MESSAGE, REQUEST, REPLY = 1, 2, 3, 4
GREETING_BODY = ["sevrin-xpc", 1]
HEADER = struct.Struct("<IHHQ")  # Length of the body, kind, count of descriptors, serial.
ENDPOINT_TAG, DATE_TAG = 50331, 50332
DATE_START = datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc)
DESCRIPTORS_MAX, PATIENCE = 253, 5  # In one receive, the kernel's own limit; seconds for each answer.


class Connection:
    """A stream of frames to one listener: the switchboard's, or that of a component."""

    def __init__(self, path):
        self.received, self.descriptors, self.messages, self.serial = b"", [], [], 0
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(PATIENCE)
        os.stat(path)  # Names the path when there is none, which connect() does not.
        self.socket.connect(path)
        self.send(GREETING, 0, GREETING_BODY)
        _, _, greeting = self.read()
        if greeting[:2] != GREETING_BODY:
            raise OSError(f"{path} greets with {greeting}, not {GREETING_BODY}: restart the older side")

    def send(self, kind, serial, body):
        encoded = cbor2.dumps(body)
        self.socket.sendall(HEADER.pack(len(encoded), kind, 0, serial) + encoded)

    def take(self, size):
        """The next bytes of the stream. Descriptors come with the first byte of their frame, in order."""
        while len(self.received) < size:
            data, descriptors, *_ = socket.recv_fds(self.socket, 65536, DESCRIPTORS_MAX)
            if not data:
                raise OSError("the other side ended the connection, or refused it")
            self.received += data
            self.descriptors += descriptors
        taken, self.received = self.received[:size], self.received[size:]
        return taken

    def read(self):
        """The next frame as (kind, serial, body), with descriptors in the place of endpoints."""
        size, kind, count, serial = HEADER.unpack(self.take(HEADER.size))
        body = self.take(size)
        own, self.descriptors = self.descriptors[:count], self.descriptors[count:]
        def untag(_, tag):
            if tag.tag == DATE_TAG:
                return (DATE_START + datetime.timedelta(seconds=tag.value)).isoformat()
            return own[tag.value] if tag.tag == ENDPOINT_TAG else tag
        return kind, serial, cbor2.loads(body, tag_hook=untag)

    def tell(self, selector, *arguments):
        """Sends a message without a reply."""
        self.send(MESSAGE, 0, [selector, *arguments])

    def ask(self, selector, *arguments):
        """Sends a request and gives the values of its reply."""
        self.serial += 1
        self.send(REQUEST, self.serial, [selector, *arguments])
        while True:
            kind, serial, body = self.read()
            if kind == REPLY and serial == self.serial:
                return body
            self.messages.append(body)  # Something else that arrived meanwhile.

    def next_message(self):
        """The next message from the other side: its selector and arguments."""
        return self.messages.pop(0) if self.messages else self.read()[2]


def connect_to_switchboard(is_system):
    """Connects, and checks to whom: whoever may write to the folder could pose as the switchboard."""
    user = 0 if is_system else os.geteuid()
    runtime, usual = os.environ.get("XDG_RUNTIME_DIR", ""), f"/run/user/{user}"
    usual = f"{usual}/sevrin" if os.path.isdir(usual) and os.lstat(usual).st_uid == user else f"/tmp/sevrin-{user}"
    own = f"{runtime}/sevrin" if runtime.startswith("/") else usual
    folder = os.environ.get("SEVRIN_BOOTSTRAP_DIR") or ("/run/sevrin" if is_system else own)
    status = os.lstat(folder)
    if not stat.S_ISDIR(status.st_mode) or status.st_uid != user or status.st_mode & 0o022:
        raise OSError(f"{folder} is no folder that only user {user} may write to")
    connection = Connection(f"{folder}/com.sevrin.switchboard{'' if is_system else f'.{user}'}")
    _, peer_user, _ = struct.unpack("3i", connection.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))
    if peer_user != user:
        raise OSError(f"the service in {folder} is run by user {peer_user}, who may not")
    return connection


def run(options):
    switchboard = connect_to_switchboard(options.system)
    answerer, words = switchboard, options.words
    if options.verb == "query":
        [endpoint] = switchboard.ask("queryEndpointForIdentifier:withReply:", words[0])
        if endpoint is None:
            return 1
        answerer = Connection(f"/proc/self/fd/{endpoint}")
    if options.verb in ("version", "query"):
        print(*answerer.ask("queryComponentVersionWithReply:"), *answerer.ask("queryBuildNumberWithReply:"))
    elif options.verb == "post":
        info = dict(pair.partition("=")[::2] for pair in words[2:])
        switchboard.tell("postNotificationName:source:userInfo:", words[0], (words + [None])[1], info or None)
        switchboard.ask("barrierWithCompletion:")  # Its answer says that the post was handled.
    else:
        switchboard.tell("addProxyObserver:forName:source:", "monitor", (words + [None])[0], None)
        switchboard.ask("barrierWithCompletion:")
        switchboard.socket.settimeout(None)
        print("monitoring", file=sys.stderr, flush=True)
        while True:
            _, _, name, source, info = switchboard.next_message()
            print(json.dumps({"name": name, "source": source, "info": info}, default=repr), flush=True)
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--system", action="store_true", help="the machine's switchboard, not the user's own")
    parser.add_argument("verb", choices=["version", "query", "post", "monitor"])
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    if options.verb in ("query", "post") and not options.words:
        parser.error(f"{options.verb} needs a name")
    try:
        return run(options)
    except OSError as failure:
        print(f"client.py: {failure}", file=sys.stderr)
        return 3
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
