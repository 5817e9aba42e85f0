"""What is installed, seen by other projects and by the service manager.

Everything is installed into a private prefix; the programs there serve, and the library is built against with nothing
but what is there. From the build come SEVRIN_BUILD (its folder), SEVRIN_CMAKE and SEVRIN_CXX.
"""

import configparser
import importlib.machinery
import importlib.util
import os
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "Tests/Support"))
sys.path.insert(0, str(ROOT / "scripts"))
from programs import IS_ROOT, SERVICE, SYSTEM_SERVICE, USER, ProgramTest, identity_of, output_of  # noqa: E402
import readme_test  # noqa: E402

BUILD, CMAKE, CXX = (os.environ[name] for name in ("SEVRIN_BUILD", "SEVRIN_CMAKE", "SEVRIN_CXX"))
WARNINGS = ["-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-Werror"]


def install(prefix, **environment):
    return output_of(CMAKE, "--install", BUILD, "--prefix", prefix, env=dict(os.environ, **environment))


def tidy():
    """The rules of the house, which know the headers of C++ and POSIX."""
    loader = importlib.machinery.SourceFileLoader("tidy", str(ROOT / "scripts/tidy"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("tidy", loader))
    loader.exec_module(module)
    return module


class InstalledTest(ProgramTest):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Path(tempfile.mkdtemp(prefix="sevrin-prefix-"))
        cls.addClassCleanup(shutil.rmtree, cls.prefix)
        cls.prefix.chmod(0o755)
        install(cls.prefix)
        os.environ["SEVRIN_SWITCHBOARD_PROGRAM"] = str(cls.prefix / "libexec/sevrin/switchboard")
        os.environ["SEVRIN_SWITCHBOARDCTL_PROGRAM"] = str(cls.prefix / "bin/switchboardctl")
        super().setUpClass()
        cls.include = cls.prefix / "include/sevrin"
        cls.headers = sorted(cls.include.rglob("*.h"))
        [cls.library] = cls.prefix.glob("lib/**/libswitchboard.so")
        cls.exports = {re.sub(r" \[clone .*|@.*", "", line.split(" ", 2)[2])
                       for line in output_of("nm", "-DC", "--defined-only", cls.library).splitlines()}

    # Programs and files

    def test_everything_is_where_it_is_looked_for(self):
        for path in ("bin/switchboardctl", "bin/switchboard-log", "libexec/sevrin/switchboard", "etc/default/switchboard",
                     "share/man/man8/switchboard.8", "share/man/man1/switchboardctl.1",
                     "share/bash-completion/completions/switchboardctl", "share/zsh/vendor-completions/_switchboardctl",
                     "share/fish/vendor_completions.d/switchboardctl.fish"):
            with self.subTest(path=path):
                self.assertTrue((self.prefix / path).is_file())

    def test_no_text_names_the_folder_of_the_build(self):
        texts = {path: path.read_bytes() for path in self.prefix.rglob("*") if path.is_file()}
        texts = {path: text for path, text in texts.items() if b"\0" not in text}
        self.assertGreater(len(texts), 30)
        folders = (str(ROOT).encode(), BUILD.encode())
        self.assertEqual([path for path, text in texts.items() if any(folder in text for folder in folders)], [])

    def test_settings_that_are_there_are_kept(self):
        settings = self.prefix / "etc/default/switchboard"
        settings.write_text('SWITCHBOARD_USERS="1000 1001"\n')
        self.assertIn(f"Kept: {settings}", install(self.prefix))
        self.assertEqual(settings.read_text(), 'SWITCHBOARD_USERS="1000 1001"\n')

    def test_a_package_for_the_machine_is_staged_elsewhere_and_names_its_last_place(self):
        stage = Path(self.folder, "stage")
        install("/usr", DESTDIR=str(stage))
        service = (stage / "usr/lib/systemd/system/switchboard.service").read_text()
        self.assertIn('ExecStart="/usr/libexec/sevrin/switchboard" --users $SWITCHBOARD_USERS\n', service)
        self.assertIn("EnvironmentFile=-/etc/default/switchboard\n", service)
        self.assertTrue((stage / "etc/default/switchboard").is_file())

    # The units

    def unit(self, manager, name):
        """The sections of a unit; a name that stands twice has the last value."""
        parser = configparser.RawConfigParser(strict=False, comment_prefixes="#")
        parser.optionxform = str
        parser.read(self.prefix / "lib/systemd" / manager / name)
        return parser

    def test_the_units_start_the_installed_program_with_the_installed_settings(self):
        program = f'"{self.prefix}/libexec/sevrin/switchboard"'
        system = self.unit("system", "switchboard.service")["Service"]
        self.assertEqual(system["ExecStart"], f"{program} --users $SWITCHBOARD_USERS")
        self.assertEqual(system["EnvironmentFile"], f"-{self.prefix}/etc/default/switchboard")
        self.assertEqual(self.unit("user", "switchboard.service")["Service"]["ExecStart"], program)

    def test_the_sockets_are_where_clients_look_and_named_as_the_service_looks_for_them(self):
        system = self.unit("system", "switchboard.socket")["Socket"]
        self.assertEqual((system["ListenStream"], system["FileDescriptorName"], system["SocketMode"]),
                         (f"/run/sevrin/{SYSTEM_SERVICE}", SYSTEM_SERVICE, "0666"))
        user = self.unit("user", "switchboard.socket")["Socket"]
        name = user["FileDescriptorName"].replace("%U", str(USER))
        self.assertEqual((name, user["ListenStream"], user["SocketMode"], user["DirectoryMode"]),
                         (SERVICE, f"%t/sevrin/{user['FileDescriptorName']}", "0600", "0700"))

    def test_the_end_that_the_manager_asked_for_is_a_success(self):
        for manager in ("system", "user"):
            service = self.unit(manager, "switchboard.service")["Service"]
            self.assertEqual((service["Type"], service["SuccessExitStatus"], service["Restart"]),
                             ("notify", "2", "on-failure"))

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd, which knows its units, is not installed")
    def test_systemd_finds_nothing_wrong_with_the_units(self):
        for manager in ("system", "user"):
            for kind in ("service", "socket"):
                with self.subTest(manager=manager, kind=kind):
                    unit = self.prefix / "lib/systemd" / manager / f"switchboard.{kind}"
                    said = output_of("systemd-analyze", "verify", "--man=no", f"--{manager}", unit,
                                     env=dict(os.environ, XDG_RUNTIME_DIR=self.folder))
                    self.assertEqual(said, "")

    # The library

    def test_the_library_is_found_by_its_promise_of_compatibility(self):
        entries = output_of("readelf", "-dW", self.library)
        self.assertEqual(re.findall(r"\(SONAME\).*\[(.*)\]", entries), ["libswitchboard.so.0"])
        self.assertTrue((self.library.parent / "libswitchboard.so.0").is_file())
        self.assertEqual(re.findall(r"\((?:RPATH|RUNPATH)\).*", entries), [])

    def test_the_library_brings_no_library_but_the_codec_of_the_wire(self):
        needed = re.findall(r"\(NEEDED\).*\[(.*?)\.so.*\]", output_of("readelf", "-dW", self.library))
        self.assertEqual(set(needed) - {"libstdc++", "libgcc_s", "libm", "libc", "ld-linux-x86-64", "ld-linux-aarch64"},
                         {"libcbor"})

    def test_the_library_shows_nothing_that_is_not_ours(self):
        about = r"(?:(?:vtable|VTT|typeinfo|typeinfo name) for |(?:non-)?virtual thunk to )?sevrin::"
        self.assertEqual([name for name in self.exports if not re.match(about, name)], [])
        self.assertIn("sevrin::SwitchboardClient::~SwitchboardClient()", self.exports)

    def test_no_type_of_another_library_is_part_of_the_interface(self):
        for name in self.exports:
            self.assertLessEqual(set(re.findall(r"(?<![\w:>)}])(\w+)::", name)), {"sevrin", "std", "__gnu_cxx"}, name)

    def test_the_library_shows_all_that_its_headers_declare(self):
        classes = {f"{namespace}::{name}" for header in self.headers for text in [header.read_text()]
                   for namespace in re.findall(r"^namespace ([\w:]+)", text, re.MULTILINE)[:1]
                   for name in re.findall(r"^(?:class|struct) (?:SEVRIN_EXPORT )?(\w+)[^;{]*\{", text, re.MULTILINE)}
        self.assertIn("sevrin::platform::Value", classes)
        archives = [path for folder in ("client", "switchboard", "Platform")
                    for path in Path(BUILD, folder).glob("lib*.a") if path.name != "libSevrinSwitchboard.a"]
        self.assertEqual(len(archives), 3)
        defined = set(re.findall(r"^[0-9a-f]+ T (.*)$", output_of("nm", "-C", "--defined-only", *archives), re.MULTILINE))
        declared = {name for name in defined if name.split("(")[0].rpartition("::")[0] in classes}
        self.assertGreater(len(declared), 100)
        self.assertEqual(declared - self.exports, set())

    def test_installed_headers_include_only_what_is_installed(self):
        house = tidy()
        for header in self.headers:
            for line in header.read_text().splitlines():
                if found := house.INCLUDE.match(line):
                    quoted, bracketed = found.groups()
                    with self.subTest(header=str(header.relative_to(self.include)), line=line):
                        self.assertTrue((self.include / quoted).is_file() if quoted
                                        else bracketed in house.STANDARD | house.POSIX)

    # Other projects

    def run_program(self, program, *arguments, **changes):
        return output_of(program, *arguments, env=self.environment(**changes), cwd="/", **identity_of(USER))

    def readme_program(self):
        path = Path(self.folder, "clock.cpp")
        path.write_text(readme_test.blocks("cpp")[0])
        return path

    def test_a_project_finds_the_package_by_cmake(self):
        os.chmod(self.folder, 0o755)
        build = Path(self.folder, "build")
        output_of(CMAKE, "-G", "Ninja", "-S", ROOT / "Tests/Installed", "-B", build, f"-DCMAKE_CXX_COMPILER={CXX}",
                  f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_FLAGS={' '.join(WARNINGS)}",
                  f"-DREADME_PROGRAM={self.readme_program()}", f"-DEXAMPLES={ROOT / 'examples'}")
        output_of(CMAKE, "--build", build, "--parallel", "2")
        self.start_switchboard()
        self.assertEqual(self.run_program(build / "clock"), readme_test.blocks("")[0])
        self.assertEqual(self.run_program(build / "custom_protocol").splitlines()[:2], ["number 7", "1"])

        publisher = self.start(str(build / "publisher"), "com.example.one")
        publisher.wait_for_line("published")
        self.assertEqual(self.run_program(build / "consumer", "com.example.one"),
                         f"Example-1.0 (65536), process {publisher.pid}\n")

    def test_a_compiler_is_told_by_pkg_config(self):
        os.chmod(self.folder, 0o755)
        found = dict(os.environ, PKG_CONFIG_PATH=str(self.library.parent / "pkgconfig"))
        self.assertEqual(output_of("pkg-config", "--modversion", "switchboard", env=found), "2.2.5\n")
        flags = output_of("pkg-config", "--cflags", "--libs", "switchboard", env=found).split()
        program = Path(self.folder, "clock")
        output_of(CXX, "-std=c++20", *WARNINGS, self.readme_program(), *flags, "-o", program)
        self.start_switchboard()
        self.assertEqual(self.run_program(program, LD_LIBRARY_PATH=str(self.library.parent)),
                         readme_test.blocks("")[0])

    @unittest.skipUnless(IS_ROOT, "only root starts the switchboard of the machine")
    def test_the_installed_tool_finds_the_installed_switchboard_of_the_machine(self):
        os.chown(self.bootstrap, 0, -1)
        for folder in (self.folder, self.bootstrap):
            os.chmod(folder, 0o755)
        self.start_switchboard("--users", str(USER), user=0)
        self.assertEqual(self.ctl("version", "--system").output, "Switchboard-2.2.5.12\n")


if __name__ == "__main__":
    unittest.main()
