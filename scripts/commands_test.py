#!/usr/bin/env python3
"""Tests of run.sh, scripts/install-packages and scripts/build, with stand-ins for the machine around them.

Each test copies the script under test into a folder of its own and puts small programs before the real ones on PATH:
`id` says who calls, `getent` which accounts there are, `dpkg-query` what is installed, `apt-get` writes down its
arguments. Nothing is built, installed or started.
"""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
NOBODY = 65534


class CommandTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = Path(folder.name)
        self.user = None

    def script(self, path, text):
        """Puts an executable shell script into the folder."""
        place = self.home / path
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_text("#!/bin/sh\n" + text)
        place.chmod(0o755)

    def copy(self, path):
        (self.home / path).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / path, self.home / path)

    def make_foreign(self, folder):
        """Makes a folder of ours one that the caller of the scripts cannot write; root calls as somebody else then."""
        self.home.chmod(0o755)
        (self.home / folder).mkdir(parents=True, exist_ok=True)
        (self.home / folder).chmod(0o555)
        self.addCleanup((self.home / folder).chmod, 0o755)
        self.user = NOBODY if os.geteuid() == 0 else None

    def call(self, *command, **variables):
        """Runs a script of the folder: (status, standard output, standard error). It inherits no variable of ours."""
        environment = {"PATH": f"{self.home}/path:{os.environ['PATH']}", **variables}
        done = subprocess.run([self.home / command[0], *command[1:]], env=environment, text=True, timeout=60,
                              stdin=subprocess.DEVNULL, capture_output=True, user=self.user)
        return done.returncode, done.stdout, done.stderr


class RunTest(CommandTest):
    """run.sh with a service that prints its arguments."""

    def setUp(self):
        super().setUp()
        self.copy("run.sh")
        for folder in ["Platform", "Common", "switchboard", "client", "tools"]:
            (self.home / folder).mkdir()
        self.script("scripts/install-packages", 'echo "install $*"')
        self.script("scripts/build", 'echo "build $*"')
        self.script("scripts/demo", 'echo "demo $*"')
        self.script("build/release/bin/switchboard", 'echo "service $*"')
        self.script("build/release/bin/switchboardctl", "")
        self.accounts("root:x:0:0::/root:/bin/sh")

    def accounts(self, *lines):
        self.script("path/getent", "cat << END\n" + "\n".join(lines) + "\nEND\n")

    def caller(self, uid):
        self.script("path/id", f"echo {uid}")

    def run_sh(self, *arguments):
        status, out, err = self.call("run.sh", *arguments)
        self.assertEqual(status, 0, err)
        return out, err

    def test_an_ordinary_user_starts_the_own_service_without_arguments(self):
        self.caller(1234)
        out, _ = self.run_sh()
        self.assertIn("com.sevrin.switchboard.1234;", out)
        self.assertIn("bin/switchboardctl publish com.", out)
        self.assertEqual(out.splitlines()[-1], "service ")

    def test_root_serves_every_ordinary_account(self):
        self.caller(0)
        self.accounts("root:x:0:0::/root:/bin/sh", "b:x:1001:1::/:/bin/sh", "daemon:x:1:1::/:/bin/false",
                      "a:x:1000:1::/:/bin/sh", "nobody:x:65534:1::/:/bin/false")
        out, _ = self.run_sh()
        self.assertIn("com.sevrin.switchboard;", out)
        for verb in ["publish", "query", "monitor"]:
            self.assertIn(f"{self.home}/build/release/bin/switchboardctl {verb} --system", out)
        self.assertEqual(out.splitlines()[-1], "service --users 1000 1001")

    def test_root_on_a_machine_without_accounts_serves_the_first_one_to_come_and_says_so(self):
        self.caller(0)
        out, err = self.run_sh()
        self.assertRegex(out.splitlines()[-1], r"^service --users [1-9]\d*$")
        self.assertIn("no ordinary account", err)
        self.assertIn("useradd", err)

    def test_arguments_are_handed_to_the_service(self):
        self.caller(0)
        out, _ = self.run_sh("--users", "7", "a b")
        self.assertEqual(out.splitlines()[-1], "service --users 7 a b")

    def test_only_the_two_programs_are_built_before_the_service_starts(self):
        self.caller(1234)
        out, _ = self.run_sh()
        self.assertEqual(out.splitlines()[:2], [
            "install build", "build --quiet --programs-only release switchboard switchboardctl"])

    def test_the_demo_builds_the_examples_too(self):
        self.caller(1234)
        out, _ = self.run_sh("demo", "--fast")
        self.assertEqual(out.splitlines(), [
            "install build", "build --quiet --programs-only release switchboard switchboardctl examples",
            "demo --fast"])

    def test_a_build_that_fails_starts_nothing(self):
        self.caller(1234)
        self.script("scripts/build", "exit 1")
        status, out, _ = self.call("run.sh")
        self.assertEqual(status, 1)
        self.assertNotIn("service", out)

    def test_programs_in_a_folder_of_somebody_else_are_started_as_they_are(self):
        self.caller(1234)
        self.make_foreign("build/release")
        out, err = self.run_sh()
        self.assertEqual(out.splitlines()[-1], "service ")
        self.assertNotIn("build --quiet", out)
        self.assertIn("build/release belongs to", err)
        self.assertNotIn("older than", err)

    def test_programs_of_somebody_else_that_are_older_than_a_source_are_started_and_it_is_said(self):
        self.caller(1234)
        self.make_foreign("build/release")
        for program in ["switchboard", "switchboardctl"]:
            os.utime(self.home / "build/release/bin" / program, (0, 0))
        (self.home / "switchboard/main.cpp").touch()
        out, err = self.run_sh()
        self.assertEqual(out.splitlines()[-1], "service ")
        self.assertIn("older than switchboard/main.cpp", err)

    def test_help_builds_nothing(self):
        out, _ = self.run_sh("--help")
        self.assertIn("./run.sh demo", out)
        self.assertNotIn("install build", out)


class InstallPackagesTest(CommandTest):
    """scripts/install-packages with three packages, of which dpkg-query knows some."""

    def setUp(self):
        super().setUp()
        self.copy("scripts/install-packages")
        packages = "# What is needed.\nbuild one  why\n\ntest two\ndevelop three\n"
        (self.home / "scripts/packages.txt").write_text(packages)
        self.script("path/apt-get", f'echo "$*" >> {self.home}/apt\n')
        self.script("path/id", "echo 0")

    def installed(self, *packages):
        lines = "".join(f"installed {package}\n" for package in packages)
        self.script("path/dpkg-query", f"cat << END\n{lines}config-files two\nEND\n")

    def apt_calls(self):
        calls = self.home / "apt"
        return calls.read_text().splitlines() if calls.exists() else []

    def test_nothing_is_said_and_done_when_all_is_there(self):
        self.installed("one", "two")
        self.assertEqual(self.call("scripts/install-packages"), (0, "", ""))
        self.assertEqual(self.apt_calls(), [])

    def test_root_gets_what_is_missing_after_one_update(self):
        self.installed("one")
        status, out, _ = self.call("scripts/install-packages", "develop")
        self.assertEqual((status, out), (0, "Installing packages: two three\n"))
        self.assertEqual(self.apt_calls(), ["-q update", "install --yes --no-install-recommends two three"])

    def test_a_removed_package_that_left_its_settings_counts_as_missing(self):
        self.installed("one")
        _, out, _ = self.call("scripts/install-packages", "test")
        self.assertEqual(out, "Installing packages: two\n")

    def test_anyone_else_is_told_the_command_and_fails(self):
        self.installed("one")
        self.script("path/id", "echo 1234")
        status, _, err = self.call("scripts/install-packages", "test")
        self.assertEqual(status, 1)
        self.assertIn("missing: two\n", err)
        self.assertIn("apt-get update && apt-get install --yes --no-install-recommends two\n", err)
        self.assertEqual(self.apt_calls(), [])

    def test_a_group_asks_for_nothing_of_the_groups_after_it(self):
        self.installed("one")
        self.assertEqual(self.call("scripts/install-packages", "build"), (0, "", ""))

    def test_an_update_that_fails_is_said_and_the_installation_tried(self):
        self.installed("one")
        self.script("path/apt-get", f'echo "$*" >> {self.home}/apt\n[ "$2" != update ]\n')
        status, _, err = self.call("scripts/install-packages")
        self.assertEqual(status, 0)
        self.assertIn("apt-get update failed", err)
        self.assertEqual(len(self.apt_calls()), 2)

    def test_an_installation_that_fails_shows_why(self):
        self.installed("one")
        self.script("path/apt-get", "echo no such thing; exit 100\n")
        status, _, err = self.call("scripts/install-packages")
        self.assertEqual(status, 1)
        self.assertIn("no such thing", err)
        self.assertIn("could not install: two", err)


class BuildTest(CommandTest):
    """scripts/build with a cmake that prints its arguments."""

    def setUp(self):
        super().setUp()
        self.copy("scripts/build")
        self.script("path/cmake", 'echo "cmake $*"')
        self.script("path/nproc", "echo 3")

    def test_a_preset_is_configured_and_built(self):
        _, out, _ = self.call("scripts/build", "asan", "one", "two")
        self.assertEqual(out, "cmake --preset asan\ncmake --build --preset asan --parallel 3 --target one two\n")

    def test_jobs_bounds_the_processes(self):
        _, out, _ = self.call("scripts/build", "asan", JOBS="7")
        self.assertIn("--parallel 7\n", out)

    def test_programs_only_leaves_tests_out_of_a_new_folder_and_an_old_one_as_it_is(self):
        _, out, _ = self.call("scripts/build", "--programs-only", "release")
        self.assertIn("cmake --preset release -DSEVRIN_TESTS=OFF -DSEVRIN_BENCH=OFF\n", out)

        (self.home / "build/release").mkdir(parents=True)
        (self.home / "build/release/build.ninja").touch()
        _, out, _ = self.call("scripts/build", "--programs-only", "release")
        self.assertEqual(out, "cmake --build --preset release --parallel 3\n")

    def test_quiet_shows_the_output_only_of_a_failure(self):
        self.assertEqual(self.call("scripts/build", "--quiet", "release"), (0, "", ""))
        self.script("path/cmake", "echo broken; exit 1")
        status, out, err = self.call("scripts/build", "--quiet", "release")
        self.assertEqual((status, out), (1, ""))
        self.assertIn("broken", err)

    def test_a_folder_of_somebody_else_is_named_and_not_built(self):
        self.make_foreign("build/release")
        status, out, err = self.call("scripts/build", "release")
        self.assertEqual((status, out), (1, ""))
        self.assertIn(f"cannot write to {self.home}/build/release, which belongs to", err)

if __name__ == "__main__":
    unittest.main()
