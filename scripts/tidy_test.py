#!/usr/bin/env python3
"""Tests of scripts/tidy: each rule fires on a tiny tree that breaks it, and stays silent on one that does not."""

import importlib.machinery
import importlib.util
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
SCRIPT = Path(__file__).resolve().parent / "tidy"
loader = importlib.machinery.SourceFileLoader("tidy", str(SCRIPT))
tidy = importlib.util.module_from_spec(importlib.util.spec_from_loader("tidy", loader))
loader.exec_module(tidy)

HEADER = "// A header for the test.\n#pragma once\n"
SOURCE = "// A source for the test.\n"


def function_of(lines):
    return "int f() {\n" + "    g();\n" * (lines - 2) + "}\n"


class TidyTest(unittest.TestCase):
    def findings(self, files):
        """The findings in a tree of {path: text}, each as "path:line rule"."""
        with tempfile.TemporaryDirectory() as folder:
            for path, text in files.items():
                place = Path(folder, path)
                place.parent.mkdir(parents=True, exist_ok=True)
                place.write_bytes(text if isinstance(text, bytes) else text.encode())
            found, _ = tidy.check(Path(folder))
        return [f"{path}:{line} {rule}" for path, line, rule, _ in found]

    def assert_includes(self, path, include, *rules):
        """A file at the path that includes this breaks exactly these rules."""
        targets = ["Platform/A.h", "Platform/linux/L.h", "Common/Source/Utilities/B.h", "switchboard/C.h",
                   "switchboard/SwitchboardProtocols.h", "client/D.h", "tools/E.h", "Tests/F.h"]
        tree = {target: HEADER for target in targets}
        tree[path] = (HEADER if path.endswith(".h") else SOURCE) + f"#include {include}\n"
        line = tree[path].count("\n")
        self.assertEqual(self.findings(tree), [f"{path}:{line} {rule}" for rule in rules], (path, include))

    def test_includes_pointing_down_are_fine(self):
        for path, include in [
                ("Platform/X.cpp", '"Platform/A.h"'), ("Platform/linux/X.cpp", '"Platform/linux/L.h"'),
                ("Platform/linux/X.cpp", '"Platform/A.h"'), ("Platform/XTest.cpp", '"Platform/linux/L.h"'),
                ("Common/Source/Utilities/X.cpp", '"Platform/A.h"'),
                ("switchboard/X.cpp", '"Common/Source/Utilities/B.h"'), ("switchboard/X.h", '"switchboard/C.h"'),
                ("client/X.cpp", '"switchboard/SwitchboardProtocols.h"'), ("client/X.h", '"Platform/A.h"'),
                ("tools/X.cpp", '"client/D.h"'), ("examples/X.cpp", '"client/D.h"'),
                ("Tests/X.cpp", '"switchboard/C.h"'), ("bench/X.cpp", '"switchboard/C.h"'),
                ("fuzz/X.cpp", '"Platform/linux/L.h"'), ("client/XTest.cpp", '"Tests/F.h"')]:
            self.assert_includes(path, include)

    def test_includes_pointing_up_or_sideways_are_found(self):
        for path, include in [
                ("Platform/X.h", '"Common/Source/Utilities/B.h"'), ("Platform/X.h", '"Platform/linux/L.h"'),
                ("Platform/linux/X.cpp", '"switchboard/C.h"'), ("Common/Source/Utilities/X.cpp", '"switchboard/C.h"'),
                ("Common/Source/Utilities/X.cpp", '"Platform/linux/L.h"'), ("switchboard/X.cpp", '"client/D.h"'),
                ("client/X.cpp", '"switchboard/C.h"'), ("client/X.cpp", '"tools/E.h"'),
                ("tools/X.cpp", '"switchboard/C.h"'), ("tools/X.cpp", '"switchboard/SwitchboardProtocols.h"'),
                ("examples/X.cpp", '"tools/E.h"'), ("client/X.cpp", '"Tests/F.h"')]:
            self.assert_includes(path, include, "include-direction")

    def test_an_include_that_is_not_counted_from_the_root_is_found(self):
        self.assert_includes("Platform/X.cpp", '"A.h"', "include-direction")
        self.assert_includes("tools/X.cpp", '"asio.hpp"', "include-direction")

    def test_a_third_party_header_is_found_outside_its_places(self):
        for header in ["<asio.hpp>", "<cbor.h>", "<CLI/CLI.hpp>", "<nlohmann/json.hpp>", "<fmt/format.h>",
                       "<gtest/gtest.h>", "<gmock/gmock.h>", "<benchmark/benchmark.h>", "<uuid/uuid.h>"]:
            for path in ["Platform/X.h", "Platform/X.cpp", "Common/Source/Utilities/X.cpp", "switchboard/X.cpp",
                         "client/X.h", "examples/X.cpp"]:
                self.assert_includes(path, header, "include-foreign")
            for path in ["Platform/linux/X.cpp", "tools/X.cpp", "switchboard/XTest.cpp", "Tests/X.h", "bench/X.cpp",
                         "fuzz/X.cpp"]:
                self.assert_includes(path, header)

    def test_a_linux_header_is_found_above_the_backend_and_in_tests_there(self):
        for header in ["<linux/fs.h>", "<sys/epoll.h>", "<sys/eventfd.h>", "<sys/statfs.h>", "<mntent.h>"]:
            for path in ["Platform/X.h", "Platform/X.cpp", "Platform/XTest.cpp", "Common/Source/Utilities/X.cpp",
                         "switchboard/X.cpp", "switchboard/XTest.cpp", "client/X.cpp"]:
                self.assert_includes(path, header, "include-foreign")
            self.assert_includes("Platform/linux/X.cpp", header)

    def test_standard_and_posix_headers_are_fine_everywhere(self):
        for header in ["<vector>", "<shared_mutex>", "<unistd.h>", "<sys/socket.h>", "<sys/stat.h>"]:
            for path in ["Platform/X.h", "Common/Source/Utilities/X.cpp", "switchboard/X.cpp", "client/X.h"]:
                self.assert_includes(path, header)

    def test_a_conditional_in_a_contract_header_is_found(self):
        for line in ["#if 1", "#ifdef __linux__", "# ifndef X", "#else", "#elif 1"]:
            self.assertEqual(self.findings({"Platform/X.h": HEADER + line + "\n"}),
                             ["Platform/X.h:3 contract-conditional"])
            self.assertEqual(self.findings({"Platform/linux/X.h": HEADER + line + "\n"}), [])

    def test_a_file_without_an_opening_comment_is_found(self):
        bad = {"Platform/X.cpp": "#include <vector>\n", "Platform/Y.cpp": "//\n\nint y;\n", "Platform/Z.cpp": "",
               "CMakeLists.txt": "project(X)\n", "cmake/X.cmake": "\nset(A b)\n", "X.py": "import sys\n"}
        for path, text in bad.items():
            self.assertEqual(self.findings({path: text}), [f"{path}:1 purpose"])
        self.assertEqual(self.findings({"go": "#!/usr/bin/env bash\nset -e\n"}), ["go:2 purpose"])

    def test_a_file_with_an_opening_comment_is_fine(self):
        self.assertEqual(self.findings({
            "Platform/X.cpp": SOURCE, "Platform/Y.cpp": "/* What Y is. */\n", "CMakeLists.txt": "# The build.\n",
            "go": "#!/bin/sh\n# Goes there.\n", "x.py": '"""Does it."""\n', "LICENSE": "free\n"}), [])

    def test_a_header_without_a_guard_is_found(self):
        self.assertEqual(self.findings({"client/X.h": SOURCE}), ["client/X.h:1 pragma-once"])

    def test_the_hundred_and_first_column_is_found(self):
        self.assertEqual(self.findings({"client/X.cpp": SOURCE + "//" + "ü" * 98 + "\n"}), [])
        self.assertEqual(self.findings({"client/X.cpp": SOURCE + "//" + "ü" * 99 + "\n"}),
                         ["client/X.cpp:2 line-length"])

    def test_leftovers_are_found(self):
        for word in ["TO" "DO", "FIX" "ME", "XX" "X", "HA" "CK"]:
            self.assertEqual(self.findings({"docs/x.md": f"fine\n{word}: later\n"}), ["docs/x.md:2 leftover"])
        self.assertEqual(self.findings({"docs/x.md": 'mkdtemp("a.' + "X" * 6 + '")\n'}), [])

    def test_paths_of_one_machine_are_found(self):
        for path in ["/ho" "me/somebody/x", "/Us" "ers/somebody", "/wo" "rk/main"]:
            self.assertEqual(self.findings({"docs/x.md": f"see {path}\n"}), ["docs/x.md:1 machine-path"])
        self.assertEqual(self.findings({"docs/x.md": "~/wo" "rk/main and $HOME/wo" "rk/x\n"}), [])

    def test_a_function_of_seventy_lines_is_fine_and_of_seventy_one_is_found(self):
        self.assertEqual(self.findings({"client/X.cpp": SOURCE + function_of(70)}), [])
        self.assertEqual(self.findings({"client/X.cpp": SOURCE + function_of(71)}), ["client/X.cpp:2 function-length"])

    def test_the_baseline_grants_exactly_the_length_that_it_names(self):
        def findings(lines, granted):
            return self.findings({"client/X.cpp": SOURCE + function_of(lines),
                                  "scripts/tidy-baseline.txt": f"# The baseline.\nclient/X.cpp f {granted}\n"})

        self.assertEqual(findings(80, 80), [])
        self.assertEqual(findings(81, 80), ["client/X.cpp:2 function-length"])
        self.assertEqual(findings(79, 80), ["client/X.cpp:2 function-length"])
        self.assertEqual(findings(70, 80), ["client/X.cpp:1 function-length"])

    def test_binary_files_and_build_folders_are_left_alone(self):
        self.assertEqual(self.findings({"x.cpp": b"\0", "build/X.cpp": "int x;\n", ".git/X.py": "x\n"}), [])

    def test_functions_are_told_from_everything_else_in_braces(self):
        text = """
namespace a::b {
extern "C" {
enum class E : int { One, Two };
const std::map<int, int> table = {{1, 2}, {3, f(4)}};
class C final : public Base<void(int)> {
public:
    explicit C(int x) : first_{x}, second_(g(x)), third_{1} { h('{'); }
    C& operator=(const C&) { return *this; }
    bool operator()(int a = 3) const noexcept(true) { return a == 1'000'000; }

private:
    std::atomic<int> first_{0};
};
template <typename T>
requires std::integral<T>
auto join(
    T x) -> std::string {
    for (;;) { /* } */ }
    auto s = R"x(}}}" )x";
    return "}\\"}";  // }
}
#define M(x) { \\
    x
TEST_F(CTest, Claims) {
    if (x) { y(); }
}
}
}
C::~C() { }
"""
        found = [(last - first + 1, name) for first, last, name in tidy.functions(text)]
        self.assertEqual(found, [(1, "C"), (1, "operator="), (1, "operator()"), (8, "join"), (3, "CTest.Claims"),
                                 (1, "C::~C")])


if __name__ == "__main__":
    unittest.main()
