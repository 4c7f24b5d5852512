#!/usr/bin/env python3
"""Checks that what is kept for compatibility is held by tests that exist.

Every row of a table in docs/compatibility*.md names at least one test in its last column, and every "Held by:"
comment of the sources names at least one; each of them must be a test of tests/.

Usage: check_compatibility.py ROOT        checks the tree at ROOT
       check_compatibility.py --self-check  checks that an invented name, a row and a comment without one are found
"""

import re
import sys
import tempfile
from pathlib import Path

SOURCE_FOLDERS = ("src", "system", "driver", "host", "testkit")
TEST_DEFINITION = re.compile(r"^\s*(?:TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.M)
TEST_NAME = r"[A-Za-z]\w*\.[A-Za-z]\w*"
HELD_BY = re.compile(rf"Held by:((?:[\s,]|and\b|{TEST_NAME})*)")


def sources_below(folder):
    return sorted(path for path in folder.rglob("*") if path.suffix in (".cpp", ".h"))


def defined_tests(root):
    return {
        f"{suite}.{name}"
        for path in sources_below(root / "tests")
        for suite, name in TEST_DEFINITION.findall(path.read_text(encoding="utf-8"))
    }


def without_comment_marks(text):
    return re.sub(r"^[ \t]*//[/!]?<?[ \t]?", "", text, flags=re.M)


def claims_of_comments(root):
    """For each "Held by:": where it stands, and the tests that it names."""
    for folder in SOURCE_FOLDERS:
        for path in sources_below(root / folder):
            text = without_comment_marks(path.read_text(encoding="utf-8"))
            for claim in HELD_BY.finditer(text):
                line = text.count("\n", 0, claim.start()) + 1
                yield f"{path.relative_to(root)}:{line}", re.findall(TEST_NAME, claim.group(1))


def cells_of(line):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip())[1:-1]]


def is_rule(line):
    return re.fullmatch(r"\|[\s:|-]+\|", line.strip()) is not None


def claims_of_documents(root):
    """For each row of a table, without its head: where it stands, and the tests that it names."""
    for path in sorted((root / "docs").glob("compatibility*.md")):
        lines = path.read_text(encoding="utf-8").splitlines()
        for number, line in enumerate(lines, start=1):
            is_head = number < len(lines) and is_rule(lines[number])
            if line.startswith("|") and not is_rule(line) and not is_head:
                names = re.findall(rf"`({TEST_NAME})`", cells_of(line)[-1])
                yield f"{path.relative_to(root)}:{number}", names


def problems_of(root):
    tests = defined_tests(root)
    claims = [*claims_of_comments(root), *claims_of_documents(root)]
    for place, names in claims:
        if not names:
            yield f"{place}: names no test"
        for name in names:
            if name not in tests:
                yield f"{place}: there is no test {name}"
    if not claims:
        yield "nothing to check: no table in docs/compatibility*.md and no 'Held by:' comment"


def check(root):
    problems = list(problems_of(root))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


SAMPLE_TEST = "TEST_F(RealTest,\n       HoldsIt) {\n}\n"
SAMPLE_TABLE = "| what happens | where | test |\n|---|---|---|\n| it | a \\| b | {} |\n"
SAMPLE_COMMENT = "/// Compatibility: it.\n/// Held by: {}\nvoid It();\n"


def problems_of_sample(in_document, in_comment):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name, text in (
            ("tests/real_test.cpp", SAMPLE_TEST),
            ("docs/compatibility.md", SAMPLE_TABLE.format(in_document)),
            ("src/it.h", SAMPLE_COMMENT.format(in_comment)),
        ):
            (root / name).parent.mkdir()
            (root / name).write_text(text, encoding="utf-8")
        return list(problems_of(root))


def self_check():
    real, wrapped = "`RealTest.HoldsIt`", "RealTest.HoldsIt,\n/// RealTest.HoldsIt."
    expectations = (
        (real, wrapped, []),
        ("`RealTest.Invented`", wrapped, ["docs/compatibility.md:3: there is no test RealTest.Invented"]),
        (real + ", `Invented.HoldsIt`", wrapped, ["docs/compatibility.md:3: there is no test Invented.HoldsIt"]),
        ("none", wrapped, ["docs/compatibility.md:3: names no test"]),
        (real, "RealTest.HoldsIt,\n/// RealTest.Invented.", ["src/it.h:2: there is no test RealTest.Invented"]),
        (real, "nobody.", ["src/it.h:2: names no test"]),
    )
    failures = 0
    for in_document, in_comment, expected in expectations:
        found = problems_of_sample(in_document, in_comment)
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
