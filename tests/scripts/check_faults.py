#!/usr/bin/env python3
"""Checks that every row of the verdict tables in docs/faults.md is complete and held by tests that exist.

A verdict table is one whose columns are: fault, where, status and reason, connection, kvhost, test. No cell of it is
empty, and the last one names at least one test as `Suite.Name`. Every name of that form on the page is that of a test of
tests/. No row stands there twice.

Usage: check_faults.py ROOT          checks the tree at ROOT
       check_faults.py --self-check  checks that an invented name, a row without a test, an empty cell, a missing cell
                                     and a row that stands there twice are found
"""

import re
import sys
import tempfile
from pathlib import Path

PAGE = "docs/faults.md"
HEAD = ["fault", "where", "status, reason", "connection", "kvhost", "test"]
TEST_DEFINITION = re.compile(r"^\s*(?:TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.M)
TEST_NAME = re.compile(r"`([A-Z]\w*\.[A-Z]\w*)`")


def defined_tests(root):
    return {
        f"{suite}.{name}"
        for path in sorted((root / "tests").rglob("*.cpp")) + sorted((root / "tests").rglob("*.h"))
        for suite, name in TEST_DEFINITION.findall(path.read_text(encoding="utf-8"))
    }


def cells_of(line):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip())[1:-1]]


def is_rule(line):
    return re.fullmatch(r"\|[\s:|-]+\|", line.strip()) is not None


def verdict_rows(lines):
    """The line number and the cells of every row of a verdict table."""
    inside = False
    for number, line in enumerate(lines, start=1):
        if not line.startswith("|"):
            inside = False
        elif cells_of(line) == HEAD:
            inside = True
        elif inside and not is_rule(line):
            yield number, cells_of(line)


def problems_of_row(cells):
    if len(cells) != len(HEAD):
        yield f"has {len(cells)} cells, not {len(HEAD)}"
        return
    for column, cell in zip(HEAD, cells):
        if not cell:
            yield f"the column '{column}' is empty"
    if cells[-1] and not TEST_NAME.search(cells[-1]):
        yield "names no test"


def problems_of(root):
    text = (root / PAGE).read_text(encoding="utf-8")
    lines = text.splitlines()
    tests = defined_tests(root)
    rows = list(verdict_rows(lines))
    if not rows:
        yield f"{PAGE}: has no verdict table"
    seen = {}
    for number, cells in rows:
        for problem in problems_of_row(cells):
            yield f"{PAGE}:{number}: {problem}"
        first = seen.setdefault(tuple(cells), number)
        if first != number:
            yield f"{PAGE}:{number}: stands in line {first} already"
    for number, line in enumerate(lines, start=1):
        for name in TEST_NAME.findall(line):
            if name not in tests:
                yield f"{PAGE}:{number}: there is no test {name}"


def check(root):
    problems = list(problems_of(root))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


SAMPLE_TEST = "TEST_P(RealTest,\n       HoldsIt) {\n}\n"
SAMPLE_HEAD = "| " + " | ".join(HEAD) + " |\n|" + "---|" * len(HEAD) + "\n"


def problems_of_sample(*rows):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name, text in (("tests/real_test.cpp", SAMPLE_TEST), (PAGE, SAMPLE_HEAD + "\n".join(rows) + "\n")):
            (root / name).parent.mkdir()
            (root / name).write_text(text, encoding="utf-8")
        return list(problems_of(root))


def self_check():
    good = "| a \\| b | all | completed | kept | none | `RealTest.HoldsIt` (A) |"
    expectations = (
        ([good], []),
        ([], [f"{PAGE}: has no verdict table"]),
        ([good.replace("HoldsIt", "Invented")], [f"{PAGE}:3: there is no test RealTest.Invented"]),
        ([good.replace("(A)", "`Invented.HoldsIt`")], [f"{PAGE}:3: there is no test Invented.HoldsIt"]),
        ([good.replace("`RealTest.HoldsIt`", "a test")], [f"{PAGE}:3: names no test"]),
        ([good.replace("`RealTest.HoldsIt` (A)", "")], [f"{PAGE}:3: the column 'test' is empty"]),
        ([good.replace("none", "")], [f"{PAGE}:3: the column 'kvhost' is empty"]),
        ([good.replace("kept | ", "")], [f"{PAGE}:3: has 5 cells, not 6"]),
        ([good, good], [f"{PAGE}:4: stands in line 3 already"]),
    )
    failures = 0
    for rows, expected in expectations:
        found = problems_of_sample(*rows)
        if found != expected:
            failures += 1
            print(f"expected {expected}, found {found}")
    return 1 if failures else 0


def main(arguments):
    if arguments == ["--self-check"]:
        return self_check()
    if len(arguments) != 1 or arguments[0].startswith("-"):
        print(__doc__)
        return 2
    return check(Path(arguments[0]))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
