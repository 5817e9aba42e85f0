#!/usr/bin/python3
"""The programs in a document, built and run as they stand there.

    document_programs_test.py DOCUMENT --extract FILE...    writes its programs to these files, for the build
    document_programs_test.py DOCUMENT --run PROGRAM...     runs what was built from them, in the same order

Each must print what stands in the next block without a language. They run in a home of their own and need no switchboard.
"""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
from readme_test import blocks, write_program  # noqa: E402

PATIENCE = 60


def extract(document, places):
    programs = blocks("cpp", document)
    assert len(programs) == len(places), f"{document.name} has {len(programs)} C++ programs, not {len(places)}"
    for program, place in zip(programs, places):
        write_program(program, place, document)


def run(document, programs):
    expected = blocks("", document)
    assert len(expected) == len(programs), f"{document.name} says of {len(expected)} programs what they print"
    for program, output in zip(programs, expected):
        with tempfile.TemporaryDirectory(prefix="sevrin-document-") as home:
            found = subprocess.run([program.resolve()], env=dict(os.environ, CFFIXED_USER_HOME=home, HOME=home), cwd="/",
                                   stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=PATIENCE, check=False)
        if (found.returncode, found.stdout) != (0, output):
            sys.exit(f"document_programs_test: {document.name}: {program.name}: expected {output!r}, "
                     f"got {found.stdout!r}, status {found.returncode} and {found.stderr!r}")
    print(f"the programs of {document.name} print what it says")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("document", type=Path)
    task = parser.add_mutually_exclusive_group(required=True)
    task.add_argument("--extract", type=Path, nargs="+")
    task.add_argument("--run", type=Path, nargs="+")
    options = parser.parse_args()
    if options.extract:
        extract(options.document, options.extract)
    else:
        run(options.document, options.run)


if __name__ == "__main__":
    main()
