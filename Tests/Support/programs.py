"""The switchboard and switchboardctl as child processes, for tests of whole programs.

Every Place is a private folder with a bootstrap folder and a home folder, so that a test neither meets nor disturbs the
switchboards of the machine. Run by root, the programs are started as an ordinary user unless told otherwise; run by
anybody else, as that user. The programs come from the build: SEVRIN_SWITCHBOARD_PROGRAM, SEVRIN_SWITCHBOARDCTL_PROGRAM.
"""

import json
import os
import queue
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

IS_ROOT = os.geteuid() == 0
NOBODY = 65534
USER = NOBODY if IS_ROOT else os.geteuid()
SERVICE = f"com.sevrin.switchboard.{USER}"
SYSTEM_SERVICE = "com.sevrin.switchboard"
PATIENCE = 60  # seconds until what must happen counts as missing

# What a shell starts in the background has SIGINT ignored, and would hand that on to the programs.
signal.signal(signal.SIGINT, signal.default_int_handler)


class Programs:
    """Copies that every user may run: the build folder may be closed to others."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="sevrin-programs-")
        os.chmod(self.folder, 0o755)
        self.switchboard = self._copy("SEVRIN_SWITCHBOARD_PROGRAM")
        self.switchboardctl = self._copy("SEVRIN_SWITCHBOARDCTL_PROGRAM")

    def _copy(self, variable):
        return shutil.copy(os.environ[variable], self.folder)

    def remove(self):
        shutil.rmtree(self.folder)


def identity_of(user):
    return {} if user == os.geteuid() else {"user": user, "group": user, "extra_groups": []}


def output_of(*command, **options):
    """What the command prints, whose success is the test's business."""
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=300, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with status {done.returncode}:\n{done.stdout}")
    return done.stdout


class Child:
    """A running program whose lines can be waited for. It inherits `descriptors`, under their numbers."""

    def __init__(self, arguments, user, environment, descriptors=()):
        self.process = subprocess.Popen(
            arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment,
            cwd="/", pass_fds=descriptors, **identity_of(user))
        self.pid = self.process.pid
        self.output, self.errors = (self._lines(stream) for stream in (self.process.stdout, self.process.stderr))

    @staticmethod
    def _lines(stream):
        lines = queue.Queue()

        def read():
            for line in stream:
                lines.put(line.rstrip(b"\n").decode(errors="surrogateescape"))
            stream.close()
            lines.put(None)

        threading.Thread(target=read, daemon=True).start()
        return lines

    def line(self, lines=None):
        """The next line of the output (or of the errors); None once there is no more."""
        return (lines or self.output).get(timeout=PATIENCE)

    def record(self):
        return json.loads(self.line())

    def wait_for_line(self, text, lines=None):
        while (line := self.line(lines)) is not None:
            if text in line:
                return line
        raise AssertionError(f"no line with {text!r}")

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self):
        return self.process.wait(timeout=PATIENCE)

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


class Outcome:
    def __init__(self, completed):
        self.status = completed.returncode
        self.output = (completed.stdout or b"").decode(errors="surrogateescape")
        self.errors = completed.stderr.decode(errors="surrogateescape")

    def record(self):
        return json.loads(self.output)


class ProgramTest(unittest.TestCase):
    """A test with a place of its own. What it starts ends with it."""

    @classmethod
    def setUpClass(cls):
        cls.programs = Programs()
        cls.addClassCleanup(cls.programs.remove)

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="sevrin-place-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.bootstrap = os.path.join(self.folder, "bootstrap")
        self.home = os.path.join(self.folder, "home")
        for folder in (self.folder, self.bootstrap, self.home):
            os.makedirs(folder, mode=0o700, exist_ok=True)
            os.chown(folder, USER, -1)

    def environment(self, **changes):
        """That of the test, with the place's folders; None takes a variable out."""
        environment = dict(os.environ, SEVRIN_BOOTSTRAP_DIR=self.bootstrap, CFFIXED_USER_HOME=self.home)
        for name in ("NO_COLOR", "JOURNAL_STREAM"):
            environment.pop(name, None)
        for name, value in changes.items():
            environment.pop(name, None)
            if value is not None:
                environment[name] = value
        return environment

    def start(self, program, *arguments, user=USER):
        child = Child([program, *arguments], user, self.environment())
        self.addCleanup(child.end)
        return child

    def start_switchboard(self, *arguments, user=USER):
        """The service, as soon as it answers."""
        service = self.start(self.programs.switchboard, *arguments, user=user)
        scope = ["--system"] if arguments else []
        self.wait_until_answered(service, lambda: self.ctl("version", *scope, user=user))
        return service

    def wait_until_answered(self, service, ask):
        """Asks until the outcome is an answer of the service."""
        deadline = time.monotonic() + PATIENCE
        while ask().status != 0:
            self.assertIsNone(service.process.poll(), "the switchboard has ended")
            self.assertLess(time.monotonic(), deadline, "the switchboard does not answer")

    def kill_switchboard(self, service):
        service.signal(signal.SIGKILL)
        service.wait()

    def start_ctl(self, *arguments, user=USER):
        return self.start(self.programs.switchboardctl, *arguments, user=user)

    def publish(self, identifier, *options, user=USER):
        """A publisher, as soon as it has published."""
        publisher = self.start_ctl("publish", identifier, *options, user=user)
        self.assertEqual(publisher.line(), f"published {identifier}")
        return publisher

    def ctl(self, *arguments, user=USER, stdout=subprocess.PIPE, **changes):
        """A run of switchboardctl from beginning to end."""
        completed = subprocess.run(
            [self.programs.switchboardctl, *arguments], stdin=subprocess.DEVNULL, stdout=stdout, stderr=subprocess.PIPE,
            env=self.environment(**changes), cwd="/", timeout=PATIENCE, check=False, **identity_of(user))
        return Outcome(completed)

    def assertFails(self, outcome, status, *texts):
        """Whether it ended with this status, with nothing on standard output and these words on the other."""
        self.assertEqual((outcome.status, outcome.output), (status, ""), outcome.errors)
        for text in texts:
            self.assertIn(text, outcome.errors)
