#!/usr/bin/python3
"""Breaks a copy of the language texts in each way that check_texts.py must notice, and sees it fail.

Each case starts from the texts that ship, changes one thing and expects exit code 1 and one named fault: a check that
accepts everything, or that fails for some other reason, doesn't pass here.
"""

import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
CHECK = HERE / "check_texts.py"
RESOURCES = HERE.parent.parent / "resources"


def run_check(*arguments):
    result = subprocess.run(["/usr/bin/python3", str(CHECK), *map(str, arguments)], capture_output=True, text=True, check=False)
    return result.returncode, result.stdout


class CheckTexts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.directory = Path(folder.name)
        self.restore()

    def restore(self):
        """The texts that ship, unbroken."""
        for path in RESOURCES.glob("*.tsv"):
            shutil.copy(path, self.directory)

    def replace_line(self, name, key, *new_lines):
        """Puts `new_lines` in the place of the line of `key`; returns the number of the first, counted from 1."""
        path = self.directory / name
        lines = path.read_bytes().split(b"\n")
        places = [i for i, line in enumerate(lines) if line.startswith(key.encode() + b"\t")]
        self.assertEqual(len(places), 1, f"{name} has one line of {key}")
        lines[places[0] : places[0] + 1] = [n if isinstance(n, bytes) else n.encode() for n in new_lines]
        path.write_bytes(b"\n".join(lines))
        return places[0] + 1

    def expect_fault(self, *expected):
        """The check fails, and says exactly these things, one fault each."""
        code, output = run_check(self.directory)
        self.assertEqual(code, 1, output)
        faults = [line for line in output.splitlines() if not line.startswith("note: ")]
        self.assertEqual(faults.pop(), f"{len(expected)} faults", output)
        for text in expected:
            self.assertTrue(any(text in fault for fault in faults), f"'{text}' in:\n{output}")

    def test_the_texts_that_ship_pass_without_an_argument(self):
        code, output = run_check()
        self.assertEqual(code, 0, output)

    def test_an_intact_copy_passes(self):
        code, output = run_check(self.directory)
        self.assertEqual(code, 0, output)

    def test_a_third_language_is_checked_too(self):
        shutil.copy(self.directory / "en.tsv", self.directory / "fr.tsv")
        code, output = run_check(self.directory)
        self.assertEqual(code, 0, output)
        line = self.replace_line("fr.tsv", "378", "378\t")
        self.expect_fault(f"fr.tsv:{line}: 378: the text is empty")

    def test_a_missing_id_fails_and_so_do_languages_with_different_sets(self):
        self.replace_line("es.tsv", "32446")
        self.expect_fault("es.tsv: missing id 32446", "es.tsv: lacks what other languages have: 32446")

    def test_an_id_missing_in_every_language_fails(self):
        self.replace_line("en.tsv", "E62")
        self.replace_line("es.tsv", "E62")
        self.expect_fault("en.tsv: missing id E62", "es.tsv: missing id E62")

    def test_an_unknown_id_fails(self):
        en = self.replace_line("en.tsv", "742", "742\tPaste", "743\tCut")
        es = self.replace_line("es.tsv", "742", "742\tPegar", "743\tCortar")
        self.expect_fault(f"en.tsv:{en + 1}: unknown id 743", f"es.tsv:{es + 1}: unknown id 743")

    def test_an_unknown_id_of_one_language_makes_the_sets_different(self):
        self.replace_line("en.tsv", "E43", "E43\ta filtered name can't be read here", "E44\tsomething else")
        self.expect_fault("unknown id E44", "es.tsv: lacks what other languages have: E44")

    def test_wrong_placeholders_fail(self):
        rows = [
            ("33810", "Checking an event", "[], must be [%s]"),
            ("33810", "Checking %s of %s", "[%s %s], must be [%s]"),
            ("197", "At most %s variables", "[%s], must be [%d]"),
            ("197", "At most %i variables", "[%i], must be [%d]"),
            ("355", "Name %s", "[%s], must be []"),
            ("32825", "Percent sign %", "[%], must be []"),
            ("32825", "Percent sign %%", "[%%], must be []"),
        ]
        for key, text, fault in rows:
            with self.subTest(text=text):
                self.restore()
                self.replace_line("en.tsv", key, f"{key}\t{text}")
                self.expect_fault(f"{key}: placeholders are {fault}")

    def test_placeholders_in_the_wrong_order_fail(self):
        self.replace_line("es.tsv", "32879", "32879\t%s es el argumento %d")
        self.expect_fault("32879: placeholders are [%s %d], must be [%d %s]")

    def test_a_duplicate_fails(self):
        line = self.replace_line("en.tsv", "379", "379\tModify", "379\tChange")
        self.expect_fault(f"en.tsv:{line + 1}: duplicate id 379")

    def test_an_empty_text_fails(self):
        for text in ("", "  "):
            self.restore()
            self.replace_line("en.tsv", "E0", f"E0\t{text}")
            self.expect_fault("E0: the text is empty")

    def test_a_text_that_only_repeats_its_number_fails(self):
        for key, text in (("355", "355"), ("355", "#355"), ("355", "String id 355."), ("E50", "E50"), ("E50", "error_E50")):
            with self.subTest(text=text):
                self.restore()
                self.replace_line("en.tsv", key, f"{key}\t{text}")
                self.expect_fault(f"{key}: the text only repeats its number")

    def test_unsorted_lines_fail(self):
        rows = [
            ("379", ["379\tModify", "378\tAdd"], "378", "unsorted: 378"),
            ("E43", ["E43\tx", "E40\tnothing compiled"], "E40", "unsorted: E40"),
            ("E0", ["E0\tsuccess", "34711\tPublish"], "34711", "unsorted: 34711"),  # the E keys come last
            ("32031", ["32031\tState", "825\tGeneral"], "825", "unsorted: 825"),  # by number, not letter by letter
        ]
        for key, lines, moved, fault in rows:
            with self.subTest(moved=moved):
                self.restore()
                self.replace_line("en.tsv", moved)
                self.replace_line("en.tsv", key, *lines)
                self.expect_fault(fault)

    def test_a_bad_escape_fails(self):
        for text in (r"Add\r", r"Add\x41", r"Add \"it\"", "Add\\"):
            with self.subTest(text=text):
                self.restore()
                self.replace_line("en.tsv", "378", f"378\t{text}")
                self.expect_fault("378: bad escape")

    def test_the_three_escapes_pass(self):
        self.replace_line("en.tsv", "378", r"378" "\t" r"Add\n\t\\")
        code, output = run_check(self.directory)
        self.assertEqual(code, 0, output)

    def test_invalid_utf8_fails(self):
        for text in (b"A\xf1adir", b"\xc3", b"\xed\xa0\x80"):
            with self.subTest(text=text):
                self.restore()
                line = self.replace_line("es.tsv", "378", b"378\t" + text)
                self.expect_fault(
                    f"es.tsv:{line}: invalid UTF-8", "es.tsv: missing id 378", "es.tsv: lacks what other languages have: 378"
                )

    def test_a_byte_order_mark_fails(self):
        path = self.directory / "en.tsv"
        path.write_bytes(b"\xef\xbb\xbf" + path.read_bytes())
        self.expect_fault("en.tsv:1: a byte order mark")

    def test_a_line_without_tab_or_key_fails(self):
        for bad in ("378 Add", "", "\tAdd", "0378\tAdd", "x378\tAdd", "e40\tAdd", "+378\tAdd"):
            with self.subTest(line=bad):
                self.restore()
                line = self.replace_line("en.tsv", "378", "378\tAdd", bad)
                self.expect_fault(f"en.tsv:{line + 1}: not ID<TAB>TEXT")

    def test_control_characters_fail(self):
        for text in ("Add\tit", "Add\x07it"):
            with self.subTest(text=text):
                self.restore()
                self.replace_line("en.tsv", "378", f"378\t{text}")
                self.expect_fault("378: a raw tab or control character")

    def test_line_ends_of_two_characters_fail(self):
        self.replace_line("en.tsv", "378", "378\tAdd\r")
        self.expect_fault("378: blanks at the beginning or the end", "378: a raw tab or control character")

    def test_blanks_around_a_text_fail(self):
        for text in (" Add", "Add "):
            with self.subTest(text=text):
                self.restore()
                self.replace_line("en.tsv", "378", f"378\t{text}")
                self.expect_fault("378: blanks at the beginning or the end")

    def test_a_line_break_in_a_warning_fails(self):
        self.replace_line("en.tsv", "32446", "32446\tsyntax\\nerror")
        self.expect_fault("32446: a piece of a one-line warning")

    def test_a_file_without_last_line_end_fails(self):
        path = self.directory / "en.tsv"
        path.write_bytes(path.read_bytes().rstrip(b"\n"))
        self.expect_fault("en.tsv: the last line has no line end")

    def test_a_directory_without_texts_fails(self):
        for path in self.directory.iterdir():
            path.unlink()
        self.expect_fault("no *.tsv here")

    def test_comments_may_stand_anywhere(self):
        self.replace_line("en.tsv", "378", "# between\ttwo texts", "378\tAdd")
        code, output = run_check(self.directory)
        self.assertEqual(code, 0, output)


if __name__ == "__main__":
    unittest.main()
