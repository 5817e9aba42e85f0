"""The Debian packages, made of this build and installed into a root folder of their own.

From the build come SEVRIN_BUILD (its folder), SEVRIN_CMAKE and SEVRIN_CPACK. What needs a machine's service manager is
out of reach here: the scripts of the packages leave it alone in another root folder, and that is tested.
"""

import os
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "Tests/Support"))
from programs import IS_ROOT, ProgramTest, output_of  # noqa: E402

BUILD, CMAKE, CPACK = (os.environ[name] for name in ("SEVRIN_BUILD", "SEVRIN_CMAKE", "SEVRIN_CPACK"))
NAMES = ["libswitchboard-dev", "libswitchboard0", "switchboard"]
SETTINGS = "etc/default/switchboard"


def files_in(folder):
    """Everything below that is no folder, by its path from there."""
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_symlink() or not path.is_dir()}


class PackagesTest(ProgramTest):
    @classmethod
    def setUpClass(cls):
        cls.made = Path(tempfile.mkdtemp(prefix="sevrin-packages-"))
        cls.addClassCleanup(shutil.rmtree, cls.made)
        output_of(CPACK, "--config", Path(BUILD, "CPackConfig.cmake"), "-B", cls.made)
        cls.packages = {path.name.split("_")[0]: path for path in cls.made.glob("*.deb")}
        unpacked = cls.made / "unpacked"
        output_of("dpkg-deb", "--extract", cls.packages["switchboard"], unpacked)
        os.environ["SEVRIN_SWITCHBOARD_PROGRAM"] = str(unpacked / "usr/libexec/sevrin/switchboard")
        os.environ["SEVRIN_SWITCHBOARDCTL_PROGRAM"] = str(unpacked / "usr/bin/switchboardctl")
        super().setUpClass()

    def setUp(self):
        super().setUp()
        self.root = Path(self.folder, "root")

    def field(self, name, field):
        return output_of("dpkg-deb", "--field", self.packages[name], field).strip()

    def unpack(self, name):
        folder = Path(self.folder, name)
        output_of("dpkg-deb", "--extract", self.packages[name], folder)
        return folder

    def dpkg(self, *arguments):
        """Works on a machine that is this test's folder, on which nothing else is installed."""
        administration = self.root / "var/lib/dpkg"
        for folder in ("info", "triggers", "updates"):
            (administration / folder).mkdir(parents=True, exist_ok=True)
        for file in ("status", "available"):
            (administration / file).touch()
        return output_of("dpkg", "--root", self.root, "--force-depends", "--force-script-chrootless", "--force-confold",
                         "--no-debsig", "--log", self.root / "var/log", *arguments)

    def installed_files(self):
        return {path for path in files_in(self.root) if not path.startswith("var/")}

    # What is in them

    def test_there_are_three_of_the_version_of_the_project(self):
        self.assertEqual(sorted(self.packages), NAMES)
        for name in NAMES:
            self.assertEqual((self.field(name, "Package"), self.field(name, "Version")), (name, "2.2.5"))

    def test_together_they_are_what_the_build_installs_and_no_file_is_in_two(self):
        stage = Path(self.folder, "stage")
        output_of(CMAKE, "--install", BUILD, "--prefix", "/usr", env=dict(os.environ, DESTDIR=str(stage)))
        contents = [files_in(self.unpack(name)) for name in NAMES]
        self.assertEqual(set().union(*contents), files_in(stage))
        self.assertEqual(sum(map(len, contents)), len(files_in(stage)))

    def test_the_service_needs_neither_the_client_library_nor_what_only_a_build_needs(self):
        needed = set(re.findall(r"([a-z0-9.+-]+)(?: \(|,|$)", self.field("switchboard", "Depends")))
        self.assertLessEqual({"libc6", "libcbor0.8", "libblkid1"}, needed)
        self.assertEqual([name for name in needed if name.endswith("-dev") or name.startswith("libswitchboard")], [])

    def test_who_builds_against_the_library_gets_exactly_that_one(self):
        self.assertEqual(self.field("libswitchboard-dev", "Depends"), "libswitchboard0 (= 2.2.5)")
        shlibs = output_of("dpkg-deb", "--info", self.packages["libswitchboard0"], "shlibs")
        self.assertEqual(shlibs.split(), ["libswitchboard", "0", "libswitchboard0", "(=", "2.2.5)"])

    def test_the_units_name_the_places_of_the_installed_files(self):
        folder = self.unpack("switchboard")
        unit = (folder / "usr/lib/systemd/system/switchboard.service").read_text()
        self.assertIn('ExecStart="/usr/libexec/sevrin/switchboard" --users $SWITCHBOARD_USERS\n', unit)
        self.assertIn(f"EnvironmentFile=-/{SETTINGS}\n", unit)

    def test_every_file_belongs_to_root_and_nobody_else_may_write_to_it(self):
        for name in NAMES:
            for line in output_of("dpkg-deb", "--contents", self.packages[name]).splitlines():
                mode, owner = line.split()[:2]
                self.assertEqual(owner, "root/root", line)
                if not mode.startswith("l"):
                    self.assertEqual((mode[5], mode[8]), ("-", "-"), line)

    def test_the_switchboard_of_the_package_answers_the_tool_of_the_package(self):
        self.start_switchboard()
        self.assertEqual(self.ctl("version").output, "Switchboard-2.2.5.12\n")

    # On a machine

    @unittest.skipUnless(IS_ROOT, "only root installs packages")
    def test_settings_outlive_a_removal_and_go_with_a_purge(self):
        self.dpkg("--install", self.packages["switchboard"])
        (self.root / SETTINGS).write_text('SWITCHBOARD_USERS="1000 1001"\n')

        self.dpkg("--install", self.packages["switchboard"])
        self.assertEqual((self.root / SETTINGS).read_text(), 'SWITCHBOARD_USERS="1000 1001"\n')
        self.dpkg("--remove", "switchboard")
        self.assertEqual(self.installed_files(), {SETTINGS})
        self.dpkg("--purge", "switchboard")
        self.assertEqual(self.installed_files(), set())

    @unittest.skipUnless(IS_ROOT, "only root installs packages")
    def test_all_of_them_together_leave_nothing_behind(self):
        self.dpkg("--install", *self.packages.values())
        [library] = self.root.glob("usr/lib/*/libswitchboard.so")
        self.assertTrue(library.is_file())
        self.dpkg("--purge", *NAMES)
        self.assertEqual(self.installed_files(), set())


if __name__ == "__main__":
    unittest.main()
