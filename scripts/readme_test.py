#!/usr/bin/python3
"""The program in README.md, built and run as it stands there.

    readme_test.py --extract FILE                      writes the program to FILE, for the build
    readme_test.py --programs FOLDER --program FILE    runs what was built from it against a private switchboard

It must print what the README says that it prints.
"""

import argparse
import os
import sys
from pathlib import Path

sys.dont_write_bytecode = True
from private_switchboard import Failure, Place, eventually, stop  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent
README = ROOT / "README.md"
NOBODY = 65534


def blocks(kind, document=README):
    """The contents of a document's code blocks of one kind."""
    found, current = [], None
    for line in document.read_text().splitlines():
        if current is None and line.startswith("```"):
            current = (line[3:], [])
        elif current is not None and line == "```":
            if current[0] == kind:
                found.append("\n".join(current[1]) + "\n")
            current = None
        elif current is not None:
            current[1].append(line)
    return found


def write_program(program, place, document=README):
    text = f"// Written by the build from {document.name}.\n" + program
    if not place.exists() or place.read_text() != text:
        place.write_text(text)


def extract(place):
    programs = blocks("cpp")
    assert len(programs) == 1, f"README.md has {len(programs)} C++ programs"
    write_program(programs[0], place)


def run(programs, program):
    user = NOBODY if os.geteuid() == 0 else None
    owner = os.geteuid() if user is None else user
    with Place(programs) as place:
        service = place.start(user, "switchboard")
        socket = Path(place.bootstrap(owner, False)) / f"com.sevrin.switchboard.{owner}"
        eventually(socket.exists, f"the socket {socket}")
        status, lines, errors = place.run(user, program)
        expected = blocks("")[0].splitlines()
        if (status, lines) != (0, expected):
            raise Failure(f"expected status 0 and {expected}, got {status}, {lines} and {errors}")
        if (status := stop(service)) != 2:
            raise Failure(f"expected the switchboard to end with status 2, it was {status}")
    print("the program of README.md prints what it says")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--extract", type=Path)
    parser.add_argument("--programs", type=Path)
    parser.add_argument("--program")
    options = parser.parse_args()
    if options.extract:
        return extract(options.extract)
    try:
        return run(options.programs, options.program)
    except Failure as failure:
        sys.exit(f"readme_test: {failure}")


if __name__ == "__main__":
    main()
