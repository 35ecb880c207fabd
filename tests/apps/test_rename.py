#!/usr/bin/python3
"""corvane rename: the log files of an event follow it to its new name."""

import datetime
import json
import unittest

import parallel
from installation import Installation, event, events_document, run

NOW = datetime.datetime.now(datetime.timezone.utc)  # the command follows the files of this year
YEAR, MONTH = NOW.year, NOW.month


def document(**names):
    """An event for each word, which stays its identity, with the name given."""
    return events_document(*(event(word, "1 > 0").replace(f"<name>{word}</name>", f"<name>{name}</name>") for word, name in names.items()))


class Plant(Installation):
    def __init__(self, test, *files):
        super().__init__(test)
        (self.folder / "data").mkdir()
        for name in files:
            path = self.folder / "data" / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(name, encoding="utf-8")

    def files(self):
        root = self.folder / "data"
        return sorted(str(path.relative_to(root)) for path in root.rglob("*") if path.is_file())

    def rename(self, old, new, *options):
        self.write("old.xeve", old)
        self.write("new.xeve", new)
        paths = ("--old", self.folder / "old.xeve", "--new", self.folder / "new.xeve")
        return run("rename", "--setup", self.setup, *paths, *options)


def file(name, extension="suc", year=YEAR, month=MONTH):
    return f"{year}/{month:02}/{name} {month:02}-{year}.{extension}"


class Rename(unittest.TestCase):
    def test_renames_both_files_and_tells_each(self):
        plant = Plant(self, file("Pump"), file("Pump", "dat"), file("Fan"))
        result = plant.rename(document(Pump="Pump", Fan="Fan"), document(Pump="Pumpe nº 1", Fan="Fan"), "--json")
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual(
            [{"old": file("Pump", kind), "new": file("Pumpe nº 1", kind), "renamed": True} for kind in ("dat", "suc")],
            [json.loads(line) for line in result.out.splitlines()],
        )
        self.assertEqual([file("Fan"), file("Pumpe nº 1", "dat"), file("Pumpe nº 1")], plant.files())

    def test_table_tells_old_and_new(self):
        plant = Plant(self, file("Pump"))
        result = plant.rename(document(Pump="Pump"), document(Pump="P"))
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual([["OLD", "NEW"], [*file("Pump").split(), *file("P").split()]], [line.split() for line in result.out.splitlines()])

    def test_without_a_changed_name_there_is_nothing_to_do(self):
        plant = Plant(self, file("Pump"))
        result = plant.rename(document(Pump="Pump"), document(Pump="Pump"))
        self.assertEqual((0, ""), (result.code, result.out))
        self.assertIn("no event bears another name", result.err)
        self.assertEqual([file("Pump")], plant.files())

    def test_tells_what_keeps_its_name(self):
        plant = Plant(self, file("Pump"), file("Pump", year=YEAR - 1), file("Pump", "dat", year=YEAR - 1), file("Fan"))
        result = plant.rename(document(Pump="Pump", Fan="Fan"), document(Pump="P", Fan="F"))
        self.assertEqual(0, result.code)
        self.assertIn('2 files keep the name of "Pump"', result.err)
        self.assertIn('"Fan" is "F" now', result.err)
        self.assertEqual(sorted([file("P"), file("Pump", year=YEAR - 1), file("Pump", "dat", year=YEAR - 1), file("Fan")]), plant.files())

    def test_fails_for_a_name_that_is_taken(self):
        plant = Plant(self, file("Pump"), file("Pump", "dat"), file("P"))
        result = plant.rename(document(Pump="Pump"), document(Pump="P"), "--json")
        self.assertEqual(3, result.code)
        self.assertEqual([True, False], [json.loads(line)["renamed"] for line in result.out.splitlines()])
        self.assertIn(file("Pump"), result.err)
        self.assertEqual([file("P", "dat"), file("P"), file("Pump")], plant.files())
        self.assertEqual(file("P"), (plant.folder / "data" / file("P")).read_text(encoding="utf-8"))

    def test_fails_for_a_name_that_is_too_long(self):
        plant = Plant(self, file("Pump"))
        result = plant.rename(document(Pump="Pump"), document(Pump="x" * 250))
        self.assertEqual((3, ""), (result.code, result.out))
        self.assertIn("too long", result.err)
        self.assertEqual([file("Pump")], plant.files())

    def test_works_only_where_nobody_else_writes(self):
        plant = Plant(self, file("Pump"))
        server = plant.serve()
        result = plant.rename(document(Pump="Pump"), document(Pump="P"))
        self.assertEqual((3, ""), (result.code, result.out))
        self.assertIn("another program", result.err)
        self.assertEqual([file("Pump")], plant.files())
        server.stop()
        self.assertEqual(0, plant.rename(document(Pump="Pump"), document(Pump="P")).code)
        self.assertEqual([file("P")], plant.files())

    def test_refuses_what_are_no_documents(self):
        plant = Plant(self, file("Pump"))
        good = document(Pump="Pump")
        for old, new, word in (
            ("<main>", good, "old.xeve: line 1"),
            (good, "", "new.xeve"),
            (good, "<main/>", "new.xeve: there are no events"),
            ("<zenpark><things/></zenpark>", good, "old.xeve"),
        ):
            result = plant.rename(old, new)
            self.assertEqual((2, ""), (result.code, result.out), result)
            self.assertIn(word, result.err)
        result = run("rename", "--setup", plant.setup, "--old", plant.folder / "none.xeve", "--new", plant.setup)
        self.assertEqual((2, ""), (result.code, result.out))
        self.assertIn("none.xeve: No such file", result.err)

    def test_refuses_wrong_usage(self):
        setup = Plant(self).setup
        for arguments in ((), ("--setup", setup), ("--setup", setup, "--old", "a"), ("--setup", setup, "--new", "a"), ("--old", "a", "--new", "b")):
            result = run("rename", *arguments)
            self.assertEqual((2, ""), (result.code, result.out))
            self.assertNotEqual("", result.err)


if __name__ == "__main__":
    parallel.main()
