#!/usr/bin/env python3
"""Checks that every message text of the product is produced by a test.

A message text is a string literal of src/, system/src/ or driver/ that holds a letter and a blank, or that
stands in a log call, a throw or a failure reason and holds a letter. A test counts as one that produces it
when one of its statements holds the text, with anything in the place of its format directives and of what
code puts together. What is only a part of a longer text of the product does not count. Whether the test
asserts what it holds is for its reader to see.

    check_texts.py [--root DIR] [--list]

Exit status 1 when a text has neither a test nor a line in texts.txt, which says text by text why no test can
produce it, and when a line of texts.txt is out of date. --list shows the tests of each text.
"""

import argparse
import pathlib
import re
import sys

from cpp_texts import statements

PRODUCT_FOLDERS = ("src", "system/src", "driver")
TEST_FOLDER = "tests"
OTHER_TESTS = ("tests/testkit", "tests/host")  # of programs beside the product, whatever texts they hold
EXEMPTIONS = "tests/scripts/texts.txt"
DIRECTIVE = re.compile(r"%(?:[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z)?[diouxXeEfgGcsp])")
WORDS = re.compile(r"[A-Za-z].* |.* .*[A-Za-z]", re.DOTALL)
LETTER = re.compile(r"[A-Za-z]")
MESSAGE_CALL = re.compile(r"\b(?:KV_LOG|Log(?:Trace|Debug|Info|Warning|Error)|throw|SetFailureReason)\b")


def sources(root, folder):
    return sorted(p for p in (root / folder).rglob("*") if p.suffix in (".cpp", ".h"))


def is_message(text, statement):
    words = DIRECTIVE.sub("", text)
    if not LETTER.search(words):
        return False
    return bool(WORDS.search(words)) or bool(MESSAGE_CALL.search(statement.code))


def product_texts(root):
    """The places ("file:line") of each message text."""
    places = {}
    for folder in PRODUCT_FOLDERS:
        for path in sources(root, folder):
            for statement in statements(path.read_text()):
                for text, line in statement.literals:
                    if is_message(text, statement):
                        places.setdefault(text, []).append(f"{path.relative_to(root)}:{line}")
    return places


def test_statements(root):
    """What each statement of a test says: its literals, a NUL between those that code stands between."""
    result = []
    for path in sources(root, TEST_FOLDER):
        if any(path.is_relative_to(root / other) for other in OTHER_TESTS):
            continue
        for statement in statements(path.read_text()):
            where = f"{path.relative_to(root)} {statement.test or '(shared)'}"
            result.append((where, "\0".join(text for text, _ in statement.literals)))
    return result


def pattern_of(text):
    """Matches the text, with or without its line end, and anything in the place of a directive."""
    parts = [re.escape(part) for part in DIRECTIVE.split(text.rstrip("\r\n").replace("%%", "%"))]
    return re.compile(".*?".join(parts), re.DOTALL)


def tests_of(text, places, said):
    """The tests that hold the text itself: as a part of a longer text of the product it does not count."""
    pattern = pattern_of(text)
    longer = [pattern_of(other) for other in places if text in other and text != other]

    def holds(literals):
        for other in longer:
            literals = other.sub("\0", literals)
        return pattern.search(literals)

    return sorted({where for where, literals in said if holds(literals)})


def read_exemptions(path):
    """Each text with its reason: a line with the text, then indented lines that say why."""
    reasons = {}
    text = None
    for line in path.read_text().splitlines() if path.exists() else []:
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith("    "):
            text = line
            reasons[text] = ""
        elif text is not None:
            reasons[text] += line.strip() + " "
    return reasons


def faults(places, said, reasons):
    found = []
    for text, where in sorted(places.items()):
        tested = bool(tests_of(text, places, said))
        if not tested and text not in reasons:
            found.append(f"no test produces: {text!r} ({', '.join(where)})")
        if tested and text in reasons:
            found.append(f"{EXEMPTIONS} excuses a text that a test produces: {text!r}")
    for text, reason in sorted(reasons.items()):
        if text not in places:
            found.append(f"{EXEMPTIONS} excuses a text that is nowhere: {text!r}")
        if not reason:
            found.append(f"{EXEMPTIONS} gives no reason for: {text!r}")
    return found


def main():
    parser = argparse.ArgumentParser(description="Checks that every message text is produced by a test.")
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parents[2])
    parser.add_argument("--list", action="store_true", help="show the tests of each text")
    options = parser.parse_args()

    places = product_texts(options.root)
    said = test_statements(options.root)
    reasons = read_exemptions(options.root / EXEMPTIONS)
    if options.list:
        for text, where in sorted(places.items()):
            print(f"{text!r}  {', '.join(where)}")
            for test in tests_of(text, places, said) or [f"(none: {reasons.get(text, 'no reason')})"]:
                print(f"    {test}")
    found = faults(places, said, reasons)
    for fault in found:
        print(fault)
    if not places:
        print(f"no message texts below {options.root}")
    print(f"{len(places)} texts, {len(reasons)} of them excused, {len(found)} faults")
    return 1 if found or not places else 0


if __name__ == "__main__":
    sys.exit(main())
