"""Programs of the switchboard as child processes, in a private place that the machine's own switchboards never see.

A Place is a temporary folder with bootstrap folders, home folders and, where root asks for processes of other users,
copies of the programs, since those users may not be allowed into the build folder. Leaving it ends every process that
was started in it and removes the folder. Every wait has an end. Used by scripts/demo and scripts/readme_test.py.
"""

import os
import queue
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from pathlib import Path

PATIENCE = 20  # Seconds that anything may take; reached only when something is broken.


class Failure(Exception):
    """Something did not go as it should: what was expected, and what came."""


class Process:
    """A program running in a Place. What it prints is read by threads of its own, line by line."""

    def __init__(self, arguments, environment, user):
        self.name = os.path.basename(arguments[0])
        identity = {} if user is None else {"user": user, "group": user, "extra_groups": []}
        self.child = subprocess.Popen(arguments, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, text=True, cwd="/", start_new_session=True, **identity)
        self.pid = self.child.pid
        self.lines = queue.Queue()  # None is the end.
        self.errors = []
        self.readers = [threading.Thread(target=self._read_output, daemon=True),
                        threading.Thread(target=self._read_errors, daemon=True)]
        for reader in self.readers:
            reader.start()

    def _read_output(self):
        for line in self.child.stdout:
            self.lines.put(line.rstrip("\n"))
        self.lines.put(None)

    def _read_errors(self):
        for line in self.child.stderr:
            self.errors.append(line.rstrip("\n"))

    def line(self, wanted, what):
        """The next line of output for which wanted(line) holds; others are skipped."""
        end = time.monotonic() + PATIENCE
        skipped = []
        while True:
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                raise Failure(f"expected {what} from {self.name} within {PATIENCE} s, "
                              f"got {skipped or 'nothing'}") from None
            if line is None:
                self.lines.put(None)
                raise Failure(f"expected {what} from {self.name}, but it ended with status {self.wait()}, "
                              f"having said {skipped + self.errors}")
            if wanted(line):
                return line
            skipped.append(line)

    def wait(self):
        """The exit status, or minus the signal that ended it."""
        try:
            return self.child.wait(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failure(f"expected {self.name} to end within {PATIENCE} s, it still runs") from None

    def finish(self):
        """Waits for the end: (status, lines of output, lines of errors)."""
        status = self.wait()
        for reader in self.readers:
            reader.join(PATIENCE)
        lines = []
        while not self.lines.empty():
            if (line := self.lines.get()) is not None:
                lines.append(line)
        return status, lines, self.errors

    def kill(self):
        """Ends the program and whatever it has started, and waits for that."""
        if self.child.poll() is None:
            os.killpg(self.pid, signal.SIGKILL)
        self.child.wait()


class Place:
    """`with Place(programs) as place:`; see the top of this file."""

    def __init__(self, programs):
        self.programs = Path(programs).resolve()
        self.processes = []

    def __enter__(self):
        self.folder = Path(tempfile.mkdtemp(prefix="sevrin-private-"))
        self.folder.chmod(0o755)
        return self

    def __exit__(self, *_):
        for process in reversed(self.processes):
            process.kill()
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, user, program, *arguments):
        """Starts a program as `user`: None for whoever calls, else a user id, for which one must be root."""
        owner = os.geteuid() if user is None else user
        environment = {name: value for name, value in os.environ.items()
                       if name not in ("JOURNAL_STREAM", "NOTIFY_SOCKET") and not name.startswith("LISTEN_")}
        environment |= {
            "HOME": self._own_folder(f"home-{owner}", owner),
            "CFFIXED_USER_HOME": self._own_folder(f"home-{owner}", owner),
            "SEVRIN_LOCAL_ROOT": self._own_folder(f"machine-{owner}", owner),
            "XDG_RUNTIME_DIR": self._own_folder(f"runtime-{owner}", owner),
            "SEVRIN_BOOTSTRAP_DIR": self.bootstrap(owner, "--system" in arguments or "--users" in arguments),
        }
        process = Process([self._program(program), *map(str, arguments)], environment, user)
        self.processes.append(process)
        return process

    def run(self, user, program, *arguments):
        """Runs a program to its end: (status, lines of output, lines of errors)."""
        return self.start(user, program, *arguments).finish()

    def bootstrap(self, owner, is_system):
        """The folder with the sockets: root's for the system switchboard, else the user's own."""
        return self._own_folder("system", os.geteuid()) if is_system else self._own_folder(f"user-{owner}", owner)

    def log(self, owner):
        """The log file of a user."""
        return Path(self._own_folder(f"home-{owner}", owner)) / "Library/Logs/Sevrin/Sevrin.log"

    def _own_folder(self, name, owner):
        folder = self.folder / name
        if not folder.exists():
            folder.mkdir()
            folder.chmod(0o755)
            if owner != os.geteuid():
                os.chown(folder, owner, owner)
        return str(folder)

    def _program(self, name):
        original = self.programs / name
        if not original.exists():
            raise Failure(f"{original} is not there; build it first, for instance by ./run.sh demo")
        if os.geteuid() != 0:
            return str(original)
        copy = self.folder / "bin" / original.name
        if not copy.exists():
            copy.parent.mkdir(exist_ok=True)
            copy.parent.chmod(0o755)
            shutil.copy(original, copy)
            copy.chmod(0o755)
        return str(copy)


def eventually(attempt, what):
    """Calls attempt() until it answers something true, which is returned; for what happens soon but not at once."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        if answer := attempt():
            return answer
        time.sleep(0.02)
    raise Failure(f"expected {what} within {PATIENCE} s, it did not come")


def stop(process, number=signal.SIGTERM):
    """Sends a signal and gives the exit status."""
    process.child.send_signal(number)
    return process.wait()
