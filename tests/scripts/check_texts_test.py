#!/usr/bin/env python3
"""Tests check_texts.py on small trees of sources."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().with_name("check_texts.py")
TESTED_SOURCE = 'void f() { KV_LOG(log, LogInfo, kSource, "Sent %u files of %s."); }\n'


class CheckTextsTest(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self.root = pathlib.Path(self._folder.name)
        self.write("src/Tested.cpp", TESTED_SOURCE)
        self.write("tests/src/Tested_test.cpp", 'TEST(A, B) { EXPECT_EQ(Text(), "Sent 3 files of x."); }\n')

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def run_check(self, *options):
        return subprocess.run(
            [sys.executable, str(SCRIPT), "--root", str(self.root), *options],
            capture_output=True, text=True, timeout=30, check=False)

    def expect_good(self):
        result = self.run_check()
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def expect_fault(self, words):
        result = self.run_check()
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        self.assertIn(words, result.stdout)

    def test_a_text_with_something_in_the_place_of_its_directives_is_tested(self):
        self.expect_good()

    def test_an_invented_text_without_a_test_is_a_fault_with_its_place(self):
        self.write("driver/New.cpp",
                   '#include "x.h"\n\nvoid g() {\n    KV_LOG(log, LogError, s, "Invented text.");\n}\n')
        self.expect_fault("no test produces: 'Invented text.' (driver/New.cpp:4)")

    def test_each_folder_of_the_product_is_searched(self):
        for folder in ("src/", "system/src/", "driver/"):
            self.write(folder + "New.h", f'inline void g() {{ throw E("Lost in {folder}"); }}\n')
            self.expect_fault(f"no test produces: 'Lost in {folder}'")

    def test_a_single_word_is_a_message_where_it_is_thrown_logged_or_a_reason(self):
        for call in ('throw E("Gone");', 'log->LogError("Gone");', 'file->SetFailureReason("Gone");'):
            self.write("src/New.cpp", f"void g() {{ {call} }}\n")
            self.expect_fault("no test produces: 'Gone'")
        self.write("src/New.cpp", 'const char* kName = "Gone";\n')
        self.expect_good()

    def test_words_that_reach_the_message_through_a_function_are_found(self):
        self.write("src/New.cpp", 'void g() { Require(ok, "Not quite there"); }\n')
        self.expect_fault("no test produces: 'Not quite there'")

    def test_adjacent_literals_are_one_text(self):
        self.write("src/New.cpp", 'void g() { Fail("One half " // first\n    "and the other"); }\n')
        self.expect_fault("'One half and the other'")
        self.write("tests/src/New_test.cpp", 'TEST(A, C) { Expect("One half and "\n    "the other"); }\n')
        self.expect_good()

    def test_a_text_that_the_test_puts_together_is_tested(self):
        self.write("tests/src/Tested_test.cpp",
                   'TEST(A, B) { EXPECT_EQ(Text(), "Sent " + Count() + " files of " + name + "."); }\n')
        self.expect_good()

    def test_parts_in_two_statements_are_no_test(self):
        self.write("tests/src/Tested_test.cpp", 'TEST(A, B) { Expect("Sent "); Expect(" files of x."); }\n')
        self.expect_fault("'Sent %u files of")

    def test_another_spelling_is_no_test(self):
        self.write("tests/src/Tested_test.cpp", 'TEST(A, B) { Expect("sent 3 files of x."); }\n')
        self.expect_fault("'Sent %u files of")

    def test_a_comment_is_no_test(self):
        self.write("tests/src/Tested_test.cpp", '// "Sent 3 files of x."\n/* "Sent 3 files of x." */\n')
        self.expect_fault("'Sent %u files of")

    def test_a_test_of_another_program_does_not_count(self):
        (self.root / "tests/src/Tested_test.cpp").unlink()
        self.write("tests/testkit/A_test.cpp", 'TEST(A, B) { Expect("Sent 3 files of x."); }\n')
        self.expect_fault("'Sent %u files of")

    def test_a_part_of_a_longer_text_does_not_count(self):
        self.write("src/New.cpp", 'void g() { throw E("Socket closed"); throw E("TLS Socket closed"); }\n')
        self.write("tests/src/New_test.cpp", 'TEST(A, C) { Expect("TLS Socket closed"); }\n')
        self.expect_fault("no test produces: 'Socket closed'")
        self.write("tests/src/New_test.cpp", 'TEST(A, C) { Expect("TLS Socket closed", "Socket closed"); }\n')
        self.expect_good()

    def test_an_excuse_needs_a_reason(self):
        self.write("src/New.cpp", 'void g() { throw E("Never raised"); }\n')
        self.write("tests/scripts/texts.txt", "# excused\nNever raised\n    g is never called.\n")
        self.expect_good()
        self.write("tests/scripts/texts.txt", "Never raised\n")
        self.expect_fault("gives no reason for: 'Never raised'")

    def test_an_excuse_that_is_out_of_date_is_a_fault(self):
        self.write("tests/scripts/texts.txt", "Not there\n    It is gone.\n")
        self.expect_fault("excuses a text that is nowhere: 'Not there'")
        self.write("tests/scripts/texts.txt", "Sent %u files of %s.\n    Hard to produce.\n")
        self.expect_fault("excuses a text that a test produces")

    def test_a_tree_without_texts_is_a_fault(self):
        (self.root / "src/Tested.cpp").unlink()
        self.expect_fault("no message texts")

    def test_the_list_names_the_tests_of_a_text(self):
        listing = self.run_check("--list").stdout
        self.assertIn("src/Tested.cpp:1", listing)
        self.assertIn("    tests/src/Tested_test.cpp A.B\n", listing)


if __name__ == "__main__":
    unittest.main()
