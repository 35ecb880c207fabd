#!/usr/bin/python3
"""corvane migrate: what becomes of the old event log, beside a converter that knows nothing but the tables of both forms."""

import datetime
import json
import os
import pty
import random
import select
import shutil
import struct
import subprocess
import unittest

import event_files
import parallel
from event_files import OldRecord
from installation import PROGRAM, Batch, Installation, event, events_document, guid_of, run

SEED = int(os.environ.get("CORVANE_TEST_SEED", random.randrange(1 << 32)))
PUMP = event_files.guid_bytes(guid_of("Pump"))
FAN = event_files.guid_bytes(guid_of("Fan"))
GONE = bytes(range(16))
MAY = "Events 05-2007.eve"


def old_file(*records, head=b"EVENTv1.000", tail=b""):
    return head + b"".join(record.packed() for record in records) + tail


class Plant(Installation):
    def __init__(self, test, *names, events=None):
        super().__init__(test, "", events or events_document(*(event(name, "1 > 0") for name in names or ("Pump", "Fan"))))
        (self.folder / "data").mkdir()

    def write_old(self, name, content):
        return self.write(f"data/{name}", content)

    def data(self):
        root = self.folder / "data"
        return {str(path.relative_to(root)): path.read_bytes() for path in sorted(root.rglob("*")) if path.is_file()}

    def migrate(self, *options):
        return run("migrate", "--setup", self.setup, *options)

    def log(self, name):
        result = run("log", "--file", self.folder / "data" / name, "--json")
        return [json.loads(line) for line in result.out.splitlines()]


class Migrate(unittest.TestCase):
    def test_converts_what_it_finds(self):
        plant = Plant(self)
        plant.write_old("Annotations 05-2007.dat", b"ANNOTATIONS" + struct.pack(">H", 4) + b"warm")
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 86400, PUMP, 1, 11), OldRecord(b"b" * 16, 5, FAN, 4)))
        result = plant.migrate()
        self.assertEqual((0, "", "corvane: 1 file of 2 records converted\n"), (result.code, result.out, result.err))
        self.assertEqual(["2007/05/Fan 05-2007.suc", "2007/05/Pump 05-2007.dat", "2007/05/Pump 05-2007.suc"], list(plant.data()))
        (row,) = plant.log("2007/05/Pump 05-2007.suc")
        self.assertEqual(("2007-05-02T00:00:00Z", 1, "warm"), (row["date"], row["value"], row["annotation"]))
        before = plant.data()
        result = plant.migrate()
        self.assertEqual((0, "", "corvane: 0 files of 0 records converted\n"), (result.code, result.out, result.err))
        self.assertEqual(before, plant.data())

    def test_makes_files_that_only_the_group_may_read(self):
        plant = Plant(self)
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1)))
        plant.migrate()
        self.assertEqual(0o640, (plant.folder / "data/2007/05/Pump 05-2007.suc").stat().st_mode & 0o7777)
        self.assertEqual(0o750, (plant.folder / "data/2007/05").stat().st_mode & 0o7777)

    def test_tells_what_was_dropped(self):
        plant = Plant(self)
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, GONE, 1), OldRecord(b"b" * 16, 0, PUMP, 1), OldRecord(b"a" * 16, 9, GONE, 2)))
        plant.write_old("Events 06-2007.eve", old_file(OldRecord(b"c" * 16, 0, b"x" * 16, 1), OldRecord(b"d" * 16, 0, GONE, 1)))
        gone, other = event_files.guid_text(GONE), event_files.guid_text(b"x" * 16)
        for options in (("--dry-run",), ("--json", "--dry-run"), ()):
            result = plant.migrate(*options)
            self.assertEqual(1, result.code, result)
            if "--json" in options:
                lines = [json.loads(line) for line in result.out.splitlines()]
                self.assertEqual([["eventId", "records", "reason"]] * 2, [list(line) for line in lines])
                self.assertEqual([(gone, 3), (other, 1)], [(line["eventId"], line["records"]) for line in lines])
            else:
                self.assertEqual([[gone, "3"], [other, "1"]], [line.split()[:2] for line in result.out.splitlines()[1:]])
                self.assertIn("no event of that id is configured", result.out)
            self.assertIn("2 files of 5 records", result.err)
            left = {MAY, "Events 06-2007.eve"} if options else {"2007/05/Pump 05-2007.suc"}
            self.assertEqual(left, set(plant.data()))

    def test_tells_events_that_are_there_and_did_not_load(self):
        document = events_document(event("Pump", "1 > 0"), event("Fan", "1 >"), event("x" * 250, "1 > 0"))
        plant = Plant(self, events=document)
        long_name = event_files.guid_bytes(guid_of("x" * 250))
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, FAN, 1), OldRecord(b"a" * 16, 0, long_name, 1)))
        result = plant.migrate("--json")
        self.assertEqual(1, result.code)
        reasons = [json.loads(line)["reason"] for line in result.out.splitlines()]
        self.assertIn('"Fan"', reasons[0])
        self.assertIn("too long", reasons[1])

    def test_tells_what_it_leaves_and_what_it_replaces(self):
        plant = Plant(self)
        plant.write_old("Events 04-2007.eve", b"SOMETHING ELSE")
        plant.write_old("Annotations 05-2007.dat", b"SOMETHING ELSE")
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1), OldRecord(b"a" * 16, 0, GONE, 1)))
        plant.write_old("Events_05-2007.eve", old_file(OldRecord(b"b" * 16, 0, PUMP, 1)))
        plant.write_old("Events 12-1999.eve", old_file(OldRecord(b"c" * 16, 0, PUMP, 1)))
        pair = event_files.Pair()
        pair.add(datetime.datetime(2007, 5, 1), b"d" * 16, 1)
        (plant.folder / "data/2007/05").mkdir(parents=True)
        plant.write_old("2007/05/Pump 05-2007.suc", pair.records)
        result = plant.migrate()
        self.assertEqual(1, result.code)
        for words in (
            "Events 04-2007.eve: doesn't begin as an event log",
            "Annotations 05-2007.dat: doesn't begin as a file of annotations",
            "Pump 05-2007.suc: is there already; its 1 records are replaced",
            "Pump 05-2007.suc: is written twice",
            "Events 12-1999.eve: a record holds the years 2000 to 2063",
            "3 files of 4 records converted",
        ):
            self.assertIn(words, result.err)
        self.assertEqual(
            {"Events 04-2007.eve", "1999/12/Pump 12-1999.suc", "2007/05/Pump 05-2007.suc"}, set(plant.data())
        )
        self.assertEqual([event_files.guid_text(b"b" * 16)], [row["id"] for row in plant.log("2007/05/Pump 05-2007.suc")])

    def test_tells_that_two_old_files_have_one_target(self):
        plant = Plant(self)
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1)))
        plant.write_old("Events_05-2007.eve", old_file(OldRecord(b"b" * 16, 0, PUMP, 1)))
        for options in (("--dry-run",), ()):
            result = plant.migrate(*options)
            self.assertEqual((1, ""), (result.code, result.out), result)
            self.assertIn("Pump 05-2007.suc: is written twice", result.err)

    def test_has_nothing_to_do_in_an_installation_that_never_ran(self):
        plant = Plant(self)
        shutil.rmtree(plant.folder / "data")
        result = plant.migrate()
        self.assertEqual((0, ""), (result.code, result.out), result)

    def test_fails_where_not_all_could_be_written(self):
        plant = Plant(self)
        plant.write_old("2007", "a file where a directory should be")
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1), OldRecord(b"a" * 16, 0, GONE, 1)))
        result = plant.migrate("--json")
        self.assertEqual(3, result.code, result)
        self.assertEqual([event_files.guid_text(GONE)], [json.loads(line)["eventId"] for line in result.out.splitlines()])
        self.assertIn("2007/05/Pump 05-2007.suc: can't be made", result.err)

    def test_drops_all_where_no_event_is_configured(self):
        for document in (events_document(), None):
            plant = Plant(self, events=document or "-")
            if document is None:
                (plant.folder / "cfg/default.xeve").unlink()
            plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1)))
            result = plant.migrate("--json")
            self.assertEqual(1, result.code, result)
            (dropped,) = (json.loads(line) for line in result.out.splitlines())
            self.assertEqual((event_files.guid_text(PUMP), 1), (dropped["eventId"], dropped["records"]))
            self.assertEqual({}, plant.data())

    def test_touches_nothing_under_a_configuration_that_it_cannot_read(self):
        for document in ("<main><events>", ""):
            plant = Plant(self, events=document or "-")
            plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1)))
            before = plant.data()
            result = plant.migrate()
            self.assertEqual((2, ""), (result.code, result.out), result)
            self.assertIn("default.xeve", result.err)
            self.assertEqual(before, plant.data())

    def test_works_only_where_nobody_else_writes(self):
        plant = Plant(self)
        plant.write_old(MAY, old_file(OldRecord(b"a" * 16, 0, PUMP, 1)))
        server = plant.serve()
        self.assertIn("1 file of the old event log", server.messages())
        result = plant.migrate()
        self.assertEqual((3, ""), (result.code, result.out), result)
        self.assertIn("another program", result.err)
        self.assertEqual([MAY], list(plant.data()))
        self.assertEqual(0, plant.migrate("--dry-run").code)  # that only reads
        server.stop()
        self.assertEqual(0, plant.migrate().code)
        self.assertEqual(["2007/05/Pump 05-2007.suc"], list(plant.data()))
        self.assertNotIn("old event log", plant.serve().messages())

    def test_refuses_wrong_usage(self):
        plant = Plant(self)
        for arguments in ((), ("--setup",), ("--setup", plant.setup, "more"), ("--setup", plant.folder / "none.toml")):
            result = run("migrate", *arguments)
            self.assertEqual((2, ""), (result.code, result.out))
            self.assertNotEqual("", result.err)

    def test_shows_its_progress_on_a_terminal(self):
        plant = Plant(self)
        plant.write_old(MAY, old_file(*(OldRecord(b"a" * 16, number, PUMP, 1) for number in range(20000))))
        terminal, end = pty.openpty()
        process = subprocess.Popen([PROGRAM, "migrate", "--setup", plant.setup], stdout=subprocess.PIPE, stderr=end)
        os.close(end)
        shown = b""
        while select.select([terminal], [], [], 60)[0]:
            try:
                shown += os.read(terminal, 4096)
            except OSError:
                break  # the program has closed its end
        os.close(terminal)
        self.assertEqual(0, process.wait())
        process.stdout.close()
        for words in (b"\rcounting 0 %", b"\rcounting 100 %", b"\rconverting 0 %", b"\rconverting 100 %\r\x1b[K"):
            self.assertIn(words, shown)
        self.assertTrue(shown.endswith(b"\x1b[Kcorvane: 1 file of 20000 records converted\r\n"), shown[-100:])


class SecondConverter(unittest.TestCase):
    PLANTS = 150
    NAMES = ["Pump", "Fan", "Bomba nº 泵", "a/b\\c"]

    def random_month(self, chance):
        """The two old files of a month, the second perhaps None."""
        texts = [chance.choice((b"warm", b"", b"ho\0t", "weiß &amp;".encode(), b"\xff", b"x" * 65535, b"y" * 300)) for _ in range(5)]
        side = event_files.OLD_ANNOTATIONS
        places = [0, 4, 1 << 31]
        for text in texts:
            places.append(len(side))
            side += struct.pack(">H", len(text)) + text
        events = [event_files.guid_bytes(guid_of(name)) for name in self.NAMES] + [GONE]
        records = [
            OldRecord(
                chance.randbytes(16),
                chance.choice((0, 1, 86400, chance.randrange(31 * 86400), chance.randrange(1 << 32))),
                chance.choice(events),
                chance.choice((1, 2, 4, chance.randrange(256))),
                chance.choice((0, chance.choice(places), chance.randrange(len(side) + 10))),
            )
            for _ in range(chance.choice((0, 1, 5, 60)))
        ]
        if chance.random() < 0.1:
            side = b"X" + side[1:]
        if chance.random() < 0.2:
            side = side[: chance.randrange(len(side))]
        return old_file(*records, tail=chance.randbytes(chance.randrange(41))), chance.choice((side, side, None))

    def test_agrees_byte_for_byte(self):
        print(f"CORVANE_TEST_SEED={SEED}")
        chance = random.Random(SEED)
        batch = Batch(self)
        for number in range(self.PLANTS):
            plant = Plant(self, *self.NAMES)
            names = {event_files.guid_bytes(guid_of(name)): name.replace("/", "_").replace("\\", "_") for name in self.NAMES}
            expected, dropped = {}, 0
            for year, month in sorted({(chance.randrange(2000, 2064), chance.randrange(1, 13)) for _ in range(3)}):
                records, side = self.random_month(chance)
                plant.write_old(f"Events {month:02}-{year}.eve", records)
                if side is not None:
                    plant.write_old(f"Annotations {month:02}-{year}.dat", side)
                expected = event_files.convert_old_month(year, month, records, side or b"", names, expected)
                dropped += sum(old.event == GONE for old in event_files.read_old(records))
            result = batch.run("migrate", "--setup", plant.setup, "--json")
            about = f"plant {number} of CORVANE_TEST_SEED={SEED}: {result}"
            self.assertEqual(sorted(expected), sorted(plant.data()), about)
            self.assertEqual(expected, plant.data(), about)
            self.assertEqual(1 if dropped else 0, result.code, about)
            self.assertEqual(dropped, sum(json.loads(line)["records"] for line in result.out.splitlines()), about)


if __name__ == "__main__":
    parallel.main()
